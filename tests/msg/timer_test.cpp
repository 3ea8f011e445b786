// Timers.
#include <atomic>
#include <climits>
#include <csignal>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/vyx.h>

#include "msg/event_support.h"
#include "support/support.h"

namespace {

using support::Clock;
using support::WaitUntil;

constexpr uint32_t kLong = 600999; // milliseconds; never runs out during a test, and carries into the seconds
constexpr uint32_t kUntouched = 4711;

// What a timer did. As user data of Count.
struct Calls {
    std::atomic<int> n{0};
    std::atomic<uint32_t> nTimerId{kUntouched};

    static void Count(uint32_t nTimerId, void *pCalls) {
        auto *pSelf = static_cast<Calls *>(pCalls);
        pSelf->nTimerId = nTimerId;
        ++pSelf->n;
    }
    bool Wait(int nAtLeast) {
        return WaitUntil([&] { return n.load() >= nAtLeast; });
    }
};

// A routine that stays inside until the gate is opened. As user data of Pass.
struct Gate {
    std::atomic<int> nEntered{0};
    std::atomic<int> nLeft{0};
    std::atomic<bool> bOpen{false};

    static void Pass(uint32_t, void *pGate) {
        auto *pSelf = static_cast<Gate *>(pGate);
        ++pSelf->nEntered;
        (void)WaitUntil([&] { return pSelf->bOpen.load(); });
        ++pSelf->nLeft;
    }
};

uint32_t Set(VYX_TIMER_PROC fnRoutine, void *pUserData, uint32_t nPeriod) {
    uint32_t nTimerId = kUntouched;
    EXPECT_EQ(VYX_SetTimer(fnRoutine, pUserData, nPeriod, &nTimerId), VYX_OK);
    return nTimerId;
}

void Kill(uint32_t nTimerId) {
    EXPECT_EQ(VYX_KillTimer(static_cast<int32_t>(nTimerId)), VYX_ERROR);
}

// The lines of a file that contain a text.
std::vector<std::string> LinesWith(const char *szText, const char *szFile) {
    std::vector<std::string> lines;
    std::ifstream file(szFile);
    for (std::string strLine; std::getline(file, strLine);)
        if (strLine.find(szText) != std::string::npos)
            lines.push_back(strLine);
    return lines;
}

bool HasSemaphores() { // named ones, open in this process
    return !LinesWith("/dev/shm/sem.", "/proc/self/maps").empty();
}

std::string Threads() {
    return LinesWith("Threads:", "/proc/self/status").at(0);
}

// With the library started, and a look at what the test leaves behind.
class Timer : public testing::Test {
  protected:
    Timer() {
        EXPECT_EQ(VYX_Init(), VYX_OK);
        EXPECT_EQ(VYX_FiniTimer(), VYX_OK); // the next VYX_InitTimer forgets
        m_strThreads = Threads();
    }
    ~Timer() override {
        EXPECT_TRUE(WaitUntil([&] { return Threads() == m_strThreads; })) << Threads();
        EXPECT_TRUE(WaitUntil([] { return !HasSemaphores(); }));
        EXPECT_EQ(VYX_Fini(), VYX_OK);
    }

  private:
    std::string m_strThreads;
};

TEST_F(Timer, CallsAfterEachPeriod) {
    struct Record {
        Clock::time_point end = Clock::now(); // of the call before
        std::vector<double> pauses;           // milliseconds
        std::atomic<int> nCalls{0};
    } record;
    const uint32_t nTimerId = Set(
        [](uint32_t, void *pRecord) {
            auto &self = *static_cast<Record *>(pRecord);
            self.pauses.push_back(std::chrono::duration<double, std::milli>(Clock::now() - self.end).count());
            std::this_thread::sleep_for(std::chrono::milliseconds(15)); // a slow routine
            ++self.nCalls;
            self.end = Clock::now();
        },
        &record, 20);
    EXPECT_TRUE(WaitUntil([&] { return record.nCalls >= 4; }));
    Kill(nTimerId);
    for (const double fPause : record.pauses)
        EXPECT_GE(fPause, 20.0);
}

TEST_F(Timer, KillEndsTheSleepButWaitsForTheRoutine) {
    Calls calls;
    const uint32_t nIdle = Set(Calls::Count, &calls, kLong);
    EXPECT_LT(support::MillisecondsOf([&] { Kill(nIdle); }), 1000.0 * support::TimeScale());
    EXPECT_EQ(calls.n, 0);

    Gate gate;
    const uint32_t nBusy = Set(Gate::Pass, &gate, 1);
    ASSERT_TRUE(WaitUntil([&] { return gate.nEntered == 1; }));
    std::atomic<int> nLeftAtReturn{-1};
    std::atomic<bool> bKilling{false};
    std::thread killer([&] {
        bKilling = true;
        (void)pthread_cancel(pthread_self()); // has no effect in there
        Kill(nBusy);
        nLeftAtReturn = gate.nLeft.load();
    });
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 1u); // still taken
    Kill(1);
    EXPECT_TRUE(WaitUntil([&] { return bKilling.load(); }));
    EXPECT_EQ(nLeftAtReturn, -1);
    gate.bOpen = true;
    killer.join();
    EXPECT_EQ(nLeftAtReturn, gate.nEntered) << "it was not inside, and did not come again";
}

