// Bounded waits as an application sees them.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "sync/timed_wait_support.h"

using support::Async;
using support::kLong;
using support::Monitor;
using support::Semaphore;
using support::WaitUntil;

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
        const VYX_TIME_T iTook = MicrosecondsOf([&] { EXPECT_EQ(semaphore.Wait(nLimit), VYX_ERROR); });
        EXPECT_GE(iTook, VYX_TIME_T{1000} * nLimit);
        EXPECT_LT(iTook, UpperBound(nLimit));
    }
}

TEST(NotStarted, ZeroAndInfiniteNeedNoService) {
    Semaphore semaphore(3);
    for (const int32_t iExpected : {0, 0, 0, -1})
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

TEST_F(SemTimedWait, SignalStormDoesNotEndIt) {
    struct sigaction action = {};
    action.sa_handler = [](int) {}; // without SA_RESTART
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
    Monitor monitor;
    for (const uint32_t nLimit : {0U, 20U, kLong}) {
        SCOPED_TRACE(nLimit);
        const bool bSignalled = nLimit == kLong;
        monitor.Lock();
        Async signaller([&, bSignalled] {
            if (!bSignalled)
                return 0;
            monitor.Lock(); // had when the other sleeps
            monitor.Unlock();
            return VYX_CondSignal(&monitor.cond);
        });
        const VYX_TIME_T iTook = MicrosecondsOf(
            [&] { EXPECT_EQ(VYX_CondTimedWait(&monitor.cond, &monitor.mutex, nLimit), VYX_ERROR); });
        if (!bSignalled) {
            EXPECT_GE(iTook, VYX_TIME_T{1000} * nLimit);
        }
        EXPECT_LT(iTook, UpperBound(bSignalled ? 0 : nLimit));
        EXPECT_EQ(Async([&] { return VYX_MutexTryLock(&monitor.mutex); }).Result(), VYX_ERROR)
            << "the mutex is held after the wait";
        monitor.Unlock();
    }
}

// A waiter that has been woken holds its mutex and needs the registry; the service holds the registry and
// needs the mutex of the next one.
TEST_F(TimedWait, WaitersAndServiceNeverBlockEachOther) {
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

using Folder = std::filesystem::directory_iterator;

// The /proc folder of this process's thread of that name; empty if there is none.
std::filesystem::path TaskNamed(const std::string &strName) {
    for (const auto &entry : Folder("/proc/self/task")) {
        std::string strFound;
        std::getline(std::ifstream(entry.path() / "comm"), strFound);
        if (strFound == strName)
            return entry.path();
    }
    return {};
}

// One line's value in a task's status, for example "SigBlk".
std::string StatusOf(const std::filesystem::path &task, const std::string &strField) {
    std::ifstream status(task / "status");
    for (std::string strLine; std::getline(status, strLine);)
        if (strLine.rfind(strField + ":", 0) == 0)
            return strLine.substr(strLine.find_first_not_of(" \t", strField.size() + 1));
    return {};
}

// That it blocks all signals if it blocks any is tests/thread's business.
TEST_F(TimedWait, ServiceBlocksSignalsAndSleepsWhileNothingIsPending) {
    Semaphore semaphore;
    EXPECT_EQ(semaphore.Wait(1), VYX_ERROR); // wakes it once
    const std::filesystem::path task = TaskNamed("timer_svc");
    ASSERT_NE(task, "");
    const uint64_t nBlocked = std::stoull(StatusOf(task, "SigBlk"), nullptr, 16);
    EXPECT_NE(nBlocked >> (SIGTERM - 1) & 1, 0U);
    const auto wakeUps = [&] { return StatusOf(task, "voluntary_ctxt_switches"); };
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
    const auto entries = [](const char *szFolder) { return std::distance(Folder(szFolder), Folder()); };
    const auto nThreads = entries("/proc/self/task");
    const auto nDescriptors = entries("/proc/self/fd");
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
    EXPECT_TRUE(WaitUntil([&] { return entries("/proc/self/task") <= nThreads; }));
    EXPECT_EQ(entries("/proc/self/fd"), nDescriptors);
    EXPECT_EQ(mappings(), 0);
}

} // namespace
