// What a forked child may do, while all of the parent's threads are busy in the library.
#include <atomic>
#include <csignal>
#include <functional>
#include <string>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/vyx.h>

#include "support/support.h"
#include "support/temp_dir.h"

namespace {

constexpr int kLimit = 60; // seconds; a child that waits for a thread of the parent would wait for ever

// Threads that each do one thing over and over until the storm is over.
class Storm {
  public:
    explicit Storm(const std::vector<std::function<void()>> &works) {
        for (const auto &fnWork : works)
            m_threads.emplace_back([this, fnWork] {
                while (!m_bEnd)
                    fnWork();
            });
    }
    ~Storm() {
        m_bEnd = true;
        for (std::thread &thread : m_threads)
            thread.join();
    }
    Storm(const Storm &) = delete;
    Storm &operator=(const Storm &) = delete;

  private:
    std::atomic<bool> m_bEnd{false};
    std::vector<std::thread> m_threads;
};

VYX_EVENT s_hEvent = nullptr;
VYX_HANDLE_MSGQ s_hQueue = nullptr;
VYX_HANDLE_THREADPOOL s_hPool = nullptr;
VYX_HANDLE_THREADPOOLFLEX s_hFlexPool = nullptr;
VYX_COND_T s_hCond = PTHREAD_COND_INITIALIZER;
uint32_t s_nValue = 0;

void *Item(void *pParam) {
    return pParam;
}
void Handler(void * /*pData*/) {}
void Tick(uint32_t /*nTimerId*/, void * /*pUser*/) {}

bool UseSemaphore(uint32_t nTimeOut) {
    VYX_SEM_T hSem = nullptr;
    return VYX_SemCreate(&hSem, 1) == VYX_OK && VYX_SemTimedWait(&hSem, nTimeOut) == VYX_OK &&
           VYX_SemDestroy(&hSem) == VYX_OK;
}

bool UseQueue() {
    static thread_local VYX_MSG_BLOCK_T block;
    block = {};
    block.iDataLen = 8;
    if (VYX_MsgQSendEx(s_hQueue, &block) != VYX_OK)
        return false;
    block.iDataLen = VYX_MSG_DATA_SIZE;
    return VYX_MsgQReceiveEx(s_hQueue, &block, 1) == VYX_OK; // with other receivers it may be empty again
}

bool UsePools() {
    const VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateFlex(1, 2, 0, 2);
    const bool bWorks = VYX_ThreadPool_WorkEx(hPool, Item, nullptr, 1) == VYX_OK;
    return VYX_ThreadPool_Destroy(hPool) == VYX_OK && bWorks;
}

bool UseFlexPool() {
    const VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(2, 2, Handler, 0);
    return VYX_ThreadPoolFlex_Work(hPool, nullptr) == VYX_OK && VYX_ThreadPoolFlex_Destroy(hPool) == VYX_OK;
}

bool UseTimer() {
    uint32_t nTimerId = VYX_MAX_TIMERS;
    const bool bSet = VYX_SetTimer(Tick, nullptr, 1, &nTimerId) == VYX_OK;
    (void)VYX_KillTimer(static_cast<int32_t>(nTimerId));
    return bSet && nTimerId == 0; // a child has all ids
}

// In a child: the parent's event, which a thread of the parent resets all the time; and one of its own.
bool UseEvents() {
    const VYX_EVENT hEvent = VYX_CreateEvent(0);
    return VYX_ResetEvent(s_hEvent) == VYX_TRUE && VYX_CloseEvent(s_hEvent) == VYX_TRUE &&
           VYX_SetEvent(hEvent) == VYX_TRUE && VYX_WaitForSingleObject(hEvent, 1000) == VYX_WAIT_OBJECT_0 &&
           VYX_CloseEvent(hEvent) == VYX_TRUE;
}

bool UseCondition() {
    VYX_COND_T hCond = PTHREAD_COND_INITIALIZER;
    VYX_MUTEX_T hMutex = PTHREAD_MUTEX_INITIALIZER;
    (void)VYX_MutexLock(&hMutex);
    (void)VYX_CondTimedWait(&hCond, &hMutex, 5);
    return VYX_MutexUnlock(&hMutex) == VYX_OK && VYX_CondDestroy(&hCond) == 0;
}

bool UseTime() {
    VYX_TIME_EXP_T fields;
    return VYX_ExpTimeFromTimeLocal(VYX_TimeNow(), &fields) == VYX_OK;
}

bool UseLog() {
    return WriteLog(VYX_LOG_LEVEL_INF, __FILE__, __LINE__, "a line, %d", 1) == 0;
}

bool Restart() {
    return VYX_Fini() == VYX_OK && VYX_Init() == VYX_OK;
}

// In a child: the parent's pools.
bool DestroyPools() {
    return VYX_ThreadPool_WorkEx(s_hPool, Item, nullptr, 1) == VYX_ERROR &&
           VYX_ThreadPool_Destroy(s_hPool) == VYX_OK && VYX_ThreadPool_Create(0, 1) == s_hPool &&
           VYX_ThreadPoolFlex_Work(s_hFlexPool, nullptr) == VYX_ERROR &&
           VYX_ThreadPoolFlex_Destroy(s_hFlexPool) == VYX_OK;
}

struct Row {
    const char *szWhat;
    bool bThreads; // it needs threads in the child
    bool (*fnChild)();
};

const Row kRows[] = {
    {"stop", false, [] { return VYX_Fini() == VYX_OK; }},
    {"stop and start", true, Restart},
    {"condition destroyed", false, [] { return VYX_CondDestroy(&s_hCond) == 0; }},
    {"semaphore", false, [] { return UseSemaphore(0); }},
    {"bounded waits", true, [] { return Restart() && UseSemaphore(1000) && UseCondition(); }},
    {"atomic operations", false,
     [] {
         uint32_t nValue = 0;
         return VYX_AtomicInc(&s_nValue) == VYX_OK && VYX_AtomicInc(&nValue) == VYX_OK && nValue == 1;
     }},
    {"the parent's pools", false, DestroyPools},
    {"fixed pool", true, [] { return Restart() && UsePools(); }},
    {"flexible pool", true, UseFlexPool},
    {"queue", false,
     [] { // what the parent had queued may come first
         static VYX_MSG_BLOCK_T block;
         block.iDataLen = VYX_MSG_DATA_SIZE;
         const bool bRight =
             VYX_MsgQSendEx(s_hQueue, &block) == VYX_OK && VYX_MsgQReceiveEx(s_hQueue, &block, 0) == VYX_OK;
         for (int32_t iResult = VYX_OK;
              iResult == VYX_OK;) { // until it is empty and a time-out ends the wait
             block.iDataLen = VYX_MSG_DATA_SIZE;
             iResult = VYX_MsgQReceiveEx(s_hQueue, &block, 1);
         }
         return bRight;
     }},
    {"events", false, UseEvents},
    {"timer", true, [] { return UseTimer() && Restart() && UseTimer(); }},
    {"log", true, [] { return UseLog() && VYX_Log(0, nullptr) == VYX_OK; }},
    {"local time", false, UseTime},
};

// Result: the child's exit status; -1 if it did not exit.
int ForkAndRun(const Row &row) {
    const pid_t iChild = fork();
    if (iChild == 0) {
        alarm(kLimit);
        _exit(row.fnChild() ? 0 : 1);
    }
    int iStatus = 0;
    EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
}

TEST(Fork, ChildrenOfAStormDoAllThatTheyMay) {
    const support::TempDir dir;
    ASSERT_EQ(VYX_Init(), VYX_OK);
    ASSERT_EQ(VYX_MsgQCreateEx(&s_hQueue), VYX_OK);
    s_hEvent = VYX_CreateEvent(0);
    s_hPool = VYX_ThreadPool_Create(2, 2);
    s_hFlexPool = VYX_ThreadPoolFlex_Create(2, 5, Handler, 0);
    ASSERT_EQ(StartLogService(), 0); // another test may have stopped the library before
    ASSERT_EQ(EnableTarget(VYX_LOG_TARGET_DEBUG, nullptr, 0, 0), 0);
    ASSERT_NE(std::freopen("/dev/null", "w", stderr), nullptr);
    {
        const Storm storm({
            [] { EXPECT_TRUE(UseSemaphore(1000)); },
            [] { EXPECT_TRUE(UseCondition()); },
            [] { (void)VYX_AtomicInc(&s_nValue); },
            [] { (void)UsePools(); },
            [] { EXPECT_EQ(VYX_ThreadPool_WorkEx(s_hPool, Item, nullptr, 1), VYX_OK); },
            [] { EXPECT_TRUE(UseFlexPool() && VYX_ThreadPoolFlex_Work(s_hFlexPool, nullptr) == VYX_OK); },
            [] { (void)UseQueue(); },
            [] { EXPECT_EQ(VYX_ResetEvent(s_hEvent), VYX_TRUE); },
            [] { EXPECT_TRUE(UseTimer()); },
            [] { EXPECT_TRUE(UseTime()); },
            [] { (void)UseLog(); },
            [&dir] {
                (void)EnableTarget(VYX_LOG_TARGET_FILE, dir.Path().c_str(), 0, 1);
                (void)DisableTarget(VYX_LOG_TARGET_FILE);
            },
        });
        for (int nRound = 0; nRound < 6; ++nRound)
            for (const Row &row : kRows)
                EXPECT_EQ(row.bThreads && !support::kThreadsAfterFork ? 0 : ForkAndRun(row), 0)
                    << row.szWhat << ", round " << nRound;
    }
    EXPECT_EQ(VYX_CloseEvent(s_hEvent), VYX_TRUE);
    EXPECT_EQ(VYX_MsgQDestroyEx(s_hQueue), VYX_OK);
    EXPECT_EQ(VYX_ThreadPool_Destroy(s_hPool), VYX_OK);
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(s_hFlexPool), VYX_OK);
    EXPECT_EQ(StopLogService(false), 0);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

// In the child the worker that forked ends with its item, and the process with its last thread.
void ForkInWork(void *pStatus) {
    const pid_t iChild = fork();
    if (iChild == 0) {
        alarm(kLimit);
        const bool bDestroyed = DestroyPools();
        if (!bDestroyed || !support::kThreadsAfterFork)
            _exit(bDestroyed ? 0 : 1);
        return;
    }
    int iStatus = -1;
    (void)waitpid(iChild, &iStatus, 0);
    *static_cast<std::atomic<int> *>(pStatus) = iStatus;
}

TEST(Fork, AWorkerMayFork) {
    ASSERT_EQ(VYX_Init(), VYX_OK);
    std::atomic<int> statuses[] = {{-1}, {-1}};
    s_hPool = VYX_ThreadPool_Create(2, 2);
    s_hFlexPool = VYX_ThreadPoolFlex_Create(2, -1, ForkInWork, 0);
    const VYX_THREAD_PROC fnItem = [](void *pStatus) -> void * {
        ForkInWork(pStatus);
        return nullptr;
    };
    EXPECT_EQ(VYX_ThreadPool_Work(s_hPool, fnItem, &statuses[0]), VYX_OK);
    EXPECT_EQ(VYX_ThreadPoolFlex_Work(s_hFlexPool, &statuses[1]), VYX_OK);
    for (const std::atomic<int> &iStatus : statuses)
        EXPECT_TRUE(support::WaitUntil([&] { return iStatus == 0; })) << iStatus;
    // The parent goes on with its pools.
    EXPECT_EQ(VYX_ThreadPool_WorkEx(s_hPool, Item, nullptr, 1), VYX_OK);
    EXPECT_EQ(VYX_ThreadPool_Destroy(s_hPool), VYX_OK);
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(s_hFlexPool), VYX_OK);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

constexpr int kForks = 200;
std::atomic<int> s_nForks{0};

// The handler takes longer than the interval. It starts the next one, so that the interrupted code goes on in between.
void ForkInHandler(int /*iSignal*/) {
    const pid_t iChild = fork();
    if (iChild == 0)
        _exit(0);
    (void)waitpid(iChild, nullptr, 0);
    const struct itimerval next = {{0, 0}, {0, 300}};
    if (++s_nForks < kForks)
        (void)setitimer(ITIMER_REAL, &next, nullptr);
}

// A signal that interrupts the library while it holds a lock. Only calls that allocate nothing: fork itself waits for the
// allocator's locks. The C library looks for a zone's file, and allocates, if TZ is not set.
TEST(Fork, AHandlerMayForkWhereverItInterrupts) {
    ASSERT_EQ(setenv("TZ", "UTC0", 1), 0);
    ASSERT_EQ(VYX_Init(), VYX_OK);
    ASSERT_TRUE(UseTime());
    struct sigaction action = {};
    action.sa_handler = ForkInHandler;
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    s_nForks = 0;
    ForkInHandler(SIGALRM);
    EXPECT_TRUE(support::WaitUntil([] { // on this thread, which the signal is for
        for (int i = 0; i < 1000; ++i) {
            (void)VYX_AtomicInc(&s_nValue);
            (void)UseTime();
        }
        return s_nForks >= kForks;
    }));
    (void)signal(SIGALRM, SIG_DFL); // which is to end the children of the other tests
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

} // namespace
