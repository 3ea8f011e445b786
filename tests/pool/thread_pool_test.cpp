// The fixed pool as an application sees it, through the shared library.
#include <algorithm>
#include <unistd.h>

#include "pool/pool_support.h"

using pooltest::ErrorsOf;
using pooltest::Gate;
using pooltest::Marks;
using pooltest::Shown;

namespace {

class FixedPool : public pooltest::StartedTest {};

const std::string kTooLarge =
    Shown("quelby !!! VYX_ThreadPool_Create nMaxCount > MAX_THREAD_PER_THREADPOOL error, return -1 1");
const std::string kRegistryFull =
    Shown("quelby !!! VYX_ThreadPool_Create VYX_GetIdleThreadPool_Local error, return -1 2");
const std::string kPoolFull = Shown("quelby !!! VYX_CreateThread_Local (pThreadPool->nCurrCount == "
                                    "pThreadPool->nMaxCount) error, return -1, 1");
const std::string kNoThread = Shown("quelby !!! VYX_CreateThread_Local VYX_Thread_Create error, return -1 3");
const std::string kNotStarted =
    Shown("quelby !!! VYX_InitThread_Local VYX_CreateThread_Local error, return -1 2") +
    Shown("quelby !!! VYX_ThreadPool_Create VYX_InitThread_Local error, return -1 3");

void *Nothing(void *) {
    return nullptr;
}

TEST_F(FixedPool, CreationAndItsRefusals) {
    const struct {
        const char *szName;
        uint32_t nInit, nMax, nStack;
        bool bMade;
        std::string errors;
    } cases[] = {
        {"largest", 0, 512, 0, true, ""},
        {"one too many", 0, 513, 0, false, kTooLarge},
        {"more at first than at most", 3, 2, 0, false, kPoolFull + kNotStarted},
        {"at most none", 1, 0, 0, false, kPoolFull + kNotStarted},
        {"without workers", 0, 0, 0, true, ""},
        {"stack refused", 1, 1, 1, false, kNoThread + kNotStarted},
        {"own stack", 2, 2, 262144, true, ""},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.szName);
        VYX_HANDLE_THREADPOOL hPool = nullptr;
        EXPECT_EQ(ErrorsOf([&] { hPool = VYX_ThreadPool_CreateEx(test.nInit, test.nMax, test.nStack); }),
                  test.errors);
        EXPECT_EQ(hPool != nullptr, test.bMade);
        if (hPool != nullptr) {
            EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
        }
    }
}

TEST_F(FixedPool, NullArguments) {
    const std::string param = Shown("quelby !!! VYX_ThreadPool_Work param error, return -1 1");
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(VYX_ThreadPool_Work(nullptr, Nothing, nullptr), -1); }), param);
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_ThreadPool_WorkEx(hPool, nullptr, hPool, 1), -1); }), param);
    EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(VYX_ThreadPool_Destroy(nullptr), -1); }),
              Shown("quelby !!! VYX_ThreadPool_Destroy pThreadPool == NULL return"));
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

TEST_F(FixedPool, RegistryHoldsSixtyFour) {
    std::vector<VYX_HANDLE_THREADPOOL> pools;
    for (int i = 0; i < VYX_MAX_THREADPOOLS; ++i)
        pools.push_back(VYX_ThreadPool_Create(0, 1));
    EXPECT_EQ(std::count(pools.begin(), pools.end(), nullptr), 0);
    EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(VYX_ThreadPool_Create(0, 1), nullptr); }), kRegistryFull);
    EXPECT_EQ(VYX_ThreadPool_Destroy(pools[40]), 0);
    EXPECT_EQ(VYX_ThreadPool_Destroy(pools[7]), 0);
    ErrorsOf([] { EXPECT_EQ(VYX_ThreadPool_Create(2, 1), nullptr) << "and gives its place back"; });
    EXPECT_EQ(VYX_ThreadPool_Create(0, 1), pools[7]) << "the free place with the lowest index";
    EXPECT_EQ(VYX_ThreadPool_Create(1, 1), pools[40]);
    for (VYX_HANDLE_THREADPOOL hPool : pools)
        EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

TEST_F(FixedPool, FullPoolRefusesOrWaits) {
    Gate gate;
    Gate late;
    late.bOpen = true;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), 0) << "grows to its maximum";
    ASSERT_TRUE(gate.WaitEntered(3)) << "all three run at the same time";
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &late), -1); }), "");
    std::atomic<int> nAccepted{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 5; ++i)
        waiters.emplace_back([&] {
            EXPECT_EQ(VYX_ThreadPool_WorkEx(hPool, Gate::Item, &late, 1), 0);
            ++nAccepted;
        });
    EXPECT_EQ(nAccepted, 0);
    gate.bOpen = true;
    for (std::thread &waiter : waiters)
        waiter.join();
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
    EXPECT_EQ(late.nLeft, 5);
}

