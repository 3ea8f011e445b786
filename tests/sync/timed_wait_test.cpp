// Bounded waits as an application sees them.
#include <csignal>
#include <memory>
#include <numeric>
#include <random>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "sync/timed_wait_support.h"

using support::Async;
using support::kLong;
using support::Monitor;
using support::Semaphore;
using support::TaskNamed;
using support::WaitUntil;
using support::Watchdog;

namespace {

class Started : public testing::Test {
  protected:
    Started() { EXPECT_EQ(VYX_Init(), VYX_OK); }
    ~Started() override { EXPECT_EQ(VYX_Fini(), VYX_OK); }
};
using SemTimedWait = Started;
using CondTimedWait = Started;
using TimedWait = Started;

// The clock that limits are counted on.
template <class Call>
VYX_TIME_T MicrosecondsOf(Call call) {
    const VYX_TIME_T iStart = VYX_TimeNow();
    call();
    return VYX_TimeNow() - iStart;
}

VYX_TIME_T UpperBound(uint32_t nMilliseconds) {
    return VYX_TIME_T{10000} * (nMilliseconds + 100) * support::TimeScale();
}

TEST_F(SemTimedWait, RunsOutButNeverEarly) {
    Semaphore semaphore;
    for (const uint32_t nLimit : {1U, 2U, 50U, 100U}) {
        SCOPED_TRACE(nLimit);
        int32_t iResult = 12345;
        const VYX_TIME_T iTook = MicrosecondsOf([&] { iResult = semaphore.Wait(nLimit); });
        EXPECT_EQ(iResult, VYX_ERROR);
        EXPECT_GE(iTook, VYX_TIME_T{1000} * nLimit);
        EXPECT_LT(iTook, UpperBound(nLimit));
    }
}

TEST_F(SemTimedWait, PostedCountIsTakenOnce) {
    Semaphore semaphore;
    Async waiter([&] { return semaphore.Wait(kLong); });
    const VYX_TIME_T iTook = MicrosecondsOf([&] {
        EXPECT_EQ(semaphore.Post(), VYX_OK);
        EXPECT_EQ(waiter.Result(), VYX_OK);
    });
    EXPECT_LT(iTook, UpperBound(0));
    EXPECT_EQ(semaphore.Drain(), 0);
    EXPECT_EQ(VYX_SemTimedWait(nullptr, 5), VYX_ERROR);
    VYX_SEM_T hEmpty = nullptr;
    EXPECT_EQ(VYX_SemTimedWait(&hEmpty, 5), VYX_ERROR);
}

TEST(NotStarted, ZeroAndInfiniteNeedNoService) {
    const Watchdog watchdog("an unlimited wait depends on the service");
    Semaphore semaphore(3);
    for (const int32_t iExpected : {0, 0, 0, -1, -1})
        EXPECT_EQ(semaphore.Wait(0), iExpected);
    Async waiter([&] { return semaphore.Wait(VYX_INFINITE); });
    EXPECT_EQ(semaphore.Post(), VYX_OK);
    EXPECT_EQ(waiter.Result(), VYX_OK);

    Monitor monitor;
    monitor.Lock();
    Async signaller([&] {
        monitor.Lock(); // had when the other sleeps
        const int32_t iResult = VYX_CondSignal(&monitor.cond);
        monitor.Unlock();
        return iResult;
    });
    EXPECT_EQ(VYX_CondTimedWait(&monitor.cond, &monitor.mutex, VYX_INFINITE), 0);
    monitor.Unlock();
    EXPECT_EQ(VYX_CondTimedWait(nullptr, &monitor.mutex, VYX_INFINITE), VYX_ERROR);
    EXPECT_EQ(VYX_CondTimedWait(&monitor.cond, nullptr, VYX_INFINITE), VYX_ERROR);
}

void StormHandler(int /*nSignal*/) {}

TEST_F(SemTimedWait, SignalStormDoesNotEndIt) {
    struct sigaction action = {};
    action.sa_handler = StormHandler; // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    Semaphore semaphore;
    VYX_TIME_T iTook = 0;
    Async waiter([&] {
        int32_t iResult = 12345;
        iTook = MicrosecondsOf([&] { iResult = semaphore.Wait(100); });
        return iResult == VYX_ERROR ? semaphore.Wait(kLong) : 12345;
    });
    const auto postAfter = support::Clock::now() + std::chrono::milliseconds(200);
    for (bool bPosted = false; !waiter.Done(); std::this_thread::yield()) {
        (void)pthread_kill(waiter.Handle(), SIGUSR1);
        if (!bPosted && support::Clock::now() > postAfter)
            bPosted = semaphore.Post() == VYX_OK;
    }
    EXPECT_EQ(waiter.Result(), VYX_OK);
    EXPECT_GE(iTook, 100000);
}

// A change of the user is told to every thread by a signal that nobody can block, the service's included.
TEST_F(SemTimedWait, NoCountIsLostToAChangeOfTheUser) {
    Semaphore semaphore;
    std::atomic<bool> bStop{false};
    std::thread changer([&] {
        while (!bStop)
            EXPECT_EQ(setuid(getuid()), 0);
    });
    for (int nRound = 0; nRound < 100 && !HasFailure(); ++nRound) {
        Async waiter([&] { return semaphore.Wait(2000); });
        std::this_thread::sleep_for(std::chrono::microseconds(nRound * 10)); // from no pass to several
        EXPECT_EQ(semaphore.Post(), VYX_OK);
        EXPECT_EQ(waiter.Result(), VYX_OK) << "round " << nRound;
    }
    bStop = true;
    changer.join();
}

TEST_F(CondTimedWait, AnswersErrorHoweverItEnds) {
    const Watchdog watchdog("a bounded wait on a condition did not end");
    Monitor monitor;
    bool bFlag = false;
    for (const uint32_t nLimit : {0U, 20U, kLong}) {
        SCOPED_TRACE(nLimit);
        const bool bSignalled = nLimit == kLong;
        monitor.Lock();
        Async signaller([&, bSignalled] {
            if (!bSignalled)
                return 0;
            monitor.Lock();
            bFlag = true;
            monitor.Unlock();
            return VYX_CondSignal(&monitor.cond);
        });
        int32_t iResult = 12345;
        const VYX_TIME_T iTook =
            MicrosecondsOf([&] { iResult = VYX_CondTimedWait(&monitor.cond, &monitor.mutex, nLimit); });
        EXPECT_EQ(iResult, VYX_ERROR);
        if (!bSignalled) {
            EXPECT_GE(iTook, VYX_TIME_T{1000} * nLimit);
        }
        EXPECT_LT(iTook, UpperBound(bSignalled ? 0 : nLimit));
        Async other([&] { return VYX_MutexTryLock(&monitor.mutex); });
        EXPECT_EQ(other.Result(), VYX_ERROR) << "the mutex is held after the wait";
        monitor.Unlock();
    }
    EXPECT_TRUE(bFlag);
}

TEST_F(TimedWait, ObjectCountsWhatItTakes) {
    VYX_Sema sema(1, 1);
    EXPECT_EQ(sema.Post(), VYX_ERROR) << "full";
    EXPECT_EQ(sema.TimedWait(0), VYX_OK);
    const VYX_TIME_T iTook = MicrosecondsOf([&] { EXPECT_EQ(sema.TimedWait(20), VYX_ERROR); });
    EXPECT_GE(iTook, 20000);
    Async waiter([&] { return sema.TimedWait(kLong); });
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(waiter.Result(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_OK) << "the wait has made room again";
    EXPECT_EQ(sema.Post(), VYX_ERROR);
}

// A waiter that has been woken holds its mutex and needs the registry; the service holds the registry and
// needs the mutex of the next one.
TEST_F(TimedWait, WaitersAndServiceNeverBlockEachOther) {
    const Watchdog watchdog("the service and a waiter block each other");
    Monitor monitor;
    std::vector<std::unique_ptr<Async>> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.push_back(std::make_unique<Async>([&] {
            int nWrong = 0;
            for (int nRound = 0; nRound < 100; ++nRound)
                nWrong += monitor.Wait(5) == VYX_ERROR ? 0 : 1;
            return nWrong;
        }));
    for (const auto &pWaiter : waiters)
        EXPECT_EQ(pWaiter->Result(), 0);
}

// The first of them sleeps longest, and so gets the one signal that is meant for the second.
TEST_F(TimedWait, TimeOutIsNotLostToAnotherWaiter) {
    const Watchdog watchdog("a waiter whose time is out was never woken");
    Monitor monitor;
    bool bStop = false;
    const auto patient = [&] {
        monitor.Lock();
        while (!bStop)
            (void)VYX_CondTimedWait(&monitor.cond, &monitor.mutex, kLong);
        monitor.Unlock();
        return 0;
    };
    Async first(patient);
    Async second(patient);
    for (int nRound = 0; nRound < 30; ++nRound)
        EXPECT_EQ(monitor.Wait(10), VYX_ERROR);
    monitor.Lock();
    bStop = true;
    monitor.Unlock();
    (void)VYX_CondBroadCast(&monitor.cond);
}

// The storage is unmapped at once, so that a late touch by the service ends the process.
TEST_F(TimedWait, StorageMayGoAsSoonAsTheWaitHasEnded) {
    const auto worker = [] {
        for (int nRound = 0; nRound < 200; ++nRound) {
            void *pPage =
                mmap(nullptr, sizeof(Monitor), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            auto *pMonitor = new (pPage) Monitor;
            (void)pMonitor->Wait(1);
            pMonitor->~Monitor();
            (void)munmap(pPage, sizeof(Monitor));
            Semaphore semaphore;
            (void)semaphore.Wait(1);
        }
        return 0;
    };
    Async first(worker);
    Async second(worker);
    EXPECT_EQ(first.Result(), 0);
    EXPECT_EQ(second.Result(), 0);
}

TEST(Service, IsThereWhileStartedAndBlocksAllSignals) {
    EXPECT_EQ(TaskNamed("timer_svc"), "");
    for (int nRound = 0; nRound < 3; ++nRound) {
        ASSERT_EQ(VYX_Init(), VYX_OK);
        ASSERT_TRUE(WaitUntil([] { return !TaskNamed("timer_svc").empty(); }));
        const uint64_t nBlocked =
            std::stoull(support::StatusOf(TaskNamed("timer_svc"), "SigBlk"), nullptr, 16);
        for (int nSignal = 1; nSignal <= SIGRTMAX; ++nSignal) {
            const bool bEmulators = support::kEmulated && (nSignal == SIGSEGV || nSignal == SIGBUS ||
                                                           nSignal == SIGRTMIN || nSignal == SIGRTMIN + 1);
            const bool bBlockable = nSignal != SIGKILL && nSignal != SIGSTOP &&
                                    (nSignal < 32 || nSignal >= SIGRTMIN) && !bEmulators;
            EXPECT_TRUE(!bBlockable || (nBlocked >> (nSignal - 1) & 1) != 0) << nSignal;
        }
        EXPECT_EQ(VYX_Fini(), VYX_OK);
        EXPECT_TRUE(WaitUntil([] { return TaskNamed("timer_svc").empty(); }));
    }
}

TEST_F(TimedWait, ServiceSleepsWhileNothingIsPending) {
    Semaphore semaphore;
    EXPECT_EQ(semaphore.Wait(1), VYX_ERROR); // wakes it once
    const std::string strTask = TaskNamed("timer_svc");
    const auto wakeUps = [&] { return support::StatusOf(strTask, "voluntary_ctxt_switches"); };
    ASSERT_FALSE(wakeUps().empty());
    EXPECT_TRUE(WaitUntil([&] {
        const std::string strBefore = wakeUps();
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // a scan every 0.1 ms would show
        return wakeUps() == strBefore;
    }));
}

// What was posted and not taken is left, and nothing else is.
TEST(Counts, AreNeitherLostNorMadeNorLeaked) {
    const auto mappings = [] {
        std::ifstream maps("/proc/self/maps");
        int nFound = 0;
        for (std::string strLine; std::getline(maps, strLine);)
            nFound += strLine.find("vyx_named_semaphore") != std::string::npos ? 1 : 0;
        return nFound;
    };
    EXPECT_EQ(Async([] { return 0; }).Result(), 0); // a sanitizer starts its own thread with the first one
    const size_t nThreads = support::Entries("/proc/self/task").size();
    const size_t nDescriptors = support::Entries("/proc/self/fd").size();
    ASSERT_EQ(VYX_Init(), VYX_OK);
    {
        Semaphore semaphores[4];
        std::vector<std::unique_ptr<Async>> workers;
        for (unsigned nSeed = 0; nSeed < 64; ++nSeed)
            workers.push_back(std::make_unique<Async>([&semaphores, nSeed] {
                std::minstd_rand random(nSeed + 1);
                int nBalance = 0;
                for (int nRound = 0; nRound < 60; ++nRound) {
                    if (random() % 2 == 0)
                        nBalance += semaphores[random() % 4].Post() == VYX_OK ? 1 : 0;
                    nBalance -= semaphores[random() % 4].Wait(random() % 4) == VYX_OK ? 1 : 0;
                }
                return nBalance;
            }));
        int nLeft = 0;
        for (const auto &pWorker : workers)
            nLeft += pWorker->Result();
        EXPECT_EQ(std::accumulate(std::begin(semaphores), std::end(semaphores), 0,
                                  [](int nSum, Semaphore &semaphore) { return nSum + semaphore.Drain(); }),
                  nLeft);
    }
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_TRUE(WaitUntil([&] { return support::Entries("/proc/self/task").size() <= nThreads; }));
    EXPECT_EQ(support::Entries("/proc/self/fd").size(), nDescriptors);
    EXPECT_EQ(mappings(), 0);
}

} // namespace
