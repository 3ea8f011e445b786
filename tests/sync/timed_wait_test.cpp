// Bounded waits, with each of the two ways in which the first waiter for a semaphore sleeps: CMakeLists.txt.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "base/platform.h"
#include "support/calls.h"
#include "sync/sem_record.h"
#include "sync/timed_wait.h"
#include "sync/timed_wait_support.h"

using support::Async;
using support::kLong;
using support::Monitor;
using support::Semaphore;
using support::WaitUntil;

namespace {

bool PendingBecomes(uint32_t nCount) {
    return WaitUntil([nCount] { return VYX_TimedWaitPending_Inter() == nCount; });
}

// The library is started for the length of a block.
struct Library {
    Library() { EXPECT_EQ(VYX_Init(), VYX_OK); }
    ~Library() { // the stop is finished, also by a thread that is being cancelled
        EXPECT_TRUE(support::EndsThoughCancelled([] { EXPECT_EQ(VYX_Fini(), VYX_OK); }));
    }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
};

TEST(TimedWait, LimitsAreKeptUnderSignals) {
    const Library library;
    struct sigaction action = {};
    action.sa_handler = [](int) {}; // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    Semaphore semaphore;
    const VYX_TIME_T iStart = VYX_TimeNow(); // the clock that limits are counted on
    Async waiter([&] { return semaphore.Wait(100); });
    while (!waiter.Done()) {
        (void)pthread_kill(waiter.Handle(), SIGUSR1);
        std::this_thread::yield();
    }
    EXPECT_GE(VYX_TimeNow() - iStart, 100000);
    EXPECT_EQ(waiter.Result(), VYX_ERROR);
}

// Also by posts through another handle, and before those who try at the same moment.
TEST(TimedWait, WhoBeganFirstIsServedFirst) {
    constexpr uint32_t kWaiters = 24;
    const Library library;
    Semaphore semaphore;
    sem_t *const pOther = sem_open(semaphore.h->szName, 0);
    ASSERT_NE(pOther, SEM_FAILED);
    std::vector<std::unique_ptr<Async>> waiters;
    for (uint32_t i = 0; i < kWaiters; ++i) {
        waiters.push_back(std::make_unique<Async>([&] { return semaphore.Wait(kLong); }));
        ASSERT_TRUE(PendingBecomes(i + 1));
    }
    for (uint32_t i = 0; i < kWaiters; ++i) {
        EXPECT_EQ(i % 2 == 0 ? semaphore.Post() : sem_post(pOther), VYX_OK);
        EXPECT_EQ(semaphore.Wait(1), VYX_ERROR);
        EXPECT_EQ(waiters[i]->Result(), VYX_OK); // while those behind it go on
        EXPECT_EQ(VYX_TimedWaitPending_Inter(), kWaiters - 1 - i);
    }
    EXPECT_EQ(semaphore.Drain(), 0);
    EXPECT_EQ(sem_close(pOther), 0);
}

TEST(TimedWait, NothingEndsBeforeTheStart) {
    for (const bool bWasStarted : {false, true}) {
        SCOPED_TRACE(bWasStarted);
        Semaphore empty;
        Semaphore posted(1);
        Monitor monitor;
        Async runsOut([&] { return empty.Wait(1); });
        Async second([&] { return empty.Wait(kLong); });
        Async isServed([&] { return posted.Wait(1); });
        Async onCondition([&] { return monitor.Wait(1); });
        ASSERT_TRUE(PendingBecomes(4));
        std::this_thread::sleep_for(std::chrono::milliseconds(30)); // limits pass, and nobody must notice
        EXPECT_EQ(VYX_TimedWaitPending_Inter(), 4U);
        const Library library;
        EXPECT_EQ(runsOut.Result(), VYX_ERROR);
        EXPECT_EQ(empty.Post(), VYX_OK);
        EXPECT_EQ(second.Result(), VYX_OK);
        EXPECT_EQ(isServed.Result(), VYX_OK);
        EXPECT_EQ(onCondition.Result(), VYX_ERROR);
    }
}

// Meanwhile nobody wakes up, unless the platform needs the service to look at the clock every 10 ms.
TEST(TimedWait, TheStopEndsAllThatHaveBegun) {
    Semaphore semaphore;
    Monitor free;
    Monitor held; // by who stops
    // The platform wakes who sleeps longest: these, which the stop does not mean.
    Async withoutLimit([&] { return semaphore.Wait(VYX_INFINITE); });
    const auto onFree = [&] { return free.Wait(VYX_INFINITE); };
    Async woken[] = {Async(onFree), Async(onFree), Async(onFree), Async(onFree)};
    ASSERT_TRUE(WaitUntil([&] {
        return withoutLimit.Asleep() && std::all_of(woken, woken + 4, [](auto &w) { return w.Asleep(); });
    }));
    std::vector<std::unique_ptr<Async>> waiters;
    {
        const Library library;
        for (int i = 0; i < 3; ++i) {
            waiters.push_back(std::make_unique<Async>([&] { return semaphore.Wait(kLong); }));
            waiters.push_back(std::make_unique<Async>([&] { return free.Wait(kLong); }));
            waiters.push_back(std::make_unique<Async>([&] { return held.Wait(kLong); }));
        }
        ASSERT_TRUE(PendingBecomes(9));
        const auto wakeUps = [] {
            struct rusage all = {};
            return getrusage(RUSAGE_SELF, &all) == 0 ? all.ru_nvcsw : -1;
        };
        EXPECT_TRUE(WaitUntil([&] {
            const long lBefore = wakeUps();
            std::this_thread::sleep_for(std::chrono::milliseconds(100)); // ten looks would show
            return (wakeUps() - lBefore < 5) == VYX_SemSleepKeepsTime_Inter();
        }));
        held.Lock();
    }
    held.Unlock();
    for (const auto &pWaiter : waiters)
        EXPECT_EQ(pWaiter->Result(), VYX_ERROR);
    EXPECT_FALSE(withoutLimit.Done());
    EXPECT_EQ(semaphore.Post(), VYX_OK);
    EXPECT_EQ(withoutLimit.Result(), VYX_OK);
    for (Async &one : woken)
        EXPECT_EQ(one.Result(), VYX_OK);
    EXPECT_EQ(sem_trywait(semaphore.h->pSem), -1) << "the stop has made a count";
}

// Posts meet waits, tries and time-outs, while the library is started and stopped.
TEST(TimedWait, CountsAreNeitherLostNorMade) {
    Semaphore semaphore;
    std::atomic<int> nLeft{0};
    std::atomic<bool> bEnd{false};
    const auto wait = [&] {
        for (uint32_t n = 0; !bEnd; ++n)
            nLeft -= semaphore.Wait(n % 3) == VYX_OK ? 1 : 0;
        return 0;
    };
    {
        Async first(wait), second(wait), third(wait);
        for (int nRound = 0; nRound < 200; ++nRound) {
            const Library library;
            nLeft += semaphore.Post() == VYX_OK ? 1 : 0;
            std::this_thread::yield();
        }
        bEnd = true;
        const Library library; // for waits that began after the last stop
        first.Result(), second.Result(), third.Result();
    }
    while (sem_trywait(semaphore.h->pSem) == 0) // what others see who have opened it
        --nLeft;
    EXPECT_EQ(nLeft, 0);
}

// A condition may go once its waiters have been woken, though they have not got their mutex back.
TEST(TimedWait, TheStopLeavesConditionsThatHaveGone) {
    Monitor monitor;
    ASSERT_EQ(VYX_Init(), VYX_OK);
    Async waiter([&] { return monitor.Wait(kLong); });
    ASSERT_TRUE(PendingBecomes(1));
    monitor.Lock();
    EXPECT_EQ(VYX_CondBroadCast(&monitor.cond), 0);
    EXPECT_EQ(VYX_CondDestroy(&monitor.cond), 0);
    std::memset(&monitor.cond, 0x58, sizeof monitor.cond);
    const VYX_COND_T gone = monitor.cond;
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(std::memcmp(&monitor.cond, &gone, sizeof gone), 0);
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 1U) << "the waiter still needs the mutex";
    EXPECT_EQ(VYX_CondCreate(&monitor.cond), 0);
    monitor.Unlock();
    EXPECT_EQ(waiter.Result(), VYX_ERROR);
}

} // namespace