TEST_F(FixedPool, PoolWithoutWorkersKeepsCallersUntilItGoes) {
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(0, 0);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Nothing, nullptr), -1);
    std::atomic<int> nReturned{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] {
            EXPECT_EQ(VYX_ThreadPool_WorkEx(hPool, Nothing, nullptr, 1), -1);
            ++nReturned;
        });
    EXPECT_EQ(nReturned, 0);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
    for (std::thread &waiter : waiters)
        waiter.join();
}

TEST_F(FixedPool, DestroyWaitsForItemsAndRefusesNewOnes) {
    Gate gate;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(2, 4);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), 0);
    std::atomic<bool> bDestroyed{false};
    std::thread destroyer([&] {
        EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
        bDestroyed = true;
    });
    // One place is free: there work is accepted until destruction has begun, and never after.
    Gate quick;
    quick.bOpen = true;
    int nAccepted = 0;
    while (VYX_ThreadPool_WorkEx(hPool, Gate::Item, &quick, 1) == 0)
        ++nAccepted;
    ASSERT_TRUE(gate.WaitEntered(3));
    EXPECT_FALSE(bDestroyed);
    gate.bOpen = true;
    destroyer.join();
    EXPECT_EQ(gate.nLeft, 3);
    EXPECT_EQ(quick.nLeft, nAccepted);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Nothing, nullptr), -1) << "also after the end";
}

// An item that hands the next one to its own pool, a thousand deep.
struct Chain {
    VYX_HANDLE_THREADPOOL hPool;
    std::atomic<int> nLeft{1000};
    static void *Link(void *pChain) {
        auto &chain = *static_cast<Chain *>(pChain);
        if (--chain.nLeft > 0) {
            EXPECT_EQ(VYX_ThreadPool_WorkEx(chain.hPool, Link, pChain, 1), 0);
        }
        return nullptr;
    }
};

TEST_F(FixedPool, WorkFromInsideWork) {
    Chain chain{VYX_ThreadPool_CreateFlex(0, 2, 0, 1)};
    EXPECT_EQ(VYX_ThreadPool_Work(chain.hPool, Chain::Link, &chain), 0);
    EXPECT_TRUE(support::WaitUntil([&] { return chain.nLeft == 0; }));
    EXPECT_EQ(VYX_ThreadPool_Destroy(chain.hPool), 0);
}

TEST_F(FixedPool, DestroyFromInsideWork) {
    struct Ender {
        VYX_HANDLE_THREADPOOL hPool = nullptr;
        Gate other;
        std::atomic<int> iResult{1};
        static void *Item(void *pThis) {
            auto &self = *static_cast<Ender *>(pThis);
            self.iResult = VYX_ThreadPool_Destroy(self.hPool);
            return nullptr;
        }
    } ender;
    ender.hPool = VYX_ThreadPool_Create(3, 3);
    EXPECT_EQ(VYX_ThreadPool_Work(ender.hPool, Gate::Item, &ender.other), 0);
    EXPECT_EQ(VYX_ThreadPool_Work(ender.hPool, Ender::Item, &ender), 0);
    EXPECT_EQ(ender.iResult, 1) << "waits for the other item";
    ender.other.bOpen = true;
    ASSERT_TRUE(support::WaitUntil([&] { return ender.iResult == 0; }));
    // The place is free, and the worker that has lost it leaves its new owner alone.
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(3, 3);
    EXPECT_EQ(hPool, ender.hPool);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

TEST_F(FixedPool, ItemThatEndsItsThreadGivesItsPlaceBack) {
    const VYX_THREAD_PROC fnExit = [](void *) -> void * { VYX_Thread_Exit(); };
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(VYX_ThreadPool_WorkEx(hPool, fnExit, nullptr, 1), 0);
    Gate gate;
    gate.bOpen = true;
    EXPECT_EQ(VYX_ThreadPool_WorkEx(hPool, Gate::Item, &gate, 1), 0);
    EXPECT_TRUE(gate.WaitLeft(1));
    EXPECT_EQ(VYX_ThreadPool_WorkEx(hPool, fnExit, nullptr, 1), 0);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0) << "also while it ends";
}

TEST_F(FixedPool, ClassKeepsTheHandleOnly) {
    Gate gate;
    VYX_ThreadPool copy;
    {
        VYX_ThreadPool pool;
        ErrorsOf([&] { EXPECT_EQ(pool.Work(Nothing, nullptr), -1) << "no pool yet"; });
        ErrorsOf([&] { EXPECT_EQ(pool.Create(2, 1), -1); });
        EXPECT_EQ(pool.Create(1, 1), 0);
        copy = pool;
        EXPECT_EQ(pool.Work(Gate::Item, &gate), 0);
    }
    ASSERT_TRUE(gate.WaitEntered(1));
    EXPECT_EQ(copy.Work(Nothing, nullptr), -1) << "full";
    gate.bOpen = true;
    EXPECT_EQ(copy.Destroy(), 0);
    EXPECT_EQ(gate.nLeft, 1);
}

