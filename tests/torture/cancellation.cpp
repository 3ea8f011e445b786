#include "torture/cancellation.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <random>
#include <unistd.h>

#include <vyx/vyx.h>

#include "torture/torture.h"

namespace torture {

namespace {

VYX_SEM_T s_bounded = nullptr, s_unbounded = nullptr;
VYX_HANDLE_MSGQ s_received = nullptr, s_sent = nullptr;
VYX_MUTEX_T s_mutex = PTHREAD_MUTEX_INITIALIZER;
VYX_COND_T s_cond = PTHREAD_COND_INITIALIZER;
VYX_EVENT s_event = nullptr, s_never = nullptr;
VYX_HANDLE_THREADPOOL s_pool = nullptr;
int s_pair[2] = {-1, -1};
VYX_SOCK_T s_listener = VYX_INVALID_SOCKET;
VYX_ADDR_T s_address{};
std::string s_source, s_target, s_directory;
std::atomic<int64_t> s_posted{0}, s_takenBounded{0}, s_takenUnbounded{0}, s_put{0}, s_got{0}, s_sentCount{0},
    s_accepted{0}, s_ran{0}, s_lines{0}, s_cancelled{0};

// Gives something back at the end of a scope, and when the thread is cancelled in it.
template <class Give>
class Finally {
  public:
    explicit Finally(Give give) : m_give(give) {}
    ~Finally() {
        int state = 0;
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        m_give();
        (void)pthread_setcancelstate(state, nullptr);
    }
    Finally(const Finally &) = delete;
    Finally &operator=(const Finally &) = delete;

