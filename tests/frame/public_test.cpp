// The frame as an application sees it, through the shared library; and what a forked child may do.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include <gtest/gtest.h>

#include "sync/timed_wait_support.h"

namespace {

// The library must be ready for static constructors, and still there for their destructors.
struct StartsEarly {
    int32_t iStart = VYX_Init();
    ~StartsEarly() {
        if (VYX_Fini() != VYX_OK)
            _exit(1);
    }
};
const StartsEarly kEarly;

TEST(Frame, StartsFromAStaticConstructor) {
    EXPECT_EQ(kEarly.iStart, VYX_OK);
    struct sigaction action = {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, SIG_IGN) << "the start ignores broken pipes";
    EXPECT_EQ(VYX_GetVYXVersion(), 16777217U);
}

TEST(LastError, OwnSlotIsAlwaysEmpty) {
    EXPECT_EQ(VYX_SetLastError(5), 0);
    EXPECT_EQ(VYX_GetLastError(), 0U);
}

TEST(LastError, SystemSlotIsTheThreadsOwnErrno) {
    VYX_SetSystemLastError(22);
    std::thread other([] { VYX_SetSystemLastError(7); });
    other.join();
    EXPECT_EQ(VYX_GetSystemLastError(), 22U);
    EXPECT_EQ(errno, 22);
}

VYX_EVENT s_hEvent = nullptr;
VYX_HANDLE_MSGQ s_hQueue = nullptr;
VYX_HANDLE_THREADPOOL s_hPool = nullptr;
VYX_HANDLE_THREADPOOLFLEX s_hFlexPool = nullptr;
VYX_HANDLE_CYCLEBUFFER s_hRing = nullptr; // the parent writes to it all the time
uint8_t s_bytes[1 << 18];

void *Item(void *pParam) {
    return pParam;
}
void Tick(uint32_t /*nTimerId*/, void * /*pUser*/) {}

bool UseSemaphore(uint32_t nTimeOut) {
    support::Semaphore semaphore(1);
    return semaphore.Wait(nTimeOut) == VYX_OK && semaphore.Wait(nTimeOut) == VYX_ERROR;
}

bool UseTimer() {
    uint32_t nTimerId = VYX_MAX_TIMERS;
    return VYX_SetTimer(Tick, nullptr, 1, &nTimerId) == VYX_OK && nTimerId == 0 &&
           VYX_KillTimer(0) == VYX_ERROR; // as always; a child has all ids
}

bool UsePool() {
    const VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateFlex(1, 2, 0, 2);
    return VYX_ThreadPool_WorkEx(hPool, Item, nullptr, 1) == VYX_OK &&
           VYX_ThreadPool_Destroy(hPool) == VYX_OK;
}

bool UseFlexPool() {
    const VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(2, 2, free, 0);
    return VYX_ThreadPoolFlex_Work(hPool, nullptr) == VYX_OK && VYX_ThreadPoolFlex_Destroy(hPool) == VYX_OK;
}

// The parent's pools.
bool DestroyPools() {
    return VYX_ThreadPool_WorkEx(s_hPool, Item, nullptr, 1) == VYX_ERROR &&
           VYX_ThreadPool_Destroy(s_hPool) == VYX_OK && VYX_ThreadPool_Create(0, 1) == s_hPool &&
           VYX_ThreadPoolFlex_Work(s_hFlexPool, nullptr) == VYX_ERROR &&
           VYX_ThreadPoolFlex_Destroy(s_hFlexPool) == VYX_OK;
}

bool UseQueue() { // in which the parent has a message
    static VYX_MSG_BLOCK_T block;
    const auto receive = [](int32_t nTimeOut) {
        block.iDataLen = VYX_MSG_DATA_SIZE;
        return VYX_MsgQReceiveEx(s_hQueue, &block, nTimeOut);
    };
    return VYX_MsgQSendEx(s_hQueue, &block) == VYX_OK && receive(0) == VYX_OK && receive(0) == VYX_OK &&
           receive(1) == VYX_ERROR;
}

bool UseEvents() {
    const VYX_EVENT hEvent = VYX_CreateEvent(0);
    return VYX_ResetEvent(s_hEvent) == VYX_TRUE && VYX_CloseEvent(s_hEvent) == VYX_TRUE &&
           VYX_SetEvent(hEvent) == VYX_TRUE && VYX_WaitForSingleObject(hEvent, 1000) == VYX_WAIT_OBJECT_0 &&
           VYX_CloseEvent(hEvent) == VYX_TRUE;
}

bool UseRing() {
    uint32_t nStored = 0;
    (void)VYX_CycleBufferRead(s_hRing);
    return VYX_CycleBufferWrite(s_hRing, s_bytes, sizeof s_bytes) == VYX_OK &&
           VYX_CycleBufferValue(s_hRing, &nStored) == VYX_OK && nStored == sizeof s_bytes;
}

const struct {
    const char *szWhat;
    bool bThreads; // it needs threads in the child
    bool (*fnChild)();
} kRows[] = {
    {"stop", false, [] { return VYX_Fini() == VYX_OK; }},
    {"semaphore", false, [] { return UseSemaphore(0); }},
    {"the parent's pools", false, DestroyPools},
    {"flexible pool", true, UseFlexPool},
    {"queue", false, UseQueue},
    {"events", false, UseEvents},
    {"ring", false, UseRing},
    {"timer", true, UseTimer},
    {"log", true,
     [] { return WriteLog(VYX_LOG_LEVEL_INF, "", 1, "from a child") == 0 && VYX_Log(0, nullptr) == VYX_OK; }},
    {"after another start", true,
     [] {
         return VYX_Fini() == VYX_OK && VYX_Init() == VYX_OK && UseSemaphore(1) &&
                support::Monitor().Wait(1) == VYX_ERROR && UsePool() && UseTimer();
     }},
};

// What is done in the middle of a fork: handlers that are set up before the library's run while it holds its locks.
void (*s_fnMeanwhile)() = nullptr;
void DoMeanwhile() {
    if (s_fnMeanwhile != nullptr)
        std::exchange(s_fnMeanwhile, nullptr)();
}
[[gnu::used, gnu::section(".preinit_array")]] void (*const kBeforeTheLibrary)() = [] {
    (void)pthread_atfork(DoMeanwhile, nullptr, nullptr);
};

// As in a signal handler that interrupts the outer fork.
void ForkAgain() {
    const pid_t iChild = fork();
    if (iChild == 0)
        _exit(0);
    int iStatus = -1;
    EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
    EXPECT_EQ(iStatus, 0);
}
void ForkForEachRow(void *pDone) {
    for (const auto &row : kRows) {
        if (row.bThreads && !support::kThreadsAfterFork)
            continue;
        const pid_t iChild = fork();
        if (iChild == 0) {
            alarm(60); // if it waits for a thread of the parent
            _exit(row.fnChild() ? 0 : 1);
        }
        int iStatus = -1;
        EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
        EXPECT_EQ(iStatus, 0) << row.szWhat;
    }
    *static_cast<std::atomic<bool> *>(pDone) = true;
}

TEST(Fork, OneWithinAnotherLosesNoLock) {
    alarm(60); // if it does, nothing below returns
    for (int n = 0; n < 2; ++n) {
        s_fnMeanwhile = ForkAgain;
        const pid_t iChild = fork();
        if (iChild == 0) {
            alarm(60);
            _exit(VYX_Init() == VYX_OK && UseSemaphore(0) ? 0 : 1);
        }
        EXPECT_EQ(s_fnMeanwhile, nullptr);
        int iStatus = -1;
        EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
        EXPECT_EQ(iStatus, 0);
        EXPECT_EQ(VYX_Init(), VYX_OK);
        EXPECT_TRUE(UseSemaphore(0));
        EXPECT_EQ(VYX_Fini(), VYX_OK);
    }
    alarm(0);
}

#if !defined(VYX_TESTS_NO_THREADS_AROUND_FORK)
// The C library's own locks are free in the child, as no thread is in a call that takes them.
TEST(Fork, WaitsForCallsThatTakeLocksOfTheCLibrary) {
    static std::unique_ptr<support::Async> calls[2];
    s_fnMeanwhile = [] {
        calls[0] = std::make_unique<support::Async>([] { return VYX_Rand() < 0; });
        calls[1] = std::make_unique<support::Async>([] { return VYX_A2UTF8("a").size() > 1; });
        for (const auto &call : calls) {
            EXPECT_TRUE(support::WaitUntil([&] { return call->Asleep() || call->Done(); }));
            EXPECT_FALSE(call->Done());
        }
    };
    const pid_t iChild = fork();
    if (iChild == 0)
        _exit(0);
    EXPECT_EQ(waitpid(iChild, nullptr, 0), iChild);
    for (auto &call : calls) {
        EXPECT_EQ(call->Result(), 0);
        call.reset();
    }
}
#endif

// Forked on a thread of the program, and on workers of both pools.
TEST(Fork, ChildrenDoAllThatTheyMay) {
    static VYX_MSG_BLOCK_T block;
    ASSERT_EQ(VYX_MsgQCreateEx(&s_hQueue), VYX_OK);
    ASSERT_EQ(VYX_MsgQSendEx(s_hQueue, &block), VYX_OK);
    s_hEvent = VYX_CreateEvent(0);
    s_hPool = VYX_ThreadPool_Create(2, 2);
    s_hFlexPool = VYX_ThreadPoolFlex_Create(2, -1, ForkForEachRow, 0);
    uint32_t nTimerId = 0;
    ASSERT_EQ(VYX_SetTimer(Tick, nullptr, 3600000, &nTimerId), VYX_OK);
    ASSERT_EQ(VYX_Log(1, nullptr), VYX_OK);
    support::Semaphore semaphore;
    support::Async waiter([&] { return semaphore.Wait(support::kLong); }); // which no child's stop ends
    ASSERT_TRUE(support::WaitUntil([&] { return waiter.Asleep(); }));

    const VYX_CYCLEBUFFER_PROC fnDrop = [](uint8_t *, uint32_t, void *) { return 0; };
    ASSERT_EQ(VYX_CycleBufferInit(&s_hRing, sizeof s_bytes, fnDrop, nullptr), VYX_OK);
    std::atomic<bool> written{false};
    support::Async writer([&] {
        for (; !written; (void)VYX_CycleBufferRead(s_hRing))
            (void)VYX_CycleBufferWrite(s_hRing, s_bytes, sizeof s_bytes);
        return VYX_OK;
    });

    std::atomic<bool> done[3] = {};
    ForkForEachRow(&done[0]);
    const VYX_THREAD_PROC fnItem = [](void *pDone) -> void * { return ForkForEachRow(pDone), nullptr; };
    EXPECT_EQ(VYX_ThreadPool_Work(s_hPool, fnItem, &done[1]), VYX_OK);
    EXPECT_EQ(VYX_ThreadPoolFlex_Work(s_hFlexPool, &done[2]), VYX_OK);
    EXPECT_TRUE(support::WaitUntil([&] { return done[1] && done[2]; }));

    written = true;
    EXPECT_EQ(writer.Result(), VYX_OK);
    EXPECT_EQ(VYX_CycleBufferDestroy(s_hRing), VYX_OK);

    EXPECT_FALSE(waiter.Done());
    EXPECT_EQ(semaphore.Post(), VYX_OK);
    EXPECT_EQ(waiter.Result(), VYX_OK);
    EXPECT_EQ(VYX_ThreadPool_WorkEx(s_hPool, Item, nullptr, 1), VYX_OK);
    EXPECT_EQ(VYX_ThreadPool_Destroy(s_hPool), VYX_OK);
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(s_hFlexPool), VYX_OK);
    (void)VYX_KillTimer(static_cast<int32_t>(nTimerId));
    EXPECT_EQ(VYX_CloseEvent(s_hEvent), VYX_TRUE);
    EXPECT_EQ(VYX_MsgQDestroyEx(s_hQueue), VYX_OK);
    EXPECT_EQ(VYX_Log(0, nullptr), VYX_OK);
}

} // namespace
