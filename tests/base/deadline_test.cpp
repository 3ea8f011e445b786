// Deadlines: what is left, and how waits keep them.
#include <gtest/gtest.h>

#include "base/lock.h"

using vyx_inter::Clock;
using vyx_inter::Condition;
using vyx_inter::Deadline;
using vyx_inter::Lock;
using vyx_inter::LockGuard;
using vyx_inter::Now;
using vyx_inter::Rank;

namespace {

TEST(Deadline, LeftIsRoundedUpAndNeverNegative) {
    EXPECT_TRUE(Deadline::In(UINT32_MAX, Clock::Wall).IsNever());
    EXPECT_FALSE(Deadline::Never().HasPassed());
    EXPECT_EQ(Deadline::Never().LeftForPoll(), -1);
    const Deadline past = Deadline::In(0, Clock::Monotonic);
    EXPECT_TRUE(past.HasPassed());
    EXPECT_EQ(past.LeftForPoll(), 0);
    const Deadline longest = Deadline::In(UINT32_MAX - 1, Clock::Wall);
    EXPECT_EQ(longest.LeftForPoll(), INT32_MAX) << "49 days are more than poll can be asked for";
    const int iLeft = Deadline::In(60000, Clock::Monotonic).LeftForPoll();
    EXPECT_GT(iLeft, 50000);
    EXPECT_LE(iLeft, 60000);
}

TEST(Deadline, ConditionKeepsItOnEitherClock) {
    Lock lock{Rank::SemWaits};
    Condition condition;
    for (const Clock eClock : {Clock::Wall, Clock::Monotonic}) {
        const LockGuard guard(lock);
        const Deadline deadline = Deadline::In(20, eClock);
        while (condition.WaitUntil(lock, deadline)) {
        }
        EXPECT_GE(Now(eClock), deadline.Micros());
    }
}

} // namespace
