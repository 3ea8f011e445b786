// The pools from inside: who is idle, who waits, and what happens when the system refuses semaphores or threads.
#include <cerrno>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/wait.h>
#include <unistd.h>

#include "pool/pool_support.h"
#include "pool/thread_pool_inter.h"
#include "pool/thrmgr.h"

using pooltest::Gate;
using pooltest::Shown;
using support::ErrorsOf;
using vyx_inter::LockGuard;
using vyx_inter::PlaceSet;

namespace {

// How many more semaphores and threads the system grants; -1 for no limit.
std::atomic<int> g_nSemaphoresLeft{-1};
std::atomic<int> g_nThreadsLeft{-1};
std::atomic<int> g_nNames{0}; // semaphore names in use by this process
const pid_t g_iTest = getpid();

// What is done, on another thread, just before this thread locks a mutex the next time.
thread_local std::function<void()> t_fnBeforeLock;

// Result: true if one more is granted, which is counted.
bool Grant(std::atomic<int> &nLeft) {
    int nOld = nLeft.load();
    while (nOld > 0 && !nLeft.compare_exchange_weak(nOld, nOld - 1)) {
    }
    return nOld != 0;
}

} // namespace

// The linker routes the library's calls here (--wrap).
extern "C" {

sem_t *__real_sem_open(const char *szName, int iFlags, mode_t nMode, unsigned int nInitial);
int __real_sem_unlink(const char *szName);
int __real_pthread_mutex_lock(pthread_mutex_t *pMutex);
int __real_pthread_create(pthread_t *pThread, const pthread_attr_t *pAttr, void *(*fnStart)(void *),
                          void *pParam);

sem_t *__wrap_sem_open(const char *szName, int iFlags, mode_t nMode, unsigned int nInitial) {
    if (g_nSemaphoresLeft == 0) {
        errno = ENOSPC;
        return SEM_FAILED;
    }
    sem_t *pSem = __real_sem_open(szName, iFlags, nMode, nInitial);
    if (pSem != SEM_FAILED) { // another process may have that name
        (void)Grant(g_nSemaphoresLeft);
        ++g_nNames;
    }
    return pSem;
}

int __wrap_sem_unlink(const char *szName) {
    if (getpid() != g_iTest)
        _exit(1); // a forked child takes a name of its parent's
    const int iResult = __real_sem_unlink(szName);
    if (iResult == 0)
        --g_nNames;
    return iResult;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t *pMutex) {
    if (t_fnBeforeLock != nullptr)
        std::thread(std::exchange(t_fnBeforeLock, nullptr)).join();
    return __real_pthread_mutex_lock(pMutex);
}

int __wrap_pthread_create(pthread_t *pThread, const pthread_attr_t *pAttr, void *(*fnStart)(void *),
                          void *pParam) {
    return Grant(g_nThreadsLeft) ? __real_pthread_create(pThread, pAttr, fnStart, pParam) : EAGAIN;
}
}

