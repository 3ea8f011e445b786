// Bounded waits as an application sees them, with the service running.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <dirent.h>
#include <gtest/gtest.h>
#include <vyx/vyx.h>

#include "support/support.h"

namespace {

using support::MillisecondsOf;
using support::WaitUntil;

constexpr uint32_t kLong = 600000; // milliseconds; a wait that is meant to be ended by something else

// Ends the test at once: threads that are stuck for good cannot be joined.
[[noreturn]] void Stuck(const char *szWhat) {
    std::fprintf(stderr, "stuck: %s\n", szWhat);
    std::_Exit(1);
}

// A mutex that knows its owner, and a condition.
struct Meeting {
    VYX_MUTEX_T hMutex;
    VYX_COND_T hCond;
    Meeting() {
        EXPECT_EQ(VYX_MutexCreate(&hMutex, PTHREAD_MUTEX_ERRORCHECK), VYX_OK);
        EXPECT_EQ(VYX_CondCreate(&hCond), 0);
    }
    ~Meeting() {
        VYX_CondDestroy(&hCond);
        VYX_MutexDestroy(&hMutex);
    }
    Meeting(const Meeting &) = delete;
    Meeting &operator=(const Meeting &) = delete;
};

struct Semaphore {
    VYX_SEM_T hSem = nullptr;
    explicit Semaphore(uint32_t nInitial = 0) { EXPECT_EQ(VYX_SemCreate(&hSem, nInitial), VYX_OK); }
    ~Semaphore() { VYX_SemDestroy(&hSem); }
    Semaphore(const Semaphore &) = delete;
    Semaphore &operator=(const Semaphore &) = delete;
};

class TimedWait : public testing::Test {
  protected:
    TimedWait() { EXPECT_EQ(VYX_Init(), VYX_OK); }
    ~TimedWait() override { VYX_Fini(); }
};
using CondTimedWait = TimedWait;

TEST_F(TimedWait, LimitIsReachedButNotCutShort) {
    Semaphore semaphore;
    Meeting meeting;
    for (uint32_t nLimit : {1U, 20U, 50U}) {
        const VYX_TIME_T iStart = VYX_TimeNow();
        EXPECT_EQ(VYX_SemTimedWait(&semaphore.hSem, nLimit), VYX_ERROR);
        EXPECT_GE(VYX_TimeNow() - iStart, nLimit * 1000);
        VYX_MutexLock(&meeting.hMutex);
        // Nobody signals, so an early return could only be one of the platform's rare spurious wake-ups.
        const double dElapsed =
            MillisecondsOf([&] { VYX_CondTimedWait(&meeting.hCond, &meeting.hMutex, nLimit); });
        EXPECT_EQ(VYX_MutexUnlock(&meeting.hMutex), VYX_OK);
        EXPECT_LT(dElapsed, 10.0 * nLimit + 2000 * support::TimeScale());
    }
}

TEST_F(TimedWait, PostEndsTheWaitAndItsCountIsTaken) {
    Semaphore semaphore(3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(VYX_SemTimedWait(&semaphore.hSem, 0), VYX_OK);
    EXPECT_EQ(VYX_SemTimedWait(&semaphore.hSem, 0), VYX_ERROR);
    for (uint32_t nLimit : {kLong, VYX_INFINITE}) {
        std::thread waiter([&] { EXPECT_EQ(VYX_SemTimedWait(&semaphore.hSem, nLimit), VYX_OK); });
        EXPECT_EQ(VYX_SemPost(&semaphore.hSem), VYX_OK);
        waiter.join();
        EXPECT_EQ(VYX_SemTimedWait(&semaphore.hSem, 0), VYX_ERROR) << "nothing is left over";
    }
    EXPECT_EQ(VYX_SemTimedWait(nullptr, 5), VYX_ERROR);
}

TEST_F(TimedWait, BoundedSemaphoreClass) {
    VYX_Sema sema(1, 2);
    EXPECT_EQ(sema.TimedWait(kLong), 0);
    EXPECT_EQ(sema.TimedWait(5), -1);
    EXPECT_EQ(sema.Post(), 0);
    EXPECT_EQ(sema.Post(), 0) << "the bounded wait lowered the count";
    EXPECT_EQ(sema.Post(), -1);
}

TEST_F(CondTimedWait, AnswersErrorHoweverItEnds) {
    Meeting meeting;
    bool bReady = false;
    bool bGo = false;
    std::thread waiter([&] {
        VYX_MutexLock(&meeting.hMutex);
        bReady = true;
        while (!bGo)
            EXPECT_EQ(VYX_CondTimedWait(&meeting.hCond, &meeting.hMutex, kLong), VYX_ERROR);
        EXPECT_EQ(VYX_MutexUnlock(&meeting.hMutex), VYX_OK) << "held again by the waiter";
    });
    for (bool bSeen = false; !bSeen; std::this_thread::yield()) {
        VYX_MutexLock(&meeting.hMutex);
        bSeen = bGo = bReady;
        VYX_CondSignal(&meeting.hCond);
        VYX_MutexUnlock(&meeting.hMutex);
    }
    waiter.join();
    VYX_MutexLock(&meeting.hMutex);
    EXPECT_EQ(VYX_CondTimedWait(&meeting.hCond, &meeting.hMutex, 5), VYX_ERROR);
    EXPECT_EQ(VYX_CondTimedWait(&meeting.hCond, &meeting.hMutex, 0), VYX_ERROR);
    EXPECT_EQ(VYX_MutexUnlock(&meeting.hMutex), VYX_OK);
    EXPECT_EQ(VYX_CondTimedWait(nullptr, nullptr, VYX_INFINITE), -1);
}

// The service holds its lock and wants a waiter's mutex, a waiter holds its mutex and wants the service's lock:
// with a plain lock in the service this stops within a moment.
TEST_F(CondTimedWait, WaitersAndServiceNeverBlockEachOther) {
    Meeting meeting;
    std::atomic<int> iRounds{0};
    std::atomic<bool> bEnd{false};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] {
            while (!bEnd) {
                VYX_MutexLock(&meeting.hMutex);
                VYX_CondTimedWait(&meeting.hCond, &meeting.hMutex, 2);
                VYX_MutexUnlock(&meeting.hMutex);
                ++iRounds;
            }
        });
    std::thread signaller([&] {
        while (!bEnd) {
            VYX_CondSignal(&meeting.hCond);
            VYX_USleep(500); // so that wake-ups and limits meet
        }
    });
    const int kRounds = 4000 / support::TimeScale();
    for (int iGoal = kRounds / 8; iGoal <= kRounds; iGoal += kRounds / 8)
        if (!WaitUntil([&] { return iRounds >= iGoal; }))
            Stuck("the service and a waiter wait for each other");
    bEnd = true;
    signaller.join();
    for (std::thread &waiter : waiters)
        waiter.join();
}

