// The pools: who is given work, which workers stay, and what is left to whom at the end.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <semaphore.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>
#include <pthread.h>
#include <vyx/vyx.h>

#include "pool/thread_pool_inter.h"
#include "pool/thrmgr.h"
#include "support/calls.h"
#include "support/support.h"
#include "sync/sem_record.h"

using support::EndsThoughCancelled;
using support::WaitUntil;
using vyx_inter::LockGuard;
using vyx_inter::PlaceSet;

namespace {

// Items that stay inside until the gate opens, and how many came in and went out.
struct Gate {
    std::atomic<int> nEntered{0};
    std::atomic<int> nLeft{0};
    std::atomic<bool> bOpen{false};
    std::atomic<bool> bCancel{false}; // their threads, which takes effect once they have returned
    std::mutex mutex;
    std::string lastName; // of the worker of the last item that came in; under the mutex

    void Pass() {
        char szName[64] = {};
        EXPECT_EQ(pthread_getname_np(pthread_self(), szName, sizeof szName), 0);
        {
            const std::lock_guard<std::mutex> guard(mutex);
            lastName = szName;
        }
        ++nEntered;
        while (!bOpen.load())
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the poll's own pause
        if (bCancel) {
            EXPECT_EQ(pthread_cancel(pthread_self()), 0);
        }
        ++nLeft;
    }
    bool WaitEntered(int n) {
        return WaitUntil([&] { return nEntered.load() == n; });
    }
    bool WaitLeft(int n) {
        return WaitUntil([&] { return nLeft.load() == n; });
    }
    static void *Item(void *pGate) {
        static_cast<Gate *>(pGate)->Pass();
        return nullptr;
    }
    static void Handler(void *pGate) { static_cast<Gate *>(pGate)->Pass(); }
};

// With the library started.
class FixedPool : public testing::Test {
  protected:
    FixedPool() { EXPECT_EQ(VYX_Init(), VYX_OK); }
    ~FixedPool() override { EXPECT_EQ(VYX_Fini(), VYX_OK); }
};

// A text with one sign for each place: '-' free, 'i' idle, 'b' busy.
std::string Places(THREAD_POOL_T *pPool) {
    const LockGuard guard(pPool->hLock);
    std::string text;
    for (uint32_t n = 0; n < pPool->nMaxCount; ++n)
        text += pPool->pPlaces[n].pWorker == nullptr ? '-' : 'b';
    PlaceSet idle = pPool->idle;
    for (uint32_t n = idle.First(); n != PlaceSet::kNone; n = idle.First()) {
        text[n] = text[n] == 'b' ? 'i' : '?';
        idle.Remove(n);
    }
    return text;
}

bool WaitPlaces(THREAD_POOL_T *pPool, const std::string &text) {
    return WaitUntil([&] { return Places(pPool) == text; });
}

TEST_F(FixedPool, Refusals) {
    for (int i = 0; i <= VYX_MAX_THREADPOOLS; ++i)
        ASSERT_EQ(VYX_ThreadPool_Create(2, 1), nullptr);
    EXPECT_EQ(VYX_ThreadPool_CreateEx(1, 1, 1), nullptr) << "no thread has so small a stack";
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(0, 512);
    ASSERT_NE(hPool, nullptr) << "those that were refused have given their places back";
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, nullptr, nullptr), -1);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

TEST_F(FixedPool, GrowsByWorkersNamedAfterTheirPlaces) {
    Gate gates[130];
    VYX_HANDLE_THREADPOOL hOther = VYX_ThreadPool_Create(0, 1);
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateEx(0, 130, 262144);
    for (Gate &gate : gates)
        ASSERT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), 0);
    EXPECT_EQ(support::ErrorsOf([&] { EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gates), -1); }), "")
        << "full";
    for (const size_t n : {129U, 3U, 70U}) {
        gates[n].bOpen = true;
        ASSERT_TRUE(WaitUntil([&] { return Places(hPool)[n] == 'i'; }));
    }
    Gate again;
    int nAgain = 0;
    for (const char *szLowest : {"vyx-pool1.3", "vyx-pool1.70", "vyx-pool1.129"}) {
        EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &again), 0);
        ASSERT_TRUE(again.WaitEntered(++nAgain));
        EXPECT_EQ(again.lastName, szLowest);
    }
    again.bOpen = true;
    for (Gate &gate : gates)
        gate.bOpen = true;
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
    EXPECT_EQ(VYX_ThreadPool_Destroy(hOther), 0);
}

