// Condition variables and the lock-based atomic operations. This program's own pthread_mutex_lock stands
// before the system's, so that a test can act between an operation's look at the integer and its swap.
#include <array>
#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "sync/atomic_inter.h"

namespace {

// Runs once, on this thread, before the next mutex is locked.
thread_local const std::function<void()> *s_pBeforeNextLock = nullptr;

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t *pMutex) {
    static std::atomic<int (*)(pthread_mutex_t *)> fnSystems{nullptr}; // plain: no guard, which might lock
    if (fnSystems.load() == nullptr)
        fnSystems = reinterpret_cast<int (*)(pthread_mutex_t *)>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    const std::function<void()> *pAction = s_pBeforeNextLock;
    s_pBeforeNextLock = nullptr;
    if (pAction != nullptr)
        (*pAction)();
    return fnSystems.load()(pMutex);
}

namespace {

constexpr int kThreads = 8;

class Cond : public testing::Test {
  protected:
    Cond() {
        EXPECT_EQ(VYX_MutexCreate(&m_hMutex, VYX_MUTEX_NORMAL), VYX_OK);
        EXPECT_EQ(VYX_CondCreate(&m_hCond), 0);
    }
    ~Cond() override {
        EXPECT_EQ(VYX_CondDestroy(&m_hCond), 0);
        EXPECT_EQ(VYX_MutexDestroy(&m_hMutex), VYX_OK);
    }
    VYX_MUTEX_T m_hMutex;
    VYX_COND_T m_hCond;
};

TEST_F(Cond, NullPointersAreRefused) {
    for (auto *pCall : {VYX_CondCreate, VYX_CondDestroy, VYX_CondSignal, VYX_CondBroadCast})
        EXPECT_EQ(pCall(nullptr), -1);
    EXPECT_EQ(VYX_CondWait(nullptr, &m_hMutex), -1);
    EXPECT_EQ(VYX_CondWait(&m_hCond, nullptr), -1);
    EXPECT_EQ(VYX_CondWait(nullptr, nullptr), -1);
}

TEST_F(Cond, WakingNobodySucceeds) {
    EXPECT_EQ(VYX_CondSignal(&m_hCond), 0);
    EXPECT_EQ(VYX_CondBroadCast(&m_hCond), 0);
}

// Waits without holding the mutex, which the platform notices. ThreadSanitizer notices it too: tests/tsan.supp
// names this function.
[[gnu::noinline]] void MisuseOnPurpose(VYX_COND_T *pCond) {
    VYX_MUTEX_T hChecking;
    ASSERT_EQ(VYX_MutexCreate(&hChecking, static_cast<uint32_t>(PTHREAD_MUTEX_ERRORCHECK)), VYX_OK);
    EXPECT_EQ(VYX_CondWait(pCond, &hChecking), EPERM);
    EXPECT_EQ(VYX_MutexDestroy(&hChecking), VYX_OK);
}

TEST_F(Cond, PlatformsErrorNumberIsPassedOn) {
    MisuseOnPurpose(&m_hCond);
}

TEST_F(Cond, SignalWakesOneAndBroadcastAll) {
    int iWaiting = 0; // these under m_hMutex
    int iTickets = 0;
    int iServed = 0;
    int iWoken = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            (void)VYX_MutexLock(&m_hMutex);
            ++iWaiting;
            while (iTickets == 0) {
                EXPECT_EQ(VYX_CondWait(&m_hCond, &m_hMutex), 0);
                ++iWoken;
            }
            --iTickets;
            ++iServed;
            (void)VYX_MutexUnlock(&m_hMutex);
        });
    const auto under = [&](const std::function<bool()> &test) {
        bool bHolds = false;
        while (!bHolds) { // the test's limit ends this if it never comes true
            (void)VYX_MutexLock(&m_hMutex);
            bHolds = test();
            (void)VYX_MutexUnlock(&m_hMutex);
            std::this_thread::yield();
        }
    };
    under([&] { return iWaiting == kThreads; }); // all asleep, or the mutex would be held
    for (int i = 0; i < kThreads / 2; ++i) {
        (void)VYX_MutexLock(&m_hMutex);
        iTickets = 1;
        EXPECT_EQ(VYX_CondSignal(&m_hCond), 0);
        EXPECT_EQ(iServed, i);
        (void)VYX_MutexUnlock(&m_hMutex);
        under([&] { return iServed == i + 1; });
    }
    (void)VYX_MutexLock(&m_hMutex);
    iTickets = kThreads / 2;
    EXPECT_EQ(VYX_CondBroadCast(&m_hCond), 0);
    (void)VYX_MutexUnlock(&m_hMutex);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(iServed, kThreads);
    EXPECT_LE(iWoken, kThreads * 3 / 2); // some room for spurious ones
}

