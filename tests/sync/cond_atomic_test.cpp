// Condition variables and the lock-based atomic operations. The library is not started.
#include <algorithm>
#include <functional>

#include <gtest/gtest.h>

#include "sync/atomic_inter.h"
#include "sync/timed_wait_support.h"

using support::Async;
using support::Monitor;
using support::WaitUntil;

namespace {

TEST(Cond, SignalWakesOneAndBroadcastAll) {
    Monitor monitor;
    const auto wait = [&] {
        monitor.Lock();
        const int32_t iResult = VYX_CondWait(&monitor.cond, &monitor.mutex);
        monitor.Unlock();
        return iResult;
    };
    Async waiters[] = {Async(wait), Async(wait), Async(wait)};
    const auto count = [&](bool (Async::*fnIs)() const) {
        return std::count_if(std::begin(waiters), std::end(waiters),
                             [=](const Async &w) { return (w.*fnIs)(); });
    };
    ASSERT_TRUE(WaitUntil([&] { return count(&Async::Asleep) == 3; }));
    EXPECT_EQ(VYX_CondSignal(&monitor.cond), 0);
    EXPECT_TRUE(WaitUntil([&] { return count(&Async::Done) == 1; }));
    EXPECT_EQ(count(&Async::Asleep), 2);
    EXPECT_EQ(VYX_CondBroadCast(&monitor.cond), 0);
    for (Async &waiter : waiters)
        EXPECT_EQ(waiter.Result(), 0);
}

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

// The integer changes between the look and the swap, which waits for the lock and then looks itself.
TEST(Atomic, DerivedOperationsMayLoseUpdates) {
    static uint32_t s_nValue;
    int32_t (*const calls[])() = {
        [] { return VYX_AtomicSet(&s_nValue, 1); },    [] { return VYX_AtomicAdd(&s_nValue, 2); },
        [] { return VYX_AtomicInc(&s_nValue); },       [] { return VYX_AtomicDec(&s_nValue); },
        [] { return VYX_AtomicCas(&s_nValue, 7, 5); },
    };
    for (const auto call : calls) {
        s_nValue = 5;
        g_struAtomicForkRow.fnBefore(); // takes the lock
        Async caller(call);
        EXPECT_TRUE(WaitUntil([&] { return caller.Asleep(); }));
        __atomic_store_n(&s_nValue, 100, __ATOMIC_RELAXED);
        g_struAtomicForkRow.fnInParent();
        EXPECT_EQ(caller.Result(), 0);
        EXPECT_EQ(s_nValue, 100U);
    }
}

} // namespace