TEST_F(FixedPool, PlaceDecidesWhoRetires) {
    Gate gate;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_CreateFlex(2, 4, 0, 100);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), 0);
    const double fTook = support::MillisecondsOf([&] {
        gate.bOpen = true;
        EXPECT_TRUE(WaitPlaces(hPool, "ii--"));
    });
    EXPECT_GE(fTook, 99.0) << "not before the time is out, to one tick";
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

TEST_F(FixedPool, CallersThatWaitAreServedInTheOrderOfTheirArrival) {
    static std::string s_order;
    s_order.clear();
    Gate gate;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), 0);
    std::thread callers[4];
    char items[] = "0123";
    for (size_t n = 0; n < 4; ++n) {
        callers[n] = std::thread([&, n] {
            const VYX_THREAD_PROC fnNote = [](void *pItem) -> void * {
                s_order += *static_cast<char *>(pItem);
                return nullptr;
            };
            EXPECT_EQ(VYX_ThreadPool_WorkEx(hPool, fnNote, &items[n], 1), 0);
        });
        ASSERT_TRUE(WaitUntil([&] {
            const LockGuard guard(hPool->hLock);
            return hPool->waiting.CountAsleep() == n + 1;
        }));
    }
    if (support::kCancelsSleepers) {
        EXPECT_EQ(pthread_cancel(callers[2].native_handle()), 0);
        callers[2].join();
    }
    gate.bOpen = true;
    for (std::thread &caller : callers)
        if (caller.joinable())
            caller.join();
    EXPECT_TRUE(EndsThoughCancelled([&] { EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0); }));
    EXPECT_EQ(s_order, support::kCancelsSleepers ? "013" : "0123");
}

TEST_F(FixedPool, StopForgetsPools) {
    Gate old;
    Gate gate;
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &old), 0);
    ASSERT_EQ(VYX_Fini(), VYX_OK);
    ASSERT_EQ(VYX_Init(), VYX_OK);
    EXPECT_EQ(VYX_ThreadPool_Create(2, 2), hPool) << "the registry is empty again";
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), 0);
    old.bOpen = true; // the old worker comes back to a place that is not its own, and leaves it alone
    EXPECT_TRUE(old.WaitLeft(1));
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, Gate::Item, &gate), -1);
    gate.bOpen = true;
    EXPECT_TRUE(WaitPlaces(hPool, "ii"));
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
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
    ASSERT_TRUE(WaitUntil([] { return s_iResult == 0; }));
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

// In the child the worker ends with its item, and the process with its last thread.
TEST_F(FixedPool, ForkedWorkerLeavesItsSemaphoreToTheParent) {
    static std::atomic<pid_t> s_iChild;
    const VYX_THREAD_PROC fnFork = [](void *) -> void * {
        s_iChild = fork();
        return nullptr;
    };
    VYX_HANDLE_THREADPOOL hPool = VYX_ThreadPool_Create(1, 1);
    EXPECT_EQ(VYX_ThreadPool_Work(hPool, fnFork, nullptr), 0);
    ASSERT_TRUE(WaitPlaces(hPool, "i"));
    EXPECT_EQ(waitpid(s_iChild, nullptr, 0), s_iChild);
    {
        const LockGuard guard(hPool->hLock);
        sem_t *pSame = sem_open(hPool->pPlaces[0].pWorker->hSem->szName, 0);
        EXPECT_NE(pSame, SEM_FAILED);
        (void)sem_close(pSame);
    }
    EXPECT_EQ(VYX_ThreadPool_Destroy(hPool), 0);
}

TEST_F(FixedPool, ClassKeepsTheHandleOnly) {
    Gate gate;
    VYX_ThreadPool copy;
    {
        VYX_ThreadPool pool;
        EXPECT_EQ(pool.Create(2, 1), -1);
        EXPECT_EQ(pool.Create(1, 1), 0);
        copy = pool;
    }
    EXPECT_EQ(copy.Work(Gate::Item, &gate), 0);
    EXPECT_EQ(copy.Work(Gate::Item, &gate), -1) << "full";
    gate.bOpen = true;
    EXPECT_EQ(copy.Destroy(), 0);
    EXPECT_EQ(gate.nLeft, 1);
}

TEST(FlexPool, SmallStacksAreRaised) {
    const struct {
        int32_t nGiven;
        uint32_t nUsed;
    } cases[] = {{0, 1048576}, {1, 262144}, {262145, 262145}};
    for (const auto &test : cases) {
        VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(1, 50, Gate::Handler, test.nGiven);
        EXPECT_EQ(static_cast<thrmgr_pool_t *>(hPool)->nStackSize, test.nUsed);
        EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    }
    EXPECT_EQ(VYX_ThreadPoolFlex_Create(1, 50, nullptr, 0), nullptr);
    EXPECT_EQ(VYX_ThreadPoolFlex_Create(1, 50, Gate::Handler, -1), nullptr);
}

