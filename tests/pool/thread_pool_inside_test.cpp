// The fixed pool from inside: its records, and what happens when the system refuses semaphores or threads.
#include <algorithm>

#include "pool/refusals.h"
#include "pool/thread_pool_inter.h"
#include "sync/mutex_hold.h"

using pooltest::ErrorsOf;
using pooltest::Gate;
using pooltest::Shown;

namespace {

class FixedPoolInside : public refusals::RefusalsTest {};

const std::string kNoSemaphore = Shown("quelby !!! VYX_CreateThread_Local VYX_SemCreate error, return -1 2");
const std::string kNoThread = Shown("quelby !!! VYX_CreateThread_Local VYX_Thread_Create error, return -1 3");
const std::string kNotStarted =
    Shown("quelby !!! VYX_InitThread_Local VYX_CreateThread_Local error, return -1 2") +
    Shown("quelby !!! VYX_ThreadPool_Create VYX_InitThread_Local error, return -1 3");

// A text with one sign for each place: '-' free, 'i' idle, 'b' busy.
std::string Places(THREAD_POOL_T *pPool) {
    const vyx_inter::MutexHold hold(pPool->hLock);
    std::string text;
    for (uint32_t n = 0; n < pPool->nMaxCount; ++n) {
        const THREAD_INFO_T &info = pPool->struThreads[n];
        text += info.hThread == VYX_INVALID_THREAD ? '-' : info.bIdle == 1 ? 'i' : 'b';
    }
    EXPECT_EQ(pPool->nCurrCount,
              text.size() - static_cast<size_t>(std::count(text.begin(), text.end(), '-')));
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
    EXPECT_EQ(VYX_GetIdle_Local(hPool), nullptr);
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
    EXPECT_EQ(refusals::g_nNames, 2) << "retired workers give their semaphore back";
    // A place among the first two loses its worker; the next one to start takes it, and stays.
    const VYX_THREAD_PROC fnCancel = [](void *) -> void * {
        EXPECT_EQ(pthread_cancel(pthread_self()), 0); // takes effect once this has returned
        return nullptr;
    };
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, fnCancel, nullptr), 0);
    ASSERT_TRUE(WaitPlaces(hPool, "-i--"));
    Gate two;
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &two), 0);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &two), 0);
    EXPECT_EQ(Places(hPool), "bb--");
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &two), 0);
    two.bOpen = true;
    ASSERT_TRUE(WaitPlaces(hPool, "ii--"));
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

// Two callers wait for the one worker, which ends; and no other is to be had.
TEST_F(FixedPoolInside, NoWaiterIsLeftBehindWithoutThreads) {
    const VYX_THREAD_PROC fnExit = [](void *pGate) -> void * {
        Gate::Item(pGate);
        VYX_Thread_Exit();
    };
    Gate gate;
    refusals::g_nThreadsLeft = -1;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, fnExit, &gate), 0);
    std::atomic<int> nRefused{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 2; ++i)
        waiters.emplace_back([&] { nRefused -= VYX_ThreadPool_WorkEx(hPool, fnExit, &gate, 1); });
    EXPECT_TRUE(support::WaitUntil([&] { return Locked(hPool, [&] { return hPool->nWaiting == 2; }); }));
    refusals::g_nThreadsLeft = 0;
    EXPECT_EQ(ErrorsOf([&] {
                  gate.bOpen = true;
                  EXPECT_TRUE(support::WaitUntil([&] { return nRefused == 2; })) << "neither waits for ever";
              }),
              kNoThread + kNoThread);
    refusals::g_nThreadsLeft = -1;
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
    for (std::thread &waiter : waiters)
        waiter.join();
}

TEST_F(FixedPoolInside, NoSemaphoreOrNoThreadToBeHad) {
    const struct {
        std::atomic<int> &nLeft;
        std::string message;
    } cases[] = {{refusals::g_nSemaphoresLeft, kNoSemaphore}, {refusals::g_nThreadsLeft, kNoThread}};
    for (const auto &test : cases) {
        Gate gate;
        VYX_HANDLE_THREADPOOL hRunning = VYX_ThreadPool_Create(2, 4);
        EXPECT_EQ(VYX_ThreadPool_Work(hRunning, Gate::Item, &gate), 0);
        test.nLeft = 5;
        EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(VYX_ThreadPool_Create(6, 512), nullptr); }),
                  test.message + kNotStarted);
        EXPECT_EQ(refusals::g_nNames, 2) << "the workers that had been started are gone";
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

TEST_F(FixedPoolInside, NullRecords) {
    EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(VYX_GetIdle_Local(nullptr), nullptr); }),
              Shown("quelby !!! VYX_GetIdle_Local pThreadPool == NULL error, return NULL 1"));
    EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(f_Thread_Svc(nullptr), nullptr); }),
              Shown("quelby !!! f_Thread_Svc pParam == NULL error, return NULL 1"));
}

TEST_F(FixedPoolInside, StartForgetsPoolsThatWereLeftOver) {
    Gate old;
    Gate gate;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateFlex(0, 2, 0, 30);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &old), 0);
    ASSERT_TRUE(old.WaitEntered(1));
    VYX_SEM_T hLost = hPool->struThreads[0].hSem;
    ASSERT_EQ(VYX_Fini(), 0);
    ASSERT_EQ(VYX_Init(), 0);
    VYX_HANDLE_THREADPOOL hNew = VYX_ThreadPool_Create(2, 2);
    EXPECT_EQ(hNew, hPool) << "the registry is empty again";
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(VYX_ThreadPool_Work(hNew, Gate::Item, &gate), 0);
    ASSERT_TRUE(gate.WaitEntered(2));
    old.bOpen = true; // the old worker comes back to a record that is not its own, and leaves it alone
    ASSERT_TRUE(old.WaitLeft(1));
    const auto end = support::Clock::now() + std::chrono::milliseconds(20); // it takes microseconds
    while (Places(hNew) == "bb" && support::Clock::now() < end)
        std::this_thread::yield();
    EXPECT_EQ(Places(hNew), "bb");
    gate.bOpen = true;
    EXPECT_EQ(VYX_ThreadPool_Destroy(hNew), 0);
    EXPECT_EQ(VYX_SemDestroy(&hLost), 0);
}

} // namespace
