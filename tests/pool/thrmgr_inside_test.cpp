// The flexible pool from inside: its counts, and what happens when the system refuses semaphores or threads.
#include "pool/refusals.h"
#include "pool/thrmgr.h"
#include "sync/timed_wait.h"

using pooltest::Gate;

namespace {

class FlexPoolInside : public refusals::RefusalsTest {};

std::string OutputOf(const std::function<void()> &fnCall) {
    testing::internal::CaptureStdout();
    fnCall();
    (void)std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST_F(FlexPoolInside, StackSizes) {
    const struct {
        int nGiven;
        uint32_t nUsed;
    } cases[] = {{0, 1048576}, {1, 262144}, {262145, 262145}};
    for (const auto &test : cases) {
        thrmgr_pool_t *pPool = thrmgr_new(1, 50, Gate::Handler, test.nGiven);
        EXPECT_EQ(pPool->nStackSize, test.nUsed);
        EXPECT_EQ(pPool->nAlive, 0) << "no thread before there is work";
        thrmgr_destroy(pPool);
    }
}

// Starts that many workers at once.
void Grow(thrmgr_pool_t *pPool, Gate &gate, int nWorkers) {
    for (int i = 1; i <= nWorkers; ++i) {
        ASSERT_EQ(thrmgr_dispatch(pPool, &gate), 1);
        ASSERT_TRUE(gate.WaitEntered(i));
    }
}

TEST_F(FlexPoolInside, DoesNotGrowAgainAfterItShrank) {
    thrmgr_pool_t *pPool = thrmgr_new(4, 100, Gate::Handler, 0);
    Gate first;
    Grow(pPool, first, 4);
    EXPECT_EQ(pPool->nAlive, 4);
    EXPECT_EQ(pPool->nIdle, 0);
    EXPECT_GE(support::MillisecondsOf([&] {
                  first.bOpen = true;
                  ASSERT_TRUE(support::WaitUntil([pPool] { return pPool->nAlive == 1; }));
              }),
              99.0)
        << "the idle time-out, to one tick";
    // Three have retired without leaving the idle count. The fourth is in it most of the time.
    ASSERT_TRUE(support::WaitUntil([pPool] { return pPool->nIdle == 4; }));
    Gate gate;
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(thrmgr_dispatch(pPool, &gate), 1);
    ASSERT_TRUE(gate.WaitEntered(1));
    EXPECT_EQ(pPool->nIdle, 3);
    EXPECT_EQ(pPool->nAlive, 1) << "the one worker does all";
    gate.bOpen = true;
    EXPECT_TRUE(gate.WaitLeft(5));
    EXPECT_EQ(pPool->nAlive, 1) << "and is never too long without work";
    thrmgr_destroy(pPool);
}

// Returns with the pool's lock held, as soon as that many workers are asleep.
void LockWhenAsleep(thrmgr_pool_t *pPool, int32_t nWorkers) {
    EXPECT_TRUE(support::WaitUntil([&] {
        (void)VYX_MutexLock(&pPool->hLock);
        if (pPool->nAsleep == nWorkers)
            return true;
        (void)VYX_MutexUnlock(&pPool->hLock);
        return false;
    }));
}

TEST_F(FlexPoolInside, LastWorkerStays) {
    for (int nRound = 0; nRound < 20; ++nRound) {
        thrmgr_pool_t *pPool = thrmgr_new(4, 50, Gate::Handler, 0);
        Gate gate;
        Grow(pPool, gate, 4);
        gate.bOpen = true;
        // The times of all run out while the lock is held, so that they decide at the same moment.
        LockWhenAsleep(pPool, 4);
        EXPECT_TRUE(support::WaitUntil([] { return VYX_TimedWaitPending_Inter() == 0; }));
        (void)VYX_MutexUnlock(&pPool->hLock);
        ASSERT_TRUE(support::WaitUntil([&] { return pPool->nAlive <= 1; }));
        ASSERT_EQ(pPool->nAlive, 1) << "round " << nRound;
        ASSERT_EQ(thrmgr_dispatch(pPool, &gate), 1);
        ASSERT_TRUE(gate.WaitLeft(5));
        thrmgr_destroy(pPool);
    }
}

TEST_F(FlexPoolInside, ItemWithoutWorkerIsRunByTheNextOne) {
    static std::vector<const char *> s_order;
    static std::atomic<int> s_runs;
    for (const int nIdleTimeOut : {-1, 0, 5}) {
        s_order.clear();
        s_runs = 0;
        thrmgr_pool_t *pPool = thrmgr_new(
            1, nIdleTimeOut,
            [](void *szName) {
                s_order.push_back(static_cast<const char *>(szName));
                ++s_runs;
            },
            0);
        char szFirst[] = "first";
        char szSecond[] = "second";
        refusals::g_nThreadsLeft = 0;
        EXPECT_EQ(OutputOf([&] { EXPECT_EQ(VYX_ThreadPoolFlex_Work(pPool, szFirst), -1); }),
                  "!pthread_create failed\n");
        EXPECT_EQ(pPool->nAlive, 0);
        EXPECT_EQ(pPool->pQueue->nCount, 1);
        refusals::g_nThreadsLeft = -1;
        EXPECT_EQ(OutputOf([&] { EXPECT_EQ(VYX_ThreadPoolFlex_Work(pPool, szSecond), 0); }), "");
        EXPECT_TRUE(support::WaitUntil([] { return s_runs == 2; })) << "both, with one announcement";
        thrmgr_destroy(pPool);
        EXPECT_EQ(s_order, (std::vector<const char *>{szFirst, szSecond}));
    }
}

TEST_F(FlexPoolInside, LackOfFurtherThreadsIsNoFailure) {
    thrmgr_pool_t *pPool = thrmgr_new(2, -1, Gate::Handler, 0);
    Gate gate;
    Grow(pPool, gate, 1);
    refusals::g_nThreadsLeft = 0;
    EXPECT_EQ(OutputOf([&] { EXPECT_EQ(thrmgr_dispatch(pPool, &gate), 1); }), "!pthread_create failed\n");
    gate.bOpen = true;
    EXPECT_TRUE(gate.WaitLeft(2)) << "by the worker that is there";
    thrmgr_destroy(pPool);
}

TEST_F(FlexPoolInside, WorksWithoutSemaphores) {
    for (const int nGranted : {0, 1}) {
        refusals::g_nSemaphoresLeft = nGranted;
        thrmgr_pool_t *pPool = thrmgr_new(3, 50, Gate::Handler, 0);
        ASSERT_NE(pPool, nullptr);
        Gate gate;
        Grow(pPool, gate, 3);
        gate.bOpen = true;
        EXPECT_TRUE(gate.WaitLeft(3));
        thrmgr_destroy(pPool);
        EXPECT_EQ(gate.nLeft, 3);
    }
}

TEST_F(FlexPoolInside, SignalsNeitherRetireAWorkerNorEndTheWaitOfDestroy) {
    pooltest::CatchSignals();
    static std::atomic<pthread_t> s_worker;
    thrmgr_pool_t *pPool = thrmgr_new(
        2, -1,
        [](void *pGate) {
            s_worker = pthread_self();
            Gate::Handler(pGate);
        },
        0);
    Gate gate;
    Grow(pPool, gate, 2);
    gate.bOpen = true;
    ASSERT_TRUE(support::WaitUntil([pPool] { return pPool->nIdle == 2; }));
    for (int i = 1; i <= 20; ++i) {
        const int nBefore = pooltest::g_signals;
        ASSERT_EQ(pthread_kill(s_worker, SIGUSR1), 0);
        ASSERT_TRUE(support::WaitUntil([&] { return pooltest::g_signals == nBefore + 1; }));
    }
    EXPECT_EQ(pPool->nAlive, 2) << "never retires: the time-out has no limit";

    Gate last;
    Grow(pPool, last, 1);
    std::atomic<bool> bDestroyed{false};
    std::thread destroyer([&] {
        thrmgr_destroy(pPool);
        bDestroyed = true;
    });
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(pthread_kill(destroyer.native_handle(), SIGUSR1), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // spreads them over the wait
    }
    EXPECT_FALSE(bDestroyed) << "a handler is in progress";
    last.bOpen = true;
    destroyer.join();
    EXPECT_EQ(last.nLeft, 1);
}

} // namespace
