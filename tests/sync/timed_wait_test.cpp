// Bounded waits, with each of the two ways in which the first waiter for a semaphore sleeps: CMakeLists.txt.
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/platform.h"
#include "sync/sem_record.h"
#include "sync/timed_wait.h"
#include "sync/timed_wait_support.h"

using support::Async;
using support::kLong;
using support::Monitor;
using support::Semaphore;
using support::WaitUntil;

namespace {

// Of a thread that is cancelled in its sleep the sanitizers lose sight: of its locks, and of its stack.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kFollowsCancelled = false;
#else
constexpr bool kFollowsCancelled = true;
#endif

bool PendingBecomes(uint32_t nCount) {
    return WaitUntil([nCount] { return VYX_TimedWaitPending_Inter() == nCount; });
}

// The library is started for the length of a block.
struct Library {
    Library() { EXPECT_EQ(VYX_Init(), VYX_OK); }
    ~Library() { EXPECT_EQ(VYX_Fini(), VYX_OK); }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
};

// A wait of 100 ms without anything else: microseconds on the clock that limits are counted on. Negative if it
// did not end as it should.
template <class Waited>
VYX_TIME_T TookFor100(Waited &waited) {
    const VYX_TIME_T iStart = VYX_TimeNow();
    return waited.Wait(100) == VYX_ERROR ? VYX_TimeNow() - iStart : -1;
}

void ExpectKept(VYX_TIME_T iTook) {
    EXPECT_GE(iTook, 100000);
    EXPECT_LT(iTook, 2000000 * support::TimeScale());
}

// Neither signals nor a change of the user, which is told to every thread by a signal that nobody can block.
TEST(TimedWait, LimitsAreKeptUnderSignals) {
    const Library library;
    struct sigaction action = {};
    action.sa_handler = [](int) {}; // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    Semaphore semaphore;
    std::vector<VYX_TIME_T> took(3);
    std::vector<std::unique_ptr<Async>> waiters;
    for (VYX_TIME_T &iTook : took) // the first, and those who wait to become the first
        waiters.push_back(
            std::make_unique<Async>([&] { return (iTook = TookFor100(semaphore)) < 0 ? 1 : 0; }));
    for (const auto &pWaiter : waiters)
        while (!pWaiter->Done()) {
            (void)pthread_kill(pWaiter->Handle(), SIGUSR1);
            EXPECT_EQ(setuid(getuid()), 0);
            std::this_thread::yield();
        }
    for (const VYX_TIME_T iTook : took)
        ExpectKept(iTook);
    Monitor monitor;
    ExpectKept(TookFor100(monitor));
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
}

TEST(TimedWait, ZeroAndInfiniteNeedNoService) {
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
}

TEST(CondTimedWait, AnswersErrorHoweverItEnds) {
    const Library library;
    Monitor monitor;
    for (const uint32_t nLimit : {0U, kLong}) {
        monitor.Lock();
        Async signaller([&, nLimit] {
            if (nLimit != kLong)
                return 0;
            monitor.Lock(); // had when the other sleeps
            monitor.Unlock();
            return VYX_CondSignal(&monitor.cond);
        });
        EXPECT_EQ(VYX_CondTimedWait(&monitor.cond, &monitor.mutex, nLimit), VYX_ERROR);
        EXPECT_EQ(Async([&] { return VYX_MutexTryLock(&monitor.mutex); }).Result(), VYX_ERROR)
            << "the mutex is held after the wait";
        monitor.Unlock();
    }
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
    Semaphore empty;
    Semaphore posted(1);
    Monitor monitor;
    Async runsOut([&] { return empty.Wait(1); });
    Async second([&] { return empty.Wait(1); });
    Async isServed([&] { return posted.Wait(1); });
    Async onCondition([&] { return monitor.Wait(1); });
    ASSERT_TRUE(PendingBecomes(4));
    std::this_thread::sleep_for(
        std::chrono::milliseconds(30)); // for all limits to pass, which nobody must notice
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 4U);
    const Library library;
    EXPECT_EQ(runsOut.Result(), VYX_ERROR);
    EXPECT_EQ(second.Result(), VYX_ERROR);
    EXPECT_EQ(isServed.Result(), VYX_OK);
    EXPECT_EQ(onCondition.Result(), VYX_ERROR);
}

