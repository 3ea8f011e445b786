// Semaphores and VYX_Sema as an application sees them. The library is not started unless a test says so.
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/frame.h>
#include <vyx/sync.h>

#include "support/support.h"

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

// Takes what is left, without waiting.
int Drain(VYX_SEM_T *pSem) {
    int iTaken = 0;
    while (VYX_SemTimedWait(pSem, 0) == VYX_OK)
        ++iTaken;
    return iTaken;
}

// Made and used before main.
struct EarlySemaphore {
    VYX_SEM_T hSem = nullptr;
    int32_t iCreated = VYX_SemCreate(&hSem, 1);
    int32_t iTaken = VYX_SemWait(&hSem);
    int32_t iDestroyed = VYX_SemDestroy(&hSem);
};
const EarlySemaphore kEarly;

TEST(Semaphore, WorksBeforeMain) {
    EXPECT_EQ(kEarly.iCreated, VYX_OK);
    EXPECT_EQ(kEarly.iTaken, VYX_OK);
    EXPECT_EQ(kEarly.iDestroyed, VYX_OK);
}

TEST(Semaphore, NullPointersAndEmptySlotsAreRefused) {
    VYX_SEM_T hEmpty = nullptr;
    EXPECT_EQ(VYX_SemCreate(nullptr, 1), VYX_ERROR);
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
    ASSERT_EQ(VYX_SemCreate(&hSem, 3), VYX_OK);
    EXPECT_EQ(Drain(&hSem), 3);
    errno = 0;
    EXPECT_EQ(VYX_SemTimedWait(&hSem, 0), VYX_ERROR);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(VYX_SemPost(&hSem), VYX_OK);
    EXPECT_EQ(VYX_SemPost(&hSem), VYX_OK);
    EXPECT_EQ(VYX_SemWait(&hSem), VYX_OK);
    EXPECT_EQ(VYX_SemTimedWait(&hSem, VYX_INFINITE), VYX_OK);
    EXPECT_EQ(Drain(&hSem), 0);
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
    EXPECT_EQ(VYX_SemWait(&hSem), VYX_OK);
    EXPECT_EQ(VYX_SemPost(&hSem), VYX_OK);
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

TEST(Semaphore, PostWakesAWaiter) {
    VYX_SEM_T hAsk = nullptr;
    VYX_SEM_T hAnswer = nullptr;
    ASSERT_EQ(VYX_SemCreate(&hAsk, 0), VYX_OK);
    ASSERT_EQ(VYX_SemCreate(&hAnswer, 0), VYX_OK);
    constexpr int kRounds = 2000;
    int iServed = 0;
    std::thread server([&] {
        for (int i = 0; i < kRounds && VYX_SemWait(&hAsk) == VYX_OK; ++i) {
            ++iServed; // seen by the other side after its own wait
            (void)VYX_SemPost(&hAnswer);
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        (void)VYX_SemPost(&hAsk);
        ASSERT_EQ(VYX_SemWait(&hAnswer), VYX_OK);
        ASSERT_EQ(iServed, i + 1);
    }
    server.join();
    EXPECT_EQ(VYX_SemDestroy(&hAsk), VYX_OK);
    EXPECT_EQ(VYX_SemDestroy(&hAnswer), VYX_OK);
}

TEST(Semaphore, SignalEndsAWait) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    VYX_SEM_T hSem = nullptr;
    ASSERT_EQ(VYX_SemCreate(&hSem, 0), VYX_OK);
    std::atomic<bool> bEnded{false};
    int32_t iResult = VYX_OK;
    int iError = 0;
    std::thread waiter([&] {
        errno = 0;
        iResult = VYX_SemWait(&hSem);
        iError = errno;
        bEnded = true;
    });
    const bool bInTime = support::WaitUntil([&] {
        if (!bEnded)
            (void)pthread_kill(waiter.native_handle(), SIGUSR1);
        return bEnded.load();
    });
    if (!bInTime)
        (void)VYX_SemPost(&hSem);
    waiter.join();
    EXPECT_TRUE(bInTime);
    EXPECT_EQ(iResult, VYX_ERROR);
    EXPECT_EQ(iError, EINTR);
    EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
}

TEST(Semaphore, MayBeMadeWhileOthersStartAndStopTheLibrary) {
    std::atomic<int> iMakers{kThreads / 2};
    OnEightThreads([&](int iThread) {
        if (iThread % 2 == 0) {
            while (iMakers.load() > 0) {
                EXPECT_EQ(VYX_Init(), VYX_OK);
                EXPECT_EQ(VYX_Fini(), VYX_OK);
            }
            return;
        }
        for (uint32_t i = 0; i < 100; ++i) {
            VYX_SEM_T hSem = nullptr;
            ASSERT_EQ(VYX_SemCreate(&hSem, i), VYX_OK);
            EXPECT_EQ(Drain(&hSem), static_cast<int>(i));
            EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
        }
        --iMakers;
    });
}

TEST(Sema, RefusesPostsAtItsMaximum) {
    VYX_Sema sema(0, 2);
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_ERROR);
    EXPECT_EQ(sema.Wait(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.TimedWait(0), VYX_OK);
    EXPECT_EQ(sema.Wait(), VYX_OK);
    EXPECT_EQ(sema.TimedWait(0), VYX_ERROR);
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_OK) << "a wait that took nothing was counted";
    EXPECT_EQ(sema.Post(), VYX_ERROR);
}

TEST(Sema, InitialCountMayLieAboveTheMaximum) {
    VYX_Sema sema(3, 1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(sema.Post(), VYX_ERROR);
        EXPECT_EQ(sema.Wait(), VYX_OK);
    }
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_ERROR);
    VYX_Sema never(0, 0);
    EXPECT_EQ(never.Post(), VYX_ERROR);
}