TEST_F(Timer, TheTableHolds256LowestFreeFirst) {
    Calls calls[VYX_MAX_TIMERS];
    for (uint32_t n = 0; n < VYX_MAX_TIMERS; ++n)
        ASSERT_EQ(Set(Calls::Count, &calls[n], 10 * static_cast<uint32_t>(support::TimeScale())), n);
    for (uint32_t n = 0; n < VYX_MAX_TIMERS; ++n) {
        EXPECT_TRUE(calls[n].Wait(2));
        EXPECT_EQ(calls[n].nTimerId, n);
    }
    uint32_t nTimerId = kUntouched;
    EXPECT_EQ(VYX_SetTimer(nullptr, nullptr, kLong, &nTimerId), VYX_ERROR);
    EXPECT_EQ(nTimerId, kUntouched);
    for (const int32_t iNoTimer : {-1, 256, INT_MIN, INT_MAX})
        EXPECT_EQ(VYX_KillTimer(iNoTimer), VYX_ERROR);
    Kill(100);
    Kill(3);
    EXPECT_EQ(VYX_SetTimer(nullptr, nullptr, kLong, nullptr), VYX_OK); // takes 3
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 100u);
    for (uint32_t n = 0; n < VYX_MAX_TIMERS; ++n)
        Kill(n);
}

TEST_F(Timer, KillNeverSaysWhatItDid) {
    EXPECT_EQ(VYX_KillTimer(0), VYX_ERROR); // free
    (void)Set(nullptr, nullptr, 1);
    EXPECT_EQ(VYX_KillTimer(0), VYX_ERROR); // killed
    EXPECT_EQ(VYX_KillTimer(0), VYX_ERROR); // free again
}

TEST_F(Timer, AllWhoKillOneTimerSeeItEnd) {
    for (int iRound = 0; iRound < 50; ++iRound) {
        auto pCalls = std::make_unique<Calls>();
        const uint32_t nTimerId = Set(Calls::Count, pCalls.get(), iRound % 3 == 0 ? 0 : 1);
        (void)pCalls->Wait(iRound % 2);
        std::atomic<int> nEnded{0}; // calls that came after a kill had returned
        std::vector<std::thread> killers;
        for (int n = 0; n < 4; ++n)
            killers.emplace_back([&] {
                Kill(nTimerId);
                const int nCalls = pCalls->n;
                std::this_thread::yield();
                nEnded += pCalls->n - nCalls;
            });
        for (std::thread &killer : killers)
            killer.join();
        pCalls.reset(); // a call from now on is one of a freed object
        EXPECT_EQ(nEnded, 0);
        ASSERT_EQ(Set(nullptr, nullptr, 0), nTimerId);
        Kill(nTimerId);
    }
}

