// Threads and thread-local storage over POSIX threads. No state of the library's own.
#include <type_traits>
#include <vyx/thread.h>

static_assert(sizeof(VYX_Thread) == sizeof(VYX_THREAD_T) && std::is_standard_layout_v<VYX_Thread>);

namespace {

// Thread attributes for the length of a block.
class Attributes {
  public:
    Attributes() : m_bValid(pthread_attr_init(&m_attr) == 0) {}
    ~Attributes() {
        if (m_bValid)
            (void)pthread_attr_destroy(&m_attr);
    }
    Attributes(const Attributes &) = delete;
    Attributes &operator=(const Attributes &) = delete;

    bool SetStackSize(uint32_t nStackSize) {
        return m_bValid && (nStackSize == 0 || pthread_attr_setstacksize(&m_attr, nStackSize) == 0);
    }
    bool SetDetached() {
        return m_bValid && pthread_attr_setdetachstate(&m_attr, PTHREAD_CREATE_DETACHED) == 0;
    }
    bool SetPolicy(int32_t iPolicy) { return m_bValid && pthread_attr_setschedpolicy(&m_attr, iPolicy) == 0; }
    const pthread_attr_t *Get() const { return &m_attr; }

  private:
    pthread_attr_t m_attr;
    bool m_bValid;
};

int32_t Result_Local(int iPlatformResult) {
    return iPlatformResult == 0 ? VYX_OK : VYX_ERROR;
}

} // namespace

VYX_THREAD_T VYX_Thread_Create(VYX_THREAD_PROC fnStart, void *pParam, uint32_t nStackSize, int32_t /*iArg1*/,
                               int32_t /*iArg2*/, int32_t /*iArg3*/) {
    Attributes attributes;
    if (!attributes.SetStackSize(nStackSize))
        return VYX_INVALID_THREAD;
    VYX_THREAD_T hThread;
    if (pthread_create(&hThread, attributes.Get(), fnStart, pParam) != 0)
        return VYX_INVALID_THREAD;
    return hThread;
}

int32_t VYX_ThreadDetached_Create(VYX_THREAD_PROC fnStart, void *pParam, uint32_t nStackSize) {
    Attributes attributes;
    if (!attributes.SetDetached() || !attributes.SetStackSize(nStackSize))
        return VYX_FALSE;
    VYX_THREAD_T hThread;
    return pthread_create(&hThread, attributes.Get(), fnStart, pParam) == 0 ? VYX_TRUE : VYX_FALSE;
}

void VYX_Thread_Exit(void) {
    pthread_exit(nullptr);
}

int32_t VYX_Thread_Wait(VYX_THREAD_T hThread) {
    return hThread == VYX_INVALID_THREAD ? VYX_ERROR : Result_Local(pthread_join(hThread, nullptr));
}

VYX_THREAD_T VYX_Thread_GetSelfId(void) {
    return pthread_self();
}

int32_t VYX_Thread_Suspend(VYX_THREAD_T /*hThread*/) {
    return VYX_NOT_AVAILABLE;
}

int32_t VYX_Thread_Resume(VYX_THREAD_T /*hThread*/) {
    return VYX_NOT_AVAILABLE;
}

// Deliberate, here and in the policy call: nothing is changed, the result only tells whether the arguments
// would do. Pinned by Thread.PriorityAndPolicyAreProbes.
int32_t VYX_Thread_SetPriority(VYX_THREAD_T hThread, int32_t /*iPriority*/) {
    if (hThread == VYX_INVALID_THREAD)
        return VYX_ERROR;
    int iPolicy = 0;
    sched_param param = {};
    return Result_Local(pthread_getschedparam(hThread, &iPolicy, &param));
}

int32_t VYX_Thread_SetSchedPolicy(VYX_THREAD_T hThread, int32_t iPolicy) {
    if (hThread == VYX_INVALID_THREAD)
        return VYX_ERROR;
    Attributes attributes;
    return attributes.SetPolicy(iPolicy) ? VYX_OK : VYX_ERROR;
}

VYX_TLS_T VYX_ThreadTls_Create(void) {
    VYX_TLS_T hKey;
    return pthread_key_create(&hKey, nullptr) == 0 ? hKey : VYX_INVALID_TLS;
}

int32_t VYX_ThreadTls_SetValue(VYX_TLS_T hKey, void *pValue) {
    return hKey == VYX_INVALID_TLS ? VYX_ERROR : Result_Local(pthread_setspecific(hKey, pValue));
}

void *VYX_ThreadTls_GetValue(VYX_TLS_T hKey) {
    return hKey == VYX_INVALID_TLS ? nullptr : pthread_getspecific(hKey);
}

int32_t VYX_ThreadTls_Destroy(VYX_TLS_T hKey) {
    return hKey == VYX_INVALID_TLS ? VYX_ERROR : Result_Local(pthread_key_delete(hKey));
}

VYX_Thread::VYX_Thread() : m_hThread(VYX_INVALID_THREAD) {}
VYX_Thread::~VYX_Thread() = default;

int VYX_Thread::Create(void *(*start)(void *), void *param, unsigned int stackSize, int arg1, int arg2,
                       int arg3) {
    m_hThread = VYX_Thread_Create(start, param, stackSize, arg1, arg2, arg3);
    return m_hThread != VYX_INVALID_THREAD ? VYX_OK : VYX_ERROR;
}

int VYX_Thread::Wait() {
    return VYX_Thread_Wait(m_hThread);
}
int VYX_Thread::SetPriority(int priority) {
    return VYX_Thread_SetPriority(m_hThread, priority);
}
int VYX_Thread::SetSchedPolicy(int policy) {
    return VYX_Thread_SetSchedPolicy(m_hThread, policy);
}
int VYX_Thread::Suspend() {
    return VYX_NOT_AVAILABLE;
}
int VYX_Thread::Resume() {
    return VYX_NOT_AVAILABLE;
}