TEST(TimedWait, TheStopEndsAllThatHaveBegun) {
    for (const bool bHoldTheirMutex : {false, true}) {
        Semaphore semaphores[2];
        Monitor monitor;
        // The platform wakes who sleeps longest: these, which the stop does not mean.
        Async withoutLimit([&] { return semaphores[0].Wait(VYX_INFINITE); });
        bool bGo = false; // under the mutex
        Async onPredicate([&] {
            monitor.Lock();
            while (!bGo)
                (void)VYX_CondWait(&monitor.cond, &monitor.mutex);
            monitor.Unlock();
            return 0;
        });
        ASSERT_TRUE(WaitUntil([&] { return withoutLimit.Asleep() && onPredicate.Asleep(); }));
        std::vector<std::unique_ptr<Async>> waiters;
        {
            const Library library;
            for (int i = 0; i < 5; ++i)
                waiters.push_back(std::make_unique<Async>([&, i] { return semaphores[i / 4].Wait(kLong); }));
            for (int i = 0; i < 2; ++i)
                waiters.push_back(std::make_unique<Async>([&] { return monitor.Wait(kLong); }));
            ASSERT_TRUE(PendingBecomes(7));
            if (bHoldTheirMutex)
                monitor.Lock();
        }
        if (bHoldTheirMutex)
            monitor.Unlock();
        for (const auto &pWaiter : waiters)
            EXPECT_EQ(pWaiter->Result(), VYX_ERROR);
        EXPECT_FALSE(withoutLimit.Done());
        EXPECT_EQ(semaphores[0].Post(), VYX_OK);
        EXPECT_EQ(withoutLimit.Result(), VYX_OK);
        monitor.Lock();
        bGo = true;
        (void)VYX_CondBroadCast(&monitor.cond);
        monitor.Unlock();
        for (Semaphore &semaphore : semaphores)
            EXPECT_EQ(sem_trywait(semaphore.h->pSem), -1) << "the stop has made a count";
        EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
    }
}

// Runs a call on a thread and cancels it there: asleep as soon as bReady says, or on its way where the platform cannot
// cancel a sleeping thread. Result: whether it was cancelled.
bool Cancelled(const std::function<void()> &call, const std::function<void()> &atReady) {
    pthread_t hThread = {};
    const auto fnBody = [](void *pCall) -> void * {
        if (!support::kCancelsSleepers)
            (void)pthread_cancel(pthread_self());
        (*static_cast<const std::function<void()> *>(pCall))();
        return nullptr;
    };
    EXPECT_EQ(pthread_create(&hThread, nullptr, fnBody, const_cast<std::function<void()> *>(&call)), 0);
    if (support::kCancelsSleepers) {
        atReady();
        (void)pthread_cancel(hThread);
    }
    void *pResult = nullptr;
    EXPECT_EQ(pthread_join(hThread, &pResult), 0);
    return pResult == PTHREAD_CANCELED;
}

