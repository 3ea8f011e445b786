// Bounded waits from the inside: the passes of the service are made by the test, while the service itself is not
// running.
#include <atomic>
#include <cerrno>
#include <new>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/vyx.h>

#include "support/support.h"
#include "sync/timed_wait.h"

namespace {

std::atomic<bool> s_bNoMemory{false};

} // namespace

void *operator new(size_t nSize, const std::nothrow_t & /*tag*/) noexcept {
    try {
        return s_bNoMemory ? nullptr : ::operator new(nSize);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

namespace {

using support::WaitUntil;

constexpr uint32_t kLong = 600000; // milliseconds

class Passes : public testing::Test {
  protected:
    Passes() { EXPECT_EQ(VYX_SemCreate(&m_hSem, 0), VYX_OK); }
    ~Passes() override {
        EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U) << "every wait takes itself out";
        VYX_SemDestroy(&m_hSem);
    }

    // A thread that waits for the semaphore, and is registered when this returns.
    std::thread Waiter(uint32_t nLimit, std::atomic<int32_t> *pResult) {
        const uint32_t nBefore = VYX_TimedWaitPending_Inter();
        std::thread waiter([this, nLimit, pResult] { *pResult = VYX_SemTimedWait(&m_hSem, nLimit); });
        EXPECT_TRUE(WaitUntil([&] { return VYX_TimedWaitPending_Inter() == nBefore + 1; }));
        return waiter;
    }

    VYX_SEM_T m_hSem = nullptr;
};
using TimedWait = Passes;

constexpr int32_t kStillWaiting = 77;

TEST_F(TimedWait, StaleInterruptionKeepsTheCount) {
    std::atomic<int32_t> iResult{kStillWaiting};
    std::thread waiter = Waiter(kLong, &iResult);
    EXPECT_EQ(VYX_SemPost(&m_hSem), VYX_OK);
    errno = EINTR;
    EXPECT_FALSE(VYX_TimedWaitPass_Inter());
    EXPECT_EQ(VYX_SemTimedWait(&m_hSem, 0), VYX_ERROR) << "the count was taken all the same";
    errno = 0;
    EXPECT_FALSE(VYX_TimedWaitPass_Inter());
    EXPECT_EQ(iResult, kStillWaiting);
    EXPECT_EQ(VYX_SemPost(&m_hSem), VYX_OK);
    errno = 0;
    EXPECT_TRUE(VYX_TimedWaitPass_Inter());
    waiter.join();
    EXPECT_EQ(iResult, VYX_OK);
    EXPECT_EQ(VYX_SemTimedWait(&m_hSem, 0), VYX_ERROR);
}

TEST_F(TimedWait, EarlierRegistrationIsServedFirst) {
    constexpr int kWaiters = 6;
    std::atomic<int32_t> iResults[kWaiters];
    std::vector<std::thread> waiters;
    for (auto &iResult : iResults) {
        iResult = kStillWaiting;
        waiters.push_back(Waiter(kLong, &iResult));
    }
    for (int i = 0; i < kWaiters; ++i) {
        VYX_SemPost(&m_hSem);
        errno = 0;
        EXPECT_TRUE(VYX_TimedWaitPass_Inter());
        waiters[static_cast<size_t>(i)].join();
        for (int k = 0; k < kWaiters; ++k)
            EXPECT_EQ(iResults[k], k <= i ? VYX_OK : kStillWaiting);
    }
}

TEST_F(TimedWait, CountThatArrivesWithTheLimitIsTaken) {
    std::atomic<int32_t> iResult{kStillWaiting};
    std::thread waiter = Waiter(1, &iResult);
    const VYX_TIME_T iStart = VYX_TimeNow();
    ASSERT_TRUE(WaitUntil([&] { return VYX_TimeNow() - iStart > 5000; }));
    EXPECT_EQ(iResult, kStillWaiting) << "without the service no limit ends";
    VYX_SemPost(&m_hSem);
    errno = 0;
    EXPECT_TRUE(VYX_TimedWaitPass_Inter());
    waiter.join();
    EXPECT_EQ(iResult, VYX_OK) << "the semaphore is looked at before the clock";
}

TEST_F(TimedWait, WaitFromBeforeTheStartIsCompletedAfterIt) {
    std::atomic<int32_t> iResult{kStillWaiting};
    std::thread waiter = Waiter(1, &iResult);
    ASSERT_EQ(VYX_Init(), VYX_OK);
    waiter.join();
    EXPECT_EQ(iResult, VYX_ERROR);
    VYX_Fini();
}

TEST_F(TimedWait, NoMemoryFailsAtOnce) {
    VYX_MUTEX_T hMutex = PTHREAD_MUTEX_INITIALIZER;
    VYX_COND_T hCond = PTHREAD_COND_INITIALIZER;
    VYX_SemPost(&m_hSem);
    s_bNoMemory = true;
    EXPECT_EQ(VYX_SemTimedWait(&m_hSem, kLong), VYX_ERROR);
    EXPECT_EQ(VYX_CondTimedWait(&hCond, &hMutex, kLong), VYX_ERROR);
    s_bNoMemory = false;
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
    EXPECT_EQ(VYX_SemTimedWait(&m_hSem, 0), VYX_OK) << "the count is untouched";
}

TEST_F(TimedWait, CancelledThreadsLeaveNothingRegistered) {
    VYX_MUTEX_T hMutex = PTHREAD_MUTEX_INITIALIZER;
    VYX_COND_T hCond = PTHREAD_COND_INITIALIZER;
    std::pair<VYX_COND_T *, VYX_MUTEX_T *> meeting{&hCond, &hMutex};
    VYX_THREAD_T hOnSem = VYX_Thread_Create(
        [](void *pSem) -> void * {
            VYX_SemTimedWait(static_cast<VYX_SEM_T *>(pSem), kLong);
            return nullptr;
        },
        &m_hSem, 0, 0, 0, 0);
    VYX_THREAD_T hOnCond = VYX_Thread_Create(
        [](void *p) -> void * {
            const auto *pMeeting = static_cast<decltype(meeting) *>(p);
            VYX_MutexLock(pMeeting->second);
            VYX_CondTimedWait(pMeeting->first, pMeeting->second, kLong);
            return nullptr;
        },
        &meeting, 0, 0, 0, 0);
    ASSERT_TRUE(WaitUntil([] { return VYX_TimedWaitPending_Inter() == 2; }));
    for (VYX_THREAD_T hThread : {hOnSem, hOnCond}) {
        EXPECT_EQ(pthread_cancel(hThread), 0);
        EXPECT_EQ(VYX_Thread_Wait(hThread), VYX_OK);
    }
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
}

} // namespace
