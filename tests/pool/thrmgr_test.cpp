// The flexible pool as an application sees it.
#include "pool/pool_support.h"

using pooltest::Gate;

namespace {

void Nothing(void *) {}

TEST(FlexPool, Refusals) {
    EXPECT_EQ(VYX_ThreadPoolFlex_Create(0, 50, Nothing, 0), nullptr);
    EXPECT_EQ(VYX_ThreadPoolFlex_Create(1, 50, nullptr, 0), nullptr);
    EXPECT_EQ(VYX_ThreadPoolFlex_Create(1, 50, Nothing, -1), nullptr);
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(nullptr), 0);
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(0x7FFFFFFF, -7, Nothing, 1);
    EXPECT_NE(hPool, nullptr) << "any time-out and the smallest stack will do";
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
}

// Before the library is started, while it is, and after its stop.
TEST(FlexPool, WorksWithoutTheLibrary) {
    for (const int32_t nIdleTimeOut : {0, 20, -1}) {
        Gate gate;
        Gate other;
        gate.bOpen = true;
        VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(2, nIdleTimeOut, Gate::Handler, 0);
        for (int i = 1; i <= 30; ++i) {
            if (i == 10) {
                ASSERT_EQ(VYX_Init(), VYX_OK);
            }
            if (i == 20) {
                ASSERT_EQ(VYX_Fini(), VYX_OK);
            }
            EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, &gate), 0);
            ASSERT_TRUE(gate.WaitLeft(i));
        }
        EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    }
}

TEST(FlexPool, WorkersAreNamedByPoolAndStart) {
    Gate gates[2];
    VYX_HANDLE_THREADPOOLFLEX pools[3];
    for (VYX_HANDLE_THREADPOOLFLEX &hPool : pools)
        hPool = VYX_ThreadPoolFlex_Create(2, -1, Gate::Handler, 0);
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(pools[1]), 0);
    pools[1] = VYX_ThreadPoolFlex_Create(2, -1, Gate::Handler, 0); // has the number that has become free
    for (Gate &gate : gates) {
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(pools[1], &gate), 0);
        ASSERT_TRUE(gate.WaitEntered(1));
    }
    gates[0].bOpen = gates[1].bOpen = true;
    for (VYX_HANDLE_THREADPOOLFLEX hPool : pools)
        EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    EXPECT_EQ(gates[0].lastName + " " + gates[1].lastName, "vyx-flex1.0 vyx-flex1.1");
}

TEST(FlexPool, DestroyDropsWhatIsQueued) {
    struct Late {
        VYX_HANDLE_THREADPOOLFLEX hPool = nullptr;
        Gate gate;
        std::atomic<int> nRuns{0};
        static void Handler(void *pLate) {
            auto &late = *static_cast<Late *>(pLate);
            ++late.nRuns;
            late.gate.Pass();
            // Goes on until destruction has begun, which waits for this handler.
            EXPECT_TRUE(support::WaitUntil([&] { return VYX_ThreadPoolFlex_Work(late.hPool, pLate) == -1; }));
        }
    } late;
    late.hPool = VYX_ThreadPoolFlex_Create(1, 50, Late::Handler, 0);
    for (int i = 0; i < 600; ++i) // more than one of the queue's blocks
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(late.hPool, &late), 0);
    ASSERT_TRUE(late.gate.WaitEntered(1));
    late.gate.bOpen = true;
    EXPECT_TRUE(support::EndsThoughCancelled([&] { EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(late.hPool), 0); }));
    EXPECT_EQ(late.nRuns, 1);
}

TEST(FlexPool, ItemsRunInOrder) {
    struct Item {
        static void Handler(void *pItem) { EXPECT_EQ(static_cast<Item *>(pItem)->nNumber, Runs()++); }
        static std::atomic<int> &Runs() {
            static std::atomic<int> s_runs{0};
            return s_runs;
        }
        int nNumber;
    };
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(1, -1, Item::Handler, 0);
    std::vector<Item> items(3000);
    for (int n = 0; n < 3000; ++n) {
        items[static_cast<size_t>(n)].nNumber = n;
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, &items[static_cast<size_t>(n)]), 0);
    }
    EXPECT_TRUE(support::WaitUntil([] { return Item::Runs() == 3000; }));
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
}

// Each round needs all workers, whether these look for work or sleep: items that wait for each other, after a pause that
// ends anywhere between a worker's look for more and its sleep.
TEST(FlexPool, NoItemIsOverlooked) {
    static std::atomic<int> s_nInside;
    static std::atomic<int> s_nDue;
    for (const int nWorkers : {1, 2}) {
        s_nInside = s_nDue = 0;
        VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(
            nWorkers, -1,
            [](void *) {
                const int nDue = s_nDue;
                ++s_nInside;
                EXPECT_TRUE(pooltest::YieldUntil([nDue] { return s_nInside >= nDue; }));
            },
            0);
        const int nRounds = pooltest::StressItems(1500);
        for (int nRound = 0; nRound < nRounds && !HasFailure(); ++nRound) {
            s_nDue += nWorkers;
            for (int i = 1; i <= nWorkers; ++i) {
                EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, nullptr), 0);
                if (nRound == 0) {
                    ASSERT_TRUE(pooltest::YieldUntil([i] { return s_nInside == i; })) << "so that all start";
                }
            }
            ASSERT_TRUE(pooltest::YieldUntil([] { return s_nInside == s_nDue; })) << "round " << nRound;
            const auto end = support::Clock::now() + std::chrono::microseconds(nRound % 64 * 2 * nWorkers);
            while (support::Clock::now() < end) {
            }
        }
        EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    }
}

TEST(FlexPool, HandlerThatEndsItsThreadTakesOnlyItselfOut) {
    static std::atomic<int> s_runs;
    s_runs = 0;
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(
        2, -1,
        [](void *) {
            if (++s_runs % 2 == 0)
                VYX_Thread_Exit();
            EXPECT_EQ(pthread_cancel(pthread_self()), 0); // takes effect once this has returned
        },
        0);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(VYX_ThreadPoolFlex_Work(hPool, nullptr), 0);
    EXPECT_TRUE(support::WaitUntil([] { return s_runs == 200; })) << s_runs;
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
}

TEST(FlexPool, CancelledSleeperTakesNoItemWithIt) {
    static std::atomic<pthread_t> s_worker;
    for (int nRound = 0; nRound < 20 && !HasFailure(); ++nRound) {
        Gate both;
        Gate next;
        next.bOpen = true;
        VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(
            2, -1,
            [](void *pGate) {
                s_worker = pthread_self();
                Gate::Handler(pGate);
            },
            0);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, &both), 0);
            ASSERT_TRUE(both.WaitEntered(i + 1));
        }
        both.bOpen = true;
        ASSERT_TRUE(both.WaitLeft(2));
        EXPECT_EQ(pthread_cancel(s_worker), 0);
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, &next), 0);
        EXPECT_TRUE(next.WaitLeft(1)) << "round " << nRound;
        EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    }
}

} // namespace
