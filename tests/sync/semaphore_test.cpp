// Semaphores and VYX_Sema as an application sees them. The library is not started unless a test says so.
#include <cerrno>
#include <csignal>
#include <functional>

#include <gtest/gtest.h>

#include "sync/timed_wait_support.h"

using support::Async;
using support::Semaphore;

namespace {

constexpr int kThreads = 8;

// Runs a call on kThreads threads at once, with their numbers.
void OnEightThreads(const std::function<void(int)> &call) {
    std::atomic<int> iReady{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            ++iReady;
            while (iReady.load() < kThreads)
                std::this_thread::yield();
            call(i);
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(Semaphore, NullPointersAndEmptySlotsAreRefused) {
    VYX_SEM_T hEmpty = nullptr;
    for (VYX_SEM_T *pSem : {static_cast<VYX_SEM_T *>(nullptr), &hEmpty}) {
        EXPECT_EQ(VYX_SemDestroy(pSem), VYX_ERROR);
        EXPECT_EQ(VYX_SemWait(pSem), VYX_ERROR);
        EXPECT_EQ(VYX_SemPost(pSem), VYX_ERROR);
        for (const uint32_t nTimeOut : {0U, 5U, VYX_INFINITE})
            EXPECT_EQ(VYX_SemTimedWait(pSem, nTimeOut), VYX_ERROR);
    }
}

TEST(Semaphore, CountsWhatItWasGiven) {
    VYX_SEM_T hSem = nullptr;
    ASSERT_EQ(VYX_SemCreate(&hSem, 1), VYX_OK);
    EXPECT_EQ(VYX_SemPost(&hSem), VYX_OK);
    EXPECT_EQ(VYX_SemWait(&hSem), VYX_OK);
    EXPECT_EQ(VYX_SemTimedWait(&hSem, 0), VYX_OK);
    errno = 0;
    EXPECT_EQ(VYX_SemTimedWait(&hSem, 0), VYX_ERROR);
    EXPECT_EQ(errno, EAGAIN);
    const VYX_SEM_T hBefore = hSem;
    EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
    EXPECT_EQ(hSem, hBefore) << "the slot is not cleared";
}

TEST(Semaphore, PlatformsMaximumIsQuickAndOneMoreIsRefused) {
    const auto nMaximum = static_cast<uint32_t>(sysconf(_SC_SEM_VALUE_MAX));
    VYX_SEM_T hSem = nullptr;
    const double fTook = support::MillisecondsOf([&] { EXPECT_EQ(VYX_SemCreate(&hSem, nMaximum), VYX_OK); });
    EXPECT_LT(fTook, 1000.0 * support::TimeScale());
    errno = 0;
    EXPECT_EQ(VYX_SemPost(&hSem), VYX_ERROR); // full, so the count is the one asked for
    EXPECT_EQ(errno, EOVERFLOW);
    EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);

    const auto hMark = reinterpret_cast<VYX_SEM_T>(&hSem);
    for (const uint32_t nTooMany : {nMaximum + 1, 0xFFFFFFFFU}) {
        VYX_SEM_T hUntouched = hMark;
        errno = 0;
        EXPECT_EQ(VYX_SemCreate(&hUntouched, nTooMany), VYX_ERROR);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(hUntouched, hMark);
    }
}

TEST(Semaphore, SignalEndsAWait) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    Semaphore semaphore;
    int iError = 0;
    Async waiter([&] {
        errno = 0;
        const int32_t iResult = VYX_SemWait(&semaphore.h);
        iError = errno;
        return iResult;
    });
    EXPECT_TRUE(support::WaitUntil([&] { return waiter.Asleep(); }));
    (void)pthread_kill(waiter.Handle(), SIGUSR1);
    EXPECT_EQ(waiter.Result(), VYX_ERROR);
    EXPECT_EQ(iError, EINTR);
}

TEST(Sema, RefusesPostsAtItsMaximum) {
    VYX_Sema sema(1, 2);
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_ERROR);
    EXPECT_EQ(sema.TimedWait(0), VYX_OK);
    EXPECT_EQ(sema.Wait(), VYX_OK);
    EXPECT_EQ(sema.TimedWait(0), VYX_ERROR);
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_OK) << "a wait that took nothing was counted";
    EXPECT_EQ(sema.Post(), VYX_ERROR);

    VYX_Sema above(3, 1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(above.Post(), VYX_ERROR);
        EXPECT_EQ(above.Wait(), VYX_OK);
    }
    EXPECT_EQ(above.Post(), VYX_OK);
    EXPECT_EQ(above.Post(), VYX_ERROR);
}

TEST(Sema, RefusedPostAnswersZeroUncounted) {
    const auto nMaximum = static_cast<uint32_t>(sysconf(_SC_SEM_VALUE_MAX));
    VYX_Sema full(nMaximum, nMaximum + 1);
    EXPECT_EQ(full.Post(), VYX_OK);
    EXPECT_EQ(full.Post(), VYX_OK) << "the refused post was counted";

    VYX_Sema missing(0xFFFFFFFF, 0xFFFFFFFF); // could not be created; its count stands at its maximum
    EXPECT_EQ(missing.Wait(), VYX_ERROR);
    EXPECT_EQ(missing.TimedWait(5), VYX_ERROR);
    EXPECT_EQ(missing.Post(), VYX_ERROR);
}

TEST(Sema, MaximumHoldsAndCountsAgreeUnderEightThreads) {
    constexpr int kMaximum = 5;
    for (int iRound = 0; iRound < 50; ++iRound) {
        VYX_Sema sema(1, kMaximum);
        std::atomic<int> iHeld{1};
        const auto post = [&] { iHeld += sema.Post() == VYX_OK ? 1 : 0; };
        const auto take = [&] {
            const bool bTaken = sema.TimedWait(0) == VYX_OK;
            iHeld -= bTaken ? 1 : 0;
            return bTaken;
        };
        OnEightThreads([&](int) { post(), post(), post(); });
        EXPECT_EQ(iHeld.load(), kMaximum);
        OnEightThreads([&](int iThread) {
            for (int i = 0; i < 100; ++i)
                iThread % 2 == 0 ? post() : static_cast<void>(take());
        });
        while (take()) {
        }
        EXPECT_EQ(iHeld.load(), 0);
        for (int i = 0; i < kMaximum; ++i)
            EXPECT_EQ(sema.Post(), VYX_OK);
        EXPECT_EQ(sema.Post(), VYX_ERROR);
    }
}

TEST(LowerSem, IsNotAvailable) {
    vyx::vyx_sem counted(4);
    vyx::vyx_sem uncounted;
    for (vyx::vyx_sem *pSem : {&counted, &uncounted})
        for (const int iResult :
             {pSem->init(1), pSem->destroy(), pSem->post(1), pSem->wait(0), pSem->post_1()})
            EXPECT_EQ(iResult, -2);
}

} // namespace