TEST(Sema, RefusedPostAnswersZeroUncounted) {
    const auto nMaximum = static_cast<uint32_t>(sysconf(_SC_SEM_VALUE_MAX));
    VYX_Sema full(nMaximum, nMaximum + 1);
    EXPECT_EQ(full.Post(), VYX_OK);
    EXPECT_EQ(full.Post(), VYX_OK) << "the refused post was counted";

    VYX_Sema missing(0xFFFFFFFF, 0xFFFFFFFF); // could not be created; its count stands at its maximum
    EXPECT_EQ(missing.Wait(), VYX_ERROR);
    EXPECT_EQ(missing.TimedWait(0), VYX_ERROR);
    EXPECT_EQ(missing.TimedWait(5), VYX_ERROR);
    EXPECT_EQ(missing.Post(), VYX_ERROR);
}

TEST(Sema, MaximumHoldsUnderEightThreads) {
    constexpr unsigned int kMaximum = 5;
    for (int iRound = 0; iRound < 50; ++iRound) {
        VYX_Sema sema(1, kMaximum);
        std::atomic<int> iPosted{0};
        OnEightThreads([&](int) {
            for (int i = 0; i < 3; ++i)
                iPosted += sema.Post() == VYX_OK ? 1 : 0;
        });
        EXPECT_EQ(iPosted.load(), static_cast<int>(kMaximum) - 1);
        for (unsigned int i = 0; i < kMaximum; ++i)
            EXPECT_EQ(sema.TimedWait(0), VYX_OK);
        EXPECT_EQ(sema.TimedWait(0), VYX_ERROR);
    }
}

TEST(Sema, CountsAgreeAfterMixedUse) {
    constexpr unsigned int kMaximum = 3;
    VYX_Sema sema(0, kMaximum);
    std::atomic<int> iBalance{0};
    OnEightThreads([&](int iThread) {
        for (int i = 0; i < 2000; ++i) {
            if (iThread % 2 == 0)
                iBalance += sema.Post() == VYX_OK ? 1 : 0;
            else
                iBalance -= sema.TimedWait(0) == VYX_OK ? 1 : 0;
        }
    });
    int iLeft = 0;
    while (sema.TimedWait(0) == VYX_OK)
        ++iLeft;
    EXPECT_EQ(iLeft, iBalance.load());
    EXPECT_LE(iLeft, static_cast<int>(kMaximum));
    for (unsigned int i = 0; i < kMaximum; ++i)
        EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_ERROR);
}

TEST(LowerSem, IsNotAvailable) {
    vyx::vyx_sem counted(4);
    EXPECT_EQ(counted.init(1), VYX_NOT_AVAILABLE);
    EXPECT_EQ(counted.destroy(), VYX_NOT_AVAILABLE);
    EXPECT_EQ(counted.post(1), -2);
    EXPECT_EQ(counted.wait(0), -2);
    EXPECT_EQ(counted.post_1(), -2);
    const auto pOwned = std::make_unique<vyx::vyx_sem>();
    EXPECT_EQ(pOwned->wait(-1), -2);
}

} // namespace
