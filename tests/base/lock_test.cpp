// Locks: what they show to tools, a fork, the check of their order; and deadlines.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/describe.h"
#include "base/fork.h"
#include "base/spin.h"

using vyx_inter::Clock;
using vyx_inter::Deadline;
using vyx_inter::Lock;
using vyx_inter::LockGuard;
using vyx_inter::Rank;

static std::atomic<uint32_t> s_nLooks{0};
static int64_t s_iLookTakes = 0; // microseconds

extern "C" {
// In place of the platform's, so that a thread's looks follow each other as a test wants, however busy the machine is.
int sched_yield() noexcept {
    const int64_t iStart = vyx_inter::Now(Clock::Monotonic);
    while (vyx_inter::Now(Clock::Monotonic) - iStart < s_iLookTakes) {
    }
    ++s_nLooks;
    return 0;
}
extern const vyx_inter::DescriptionTable<4> vyx_description_locks;
extern const vyx_inter::DescriptionTable<std::size(vyx_inter::kRanks)> vyx_description_ranks;
}

namespace {

// Who reads from outside what a lock guards takes it for unchanged if this count is.
TEST(LockCount, EachWayToTakeItCounts) {
    Lock lock{Rank::SemWaits};
    const auto taken = [&lock] {
        uint32_t nTaken = 99;
        for (const vyx_inter::DescriptionRow &row : vyx_description_locks.rows)
            if (std::strcmp(row.szName, "lock.taken") == 0)
                std::memcpy(&nTaken, reinterpret_cast<const char *>(&lock) + row.nOffset, sizeof nTaken);
        return nTaken;
    };
    if (lock.TryAcquire())
        lock.Release();
    EXPECT_EQ(taken(), 1U);
    const LockGuard guard(lock);
    EXPECT_EQ(taken(), 2U);
    EXPECT_EQ(lock.OwnThread(), static_cast<uint32_t>(gettid()));
    (void)vyx_inter::Condition().WaitUntil(lock, Deadline::In(0, Clock::Wall));
    EXPECT_EQ(taken(), 3U);
}

// A signal handler forks that has interrupted the lock's own holder.
TEST(ForkHold, LeavesAloneWhatItsThreadIsChanging) {
    Lock lock{Rank::SemWaits};
    vyx_inter::ForkHold hold(lock);
    hold.Before();
    const bool bFree = lock.TryAcquire();
    EXPECT_FALSE(bFree) << "held until the fork is over";
    if (bFree)
        lock.Release();
    hold.InParent();
    const LockGuard guard(lock);
    hold.Before();
    EXPECT_FALSE(hold.IsWhole());
    EXPECT_EQ(hold.InChild(), lock.OwnThread() == 0) << "where the platform does not tell, nobody can know";
}

// A holder that is known is awaited for longer than one that nobody knows, and longest if it cannot be waiting for the forking
// thread.
TEST(ForkHold, AwaitsAHolderThatIsKnown) {
    constexpr uint32_t kMillis = vyx_inter::kForkPatience * 11 / 10;
    for (const Rank eRank : {Rank::LogQueue, Rank::SemWaits}) {
        const bool bInnermost = eRank == Rank::SemWaits;
        Lock lock{eRank};
        vyx_inter::ForkHold hold(lock);
        std::atomic<bool> bTaken{false};
        std::atomic<bool> bGiveBack{false};
        uint32_t nLooks = 0; // while the holder is known
        std::thread holder([&] {
            const LockGuard guard(lock);
            bTaken = true;
            usleep(1000 * kMillis); // that it takes so long is what is tried
            nLooks = s_nLooks;
            while (!bInnermost && !bGiveBack)
                std::this_thread::yield();
        });
        while (!bTaken)
            std::this_thread::yield();
        s_nLooks = 0;
        const Deadline patience = Deadline::In(vyx_inter::kForkPatience, Clock::Monotonic);
        hold.Before();
        EXPECT_TRUE(bInnermost || patience.HasPassed());
        EXPECT_EQ(hold.IsWhole(), bInnermost);
        EXPECT_EQ(hold.IsOthers(), !bInnermost);
        bGiveBack = true;
        hold.InParent();
        holder.join();
        EXPECT_EQ((bInnermost ? nLooks : s_nLooks.load()) == 0, bInnermost)
            << "it sleeps, as looks may meet the lock taken each time";
    }
}

// A lock that is just passed on is nobody's.
TEST(ForkHold, GivesUpAfterATimeAndSomeLooks) {
    Lock lock{Rank::SemWaits};
    pthread_mutex_t passed = vyx_inter::kSleepingMutex;
    passed.__data.__lock = 1;
    std::memcpy(static_cast<void *>(&lock), &passed, sizeof passed);
    vyx_inter::ForkHold hold(lock);
    const int64_t iStart = vyx_inter::Now(Clock::Monotonic);
    hold.Before();
    EXPECT_GT(vyx_inter::Now(Clock::Monotonic) - iStart,
              vyx_inter::kForkPatienceAtEdge * vyx_inter::kMicrosPerMilli);
    s_nLooks = 0;
    s_iLookTakes = 100;
    hold.Before();
    s_iLookTakes = 0;
    EXPECT_EQ(s_nLooks + 1, vyx_inter::kForkLeastLooks);
    EXPECT_TRUE(hold.IsWhole());
    lock.Renew();
}

TEST(Lock, IsOfItsKindAlsoWhenMadeAnew) {
    const struct {
        vyx_inter::Taken eTaken;
        const pthread_mutex_t *pMutex;
    } kinds[] = {{vyx_inter::Taken::Spin, &vyx_inter::kSpinningMutex},
                 {vyx_inter::Taken::Sleep, &vyx_inter::kSleepingMutex}};
    for (const auto &kind : kinds) {
        Lock lock{Rank::SemWaits, kind.eTaken};
        EXPECT_EQ(std::memcmp(&lock, kind.pMutex, sizeof *kind.pMutex), 0);
        std::memset(static_cast<void *>(&lock), 1, sizeof *kind.pMutex);
        lock.Renew();
        EXPECT_EQ(std::memcmp(&lock, kind.pMutex, sizeof *kind.pMutex), 0);
    }
}

TEST(LockOrder, RanksAreListedInTheirOrder) {
    ASSERT_EQ(std::size(vyx_inter::kRanks), static_cast<size_t>(Rank::SemNames) + 1);
    for (size_t i = 0; i < std::size(vyx_inter::kRanks); ++i) {
        EXPECT_LE(vyx_inter::kRanks[i > 0 ? i - 1 : 0].nLevel, vyx_inter::kRanks[i].nLevel)
            << vyx_inter::kRanks[i].szName;
        const vyx_inter::DescriptionRow &row = vyx_description_ranks.rows[i]; // as tools see it
        EXPECT_EQ(row.nSize, vyx_inter::kRanks[i].nLevel);
        EXPECT_EQ(row.szName, std::string("rank:") + vyx_inter::kRanks[i].szName);
    }
}

TEST(TryBriefly, LooksAgainForAMomentUnlessTheMachineIsCrowded) {
    uint32_t nLooks = 0;
    const auto look = [&nLooks] { return ++nLooks == 100; };
    vyx_inter::g_nCrowdedCalls = 0;
    EXPECT_FALSE(vyx_inter::TryBriefly(look));
    EXPECT_GT(nLooks, 1U);
    EXPECT_LE(nLooks, 1 + vyx_inter::kBriefTries);
    vyx_inter::g_nCrowdedCalls = 2;
    nLooks = 98;
    EXPECT_FALSE(vyx_inter::TryBriefly(look)) << "one look";
    EXPECT_TRUE(vyx_inter::TryBriefly(look));
    EXPECT_EQ(vyx_inter::g_nCrowdedCalls, 1U);
}

// Without the compiler's analysis, which would not let pass what is tried here.
void TakeInside(Lock &held, Lock &lock) VYX_UNCHECKED {
    held.Acquire();
    lock.Acquire();
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
}

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
    vyx_inter::Condition condition;
    for (const Clock eClock : {Clock::Wall, Clock::Monotonic}) {
        const LockGuard guard(lock);
        const Deadline deadline = Deadline::In(20, eClock);
        while (condition.WaitUntil(lock, deadline)) {
        }
        EXPECT_GE(vyx_inter::Now(eClock), deadline.Micros());
    }
    timespec now = {};
    ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
    const int64_t iMicros = now.tv_sec * vyx_inter::kMicrosPerSecond + now.tv_nsec / 1000;
    EXPECT_LT(std::abs(vyx_inter::Now(Clock::Monotonic) - iMicros), 3600 * vyx_inter::kMicrosPerSecond);
}

} // namespace