uint32_t Alive(VYX_HANDLE_THREADPOOLFLEX hPool) {
    auto &pool = *static_cast<thrmgr_pool_t *>(hPool);
    const LockGuard guard(pool.hLock);
    return pool.nAlive;
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

TEST(FlexPool, DoesNotGrowAgainAfterItShrankToItsLastWorker) {
    VYX_HANDLE_THREADPOOLFLEX hFirst = VYX_ThreadPoolFlex_Create(1, 0, Gate::Handler, 0);
    VYX_HANDLE_THREADPOOLFLEX hOther = VYX_ThreadPoolFlex_Create(1, 0, Gate::Handler, 0);
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hFirst), 0);
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(4, 100, Gate::Handler, 0);
    EXPECT_EQ(Alive(hPool), 0U) << "no thread before there is work";
    Gate four;
    for (int i = 1; i <= 4; ++i) {
        ASSERT_EQ(VYX_ThreadPoolFlex_Work(hPool, &four), 0);
        ASSERT_TRUE(four.WaitEntered(i));
    }
    EXPECT_EQ(four.lastName, "vyx-flex0.3") << "the number that has become free";
    const double fTook = support::MillisecondsOf([&] {
        four.bOpen = true;
        ASSERT_TRUE(WaitUntil([&] { return Alive(hPool) == 1; }));
    });
    EXPECT_GE(fTook, 99.0) << "the idle time-out, to one tick";
    Gate gate;
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, &gate), 0);
    EXPECT_EQ(Alive(hPool), 1U) << "it does all";
    gate.bOpen = true;
    EXPECT_TRUE(gate.WaitLeft(5));
    EXPECT_NE(gate.lastName, "vyx-flex0.4") << "nor is it a new one";
    gate.bCancel = true;
    EXPECT_EQ(VYX_ThreadPoolFlex_Work(hPool, &gate), 0);
    EXPECT_TRUE(WaitUntil([&] { return Alive(hPool) == 0; })) << "it ends once the handler has returned";
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hOther), 0);
}

// One worker, and more items than one of the queue's blocks holds. Item 300 goes on until destruction has begun.
TEST(FlexPool, RunsInOrderAndDropsWhatIsLeftAtTheEnd) {
    static VYX_HANDLE_THREADPOOLFLEX s_hPool;
    static std::atomic<int> s_nRuns;
    s_nRuns = 0;
    static char s_items[600];
    static std::atomic<bool> s_bQueued; // all are, in several blocks
    s_bQueued = false;
    const VYX_THRMGR_PROC fnCount = [](void *pItem) {
        EXPECT_TRUE(WaitUntil([] { return s_bQueued.load(); }));
        EXPECT_EQ(pItem, &s_items[s_nRuns]);
        if (++s_nRuns == 300) {
            EXPECT_TRUE(WaitUntil([] { return VYX_ThreadPoolFlex_Work(s_hPool, nullptr) == -1; }));
        }
    };
    s_hPool = VYX_ThreadPoolFlex_Create(1, 50, fnCount, 0);
    for (char &item : s_items)
        EXPECT_EQ(VYX_ThreadPoolFlex_Work(s_hPool, &item), 0);
    s_bQueued = true;
    ASSERT_TRUE(WaitUntil([] { return s_nRuns == 300; }));
    EXPECT_TRUE(EndsThoughCancelled([] { EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(s_hPool), 0); }));
    EXPECT_EQ(s_nRuns, 300);
}

TEST(FlexPool, HandlerThatEndsItsThreadTakesOnlyItselfOut) {
    static std::atomic<int> s_runs;
    s_runs = 0;
    const VYX_THRMGR_PROC fnEnd = [](void *) {
        if (++s_runs % 2 == 0)
            VYX_Thread_Exit();
        EXPECT_EQ(pthread_cancel(pthread_self()), 0); // takes effect once this has returned
    };
    VYX_HANDLE_THREADPOOLFLEX hPool = VYX_ThreadPoolFlex_Create(2, -1, fnEnd, 0);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(VYX_ThreadPoolFlex_Work(hPool, nullptr), 0);
    EXPECT_TRUE(WaitUntil([] { return s_runs == 200; })) << s_runs;
    EXPECT_EQ(VYX_ThreadPoolFlex_Destroy(hPool), 0);
}

} // namespace