// A wait in storage that is unmapped as soon as it has ended: a late touch ends the process.
int32_t WaitOnPage(uint32_t nTimeOut) {
    void *pPage = mmap(nullptr, sizeof(Monitor), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto *pMonitor = new (pPage) Monitor;
    const int32_t iResult = pMonitor->Wait(nTimeOut);
    pMonitor->~Monitor();
    return munmap(pPage, sizeof(Monitor)) == 0 ? iResult : 1;
}

using Folder = std::filesystem::directory_iterator;

// All kinds of waits at once, while the library is started and stopped: what was posted and not taken is left, and
// nothing else is.
TEST(TimedWait, CountsAreNeitherLostNorMade) {
    constexpr unsigned kWithoutLimit = 2;
    EXPECT_EQ(Async([] { return 0; }).Result(), 0); // a sanitizer starts its own thread with the first one
    const auto entries = [](const char *szFolder) { return std::distance(Folder(szFolder), Folder()); };
    const auto nThreads = entries("/proc/self/task");
    const auto nDescriptors = entries("/proc/self/fd");
    {
        Semaphore semaphores[2];
        std::atomic<int> nLeft{0};
        std::atomic<bool> bEnd{false};
        const auto work = [&](unsigned nSeed) {
            std::minstd_rand random(nSeed + 1);
            while (!bEnd) {
                Semaphore &semaphore = semaphores[random() % 2];
                bool bTaken = false;
                if (nSeed < kWithoutLimit)
                    nLeft -= semaphore.Wait(VYX_INFINITE) == VYX_OK ? 1 : 0;
                else if (nSeed < 6)
                    nLeft -= semaphore.Wait(0) == VYX_OK ? 1 : 0;
                else if (nSeed < 11 || (nSeed < 13 && !kFollowsCancelled))
                    nLeft -= semaphore.Wait(static_cast<uint32_t>(random() % 3 + 1)) == VYX_OK ? 1 : 0;
                else if (nSeed < 13)
                    (void)Cancelled([&] { bTaken = semaphore.Wait(3) == VYX_OK; }, std::this_thread::yield);
                else if (WaitOnPage(random() % 2) == VYX_ERROR)
                    nLeft += semaphore.Post() == VYX_OK ? 1 : 0;
                nLeft -= bTaken ? 1 : 0;
            }
            return 0;
        };
        std::vector<std::unique_ptr<Async>> workers;
        for (unsigned nSeed = 0; nSeed < 15; ++nSeed)
            workers.push_back(std::make_unique<Async>([&work, nSeed] { return work(nSeed); }));
        for (int nRound = 0; nRound < 200; ++nRound) {
            const Library library;
            if (nRound % 4 != 0)
                std::this_thread::yield();
        }
        bEnd = true;
        const Library library; // for waits that began after the last stop
        EXPECT_TRUE(WaitUntil([&] {
            for (unsigned n = 0; n < kWithoutLimit; ++n)
                for (Semaphore &semaphore : semaphores)
                    nLeft += !workers[n]->Done() && semaphore.Post() == VYX_OK ? 1 : 0;
            return workers[0]->Done() && workers[1]->Done();
        }));
        workers.clear();
        for (Semaphore &semaphore : semaphores) {
            while (sem_trywait(semaphore.h->pSem) == 0) // what others see who have opened it
                --nLeft;
            EXPECT_EQ(semaphore.h->nWaits, 0U);
        }
        EXPECT_EQ(nLeft, 0);
    }
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
    EXPECT_TRUE(WaitUntil([&] { return entries("/proc/self/task") <= nThreads; }));
    EXPECT_EQ(entries("/proc/self/fd"), nDescriptors);
}

// A condition may go once its waiters have been woken, though they have not got their mutex back.
TEST(TimedWait, TheStopLeavesConditionsThatHaveGone) {
    void *pPage =
        mmap(nullptr, sizeof(VYX_COND_T), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pPage, MAP_FAILED);
    auto *pCond = static_cast<VYX_COND_T *>(pPage);
    ASSERT_EQ(VYX_CondCreate(pCond), 0);
    Monitor monitor; // for its mutex
    ASSERT_EQ(VYX_Init(), VYX_OK);
    Async waiter([&] {
        monitor.Lock();
        const int32_t iResult = VYX_CondTimedWait(pCond, &monitor.mutex, kLong);
        monitor.Unlock();
        return iResult;
    });
    ASSERT_TRUE(PendingBecomes(1));
    monitor.Lock();
    EXPECT_EQ(VYX_CondBroadCast(pCond), 0);
    EXPECT_EQ(VYX_CondDestroy(pCond), 0);
    EXPECT_EQ(munmap(pPage, sizeof(VYX_COND_T)), 0); // a touch ends the process
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 1U) << "the waiter still needs the mutex";
    monitor.Unlock();
    EXPECT_EQ(waiter.Result(), VYX_ERROR);
}

TEST(TimedWait, CancelledWaitersLeaveNothingBehind) {
    if (!kFollowsCancelled)
        GTEST_SKIP() << "the sanitizer sees faults where there are none";
    const auto ready = [](uint32_t nPending) {
        return [nPending] { ASSERT_TRUE(PendingBecomes(nPending)); };
    };
    Semaphore semaphore;
    Monitor monitor;
    const auto onSemaphore = [&] { (void)semaphore.Wait(kLong); };
    const auto onCondition = [&] {
        const std::unique_ptr<Monitor, void (*)(Monitor *)> unlocked(&monitor,
                                                                     [](Monitor *p) { p->Unlock(); });
        monitor.Lock();
        (void)VYX_CondTimedWait(&monitor.cond, &monitor.mutex, kLong);
    };
    EXPECT_TRUE(Cancelled(onSemaphore, ready(1))) << "before the start";
    const Library library;
    EXPECT_TRUE(Cancelled(onCondition, ready(1)));
    EXPECT_EQ(VYX_MutexTryLock(&monitor.mutex), VYX_OK) << "the cancelled thread could free its mutex";
    monitor.Unlock();
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 0U);
    { // the first and one behind it; who is between them moves up
        Async first([&] { return semaphore.Wait(50); });
        ASSERT_TRUE(PendingBecomes(1));
        EXPECT_TRUE(Cancelled(onSemaphore, ready(2)));
        EXPECT_EQ(first.Result(), VYX_ERROR);
        std::unique_ptr<Async> pSecond;
        EXPECT_TRUE(Cancelled(onSemaphore, [&] {
            ASSERT_TRUE(PendingBecomes(1));
            pSecond = std::make_unique<Async>([&] { return semaphore.Wait(kLong); });
            ASSERT_TRUE(PendingBecomes(2));
        }));
        EXPECT_EQ(semaphore.Post(), VYX_OK);
        EXPECT_EQ(pSecond == nullptr ? semaphore.Wait(0) : pSecond->Result(), VYX_OK);
    }
    for (int nRound = 0; nRound < 200; ++nRound) { // beside a post
        const bool bCancelled = Cancelled(onSemaphore, [&] {
            ASSERT_TRUE(PendingBecomes(1));
            EXPECT_EQ(semaphore.Post(), VYX_OK);
        });
        if (!support::kCancelsSleepers) {
            EXPECT_EQ(semaphore.Post(), VYX_OK);
        }
        ASSERT_EQ(semaphore.Drain(), bCancelled ? 1 : 0) << "in round " << nRound;
        ASSERT_EQ(VYX_TimedWaitPending_Inter(), 0U);
    }
}