// Hands all items over, from several threads to several pools at once, waiting where a pool is full.
void RunAll(const std::vector<VYX_HANDLE_THREADPOOL> &pools, Marks &marks, size_t nSubmitters) {
    std::vector<std::thread> submitters;
    for (size_t nSubmitter = 0; nSubmitter < nSubmitters; ++nSubmitter)
        submitters.emplace_back([&, nSubmitter] {
            for (size_t n = nSubmitter; n < marks.runs.size(); n += nSubmitters)
                ASSERT_EQ(VYX_ThreadPool_WorkEx(pools[n / 64 % pools.size()], Marks::Item, &marks.runs[n], 1),
                          0);
        });
    for (std::thread &submitter : submitters)
        submitter.join();
}

TEST_F(FixedPool, EveryItemRunsOnce) {
    // Workers that retire at once, soon and never, so that items keep meeting a worker that is just leaving.
    // Starting one takes its time: the pools that do so all the time get the smaller part.
    VYX_HANDLE_THREADPOOL hRestless = VYX_ThreadPool_CreateFlex(0, 3, 0, 0);
    VYX_HANDLE_THREADPOOL hSoon = VYX_ThreadPool_CreateFlex(1, 6, 0, 1);
    VYX_HANDLE_THREADPOOL hSteady = VYX_ThreadPool_Create(1, 4);
    Marks marks(pooltest::StressItems(2000000));
    std::vector<VYX_HANDLE_THREADPOOL> turns = {hRestless};
    for (int i = 0; i < 60; ++i)
        turns.insert(turns.end(), {hSoon, hSteady});
    RunAll(turns, marks, 3);
    for (VYX_HANDLE_THREADPOOL hPool : {hRestless, hSoon, hSteady})
        EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
    EXPECT_EQ(marks.CountOf(1), static_cast<int>(marks.runs.size()));
}

TEST_F(FixedPool, DestroyAmidWorkRunsExactlyWhatWasAccepted) {
    const auto nRounds = static_cast<uint32_t>(pooltest::StressItems(800));
    for (uint32_t nRound = 0; nRound < nRounds; ++nRound) {
        Marks marks(300);
        std::atomic<int> nAccepted{0};
        VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateFlex(nRound % 3, 3, 0, nRound % 2);
        ASSERT_NE(hPool, nullptr);
        std::vector<std::thread> submitters;
        for (size_t nFirst = 0; nFirst < 3; ++nFirst)
            submitters.emplace_back([&, nFirst] {
                for (size_t n = nFirst; n < marks.runs.size(); n += 3)
                    if (VYX_ThreadPool_WorkEx(hPool, Marks::Item, &marks.runs[n], 1) == 0)
                        ++nAccepted;
                    else
                        return;
            });
        if (nRound % 4 != 0) {
            ASSERT_TRUE(support::WaitUntil([&] { return nAccepted >= static_cast<int>(nRound % 100); }));
        }
        ASSERT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
        for (std::thread &submitter : submitters)
            submitter.join();
        ASSERT_EQ(marks.CountOf(1), nAccepted);
        ASSERT_EQ(marks.CountOf(0), 300 - nAccepted);
    }
}

TEST_F(FixedPool, SignalsNeitherLoseNorRepeatWork) {
    pooltest::CatchSignals();
    Marks marks(pooltest::StressItems(100000));
    const std::vector<VYX_HANDLE_THREADPOOL> pools = {VYX_ThreadPool_Create(2, 2),
                                                      VYX_ThreadPool_CreateFlex(1, 3, 0, 1)};
    sigset_t set; // from here on the test's own threads leave the signals to the workers
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &set, nullptr), 0);
    std::atomic<bool> bStop{false};
    std::thread sender([&] {
        while (!bStop) {
            EXPECT_EQ(kill(getpid(), SIGUSR1), 0);
            std::this_thread::sleep_for(std::chrono::microseconds(100)); // the load's own rhythm
        }
    });
    RunAll(pools, marks, 2);
    EXPECT_TRUE(support::WaitUntil([] { return pooltest::g_signals > 0; }));
    bStop = true;
    sender.join();
    for (VYX_HANDLE_THREADPOOL hPool : pools)
        EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
    EXPECT_EQ(marks.CountOf(1), static_cast<int>(marks.runs.size()));
}

} // namespace