TEST(Atomic, OperationsOnOneThread) {
    const struct {
        const char *szName;
        std::function<int32_t(volatile uint32_t *)> call;
        uint32_t nBefore;
        uint32_t nAfter;
    } cases[] = {
        {"swap equal", [](auto *p) { return VYX_AtomicCas(p, 9, 5); }, 5, 9},
        {"swap different", [](auto *p) { return VYX_AtomicCas(p, 1, 5); }, 9, 9},
        {"swap negative", [](auto *p) { return VYX_AtomicCas(p, 3, -1); }, 0xFFFFFFFF, 3},
        {"swap lowest", [](auto *p) { return VYX_AtomicCas(p, 0, INT32_MIN); }, 0x80000000, 0},
        {"set", [](auto *p) { return VYX_AtomicSet(p, 0xFFFFFFFE); }, 7, 0xFFFFFFFE},
        {"set from high", [](auto *p) { return VYX_AtomicSet(p, 0); }, 0x80000001, 0},
        {"add", [](auto *p) { return VYX_AtomicAdd(p, 40); }, 2, 42},
        {"add wraps", [](auto *p) { return VYX_AtomicAdd(p, 0xFFFFFFFF); }, 3, 2},
        {"increment", [](auto *p) { return VYX_AtomicInc(p); }, 0x7FFFFFFF, 0x80000000},
        {"increment wraps", [](auto *p) { return VYX_AtomicInc(p); }, 0xFFFFFFFF, 0},
        {"decrement", [](auto *p) { return VYX_AtomicDec(p); }, 0x80000000, 0x7FFFFFFF},
        {"decrement wraps", [](auto *p) { return VYX_AtomicDec(p); }, 0, 0xFFFFFFFF},
    };
    for (const bool bStarted : {false, true}) {
        if (bStarted) {
            EXPECT_EQ(VYX_InitAtomic_Inter(), VYX_OK);
        }
        for (const auto &row : cases) {
            SCOPED_TRACE(row.szName);
            volatile uint32_t nGuarded[3] = {0xA5A5A5A5, row.nBefore, 0xA5A5A5A5};
            EXPECT_EQ(row.call(&nGuarded[1]), 0);
            EXPECT_EQ(nGuarded[1], row.nAfter);
            EXPECT_EQ(nGuarded[0] + nGuarded[2], 2 * 0xA5A5A5A5);
        }
    }
    EXPECT_EQ(VYX_FiniAtomic_Inter(), VYX_OK);
}

TEST(Atomic, PointerSwapDoesNothing) {
    int iOld = 0;
    int iNew = 0;
    void *volatile pDest = &iOld;
    EXPECT_EQ(VYX_AtomicCasPtr(&pDest, &iNew, &iOld), 0);
    EXPECT_EQ(pDest, &iOld);
    EXPECT_EQ(VYX_AtomicCasPtr(nullptr, nullptr, nullptr), 0);
}

TEST(Atomic, DerivedOperationsMayLoseUpdates) {
    static volatile uint32_t s_nValue;
    const std::function<int32_t()> calls[] = {
        [] { return VYX_AtomicSet(&s_nValue, 1); },
        [] { return VYX_AtomicAdd(&s_nValue, 2); },
        [] { return VYX_AtomicInc(&s_nValue); },
        [] { return VYX_AtomicDec(&s_nValue); },
    };
    const std::function<void()> interfere = [] { s_nValue = 100; };
    for (const auto &call : calls) {
        s_nValue = 5;
        s_pBeforeNextLock = &interfere; // runs between the look and the swap
        EXPECT_EQ(call(), 0);
        EXPECT_EQ(s_pBeforeNextLock, nullptr) << "no lock was taken";
        EXPECT_EQ(s_nValue, 100U);
    }
    // The swap itself looks under the lock.
    s_nValue = 5;
    s_pBeforeNextLock = &interfere;
    EXPECT_EQ(VYX_AtomicCas(&s_nValue, 7, 100), 0);
    EXPECT_EQ(s_nValue, 7U);
}

// The swap makes a lock: who finds its own number in the integer is alone, if the swap is one step.
TEST(Atomic, SwapIsExactAcrossThreads) {
    static volatile uint32_t s_nOwner;
    constexpr int kRounds = 500;
    s_nOwner = 0;
    int iCount = 0; // the made lock's
    std::vector<std::thread> threads;
    for (int i = 1; i <= kThreads; ++i)
        threads.emplace_back([&iCount, i] {
            const auto nSelf = static_cast<uint32_t>(i);
            for (int iDone = 0; iDone < kRounds;) {
                (void)VYX_AtomicCas(&s_nOwner, nSelf, 0);
                if (__atomic_load_n(&s_nOwner, __ATOMIC_RELAXED) != nSelf) {
                    std::this_thread::yield();
                    continue;
                }
                ++iCount;
                ++iDone;
                (void)VYX_AtomicCas(&s_nOwner, 0, i);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(iCount, kThreads * kRounds);
}

} // namespace
