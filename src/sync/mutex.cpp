// Mutexes: POSIX mutexes in the caller's storage. No state of the library's own.
#include <type_traits>
#include <vyx/sync.h>

// An object's address is its mutex's address; the polymorphic class has its virtual table's pointer in front.
static_assert(sizeof(VYX_Mutex) == sizeof(VYX_MUTEX_T) && std::is_standard_layout_v<VYX_Mutex>);
static_assert(sizeof(vyx::vyx_mutex) == sizeof(VYX_MUTEX_T) && std::is_standard_layout_v<vyx::vyx_mutex>);
static_assert(sizeof(vyx::vyx_recursive_mutex) == sizeof(void *) + sizeof(VYX_MUTEX_T));
static_assert(std::has_virtual_destructor_v<vyx::vyx_recursive_mutex>);

namespace {

// What a mutex is that the platform could not make.
#if defined(PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP)
constexpr pthread_mutex_t kRecursiveMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
#else
constexpr pthread_mutex_t kRecursiveMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER;
#endif
constexpr pthread_mutex_t kNormalMutex = PTHREAD_MUTEX_INITIALIZER;

int32_t Result_Local(int iPlatformResult) {
    return iPlatformResult == 0 ? VYX_OK : VYX_ERROR;
}

} // namespace

int32_t VYX_MutexCreate(VYX_MUTEX_T *pMutex, uint32_t nType) {
    if (pMutex == nullptr)
        return VYX_ERROR;
    pthread_mutexattr_t attr = {};
    (void)pthread_mutexattr_init(&attr);
    // Deliberate: neither the type nor the mutex's own creation is examined. An unknown type leaves the
    // attribute's default, and the caller gets VYX_OK. Pinned by Mutex.UnknownTypeStillCreates.
    const int iType = nType == VYX_MUTEX_RECURSIVE ? PTHREAD_MUTEX_RECURSIVE : static_cast<int>(nType);
    (void)pthread_mutexattr_settype(&attr, iType);
    if (pthread_mutex_init(pMutex, &attr) != 0) // so that there is one in any case
        *pMutex = nType == VYX_MUTEX_RECURSIVE ? kRecursiveMutex : kNormalMutex;
    (void)pthread_mutexattr_destroy(&attr);
    return VYX_OK;
}

int32_t VYX_MutexDestroy(VYX_MUTEX_T *pMutex) {
    return pMutex == nullptr ? VYX_ERROR : Result_Local(pthread_mutex_destroy(pMutex));
}

int32_t VYX_MutexLock(VYX_MUTEX_T *pMutex) {
    return pMutex == nullptr ? VYX_ERROR : Result_Local(pthread_mutex_lock(pMutex));
}

int32_t VYX_MutexTryLock(VYX_MUTEX_T *pMutex) {
    return pMutex == nullptr ? VYX_ERROR : Result_Local(pthread_mutex_trylock(pMutex));
}

int32_t VYX_MutexUnlock(VYX_MUTEX_T *pMutex) {
    return pMutex == nullptr ? VYX_ERROR : Result_Local(pthread_mutex_unlock(pMutex));
}

VYX_Mutex::VYX_Mutex() {
    (void)VYX_MutexCreate(&m_hMutex, VYX_MUTEX_RECURSIVE);
}
VYX_Mutex::VYX_Mutex(unsigned int type) {
    (void)VYX_MutexCreate(&m_hMutex, type);
}
VYX_Mutex::~VYX_Mutex() {
    (void)pthread_mutex_destroy(&m_hMutex);
}
int VYX_Mutex::Lock() {
    return VYX_MutexLock(&m_hMutex);
}
int VYX_Mutex::Unlock() {
    return VYX_MutexUnlock(&m_hMutex);
}
int VYX_Mutex::TryLock() {
    return VYX_MutexTryLock(&m_hMutex);
}

namespace vyx {

vyx_mutex::vyx_mutex() {
    (void)VYX_MutexCreate(&m_hMutex, VYX_MUTEX_RECURSIVE);
}
vyx_mutex::vyx_mutex(int type) {
    (void)VYX_MutexCreate(&m_hMutex, static_cast<uint32_t>(type));
}
vyx_mutex::~vyx_mutex() {
    (void)pthread_mutex_destroy(&m_hMutex);
}
int vyx_mutex::lock() {
    return VYX_MutexLock(&m_hMutex);
}
int vyx_mutex::unlock() {
    return VYX_MutexUnlock(&m_hMutex);
}
int vyx_mutex::trylock() {
    return VYX_MutexTryLock(&m_hMutex);
}

vyx_recursive_mutex::vyx_recursive_mutex() {
    (void)VYX_MutexCreate(&m_hMutex, VYX_MUTEX_RECURSIVE);
}
vyx_recursive_mutex::~vyx_recursive_mutex() {
    (void)pthread_mutex_destroy(&m_hMutex);
}
int vyx_recursive_mutex::lock() {
    return VYX_MutexLock(&m_hMutex);
}
int vyx_recursive_mutex::unlock() {
    return VYX_MutexUnlock(&m_hMutex);
}
int vyx_recursive_mutex::trylock() {
    return VYX_MutexTryLock(&m_hMutex);
}

} // namespace vyx