namespace {

const std::string kNoSemaphore = Shown("quelby !!! VYX_CreateThread_Local VYX_SemCreate error, return -1 2");
const std::string kNoThread = Shown("quelby !!! VYX_CreateThread_Local VYX_Thread_Create error, return -1 3");
const std::string kNotStarted =
    Shown("quelby !!! VYX_InitThread_Local VYX_CreateThread_Local error, return -1 2") +
    Shown("quelby !!! VYX_ThreadPool_Create VYX_InitThread_Local error, return -1 3");

// Every test gives all semaphores back.
class FixedPoolInside : public pooltest::StartedTest {
  protected:
    ~FixedPoolInside() override {
        g_nSemaphoresLeft = g_nThreadsLeft = -1;
        EXPECT_TRUE(support::WaitUntil([] { return g_nNames == 0; }));
    }
};

// A text with one sign for each place: '-' free, 'i' idle, 'b' busy.
std::string Places(THREAD_POOL_T *pPool) {
    const LockGuard guard(pPool->hLock);
    std::string text;
    for (uint32_t n = 0; n < pPool->nMaxCount; ++n)
        text += pPool->pPlaces[n].pWorker == nullptr ? '-' : 'b';
    EXPECT_EQ(pPool->nCurrCount, std::count(text.begin(), text.end(), 'b'));
    PlaceSet idle = pPool->idle;
    for (uint32_t n = idle.First(); n != PlaceSet::kNone; n = idle.First()) {
        text[n] = text[n] == 'b' ? 'i' : '?';
        idle.Remove(n);
    }
    return text;
}

bool WaitPlaces(THREAD_POOL_T *pPool, const std::string &text) {
    return support::WaitUntil([&] { return Places(pPool) == text; });
}

TEST_F(FixedPoolInside, LowestIdlePlaceIsChosen) {
    Gate all;
    Gate some[2];
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateEx(1, 130, 262144);
    for (int i = 0; i < 130; ++i)
        ASSERT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, i == 3 ? &some[0] : i == 129 ? &some[1] : &all), 0);
    ASSERT_TRUE(all.WaitEntered(128));
    some[1].bOpen = true;
    ASSERT_TRUE(WaitPlaces(hPool, std::string(129, 'b') + "i"));
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &all), 0) << "the last place of a nearly full pool";
    some[0].bOpen = true;
    ASSERT_TRUE(WaitPlaces(hPool, "bbbi" + std::string(126, 'b')));
    all.bOpen = true;
    ASSERT_TRUE(WaitPlaces(hPool, std::string(130, 'i')));
    Gate again;
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &again), 0);
    EXPECT_EQ(Places(hPool), std::string(100, 'b') + std::string(30, 'i'));
    again.bOpen = true;
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

TEST_F(FixedPoolInside, PlaceDecidesWhoRetires) {
    Gate gate;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateFlex(2, 4, 0, 100);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), 0);
    ASSERT_TRUE(gate.WaitEntered(4));
    const double fTook = support::MillisecondsOf([&] {
        gate.bOpen = true;
        EXPECT_TRUE(WaitPlaces(hPool, "ii--"));
    });
    EXPECT_GE(fTook, 99.0) << "not before the time is out, to one tick";
    EXPECT_TRUE(support::WaitUntil([] { return g_nNames == 2; }))
        << "the semaphores of those that have retired";
    // A place among the first two loses its worker; the next one to start takes it, and stays.
    gate.bCancel = true;
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), 0);
    ASSERT_TRUE(WaitPlaces(hPool, "-i--"));
    Gate three;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &three), 0);
    EXPECT_EQ(Places(hPool), "bbb-");
    three.bOpen = true;
    ASSERT_TRUE(WaitPlaces(hPool, "ii--"));
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

// Item 0 occupies the one worker of a pool; the callers with items 1 to 3 wait for it, in this order.
class WaitingInside : public FixedPoolInside {
  protected:
    struct Waiter {
        WaitingInside *pTest = nullptr;
        std::atomic<int> iResult{1}; // 1: waits
        std::thread thread;
    };
    WaitingInside() {
        for (Waiter &waiter : m_waiters)
            waiter.pTest = this;
        EXPECT_EQ(VYX_ThreadPool_Work(m_hPool, First, &m_waiters[0]), 0);
        for (int i = 1; i <= 3; ++i)
            Wait(i);
    }
    ~WaitingInside() override {
        m_gate.bOpen = true;
        EXPECT_EQ(VYX_ThreadPool_Destroy(m_hPool), 0);
        for (Waiter &waiter : m_waiters)
            if (waiter.thread.joinable())
                waiter.thread.join();
    }
    void Wait(int i) {
        Waiter &waiter = m_waiters[i];
        const int nBefore = CountAsleep();
        waiter.thread =
            std::thread([&] { waiter.iResult = VYX_ThreadPool_WorkEx(m_hPool, Item, &waiter, 1); });
        EXPECT_TRUE(support::WaitUntil([&] { return CountAsleep() == nBefore + 1; }));
    }
    void Cancel(int i) {
        EXPECT_EQ(pthread_cancel(m_waiters[i].thread.native_handle()), 0);
        m_waiters[i].thread.join();
    }
    int CountAsleep() {
        const LockGuard guard(m_hPool->hLock);
        return static_cast<int>(m_hPool->waiting.CountAsleep());
    }
    int CountOf(int iResult) {
        return static_cast<int>(std::count_if(m_waiters + 1, m_waiters + 4,
                                              [=](auto &waiter) { return waiter.iResult == iResult; }));
    }
    static void *Item(void *pWaiter) {
        auto &waiter = *static_cast<Waiter *>(pWaiter);
        WaitingInside &test = *waiter.pTest;
        test.m_order += std::to_string(&waiter - test.m_waiters);
        test.m_gate.Pass();
        if (test.m_bExit)
            VYX_Thread_Exit();
        return nullptr;
    }

