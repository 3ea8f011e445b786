// The check of the order of locks, and what the ranks promise.
#include <iterator>

#include <gtest/gtest.h>

#include "base/lock.h"

using vyx_inter::Lock;
using vyx_inter::LockGuard;
using vyx_inter::Rank;

namespace {

TEST(LockOrder, RanksAreListedInTheirOrder) {
    ASSERT_EQ(std::size(vyx_inter::kRanks), static_cast<size_t>(Rank::SemNames) + 1);
    for (size_t i = 1; i < std::size(vyx_inter::kRanks); ++i)
        EXPECT_LE(vyx_inter::kRanks[i - 1].nLevel, vyx_inter::kRanks[i].nLevel)
            << vyx_inter::kRanks[i].szName;
}

TEST(LockOrder, AllowsTheOrderAndGivingBackInAnother) {
    Lock outer{Rank::Queue};
    Lock inner{Rank::QueueReceiver};
    for (int i = 0; i < 3; ++i) {
        outer.Acquire();
        inner.Acquire();
        outer.Release();
        inner.Release();
    }
    const LockGuard inside(inner);
    EXPECT_TRUE(outer.TryAcquire()) << "a lock that is tried keeps nobody waiting";
    outer.Release();
}

using LockOrderDeath = testing::Test;

TEST(LockOrderDeath, WrongNestingEndsTheProcessWithBothNames) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    Lock outer{Rank::QueueRegistry};
    Lock inner{Rank::Queue};
    Lock other{Rank::Queue};
    const LockGuard guard(inner);
    EXPECT_DEATH(outer.Acquire(), "lock order: QueueRegistry is taken while Queue is held");
    EXPECT_DEATH(other.Acquire(), "lock order: Queue is taken while Queue is held");
    EXPECT_DEATH(outer.Release(), "lock order: QueueRegistry is given back while none of its rank is held");
}

} // namespace
