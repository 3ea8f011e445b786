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

// Without the compiler's analysis, which would not let pass what is tried here.
void Take(Lock &lock) VYX_UNCHECKED {
    lock.Acquire();
}
void TakeInside(Lock &held, Lock &lock) VYX_UNCHECKED {
    held.Acquire();
    lock.Acquire();
}
void GiveBack(Lock &lock) VYX_UNCHECKED {
    lock.Release();
}

TEST(LockOrder, AllowsTheOrderAndGivingBackInAnother) {
    Lock outer{Rank::Queue};
    Lock inner{Rank::QueueReceiver};
    for (int i = 0; i < 3; ++i) {
        Take(outer);
        Take(inner);
        GiveBack(outer);
        GiveBack(inner);
    }
    const LockGuard inside(inner);
    const bool bTaken = outer.TryAcquire();
    EXPECT_TRUE(bTaken) << "a lock that is tried keeps nobody waiting";
    if (bTaken)
        outer.Release();
}

using LockOrderDeath = testing::Test;

TEST(LockOrderDeath, WrongNestingEndsTheProcessWithBothNames) {
#if !defined(VYX_TESTS_EMULATED) // which cannot start itself anew
    testing::FLAGS_gtest_death_test_style = "threadsafe";
#endif
    Lock outer{Rank::QueueRegistry};
    Lock inner{Rank::Queue};
    Lock other{Rank::Queue};
    // The child takes both: a fork takes locks of its own, which must not come after these.
    EXPECT_DEATH(TakeInside(inner, outer), "lock order: QueueRegistry is taken while Queue is held");
    EXPECT_DEATH(TakeInside(inner, other), "lock order: Queue is taken while Queue is held");
    EXPECT_DEATH(GiveBack(outer), "lock order: QueueRegistry is given back while none of its rank is held");
}

} // namespace