// A ring of one is a routine that kills its own timer.
TEST_F(Timer, RoutinesMayKillEachOthersTimersInARing) {
    struct Member {
        std::atomic<uint32_t> *pInside;
        uint32_t nRing;
        uint32_t nNext;
        std::atomic<bool> bReturned{false};
    };
    for (uint32_t nRound = 0; nRound < 30; ++nRound) {
        std::atomic<uint32_t> nInside{0};
        const uint32_t nRing = nRound % 3 + 1;
        Member ring[3] = {{&nInside, nRing, 1 % nRing}, {&nInside, nRing, 2 % nRing}, {&nInside, nRing, 0}};
        for (uint32_t n = 0; n < nRing; ++n)
            (void)Set(
                [](uint32_t, void *pMember) {
                    auto &self = *static_cast<Member *>(pMember);
                    ++*self.pInside;
                    (void)WaitUntil([&] { return *self.pInside == self.nRing; });
                    Kill(self.nNext);
                    self.bReturned = true;
                },
                &ring[n], 1);
        for (uint32_t n = 0; n < nRing; ++n)
            ASSERT_TRUE(WaitUntil([&] { return ring[n].bReturned.load(); }))
                << "the kills wait for each other";
        ASSERT_TRUE(WaitUntil([] { return !HasSemaphores(); })); // hence no timer
        EXPECT_EQ(nInside, nRing);
    }
}

// Beside them, ids of threads that have ended are given to new ones before their timers' places are free.
TEST_F(Timer, OneShotsKillThemselvesBesideOrdinaryKills) {
    constexpr int kShots = 3000;
    std::atomic<int> nShots{0};
    std::atomic<bool> bStop{false};
    std::thread other([&] {
        while (!bStop)
            Kill(Set(Calls::Count, nullptr, kLong));
    });
    const auto fnOnce = [](uint32_t nTimerId, void *pShots) {
        ++*static_cast<std::atomic<int> *>(pShots);
        Kill(nTimerId);
    };
    for (int n = 0; n < kShots;)
        n += VYX_SetTimer(fnOnce, &nShots, 1, nullptr) == VYX_OK ? 1 : 0;
    EXPECT_TRUE(WaitUntil([&] { return nShots == kShots; }));
    bStop = true;
    other.join();
}

TEST_F(Timer, ARoutineMayEndItsThread) {
    Calls calls;
    const auto fnRoutine = [](uint32_t nTimerId, void *pCalls) {
        Calls::Count(nTimerId, pCalls);
        VYX_Thread_Exit();
    };
    for (const bool bForget : {false, true}) {
        const std::string strThreads = Threads();
        (void)Set(fnRoutine, &calls, 1);
        ASSERT_TRUE(calls.Wait(bForget ? 2 : 1));
        ASSERT_TRUE(WaitUntil([&] { return Threads() == strThreads; }));
        if (bForget)
            (void)VYX_InitTimer();
        else
            Kill(0);
    }
    EXPECT_EQ(calls.n, 2);
}

TEST_F(Timer, InitForgetsAllTimersOnce) {
    Gate gate;
    Calls idle;
    EXPECT_EQ(Set(Gate::Pass, &gate, 1), 0u);
    EXPECT_EQ(Set(Calls::Count, &idle, kLong), 1u);
    ASSERT_TRUE(WaitUntil([&] { return gate.nEntered == 1; }));
    EXPECT_EQ(VYX_InitTimer(), VYX_OK);
    EXPECT_EQ(Set(Calls::Count, &idle, kLong), 0u); // in the place of one that is still running
    EXPECT_EQ(VYX_InitTimer(), VYX_OK);
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 1u); // the first one's second call has left 0 alone
    gate.bOpen = true;
    EXPECT_EQ(VYX_FiniTimer(), VYX_OK);
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 2u); // nor does the end touch any
    EXPECT_EQ(VYX_InitTimer(), VYX_OK);
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 0u);
    Kill(0);
    EXPECT_TRUE(WaitUntil([&] { return gate.nLeft == 1 && !HasSemaphores(); }));
    EXPECT_EQ(gate.nEntered, 1);
    EXPECT_EQ(idle.n, 0);
}

TEST_F(Timer, PeriodsAtTheEnds) {
    Calls always;
    Calls never;
    (void)Set(Calls::Count, &always, 0);
    const uint32_t nNull = Set(nullptr, nullptr, 0);
    const uint32_t nNever = Set(Calls::Count, &never, VYX_INFINITE);
    const uint32_t nLast = Set(Calls::Count, &never, VYX_INFINITE - 1);
    EXPECT_TRUE(always.Wait(1000));
    for (const uint32_t nTimerId : {0u, nNull, nNever, nLast})
        Kill(nTimerId);
    EXPECT_EQ(never.n, 0);
}