// The semaphore is shared with the child, whose stop would wake the parent's waiter if it knew of it.
TEST(TimedWait, AForkedChildHasNoneOfItsParentsWaits) {
    Semaphore semaphore;
    Monitor monitor;
    const Library library;
    Async onSemaphore([&] { return semaphore.Wait(kLong); });
    Async onCondition([&] { return monitor.Wait(kLong); });
    ASSERT_TRUE(PendingBecomes(2));
    ASSERT_TRUE(WaitUntil([&] { return onSemaphore.Asleep() && onCondition.Asleep(); }));
    const pid_t iChild = fork();
    ASSERT_NE(iChild, -1);
    if (iChild == 0)
        _exit(VYX_TimedWaitPending_Inter() == 0 && VYX_Fini() == VYX_OK ? 0 : 1);
    int iStatus = -1;
    EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
    EXPECT_EQ(iStatus, 0);
    int iCount = -1;
    EXPECT_EQ(sem_getvalue(semaphore.h->pSem, &iCount), 0);
    EXPECT_EQ(iCount, 0);
    EXPECT_EQ(VYX_TimedWaitPending_Inter(), 2U);
    EXPECT_EQ(semaphore.Post(), VYX_OK);
    EXPECT_EQ(onSemaphore.Result(), VYX_OK);
    monitor.Lock();
    (void)VYX_CondBroadCast(&monitor.cond);
    monitor.Unlock();
}

// The /proc folders of this process's threads of that name.
std::vector<std::filesystem::path> TasksNamed(const std::string &strName) {
    std::vector<std::filesystem::path> tasks;
    for (const auto &entry : Folder("/proc/self/task")) {
        std::string strFound;
        std::getline(std::ifstream(entry.path() / "comm"), strFound);
        if (strFound == strName)
            tasks.push_back(entry.path());
    }
    return tasks;
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
TEST(TimedWait, OneServiceHoweverTheStopWasCalled) {
    EXPECT_TRUE(TasksNamed("timer_svc").empty());
    for (int nRound = 0; nRound < 20; ++nRound) {
        EXPECT_EQ(VYX_Init(), VYX_OK);
        ASSERT_TRUE(WaitUntil([] { return TasksNamed("timer_svc").size() == 1; })) << "in round " << nRound;
        const uint64_t nBlocked = std::stoull(StatusOf(TasksNamed("timer_svc")[0], "SigBlk"), nullptr, 16);
        EXPECT_NE(nBlocked >> (SIGTERM - 1) & 1, 0U);
        EXPECT_FALSE(Cancelled([] { (void)pthread_cancel(pthread_self()), (void)VYX_Fini(); }, [] {}));
    }
    EXPECT_TRUE(WaitUntil([] { return TasksNamed("timer_svc").empty(); }));
}

// Nobody wakes up while waits are pending, unless the platform needs the service to look at the clock every 10 ms.
TEST(TimedWait, PendingWaitsCostNothing) {
    const Library library;
    Semaphore semaphore;
    Monitor monitor;
    std::vector<std::unique_ptr<Async>> waiters;
    for (int i = 0; i < 2; ++i) {
        waiters.push_back(std::make_unique<Async>([&] { return semaphore.Wait(kLong); }));
        waiters.push_back(std::make_unique<Async>([&] { return monitor.Wait(kLong); }));
    }
    ASSERT_TRUE(PendingBecomes(4));
    const auto wakeUps = [] {
        std::string strAll;
        for (const auto &entry : Folder("/proc/self/task"))
            if (entry.path().filename() != std::to_string(getpid())) // this thread
                strAll += StatusOf(entry.path(), "voluntary_ctxt_switches") + " ";
        return strAll;
    };
    EXPECT_TRUE(WaitUntil([&] {
        const std::string strBefore = wakeUps();
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // a look every 10 ms would show
        return (wakeUps() == strBefore) == VYX_SemSleepKeepsTime_Inter();
    }));
    for (int i = 0; i < 2; ++i)
        (void)semaphore.Post();
    (void)VYX_CondBroadCast(&monitor.cond);
}

} // namespace
