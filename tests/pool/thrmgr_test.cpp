// The flexible pool as an application sees it, through the shared library.
#include "pool/pool_support.h"

using pooltest::Gate;
using pooltest::Marks;

namespace {

class FlexPool : public pooltest::StartedTest {};

void Nothing(void *) {}

TEST_F(FlexPool, Refusals) {
    EXPECT_EQ(VYX_ThreadPoolFlex_Create(0, 50, Nothing, 0), nullptr);
    EXPECT_EQ(VYX_ThreadPoolFlex_Create(1, 50, nullptr, 0), nullptr);
    EXPECT_EQ(VYX_ThreadPoolFlex_Create(1, 50, Nothing, -1), nullptr);
    EXPECT_EQ(VYX_ThreadPoolFlex_Work(nullptr, nullptr), -1);
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(nullptr), 0);
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(0x7FFFFFFF, -7, Nothing, 1);
    EXPECT_NE(hPool, nullptr) << "any time-out and the smallest stack will do";
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
}

TEST_F(FlexPool, DestroyDropsWhatIsQueued) {
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
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(late.hPool, &late), 0);
    ASSERT_TRUE(late.gate.WaitEntered(1));
    late.gate.bOpen = true;
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(late.hPool), 0);
    EXPECT_EQ(late.nRuns, 1);
}

// Bursts with pauses around the idle time-out, so that workers keep retiring beside new work.
void RunBursts(int32_t nIdleTimeOut, int nItems) {
    Marks marks(nItems);
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(8, nIdleTimeOut, Marks::Handler, 0);
    std::vector<std::thread> submitters;
    for (size_t nFirst = 0; nFirst < 2; ++nFirst)
        submitters.emplace_back([&, nFirst] {
            for (size_t n = nFirst; n < marks.runs.size(); n += 2) {
                ASSERT_EQ(VYX_ThreadPoolFlex_Work(hPool, &marks.runs[n]), 0);
                if (n / 2 % 5000 == 0)
                    std::this_thread::sleep_for(std::chrono::milliseconds(n / 2 % 3)); // see above
            }
        });
    for (std::thread &submitter : submitters)
        submitter.join();
    EXPECT_TRUE(support::WaitUntil([&] { return marks.runs.back() == 1 && marks.CountOf(0) == 0; }));
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    EXPECT_EQ(marks.CountOf(1), nItems);
}

TEST_F(FlexPool, EveryItemRunsOnce) {
    for (const int32_t nIdleTimeOut : {0, 1, -1}) {
        SCOPED_TRACE(nIdleTimeOut);
        RunBursts(nIdleTimeOut, pooltest::StressItems(nIdleTimeOut == 0 ? 1000000 : 500000));
    }
}

TEST_F(FlexPool, NoItemIsOverlooked) {
    // One item at a time, after a pause that ends anywhere between the worker's look for more and its sleep.
    for (const int32_t nMaxThreads : {1, 4}) {
        Marks marks(pooltest::StressItems(15000));
        VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(nMaxThreads, -1, Marks::Handler, 0);
        for (size_t n = 0; n < marks.runs.size(); ++n) {
            ASSERT_EQ(VYX_ThreadPoolFlex_Work(hPool, &marks.runs[n]), 0);
            ASSERT_TRUE(pooltest::YieldUntil([&] { return marks.runs[n] == 1; })) << "item " << n;
            const auto end =
                support::Clock::now() + std::chrono::microseconds(n % 64 * static_cast<size_t>(nMaxThreads));
            while (support::Clock::now() < end) {
            }
        }
        EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    }
}

TEST_F(FlexPool, IdleWorkersComeForEveryItem) {
    // Two items that each wait for the other need both workers, whether these look for work or sleep.
    static std::atomic<int> s_nInside;
    static std::atomic<int> s_nDue;
    s_nInside = s_nDue = 0;
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(
        2, -1,
        [](void *) {
            const int nDue = s_nDue;
            ++s_nInside;
            EXPECT_TRUE(pooltest::YieldUntil([nDue] { return s_nInside >= nDue; }));
        },
        0);
    for (int nRound = 0; nRound < 2000 && !HasFailure(); ++nRound) {
        s_nDue += 2;
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, nullptr), 0);
        if (nRound == 0) {
            ASSERT_TRUE(pooltest::YieldUntil([] { return s_nInside == 1; })) << "so that a second one starts";
        }
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, nullptr), 0);
        ASSERT_TRUE(pooltest::YieldUntil([] { return s_nInside == s_nDue; }));
        const auto end = support::Clock::now() + std::chrono::microseconds(nRound % 32 * 8);
        while (support::Clock::now() < end) {
        }
    }
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
}

TEST_F(FlexPool, HandlerThatEndsItsThreadTakesOnlyItselfOut) {
    static std::atomic<int> s_runs;
    s_runs = 0;
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(
        2, -1,
        [](void *) {
            ++s_runs;
            VYX_Thread_Exit();
        },
        0);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(VYX_ThreadPoolFlex_Work(hPool, nullptr), 0);
    EXPECT_TRUE(support::WaitUntil([] { return s_runs == 200; })) << s_runs;
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
}

TEST_F(FlexPool, CancelledSleeperTakesNoItemWithIt) {
    static std::atomic<pthread_t> s_worker;
    for (int nRound = 0; nRound < 30 && !HasFailure(); ++nRound) {
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

TEST_F(FlexPool, NeedsNoStartWithoutALimit) {
    ASSERT_EQ(VYX_Fini(), 0);
    for (const int32_t nIdleTimeOut : {0, -1}) {
        Gate gate;
        gate.bOpen = true;
        VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(2, nIdleTimeOut, Gate::Handler, 0);
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, &gate), 0);
            ASSERT_TRUE(gate.WaitLeft(i + 1));
        }
        EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    }
    ASSERT_EQ(VYX_Init(), 0);
}

} // namespace