  private:
    Give m_give;
};

void *CountRun(void * /*pParam*/) {
    ++s_ran;
    return nullptr;
}
void *Return(void *pParam) {
    return pParam;
}
void Handle(void * /*pData*/) {}
void Tick(uint32_t /*nTimerId*/, void * /*pUserData*/) {}

void Wait(uint32_t limit) {
    (void)VYX_MutexLock(&s_mutex);
    const Finally unlock([] { (void)VYX_MutexUnlock(&s_mutex); });
    (void)VYX_CondTimedWait(&s_cond, &s_mutex, limit);
}
void Receive(int32_t limit) {
    static thread_local VYX_MSG_BLOCK_T block;
    block.iDataLen = VYX_MSG_DATA_SIZE;
    if (VYX_MsgQReceiveEx(s_received, &block, limit) == VYX_OK)
        ++s_got;
}
void Send() {
    static thread_local VYX_MSG_BLOCK_T block;
    block.iDataLen = 8;
    if (s_sentCount < 100000 && VYX_MsgQSendEx(s_sent, &block) == VYX_OK)
        ++s_sentCount;
}
void Connect() {
    const VYX_SOCK_T socket = VYX_CreateSocket(AF_INET, SOCK_STREAM, 0);
    const Finally close([=] { (void)(VYX_LingerOn(socket, 0) == 0 && VYX_CloseSocket(socket, 0) == 0); });
    (void)VYX_ConnectWithTimeOut(socket, &s_address, 100);
}
void Accept() {
    if (const VYX_SOCK_T socket = VYX_Accept(s_listener, nullptr, 1); socket != VYX_INVALID_SOCKET) {
        const Finally close([=] { (void)VYX_CloseSocket(socket, 0); });
    }
}
void FixedPool() {
    const VYX_HANDLE_THREADPOOL pool = VYX_ThreadPool_CreateFlex(1, 2, 0, 1);
    const Finally destroy([=] { (void)VYX_ThreadPool_Destroy(pool); });
    (void)VYX_ThreadPool_Work(pool, Return, nullptr);
}
void FlexiblePool() {
    const VYX_HANDLE_THREADPOOLFLEX pool = VYX_ThreadPoolFlex_Create(2, 1, Handle, 0);
    const Finally destroy([=] { (void)VYX_ThreadPoolFlex_Destroy(pool); });
    (void)VYX_ThreadPoolFlex_Work(pool, nullptr);
}
void Thread() {
    const VYX_THREAD_T thread = VYX_Thread_Create(Return, nullptr, 0, 0, 0, 0);
    bool waited = false;
    const Finally wait([&] { (void)(waited || VYX_Thread_Wait(thread) == VYX_OK); });
    waited = VYX_Thread_Wait(thread) == VYX_OK;
}
void Directory() {
    _FILE_FIND_INFO entry;
    const VYX_DIR_T directory = VYX_OpenDir(s_directory.c_str());
    const Finally close([=] { (void)VYX_CloseDir(directory); });
    while (VYX_FindFileInDir(directory, &entry) == 0) {
    }
}
void Adapters() {
    VYX_ADAPTER_INFO *list = nullptr;
    const Finally give([&] { (void)VYX_FreeAdapterInfo(list); });
    (void)VYX_GetAdapterInfo(&list);
}
// Several calls in one: none of them ends the thread before it is done.
void Semaphore() {
    VYX_SEM_T sem = nullptr;
    (void)Check(VYX_SemCreate(&sem, 1) == VYX_OK && VYX_SemDestroy(&sem) == VYX_OK, "a semaphore");
}
void Event() {
    (void)Check(VYX_CloseEvent(VYX_CreateEvent(1)) == VYX_TRUE, "an event");
}
void Timer() {
    uint32_t id = VYX_MAX_TIMERS;
    (void)Check(VYX_SetTimer(Tick, nullptr, 1, &id) == VYX_OK, "a timer");
    (void)VYX_KillTimer(static_cast<int32_t>(id));
}
void Starts() {
    (void)Check(VYX_Init() == VYX_OK && VYX_Fini() == VYX_OK, "a start and a stop");
}
void Copy() {
    (void)VYX_CopyFile(s_source.c_str(), s_target.c_str(), 0);
}

struct Row {
    const char *name;
    void (*call)();
};
constexpr Row kRows[] = {
    {"SemTimedWait", [] { s_takenBounded += VYX_SemTimedWait(&s_bounded, 1) == VYX_OK ? 1 : 0; }},
    {"SemWait", [] { s_takenUnbounded += VYX_SemWait(&s_unbounded) == VYX_OK ? 1 : 0; }},
    {"MsgQReceive", [] { Receive(1); }},
    {"MsgQReceive without a limit", [] { Receive(-1); }},
    {"MsgQSend", Send},
    {"CondWait", [] { Wait(VYX_INFINITE); }},
    {"CondTimedWait", [] { Wait(1); }},
    {"WaitForSingleObject", [] { (void)VYX_WaitForSingleObject(s_event, 1); }},
    {"WaitForMultipleObjects", [] { (void)VYX_WaitForMultipleObjects(1, &s_never, 0, VYX_INFINITE); }},
    {"SetEvent", [] { (void)(VYX_SetEvent(s_event) == VYX_TRUE && VYX_ResetEvent(s_event) == VYX_TRUE); }},
    {"CreateEvent", Event},
    {"SemCreate", Semaphore},
    {"WorkEx", [] { s_accepted += VYX_ThreadPool_WorkEx(s_pool, CountRun, nullptr, 1) == VYX_OK ? 1 : 0; }},
    {"ThreadPool_Create", FixedPool},
    {"ThreadPoolFlex_Create", FlexiblePool},
    {"SetTimer", Timer},
    {"Init", Starts},
    {"WriteLog", [] { s_lines += WriteLog(VYX_LOG_LEVEL_INF, "c", 1, "a line") == 0 ? 1 : 0; }},
    {"Recvn",
     [] {
         char data[10];
         (void)VYX_Recvn(s_pair[0], data, 10, 2);
     }},
    {"Sendn",
     [] {
         char data[1000] = {};
         (void)VYX_Sendn(s_pair[0], data, 1000, 2);
     }},
    {"RecvWithTimeOut",
     [] {
         char data[10];
         (void)VYX_RecvWithTimeOut(s_pair[0], data, 10, VYX_INFINITE);
     }},
    {"Connect", Connect},
    {"Accept", Accept},
    {"Thread_Wait", Thread},
    {"OpenDir", Directory},
    {"GetAdapterInfo", Adapters},
    {"CopyFile", Copy},
    {"Sleep", [] { (void)VYX_Sleep(1); }},
};

struct Call {
    const Row *row;
    bool before; // the thread is cancelled before the call
};
void *Run(void *pCall) {
    const auto *call = static_cast<const Call *>(pCall);
    if (call->before)
        (void)pthread_cancel(pthread_self());
    for (;;) {
        call->row->call();
        pthread_testcancel();
    }
}

void Give() {
    VYX_MSG_BLOCK_T block;
    block.iDataLen = 8;
    ++s_posted;
    (void)Check(VYX_SemPost(&s_bounded) == VYX_OK && VYX_SemPost(&s_unbounded) == VYX_OK, "SemPost");
    s_put += VYX_MsgQSendEx(s_received, &block) == VYX_OK ? 1 : 0;
    (void)VYX_CondBroadCast(&s_cond);
}

void CancelIn(const Row &row, std::mt19937 &random) {
    Call call = {&row, random() % 4 == 0};
    pthread_t thread{};
    if (!Check(pthread_create(&thread, nullptr, Run, &call) == 0, "pthread_create"))
        return;
    const struct timespec delay = {0, static_cast<long>(random() % 1500000)};
    (void)nanosleep(&delay, nullptr); // to the moment of the cancellation
    if (random() % 2 == 0)
        Give();
    (void)(call.before || Check(pthread_cancel(thread) == 0, "pthread_cancel"));
    void *result = nullptr;
    struct timespec end = {};
    (void)clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += 60;
    if (!Check(pthread_timedjoin_np(thread, &result, &end) == 0,
               std::string(row.name) + ": cancelled, and goes on for a minute"))
        _exit(1);
    (void)Check(result == PTHREAD_CANCELED, std::string(row.name) + ": not cancelled");
    (void)Check(VYX_MutexTryLock(&s_mutex) == VYX_OK && VYX_MutexUnlock(&s_mutex) == VYX_OK,
                std::string(row.name) + ": a mutex stays locked");
    (void)Check((fcntl(s_pair[0], F_GETFL) & O_NONBLOCK) == 0,
                std::string(row.name) + ": a socket stays non-blocking");
    ++s_cancelled;
}

int64_t Drain(VYX_HANDLE_MSGQ queue) {
    VYX_MSG_BLOCK_T block;
    int64_t count = 0;
    for (block.iDataLen = VYX_MSG_DATA_SIZE; VYX_MsgQReceiveEx(queue, &block, 1) == VYX_OK;
         block.iDataLen = VYX_MSG_DATA_SIZE)
        ++count;
    return count;
}
int64_t Drain(VYX_SEM_T &sem) {
    int64_t count = 0;
    while (VYX_SemTimedWait(&sem, 0) == VYX_OK)
        ++count;
    (void)Check(VYX_SemDestroy(&sem) == VYX_OK, "SemDestroy");
    return count;
}

} // namespace

void BeginCancellation(const std::string &folder) {
    s_source = folder + "source";
    s_target = folder + "cancelled";
    s_directory = folder;
    s_event = VYX_CreateEvent(0);
    s_never = VYX_CreateEvent(0);
    s_pool = VYX_ThreadPool_Create(0, 1);
    s_listener = VYX_CreateSocket(AF_INET, SOCK_STREAM, 0);
    const int data[2000] = {};
    (void)Check(VYX_SemCreate(&s_bounded, 0) == VYX_OK && VYX_SemCreate(&s_unbounded, 0) == VYX_OK &&
                    VYX_MsgQCreateEx(&s_received) == VYX_OK && VYX_MsgQCreateEx(&s_sent) == VYX_OK &&
                    s_event != nullptr && s_never != nullptr && s_pool != nullptr &&
                    socketpair(AF_UNIX, SOCK_STREAM, 0, s_pair) == 0 &&
                    VYX_MakeAddrByString(AF_INET, "127.0.0.1", 0, &s_address) == VYX_OK &&
                    VYX_Bind(s_listener, &s_address) == 0 && VYX_Listen(s_listener, 100) == 0 &&
                    VYX_SetNonBlock(s_listener, 1) == 0 &&
                    VYX_GetAddrBySockFd(s_listener, &s_address, nullptr) == VYX_OK &&
                    VYX_Sendn(s_pair[1], data, sizeof data, 100) == sizeof data,
                "what the cancelled calls use");
}

int64_t CancelInEveryCall() {
    static std::mt19937 random{1}; // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
    const int64_t before = s_cancelled;
    for (const Row &row : kRows)
        CancelIn(row, random);
    return s_cancelled - before;
}

int64_t LinesOfCancelled() {
    return s_lines.exchange(0);
}

void EndCancellation() {
    (void)Check(s_takenBounded + Drain(s_bounded) == s_posted,
                "SemTimedWait: a cancelled thread took a count");
    (void)Check(s_takenUnbounded + Drain(s_unbounded) == s_posted,
                "SemWait: a cancelled thread took a count");
    (void)Check(s_got + Drain(s_received) == s_put, "MsgQReceive: a cancelled thread took a message");
    (void)Check(Drain(s_sent) == s_sentCount, "MsgQSend: a cancelled thread's message");
    (void)Check(VYX_MsgQDestroyEx(s_received) == VYX_OK && VYX_MsgQDestroyEx(s_sent) == VYX_OK,
                "MsgQDestroy");
    (void)Check(VYX_ThreadPool_Destroy(s_pool) == VYX_OK && s_ran >= s_accepted &&
                    s_ran <= s_accepted + s_cancelled,
                "items accepted: " + std::to_string(s_accepted) + ", run: " + std::to_string(s_ran));
    (void)Check(
        VYX_ResetEvent(s_event) == VYX_TRUE && VYX_WaitForSingleObject(s_event, 0) == VYX_WAIT_TIMEOUT &&
            VYX_SetEvent(s_event) == VYX_TRUE && VYX_WaitForSingleObject(s_event, 0) == VYX_WAIT_OBJECT_0,
        "an event that cancelled threads used");
    (void)Check(VYX_CloseEvent(s_event) == VYX_TRUE && VYX_CloseEvent(s_never) == VYX_TRUE &&
                    close(s_pair[0]) == 0 && close(s_pair[1]) == 0 && VYX_CloseSocket(s_listener, 0) == 0,
                "closing what cancelled threads used");
}

} // namespace torture