// The one signal for the short limit goes to a waiter that was there first.
TEST_F(CondTimedWait, ShortLimitBehindLongOnesIsKept) {
    for (int iRound = 0; iRound < 5; ++iRound) {
        Meeting meeting;
        int iReady = 0;
        bool bEnd = false;
        std::vector<std::thread> longWaiters;
        for (uint32_t nLimit : {kLong, VYX_INFINITE, kLong})
            longWaiters.emplace_back([&, nLimit] {
                VYX_MutexLock(&meeting.hMutex);
                ++iReady;
                while (!bEnd)
                    VYX_CondTimedWait(&meeting.hCond, &meeting.hMutex, nLimit);
                VYX_MutexUnlock(&meeting.hMutex);
            });
        const auto allAsleep = [&] {
            VYX_MutexLock(&meeting.hMutex);
            const bool bAll = iReady == 3;
            VYX_MutexUnlock(&meeting.hMutex);
            return bAll;
        };
        ASSERT_TRUE(WaitUntil(allAsleep));
        std::atomic<bool> bBack{false};
        std::thread shortWaiter([&] {
            VYX_MutexLock(&meeting.hMutex);
            VYX_CondTimedWait(&meeting.hCond, &meeting.hMutex, 20);
            VYX_MutexUnlock(&meeting.hMutex);
            bBack = true;
        });
        if (!WaitUntil([&] { return bBack.load(); }))
            Stuck("a time-out was lost");
        shortWaiter.join();
        VYX_MutexLock(&meeting.hMutex);
        bEnd = true;
        VYX_CondBroadCast(&meeting.hCond);
        VYX_MutexUnlock(&meeting.hMutex);
        for (std::thread &waiter : longWaiters)
            waiter.join();
    }
}

// A mutex that is never seen free by somebody who only tries it.
TEST_F(CondTimedWait, BusyMutexDelaysOnlyItsOwnWaiter) {
    Meeting busy;
    std::atomic<bool> bWaiting{false};
    std::atomic<bool> bBack{false};
    std::thread waiter([&] {
        VYX_MutexLock(&busy.hMutex);
        bWaiting = true;
        VYX_CondTimedWait(&busy.hCond, &busy.hMutex, 1);
        VYX_MutexUnlock(&busy.hMutex);
        bBack = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return bWaiting.load(); }));
    VYX_MutexLock(&busy.hMutex); // the waiter is asleep now, or back already
    Semaphore semaphore;
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(VYX_SemTimedWait(&semaphore.hSem, 1), VYX_ERROR) << "others are served meanwhile";
    VYX_MutexUnlock(&busy.hMutex);
    if (!WaitUntil([&] { return bBack.load(); }))
        Stuck("a waiter whose mutex was busy");
    waiter.join();
}

void CountSignal(int /*iSignal*/) {}