TEST_F(Timer, OnlyAnEndlessSleepIsEndedByASignal) {
    Calls calls;
    // The handler runs on the timer's thread, as that is the one that does not block the signal.
    static std::atomic<int> s_nSignals{0};
    struct sigaction action = {};
    action.sa_handler = [](int) { ++s_nSignals; };
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    sigset_t set;
    (void)sigemptyset(&set);
    (void)sigaddset(&set, SIGUSR1);
    for (const uint32_t nPeriod : {VYX_INFINITE, kLong}) {
        calls.n = 0;
        s_nSignals = 0;
        const uint32_t nTimerId = Set(Calls::Count, &calls, nPeriod);
        (void)pthread_sigmask(SIG_BLOCK, &set, nullptr);
        const bool bCalled = WaitUntil([&] {
            (void)kill(getpid(), SIGUSR1); // again, as the first may come before the sleep
            return nPeriod == kLong ? s_nSignals >= 20 : calls.n >= 1;
        });
        Kill(nTimerId);
        (void)pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
        EXPECT_TRUE(bCalled) << nPeriod;
        EXPECT_EQ(calls.n.load() == 0, nPeriod == kLong);
    }
}

TEST_F(Timer, SilentWithoutSemaphoreOrThread) {
    Calls calls;
    {
        const eventtest::DescriptorLimit none(0);
        EXPECT_EQ(Set(Calls::Count, &calls, 0), 0u);
    }
    pthread_attr_t usual;
    pthread_attr_t huge;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    ASSERT_EQ(pthread_attr_init(&huge), 0);
    constexpr uint64_t kMoreThanThereAreAddresses = sizeof(size_t) > 4 ? uint64_t{1} << 47 : 0xF0000000U;
    ASSERT_EQ(pthread_attr_setstacksize(&huge, static_cast<size_t>(kMoreThanThereAreAddresses)), 0);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    EXPECT_EQ(Set(Calls::Count, &calls, 0), 1u);
    ASSERT_EQ(pthread_setattr_default_np(&usual), 0);

    EXPECT_EQ(Set(nullptr, nullptr, kLong), 2u); // the places are taken
    Kill(0);
    (void)VYX_InitTimer(); // 1 and 2
    EXPECT_EQ(calls.n, 0);
}

TEST(TimerHours, NothingIsDueWithoutTheLibraryAndItsStopCallsNobody) {
    Calls quick;
    Calls slow;
    const uint32_t nQuick = Set(Calls::Count, &quick, 1);
    const uint32_t nSlow = Set(Calls::Count, &slow, kLong);
    const uint32_t nEndless = Set(Calls::Count, &slow, VYX_INFINITE);
    for (int iHours = 0; iHours < 2; ++iHours) {
        const int nCalls = quick.n; // and the one that is under way
        std::this_thread::sleep_for(
            std::chrono::milliseconds(20)); // a chance to call, which nobody must take
        EXPECT_LE(quick.n, nCalls + iHours);
        ASSERT_EQ(VYX_Init(), VYX_OK);
        EXPECT_TRUE(quick.Wait(quick.n + 3));
        ASSERT_EQ(VYX_Fini(), VYX_OK);
    }
    for (const uint32_t nTimerId : {nQuick, nSlow, nEndless})
        Kill(nTimerId); // works without the library
    EXPECT_EQ(slow.n, 0);
}

TEST(TimerFork, AChildHasNoTimers) {
    ASSERT_EQ(VYX_Init(), VYX_OK);
    Calls calls;
    (void)Set(Calls::Count, &calls, 1);
    (void)Set(nullptr, nullptr, 1);
    EXPECT_TRUE(calls.Wait(1));
    const pid_t iChild = fork();
    ASSERT_NE(iChild, -1);
    if (iChild == 0) {
        (void)VYX_KillTimer(1); // nobody's
        if (!support::kThreadsAfterFork)
            _exit(0);
        uint32_t nTimerId = kUntouched;
        (void)VYX_SetTimer(nullptr, nullptr, kLong, &nTimerId);
        (void)VYX_KillTimer(0);
        _exit(nTimerId == 0 ? 0 : 1);
    }
    int iStatus = -1;
    EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
    EXPECT_EQ(iStatus, 0);
    EXPECT_TRUE(calls.Wait(calls.n + 2)); // the parent's runs on
    Kill(0);
    Kill(1);
    EXPECT_FALSE(HasSemaphores());
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

} // namespace
