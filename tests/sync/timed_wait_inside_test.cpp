// The timed-wait service from the inside: the test sees what is registered, and makes passes of its own.
#include <cerrno>
#include <memory>
#include <new>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "sync/timed_wait.h"
#include "sync/timed_wait_support.h"

using support::Async;
using support::kLong;
using support::Monitor;
using support::Semaphore;
using support::WaitUntil;

namespace {

thread_local bool t_bNoMemory = false;

} // namespace

void *operator new(size_t nSize, const std::nothrow_t & /*tag*/) noexcept {
    try {
        return t_bNoMemory ? nullptr : ::operator new(nSize);
    } catch (...) {
        return nullptr;
    }
}

namespace {

bool PendingBecomes(uint32_t nCount) {
    return WaitUntil([nCount] { return VYX_TimedWaitPending_Inter() == nCount; });
}

TEST(TimedWait, StaleInterruptionKeepsTheCount) {
    Semaphore semaphore;
    Async waiter([&] { return semaphore.Wait(kLong); });
    ASSERT_TRUE(PendingBecomes(1));
    errno = EINTR;
    EXPECT_EQ(semaphore.Post(), VYX_OK);
    errno = EINTR;
    EXPECT_FALSE(VYX_TimedWaitPass_Inter());
    EXPECT_EQ(semaphore.Drain(), 0) << "the count is gone";
    EXPECT_FALSE(waiter.Done());
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 1U) << "and the wait goes on";
    EXPECT_EQ(semaphore.Post(), VYX_OK);
    errno = 0;
    EXPECT_TRUE(VYX_TimedWaitPass_Inter());
    EXPECT_EQ(waiter.Result(), VYX_OK);
    EXPECT_EQ(semaphore.Drain(), 0);
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
}

// Posts come at any moment of a pass, also behind the entry that should have them.
TEST(TimedWait, EarlierRegistrationIsServedFirst) {
    constexpr uint32_t kWaiters = 48;
    Semaphore semaphore;
    std::vector<std::unique_ptr<Async>> waiters;
    for (uint32_t i = 0; i < kWaiters; ++i) {
        waiters.push_back(std::make_unique<Async>([&] { return semaphore.Wait(kLong); }));
        ASSERT_TRUE(PendingBecomes(i + 1));
    }
    std::atomic<bool> bStop{false};
    std::thread service([&] {
        while (!bStop)
            (void)VYX_TimedWaitPass_Inter();
    });
    bool bInOrder = true;
    for (uint32_t i = 0; i < kWaiters; ++i) {
        EXPECT_EQ(semaphore.Post(), VYX_OK);
        EXPECT_TRUE(PendingBecomes(kWaiters - 1 - i));
        bInOrder = WaitUntil([&] { return waiters[i]->Done() || !bInOrder; }) && bInOrder;
        for (uint32_t k = i + 1; k < kWaiters; ++k)
            bInOrder = !waiters[k]->Done() && bInOrder;
    }
    EXPECT_TRUE(bInOrder);
    bStop = true;
    service.join();
}

TEST(TimedWait, StopWakesEveryPendingWaiter) {
    for (const bool bHoldTheirMutex : {false, true}) {
        ASSERT_EQ(VYX_Init(), VYX_OK);
        Semaphore semaphore;
        Monitor monitor;
        Async onSemaphore([&] { return semaphore.Wait(kLong); });
        Async first([&] { return monitor.Wait(kLong); });
        Async second([&] { return monitor.Wait(kLong); });
        ASSERT_TRUE(PendingBecomes(3));
        if (bHoldTheirMutex)
            monitor.Lock();
        EXPECT_EQ(VYX_Fini(), VYX_OK);
        if (bHoldTheirMutex)
            monitor.Unlock();
        EXPECT_EQ(onSemaphore.Result(), VYX_ERROR);
        EXPECT_EQ(first.Result(), VYX_ERROR);
        EXPECT_EQ(second.Result(), VYX_ERROR);
        EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
    }
}