    // A function of its own, so that a waiting item that runs with the one before it is noticed.
    static void *First(void *pWaiter) {
        auto &waiter = *static_cast<Waiter *>(pWaiter);
        EXPECT_EQ(&waiter, waiter.pTest->m_waiters);
        return Item(pWaiter);
    }

    VYX_HANDLE_THREADPOOL m_hPool = VYX_ThreadPool_Create(1, 1);
    Waiter m_waiters[4];
    Gate m_gate;
    std::string m_order; // of the items
    std::atomic<bool> m_bExit{false};
};

TEST_F(WaitingInside, AreServedInTheOrderOfTheirArrival) {
    m_gate.bOpen = true;
    EXPECT_TRUE(m_gate.WaitLeft(4));
    EXPECT_EQ(m_order, "0123");
    EXPECT_TRUE(support::WaitUntil([this] { return CountOf(0) == 3; }));
}

TEST_F(WaitingInside, AreRefusedWhenThePoolIsDestroyed) {
    std::thread destroyer([this] { EXPECT_EQ(VYX_ThreadPool_Destroy(m_hPool), 0); });
    EXPECT_TRUE(support::WaitUntil([this] { return CountOf(-1) == 3; })) << "though the worker is still busy";
    EXPECT_EQ(VYX_ThreadPool_WorkEx(m_hPool, Gate::Item, &m_gate, 1), -1);
    m_gate.bOpen = true;
    destroyer.join();
    m_hPool = VYX_ThreadPool_Create(1, 1);
    EXPECT_EQ(m_order, "0");
}

TEST_F(WaitingInside, AreForgottenWithThePoolByTheNextStart) {
    ASSERT_EQ(VYX_Fini(), VYX_OK);
    ASSERT_EQ(VYX_Init(), VYX_OK);
    EXPECT_TRUE(support::WaitUntil([this] { return CountOf(-1) == 3; }));
    Gate gate;
    EXPECT_EQ(VYX_ThreadPool_Create(2, 2), m_hPool) << "the registry is empty again";
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(VYX_ThreadPool_Work(m_hPool, Gate::Item, &gate), 0);
    ASSERT_TRUE(gate.WaitEntered(2));
    m_gate.bOpen = true; // the old worker comes back to a place that is not its own, and leaves it alone
    EXPECT_TRUE(support::WaitUntil([] { return g_nNames == 2; }));
    EXPECT_EQ(Places(m_hPool), "bb");
    gate.bOpen = true;
    EXPECT_TRUE(WaitPlaces(m_hPool, "ii"));
}

// The worker ends, and no other can be started.
TEST_F(WaitingInside, AreNotLeftBehindWithoutThreads) {
    g_nThreadsLeft = 0;
    m_bExit = true;
    EXPECT_EQ(ErrorsOf([this] {
                  m_gate.bOpen = true;
                  EXPECT_TRUE(support::WaitUntil([this] { return CountOf(-1) == 3; }));
              }),
              kNoThread + kNoThread + kNoThread);
}

TEST_F(WaitingInside, MayBeCancelled) {
    if (!support::kCancelsSleepers)
        GTEST_SKIP() << "the emulator cannot cancel a thread that sleeps";
    Cancel(3);
    Wait(3);
    Cancel(2);
    EXPECT_EQ(CountAsleep(), 2);
    m_gate.bOpen = true;
    EXPECT_TRUE(m_gate.WaitLeft(3));
    EXPECT_EQ(m_order, "013");
}

// A caller that is late meets another pool in its pool's place.
TEST_F(FixedPoolInside, LateCallerIsRefused) {
    Gate gate;
    gate.bOpen = true;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    t_fnBeforeLock = [hPool] {
        EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
        EXPECT_EQ(VYX_ThreadPool_Create(1, 1), hPool);
    };
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), -1);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
    EXPECT_EQ(gate.nEntered, 0);
}

