// The wall clock is set while a wait is pending whose sleep has no limit of its own. (What has one is the kernel's.) This
// program's own clock_gettime stands before the system's.
#include <atomic>
#include <ctime>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "sync/timed_wait.h"
#include "sync/timed_wait_support.h"

namespace {

std::atomic<int> s_nAhead{0}; // seconds of the wall clock before the system's

} // namespace

extern "C" int clock_gettime(clockid_t eClock, struct timespec *pTime) noexcept {
    const auto iResult = static_cast<int>(syscall(SYS_clock_gettime, eClock, pTime));
    pTime->tv_sec += eClock == CLOCK_REALTIME ? s_nAhead.load() : 0;
    return iResult;
}

namespace {

TEST(ClockSet, EndsAndProlongsPendingWaits) {
    ASSERT_EQ(VYX_Init(), VYX_OK);
    support::Semaphore semaphore;
    const auto pending = [] { return VYX_TimedWaitPending_Inter() == 1; };
    support::Async prolonged([&] { return semaphore.Wait(50); });
    ASSERT_TRUE(support::WaitUntil(pending));
    s_nAhead = -3600;
    std::this_thread::sleep_for(
        std::chrono::milliseconds(100)); // for the limit to pass, were it not for the clock
    EXPECT_TRUE(pending());
    s_nAhead = 0;
    EXPECT_EQ(prolonged.Result(), VYX_ERROR);

    support::Async shortened([&] { return semaphore.Wait(3600000); });
    ASSERT_TRUE(support::WaitUntil(pending));
    std::this_thread::sleep_for(std::chrono::milliseconds(30)); // the service has looked and sleeps
    s_nAhead = 3601;
    EXPECT_EQ(shortened.Result(), VYX_ERROR);
    s_nAhead = 0;
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

} // namespace
