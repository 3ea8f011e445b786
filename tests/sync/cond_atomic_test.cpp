// Condition variables and the lock-based atomic operations. This program's own pthread_mutex_lock stands
// before the system's, so that a test can act between an operation's look at the integer and its swap; and so does its
// pthread_cond_clockwait, to see the clock.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "sync/timed_wait_support.h"

using support::Async;
using support::Monitor;
using support::WaitUntil;

namespace {

// Runs once, on this thread, before the next mutex is locked.
thread_local const std::function<void()> *s_pBeforeNextLock = nullptr;

// The clock of this thread's last bounded wait.
thread_local clockid_t s_eClock = -1;

} // namespace

extern "C" int pthread_cond_clockwait(pthread_cond_t *pCond, pthread_mutex_t *pMutex, clockid_t eClock,
                                      const struct timespec *pDue) {
    using Systems = int (*)(pthread_cond_t *, pthread_mutex_t *, clockid_t, const struct timespec *);
    s_eClock = eClock;
    return reinterpret_cast<Systems>(dlsym(RTLD_NEXT, "pthread_cond_clockwait"))(pCond, pMutex, eClock, pDue);
}

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

// Waits without holding the mutex, which the platform notices. ThreadSanitizer notices it too: tests/tsan.supp
// names this function.
[[gnu::noinline]] void MisuseOnPurpose() {
    Monitor monitor;
    VYX_MUTEX_T hChecking;
    ASSERT_EQ(VYX_MutexCreate(&hChecking, static_cast<uint32_t>(PTHREAD_MUTEX_ERRORCHECK)), VYX_OK);
    EXPECT_EQ(VYX_CondWait(&monitor.cond, &hChecking), EPERM);
    EXPECT_EQ(VYX_MutexDestroy(&hChecking), VYX_OK);
}

TEST(Cond, PlatformsErrorNumberIsPassedOn) {
    MisuseOnPurpose();
}

TEST(Cond, SignalWakesOneAndBroadcastAll) {
    Monitor monitor;
    std::atomic<int> nWoken{0};
    const auto wait = [&] {
        monitor.Lock();
        const int32_t iResult = VYX_CondWait(&monitor.cond, &monitor.mutex);
        ++nWoken;
        monitor.Unlock();
        return iResult;
    };
    Async waiters[] = {Async(wait), Async(wait), Async(wait)};
    const auto asleep = [&] {
        return std::count_if(std::begin(waiters), std::end(waiters),
                             [](const Async &w) { return w.Asleep(); });
    };
    ASSERT_TRUE(WaitUntil([&] { return asleep() == 3; }));
    EXPECT_EQ(VYX_CondSignal(&monitor.cond), 0);
    EXPECT_TRUE(WaitUntil([&] { return nWoken == 1; }));
    EXPECT_EQ(asleep(), 2);
    EXPECT_EQ(VYX_CondBroadCast(&monitor.cond), 0);
    for (Async &waiter : waiters)
        EXPECT_EQ(waiter.Result(), 0);
}

#if defined(__LP64__) // elsewhere the call has several names
TEST(Cond, LimitsAreCountedOnTheWallClock) {
    Monitor monitor;
    EXPECT_EQ(VYX_Init(), VYX_OK);
    EXPECT_EQ(monitor.Wait(1), VYX_ERROR);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(s_eClock, CLOCK_REALTIME);
}
#endif

// The library is not started.
TEST(Atomic, OperationsWrapAndCompareAllBits) {
    const struct {
        const char *szName;
        std::function<int32_t(volatile uint32_t *)> call;
        uint32_t nBefore;
        uint32_t nAfter;
    } cases[] = {
        {"swap different", [](auto *p) { return VYX_AtomicCas(p, 1, 5); }, 0x80000005, 0x80000005},
        {"swap lowest", [](auto *p) { return VYX_AtomicCas(p, 0, INT32_MIN); }, 0x80000000, 0},
        {"set from high", [](auto *p) { return VYX_AtomicSet(p, 0xFFFFFFFE); }, 0x80000001, 0xFFFFFFFE},
        {"add wraps", [](auto *p) { return VYX_AtomicAdd(p, 0xFFFFFFFE); }, 3, 1},
        {"increment wraps", [](auto *p) { return VYX_AtomicInc(p); }, 0xFFFFFFFF, 0},
        {"decrement wraps", [](auto *p) { return VYX_AtomicDec(p); }, 0, 0xFFFFFFFF},
    };
    for (const auto &row : cases) {
        volatile uint32_t nValue = row.nBefore;
        EXPECT_EQ(row.call(&nValue), 0) << row.szName;
        EXPECT_EQ(nValue, row.nAfter) << row.szName;
    }
    int iOld = 0;
    void *volatile pDest = &iOld;
    EXPECT_EQ(VYX_AtomicCasPtr(&pDest, nullptr, &iOld), 0);
    EXPECT_EQ(pDest, &iOld) << "the pointer swap does nothing";
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