TEST_F(FixedPoolInside, NoSemaphoreOrNoThreadToBeHad) {
    const struct {
        std::atomic<int> &nLeft;
        std::string message;
    } cases[] = {{g_nSemaphoresLeft, kNoSemaphore}, {g_nThreadsLeft, kNoThread}};
    for (const auto &test : cases) {
        Gate gate;
        VYX_HANDLE_THREADPOOL hRunning = VYX_ThreadPool_Create(2, 4);
        EXPECT_EQ(VYX_ThreadPool_Work(hRunning, Gate::Item, &gate), 0);
        test.nLeft = 5;
        EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(VYX_ThreadPool_Create(6, 512), nullptr); }),
                  test.message + kNotStarted);
        EXPECT_EQ(g_nNames, 2) << "the workers that had been started are gone";
        // The running pool goes on with what it has, and cannot grow.
        EXPECT_EQ(VYX_ThreadPool_Work(hRunning, Gate::Item, &gate), 0);
        EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_ThreadPool_WorkEx(hRunning, Gate::Item, &gate, 1), -1); }),
                  test.message);
        EXPECT_EQ(Places(hRunning), "bb--");
        test.nLeft = -1;
        EXPECT_EQ(VYX_ThreadPool_Work(hRunning, Gate::Item, &gate), 0);
        // The place that the failed creation had taken serves the next one.
        VYX_HANDLE_THREADPOOL hNext = VYX_ThreadPool_Create(3, 3);
        ASSERT_EQ(hNext, hRunning + 1);
        EXPECT_EQ(VYX_ThreadPool_Work(hNext, Gate::Item, &gate), 0);
        gate.bOpen = true;
        EXPECT_EQ(VYX_ThreadPool_Destroy(hNext), 0);
        EXPECT_EQ(VYX_ThreadPool_Destroy(hRunning), 0);
        EXPECT_EQ(gate.nLeft, 4);
    }
}

// In the child the worker ends with its item, and the process with its last thread.
TEST_F(FixedPoolInside, ForkedWorkerLeavesItsSemaphoreToTheParent) {
    const VYX_THREAD_PROC fnFork = [](void *pChild) -> void * {
        *static_cast<std::atomic<pid_t> *>(pChild) = fork();
        return nullptr;
    };
    std::atomic<pid_t> iChild{-1};
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, fnFork, &iChild), 0);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
    int iStatus = -1;
    EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
    // A sanitizer may find fault with the child's end: it looks for the parent's threads there.
    EXPECT_TRUE(support::kThreadsAfterFork ? iStatus == 0 : WIFEXITED(iStatus)) << iStatus;
}

TEST_F(FixedPoolInside, NullRecord) {
    EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(f_Thread_Svc(nullptr), nullptr); }),
              Shown("quelby !!! f_Thread_Svc pParam == NULL error, return NULL 1"));
}

