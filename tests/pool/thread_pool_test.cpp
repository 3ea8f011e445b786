// The fixed pool as an application sees it.
#include "pool/pool_support.h"

using pooltest::Gate;
using pooltest::Shown;
using support::ErrorsOf;

namespace {

class FixedPool : public pooltest::StartedTest {};

void *Nothing(void *) {
    return nullptr;
}

TEST_F(FixedPool, Refusals) {
    const struct {
        uint32_t nInit, nMax, nStack;
        bool bMade;
    } cases[] = {
        {0, 512, 0, true}, {0, 513, 0, false}, {3, 2, 0, false}, {1, 1, 1, false}, {2, 2, 262144, true}};
    for (const auto &test : cases) {
        SCOPED_TRACE(&test - cases);
        VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateEx(test.nInit, test.nMax, test.nStack);
        EXPECT_EQ(hPool != nullptr, test.bMade);
        EXPECT_EQ(VYX_ThreadPool_WorkEx(hPool, nullptr, nullptr, 1), -1);
        EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), test.bMade ? 0 : -1);
    }
}

TEST_F(FixedPool, RegistryHoldsSixtyFour) {
    std::vector<VYX_HANDLE_THREADPOOL> pools;
    for (int i = 0; i < VYX_MAX_THREADPOOLS; ++i)
        pools.push_back(VYX_ThreadPool_Create(0, 1));
    EXPECT_EQ(std::count(pools.begin(), pools.end(), nullptr), 0);
    EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(VYX_ThreadPool_Create(0, 1), nullptr); }),
              Shown("quelby !!! VYX_ThreadPool_Create VYX_GetIdleThreadPool_Local error, return -1 2"));
    EXPECT_EQ(VYX_ThreadPool_Destroy(pools[40]), 0);
    EXPECT_EQ(VYX_ThreadPool_Destroy(pools[7]), 0);
    EXPECT_EQ(VYX_ThreadPool_Create(2, 1), nullptr) << "and gives its place back";
    EXPECT_EQ(VYX_ThreadPool_Create(0, 1), pools[7]) << "the free place with the lowest index";
    EXPECT_EQ(VYX_ThreadPool_Create(1, 1), pools[40]);
    for (VYX_HANDLE_THREADPOOL hPool : pools)
        EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

TEST_F(FixedPool, GrowsByWorkersNamedAfterTheirPlaces) {
    Gate gates[2];
    VYX_HANDLE_THREADPOOL hOther = VYX_ThreadPool_Create(0, 1);
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(0, 2);
    for (Gate &gate : gates) {
        EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), 0);
        ASSERT_TRUE(gate.WaitEntered(1));
    }
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_ThreadPool_Work(hPool, Nothing, nullptr), -1); }), "") << "full";
    gates[0].bOpen = gates[1].bOpen = true;
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hOther), 0);
    EXPECT_EQ(gates[0].lastName + " " + gates[1].lastName, "vyx-pool1.0 vyx-pool1.1");
}

TEST_F(FixedPool, DestroyFromInsideWork) {
    static std::atomic<int> s_iResult;
    s_iResult = 1;
    Gate other;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(3, 3);
    const VYX_THREAD_PROC fnDestroy = [](void *pPool) -> void * {
        s_iResult = VYX_ThreadPool_Destroy(static_cast<VYX_HANDLE_THREADPOOL>(pPool));
        return nullptr;
    };
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &other), 0);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, fnDestroy, hPool), 0);
    EXPECT_EQ(s_iResult, 1) << "waits for the other item";
    other.bOpen = true;
    ASSERT_TRUE(support::WaitUntil([] { return s_iResult == 0; }));
    // The place is free, and the worker that has lost it leaves its new owner alone.
    EXPECT_EQ(VYX_ThreadPool_Create(3, 3), hPool);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

TEST_F(FixedPool, ItemThatEndsItsThreadGivesItsPlaceBack) {
    const VYX_THREAD_PROC fnExit = [](void *) -> void * { VYX_Thread_Exit(); };
    const VYX_THREAD_PROC fnCancel = [](void *) -> void * {
        EXPECT_EQ(pthread_cancel(pthread_self()), 0); // takes effect once this has returned
        return nullptr;
    };
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(VYX_ThreadPool_WorkEx(hPool, i % 2 == 0 ? fnExit : fnCancel, nullptr, 1), 0);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0) << "also while it ends";
}

TEST_F(FixedPool, ClassKeepsTheHandleOnly) {
    Gate gate;
    VYX_ThreadPool copy;
    {
        VYX_ThreadPool pool;
        EXPECT_EQ(pool.Work(Nothing, nullptr), -1) << "no pool yet";
        EXPECT_EQ(pool.Create(2, 1), -1);
        EXPECT_EQ(pool.Create(1, 1), 0);
        copy = pool;
    }
    EXPECT_EQ(copy.Work(Gate::Item, &gate), 0);
    EXPECT_EQ(copy.Work(Nothing, nullptr), -1) << "full";
    gate.bOpen = true;
    EXPECT_EQ(copy.Destroy(), 0);
    EXPECT_EQ(gate.nLeft, 1);
}

void *CountRun(void *pRuns) {
    ++*static_cast<std::atomic<int> *>(pRuns);
    return nullptr;
}

// Three threads hand items over, waiting where the pool is full, until it refuses one or all have been.
TEST_F(FixedPool, DestroyAmidWorkRunsExactlyWhatWasAccepted) {
    const auto nRounds = static_cast<uint32_t>(pooltest::StressItems(200));
    for (uint32_t nRound = 0; nRound < nRounds; ++nRound) {
        std::vector<std::atomic<int>> runs(300); // of each item
        std::atomic<int> nAccepted{0};
        std::vector<std::thread> threads;
        VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateFlex(nRound % 3, 3, 0, nRound % 2);
        for (size_t nFirst = 0; nFirst < 3; ++nFirst)
            threads.emplace_back([&, nFirst] {
                for (size_t n = nFirst; n < 300; n += 3, ++nAccepted)
                    if (VYX_ThreadPool_WorkEx(hPool, CountRun, &runs[n], 1) != 0)
                        return;
            });
        EXPECT_TRUE(pooltest::YieldUntil([&] { return runs[nRound % 100] == 1; }));
        EXPECT_TRUE(support::EndsThoughCancelled([&] { EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0); }));
        for (std::thread &thread : threads)
            thread.join();
        ASSERT_EQ(std::count(runs.begin(), runs.end(), 1), nAccepted);
        ASSERT_EQ(std::count(runs.begin(), runs.end(), 0), 300 - nAccepted);
    }
}

} // namespace