TEST_F(TimedWait, SignalsDoNotEndABoundedWait) {
    struct sigaction action = {};
    action.sa_handler = CountSignal; // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    Semaphore semaphore;
    std::atomic<bool> bBack{false};
    std::thread waiter([&] {
        const VYX_TIME_T iStart = VYX_TimeNow();
        EXPECT_EQ(VYX_SemTimedWait(&semaphore.hSem, 100), VYX_ERROR);
        EXPECT_GE(VYX_TimeNow() - iStart, 100000);
        bBack = true;
    });
    while (!bBack) {
        pthread_kill(waiter.native_handle(), SIGUSR1);
        kill(getpid(), SIGUSR1); // to any thread that lets it through
        std::this_thread::yield();
    }
    waiter.join();
}

// What the kernel says of this process's threads: the blocked signals of the one with that name, or "".
std::string BlockedSignalsOf(const std::string &name) {
    std::string blocked;
    DIR *pDir = opendir("/proc/self/task");
    while (const dirent *pEntry = readdir(pDir)) {
        const std::string base = std::string("/proc/self/task/") + pEntry->d_name;
        std::string comm;
        std::getline(std::ifstream(base + "/comm") >> std::ws, comm);
        std::ifstream status(base + "/status");
        for (std::string line; comm == name && std::getline(status, line);)
            if (line.rfind("SigBlk:", 0) == 0)
                blocked = line.substr(line.find_last_of("\t ") + 1);
    }
    closedir(pDir);
    return blocked;
}

TEST(Service, ThreadHasANameBlocksSignalsAndGoesWithTheLibrary) {
    EXPECT_EQ(BlockedSignalsOf("timer_svc"), "");
    ASSERT_EQ(VYX_Init(), VYX_OK);
    ASSERT_TRUE(WaitUntil([] { return !BlockedSignalsOf("timer_svc").empty(); }));
    const uint64_t nBlocked = std::stoull(BlockedSignalsOf("timer_svc"), nullptr, 16);
    for (int iSignal = 1; iSignal < 32; ++iSignal) {
        if (iSignal != SIGKILL && iSignal != SIGSTOP) { // the kernel keeps these two open
            EXPECT_NE(nBlocked & (uint64_t{1} << (iSignal - 1)), 0U) << iSignal;
        }
    }
    sigset_t setOwn;
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &setOwn), 0);
    EXPECT_EQ(sigismember(&setOwn, SIGTERM), 0) << "the caller's own mask is as before";
    VYX_Fini();
    EXPECT_EQ(BlockedSignalsOf("timer_svc"), "");
}

TEST(Stop, WakesWaitersEvenIfTheStopperHoldsTheirMutex) {
    for (bool bHold : {false, true}) {
        ASSERT_EQ(VYX_Init(), VYX_OK);
        Semaphore semaphore;
        Meeting meeting;
        std::atomic<int> iWaiting{0};
        std::atomic<int> iBack{0};
        std::vector<std::thread> waiters;
        for (int i = 0; i < 3; ++i) {
            waiters.emplace_back([&] {
                ++iWaiting;
                EXPECT_EQ(VYX_SemTimedWait(&semaphore.hSem, kLong), VYX_ERROR);
                ++iBack;
            });
            waiters.emplace_back([&] {
                VYX_MutexLock(&meeting.hMutex);
                ++iWaiting;
                VYX_CondTimedWait(&meeting.hCond, &meeting.hMutex, kLong);
                VYX_MutexUnlock(&meeting.hMutex);
                ++iBack;
            });
        }
        ASSERT_TRUE(WaitUntil([&] { return iWaiting == 6; }));
        // No public call tells when a semaphore wait has been registered; a bounded wait of our own that
        // began later has certainly been scanned together with theirs once it has ended.
        std::this_thread::yield();
        EXPECT_EQ(VYX_SemTimedWait(&semaphore.hSem, 200), VYX_ERROR);
        if (bHold)
            VYX_MutexLock(&meeting.hMutex);
        VYX_Fini();
        if (bHold)
            VYX_MutexUnlock(&meeting.hMutex);
        if (!WaitUntil([&] { return iBack == 6; }))
            Stuck("a pending wait outlived the library");
        for (std::thread &waiter : waiters)
            waiter.join();
    }
}

// What goes in comes out: counts taken plus counts left equal counts posted, whatever the limits.
TEST_F(TimedWait, NoCountIsLostOrDoubled) {
    Semaphore semaphores[4];
    std::atomic<int> iPosted{0};
    std::atomic<int> iTaken{0};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 16; ++i)
        threads.emplace_back([&, i] {
            std::mt19937 random(i);
            for (int k = 0; k < 300; ++k) {
                VYX_SEM_T &hSem = semaphores[random() % 4].hSem;
                if (random() % 2 == 0) {
                    iPosted += VYX_SemPost(&hSem) == VYX_OK ? 1 : 0;
                } else {
                    iTaken += VYX_SemTimedWait(&hSem, static_cast<uint32_t>(random() % 4)) == VYX_OK ? 1 : 0;
                }
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    for (Semaphore &semaphore : semaphores)
        while (VYX_SemTimedWait(&semaphore.hSem, 0) == VYX_OK)
            ++iTaken;
    EXPECT_EQ(iTaken, iPosted);
}

} // namespace