// A flexible pool of at most four workers.
class FlexPoolInside : public testing::Test {
  protected:
    ~FlexPoolInside() override { g_nThreadsLeft = -1; }
    thrmgr_pool_t *Create(int32_t nIdleTimeOut) {
        return static_cast<thrmgr_pool_t *>(VYX_ThreadPoolFlex_Create(4, nIdleTimeOut, Gate::Handler, 0));
    }
    static uint32_t Alive(thrmgr_pool_t *pPool) {
        const LockGuard guard(pPool->hLock);
        return pPool->nAlive;
    }
    static uint32_t Asleep(thrmgr_pool_t *pPool) {
        const LockGuard guard(pPool->hLock);
        return pPool->nAsleep;
    }
    // Starts that many workers at once.
    static void Grow(thrmgr_pool_t *pPool, Gate &gate, int nWorkers) {
        for (int i = 1; i <= nWorkers; ++i) {
            ASSERT_EQ(VYX_ThreadPoolFlex_Work(pPool, &gate), 0);
            ASSERT_TRUE(gate.WaitEntered(i));
        }
    }
    // What a call writes to standard output.
    static std::string OutputOf(const std::function<void()> &fnCall) {
        testing::internal::CaptureStdout();
        fnCall();
        (void)std::fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(FlexPoolInside, StackSizes) {
    const struct {
        int nGiven;
        uint32_t nUsed;
    } cases[] = {{0, 1048576}, {1, 262144}, {262145, 262145}};
    for (const auto &test : cases) {
        VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(1, 50, Gate::Handler, test.nGiven);
        EXPECT_EQ(static_cast<thrmgr_pool_t *>(hPool)->nStackSize, test.nUsed);
        EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    }
}

TEST_F(FlexPoolInside, DoesNotGrowAgainAfterItShrank) {
    thrmgr_pool_t *pPool = Create(100);
    EXPECT_EQ(Alive(pPool), 0U) << "no thread before there is work";
    Gate first;
    Grow(pPool, first, 4);
    EXPECT_EQ(Alive(pPool), 4U);
    EXPECT_GE(support::MillisecondsOf([&] {
                  first.bOpen = true;
                  ASSERT_TRUE(support::WaitUntil([&] { return Alive(pPool) == 1; }));
              }),
              99.0)
        << "the idle time-out, to one tick";
    Gate gate;
    Grow(pPool, gate, 1);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(pPool, &gate), 0);
    EXPECT_EQ(Alive(pPool), 1U) << "the one worker does all";
    gate.bOpen = true;
    EXPECT_TRUE(gate.WaitLeft(5));
    Gate last;
    last.bCancel = last.bOpen = true;
    EXPECT_EQ(VYX_ThreadPoolFlex_Work(pPool, &last), 0);
    EXPECT_TRUE(support::WaitUntil([&] { return Alive(pPool) == 0; }))
        << "it ends once the handler has returned";
    EXPECT_EQ(VYX_ThreadPoolFlex_Work(pPool, &gate), 0);
    EXPECT_TRUE(gate.WaitLeft(6)) << "by a new one";
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(pPool), 0);
}

TEST_F(FlexPoolInside, LastWorkerStays) {
    int32_t nIdleTime = 50; // milliseconds
    for (int nRounds = 0; nRounds < 5 && !HasFailure();) {
        thrmgr_pool_t *pPool = Create(nIdleTime);
        Gate gate;
        Grow(pPool, gate, 4);
        gate.bOpen = true;
        if (support::WaitUntil([&] { return Asleep(pPool) == Alive(pPool); })) {
            // The times of all run out while the lock is held, so that they decide at the same moment.
            const LockGuard guard(pPool->hLock);
            if (pPool->nAsleep == 4)
                ++nRounds;
            else
                nIdleTime *= 2; // the machine was too slow: the first had ended before the last slept
            std::this_thread::sleep_for(std::chrono::milliseconds(nIdleTime)); // see above
        }
        EXPECT_TRUE(support::WaitUntil([&] { return Alive(pPool) <= 1; }));
        EXPECT_EQ(Alive(pPool), 1U);
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(pPool, &gate), 0);
        EXPECT_TRUE(gate.WaitLeft(5));
        EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(pPool), 0);
        ASSERT_LT(nIdleTime, 20000);
    }
}

TEST_F(FlexPoolInside, ItemWithoutWorkerIsRunByTheNextOne) {
    thrmgr_pool_t *pPool = Create(-1);
    Gate first;
    Gate second;
    second.bOpen = true;
    g_nThreadsLeft = 0;
    EXPECT_EQ(OutputOf([&] { EXPECT_EQ(VYX_ThreadPoolFlex_Work(pPool, &first), -1); }),
              "!pthread_create failed\n");
    EXPECT_EQ(Alive(pPool), 0U);
    g_nThreadsLeft = 1;
    EXPECT_EQ(OutputOf([&] { EXPECT_EQ(VYX_ThreadPoolFlex_Work(pPool, &second), 0); }), "");
    EXPECT_TRUE(first.WaitEntered(1));
    // A lack of further threads is no failure.
    EXPECT_EQ(OutputOf([&] { EXPECT_EQ(VYX_ThreadPoolFlex_Work(pPool, &second), 0); }),
              "!pthread_create failed\n");
    EXPECT_EQ(second.nEntered, 0);
    first.bOpen = true;
    EXPECT_TRUE(second.WaitLeft(2));
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(pPool), 0);
}

} // namespace