TEST(TimedWait, BusyMutexDelaysNobodyElse) {
    ASSERT_EQ(VYX_Init(), VYX_OK);
    Monitor monitor;
    Semaphore semaphore;
    Async waiter([&] { return monitor.Wait(100); });
    ASSERT_TRUE(PendingBecomes(1));
    monitor.Lock();
    EXPECT_EQ(semaphore.Wait(150), VYX_ERROR);
    EXPECT_EQ(semaphore.Wait(5), VYX_ERROR);
    monitor.Unlock();
    EXPECT_EQ(waiter.Result(), VYX_ERROR);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

TEST(TimedWait, StopsAndStartsAnyNumberOfTimesUnderWaits) {
    std::atomic<bool> bEnd{false};
    Semaphore semaphore;
    Monitor monitor;
    const auto wait = [&](auto &what, uint32_t nTimeOut) {
        while (!bEnd)
            (void)what.Wait(nTimeOut);
        return 0;
    };
    ASSERT_EQ(VYX_Init(), VYX_OK);
    Async onSemaphore([&] { return wait(semaphore, 3); });
    Async onCondition([&] { return wait(monitor, 3); });
    Async onTheSame([&] { return wait(monitor, kLong); });
    for (int nRound = 0; nRound < 100; ++nRound) {
        EXPECT_EQ(VYX_Fini(), VYX_OK);
        EXPECT_EQ(VYX_Init(), VYX_OK);
    }
    bEnd = true;
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(VYX_Init(), VYX_OK);
    // The long wait may have begun after the stop had looked.
    EXPECT_TRUE(WaitUntil([&] {
        (void)VYX_CondBroadCast(&monitor.cond);
        return onSemaphore.Done() && onCondition.Done() && onTheSame.Done();
    }));
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

TEST(TimedWait, WaitsFromBeforeTheStartAreServed) {
    Semaphore semaphore;
    Monitor monitor;
    Async posted([&] { return semaphore.Wait(kLong); });
    ASSERT_TRUE(PendingBecomes(1));
    Async runsOut([&] { return monitor.Wait(1); });
    ASSERT_TRUE(PendingBecomes(2));
    EXPECT_EQ(semaphore.Post(), VYX_OK);
    EXPECT_EQ(VYX_Init(), VYX_OK);
    EXPECT_EQ(posted.Result(), VYX_OK);
    EXPECT_EQ(runsOut.Result(), VYX_ERROR);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

TEST(TimedWait, WithoutMemoryNothingIsRegistered) {
    Semaphore semaphore;
    Monitor monitor;
    monitor.Lock();
    t_bNoMemory = true;
    const int32_t iOnSemaphore = semaphore.Wait(kLong);
    const int32_t iOnCondition = VYX_CondTimedWait(&monitor.cond, &monitor.mutex, kLong);
    t_bNoMemory = false;
    EXPECT_EQ(iOnSemaphore, VYX_ERROR);
    EXPECT_EQ(iOnCondition, VYX_ERROR);
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
    EXPECT_EQ(VYX_MutexUnlock(&monitor.mutex), VYX_OK);
}

// Where a sleeping thread cannot be cancelled, it is on its way into its sleep.
void CancelOnTheWay() {
    if (!support::kCancelsSleepers)
        (void)pthread_cancel(pthread_self());
}

// Cancels a thread that waits, if it can be. Result: what it ended with.
void *Cancelled(pthread_t hThread) {
    void *pResult = nullptr;
    EXPECT_TRUE(!support::kCancelsSleepers || pthread_cancel(hThread) == 0);
    EXPECT_EQ(pthread_join(hThread, &pResult), 0);
    return pResult;
}

void *WaitOnSemaphore(void *pSemaphore) {
    CancelOnTheWay();
    return static_cast<Semaphore *>(pSemaphore)->Wait(kLong) == VYX_OK ? nullptr : pSemaphore;
}

void *WaitOnCondition(void *pMonitor) {
    auto &monitor = *static_cast<Monitor *>(pMonitor);
    struct Guard {
        Monitor &monitor;
        ~Guard() { monitor.Unlock(); }
    };
    monitor.Lock();
    const Guard guard{monitor};
    CancelOnTheWay();
    (void)VYX_CondTimedWait(&monitor.cond, &monitor.mutex, kLong);
    return nullptr;
}

TEST(TimedWait, CancelledWaiterLeavesNothingRegistered) {
    Monitor monitor;
    pthread_t hThread = {};
    ASSERT_EQ(pthread_create(&hThread, nullptr, WaitOnCondition, &monitor), 0);
    ASSERT_TRUE(!support::kCancelsSleepers || PendingBecomes(1));
    EXPECT_EQ(Cancelled(hThread), PTHREAD_CANCELED);
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
    EXPECT_EQ(VYX_MutexTryLock(&monitor.mutex), VYX_OK) << "the cancelled thread could free its mutex";
    monitor.Unlock();
}

// The cancellation comes about when the service takes a count on the waiter's behalf.
TEST(TimedWait, CancelledWaiterTakesNoCount) {
    Semaphore semaphore;
    for (int nRound = 0; nRound < 200; ++nRound) {
        pthread_t hThread = {};
        ASSERT_EQ(pthread_create(&hThread, nullptr, WaitOnSemaphore, &semaphore), 0);
        ASSERT_TRUE(!support::kCancelsSleepers || PendingBecomes(1));
        EXPECT_EQ(semaphore.Post(), VYX_OK);
        std::thread service([&] { (void)VYX_TimedWaitPass_Inter(); });
        const bool bCancelled = Cancelled(hThread) == PTHREAD_CANCELED;
        service.join();
        ASSERT_EQ(semaphore.Drain(), bCancelled ? 1 : 0) << "in round " << nRound;
        ASSERT_EQ(VYX_TimedWaitPending_Inter(), 0U);
    }
}

// A condition may go once its waiters have been woken, though they have not got their mutex back. It lies in
// a page that is gone, so that the service cannot touch it unnoticed.
TEST(TimedWait, ConditionMayGoAsSoonAsItsWaitersAreWoken) {
    void *pPage =
        mmap(nullptr, sizeof(VYX_COND_T), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pPage, MAP_FAILED);
    auto *pCond = static_cast<VYX_COND_T *>(pPage);
    ASSERT_EQ(VYX_CondCreate(pCond), 0);
    Monitor monitor; // for its mutex
    Async waiter([&] {
        monitor.Lock();
        const int32_t iResult = VYX_CondTimedWait(pCond, &monitor.mutex, 1);
        monitor.Unlock();
        return iResult;
    });
    ASSERT_TRUE(PendingBecomes(1));
    monitor.Lock();
    EXPECT_EQ(VYX_CondBroadCast(pCond), 0);
    EXPECT_EQ(VYX_CondDestroy(pCond), 0);
    EXPECT_EQ(munmap(pPage, sizeof(VYX_COND_T)), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the waiter's limit
    for (int nPass = 0; nPass < 100; ++nPass)
        (void)VYX_TimedWaitPass_Inter();
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 1U) << "the waiter still needs the mutex";
    monitor.Unlock();
    EXPECT_EQ(waiter.Result(), VYX_ERROR);
}

} // namespace
