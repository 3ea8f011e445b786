// Timers.
#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/vyx.h>

#include "msg/event_support.h"
#include "support/support.h"
#include "support/temp_dir.h"

namespace {

using support::WaitUntil;

constexpr uint32_t kLong = 600999; // milliseconds; never runs out during a test, and carries into the seconds
constexpr uint32_t kUntouched = 4711;

// What a timer did. As user data of Call, which stays inside until the gate is open.
struct Calls {
    std::atomic<int> n{0};
    std::atomic<int> nLeft{0};
    std::atomic<uint32_t> nTimerId{kUntouched};
    std::atomic<bool> bGate{true};

    static void Call(uint32_t nTimerId, void *pCalls) {
        auto *pSelf = static_cast<Calls *>(pCalls);
        pSelf->nTimerId = nTimerId;
        ++pSelf->n;
        (void)WaitUntil([&] { return pSelf->bGate.load(); });
        ++pSelf->nLeft;
    }
    bool Wait(int nAtLeast) {
        return WaitUntil([&] { return n.load() >= nAtLeast; });
    }
};

uint32_t Set(VYX_TIMER_PROC fnRoutine, void *pUserData, uint32_t nPeriod) {
    uint32_t nTimerId = kUntouched;
    EXPECT_EQ(VYX_SetTimer(fnRoutine, pUserData, nPeriod, &nTimerId), VYX_OK);
    return nTimerId;
}

void Kill(uint32_t nTimerId) {
    EXPECT_EQ(VYX_KillTimer(static_cast<int32_t>(nTimerId)), VYX_ERROR) << "never says what it did";
}

bool HasSemaphores() { // named ones, open in this process
    return support::ReadFile("/proc/self/maps").find("/dev/shm/sem.") != std::string::npos;
}

long Threads() {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return std::distance(begin(all), end(all));
}

// With the library started, and a look at what the test leaves behind.
class Timer : public testing::Test {
  protected:
    Timer() {
        EXPECT_EQ(VYX_Init(), VYX_OK);
        EXPECT_EQ(VYX_FiniTimer(), VYX_OK); // the next VYX_InitTimer forgets
        m_nThreads = Threads();
    }
    ~Timer() override {
        EXPECT_TRUE(WaitUntil([&] { return Threads() == m_nThreads && !HasSemaphores(); })) << Threads();
        EXPECT_EQ(VYX_Fini(), VYX_OK);
    }
    long m_nThreads;
};

TEST_F(Timer, CallsAfterEachPeriod) {
    struct Record {
        support::Clock::time_point end = support::Clock::now(); // of the call before
        support::Clock::duration least = std::chrono::hours(1); // pause
        std::atomic<int> nCalls{0};
    } record;
    const uint32_t nTimerId = Set(
        [](uint32_t, void *pRecord) {
            auto &self = *static_cast<Record *>(pRecord);
            self.least = std::min(self.least, support::Clock::now() - self.end);
            std::this_thread::sleep_for(std::chrono::milliseconds(15)); // a slow routine
            ++self.nCalls;
            self.end = support::Clock::now();
        },
        &record, 20);
    EXPECT_TRUE(WaitUntil([&] { return record.nCalls >= 4; }));
    Kill(nTimerId);
    EXPECT_GE(record.least, std::chrono::milliseconds(20));
}

TEST_F(Timer, KillEndsTheSleepButWaitsForTheRoutine) {
    Calls calls;
    const uint32_t nIdle = Set(Calls::Call, &calls, kLong);
    EXPECT_LT(support::MillisecondsOf([&] { Kill(nIdle); }), 1000.0 * support::TimeScale());
    EXPECT_EQ(calls.n, 0);

    for (uint32_t nRound = 0; nRound < 20; ++nRound) {
        Calls busy;
        busy.bGate = false;
        const uint32_t nBusy = Set(Calls::Call, &busy, nRound % 2);
        ASSERT_TRUE(busy.Wait(1));
        std::atomic<int> nKilling{0};
        std::atomic<int> nLeft{0};
        std::vector<std::thread> killers; // all of them see it end
        for (int n = 0; n < 4; ++n)
            killers.emplace_back([&] {
                (void)pthread_cancel(pthread_self()); // has no effect in there
                const uint32_t nOther = Set(nullptr, nullptr, kLong);
                EXPECT_NE(nOther, nBusy) << "its place is still taken";
                Kill(nOther);
                ++nKilling;
                Kill(nBusy);
                nLeft += busy.nLeft;
            });
        EXPECT_TRUE(WaitUntil([&] { return nKilling == 4; }));
        EXPECT_EQ(nLeft, 0);
        busy.bGate = true;
        for (std::thread &killer : killers)
            killer.join();
        EXPECT_EQ(nLeft, 4) << "it was not inside, and did not come again";
        EXPECT_EQ(busy.n, 1);
    }
}

TEST_F(Timer, TheTableHolds256LowestFreeFirst) {
    Calls calls[VYX_MAX_TIMERS];
    for (uint32_t n = 0; n < VYX_MAX_TIMERS; ++n)
        ASSERT_EQ(Set(Calls::Call, &calls[n], 10 * static_cast<uint32_t>(support::TimeScale())), n);
    for (uint32_t n = 0; n < VYX_MAX_TIMERS; ++n) {
        EXPECT_TRUE(calls[n].Wait(2));
        EXPECT_EQ(calls[n].nTimerId, n);
    }
    uint32_t nTimerId = kUntouched;
    EXPECT_EQ(VYX_SetTimer(nullptr, nullptr, kLong, &nTimerId), VYX_ERROR);
    EXPECT_EQ(nTimerId, kUntouched);
    for (const int32_t iTimerId : {-1, 256, INT_MIN, INT_MAX, 100, 3, 3})
        EXPECT_EQ(VYX_KillTimer(iTimerId), VYX_ERROR);
    EXPECT_EQ(VYX_SetTimer(nullptr, nullptr, kLong, nullptr), VYX_OK); // takes 3
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 100u);
    for (uint32_t n = 0; n < VYX_MAX_TIMERS; ++n)
        Kill(n);
}

// Beside them, ids of threads that have ended are given to new ones before their timers' places are free.
TEST_F(Timer, OneShotsKillThemselvesBesideOrdinaryKills) {
    Calls shots;
    std::atomic<bool> bStop{false};
    std::thread other([&] {
        while (!bStop) {
            uint32_t nTimerId = kUntouched;
            if (VYX_SetTimer(nullptr, nullptr, kLong, &nTimerId) == VYX_OK) // all places may be taken
                Kill(nTimerId);
        }
    });
    const auto fnOnce = [](uint32_t nTimerId, void *pShots) {
        Calls::Call(nTimerId, pShots);
        Kill(nTimerId);
    };
    for (int n = 0; n < 3000;)
        n += VYX_SetTimer(fnOnce, &shots, 1, nullptr) == VYX_OK ? 1 : 0;
    EXPECT_TRUE(shots.Wait(3000));
    bStop = true;
    other.join();
}

TEST_F(Timer, InitForgetsAllTimersOnce) {
    Calls busy;
    Calls idle;
    busy.bGate = false;
    EXPECT_EQ(Set(Calls::Call, &busy, 1), 0u);
    EXPECT_EQ(Set(Calls::Call, &idle, kLong), 1u);
    ASSERT_TRUE(busy.Wait(1));
    EXPECT_EQ(VYX_InitTimer(), VYX_OK);
    EXPECT_EQ(Set(Calls::Call, &idle, kLong), 0u); // in the place of one that is still running
    EXPECT_EQ(VYX_InitTimer(), VYX_OK);
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 1u); // the first one's second call has left 0 alone
    busy.bGate = true;
    EXPECT_EQ(VYX_FiniTimer(), VYX_OK);
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 2u); // nor does the end touch any
    EXPECT_EQ(VYX_InitTimer(), VYX_OK);
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 0u);
    Kill(0);
    EXPECT_TRUE(WaitUntil([&] { return busy.nLeft == 1 && !HasSemaphores(); }));
    EXPECT_EQ(busy.n, 1);
    EXPECT_EQ(idle.n, 0);
}

// The handler runs on the timer's thread, as that is the one that does not block the signal.
TEST_F(Timer, OnlyAnEndlessSleepIsEndedByASignal) {
    static std::atomic<int> s_nSignals{0};
    struct sigaction action = {};
    action.sa_handler = [](int) { ++s_nSignals; };
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    sigset_t set;
    (void)sigemptyset(&set);
    (void)sigaddset(&set, SIGUSR1);
    for (const uint32_t nPeriod : {VYX_INFINITE, VYX_INFINITE - 1, kLong}) {
        Calls calls;
        s_nSignals = 0;
        const uint32_t nTimerId = Set(Calls::Call, &calls, nPeriod);
        (void)pthread_sigmask(SIG_BLOCK, &set, nullptr);
        EXPECT_TRUE(WaitUntil([&] {
            (void)kill(getpid(), SIGUSR1); // again, as the first may come before the sleep
            return (nPeriod == VYX_INFINITE ? calls.n * 20 : s_nSignals.load()) >= 20;
        }));
        Kill(nTimerId);
        (void)pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
        EXPECT_EQ(calls.n == 0, nPeriod != VYX_INFINITE) << nPeriod;
    }
}

TEST_F(Timer, SilentWithoutSemaphoreOrThread) {
    Calls calls;
    const rlim_t nBefore = eventtest::LimitDescriptors(0);
    EXPECT_EQ(Set(Calls::Call, &calls, 0), 0u);
    (void)eventtest::LimitDescriptors(nBefore);
    pthread_attr_t usual;
    pthread_attr_t huge;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    ASSERT_EQ(pthread_attr_init(&huge), 0);
    constexpr uint64_t kMoreThanThereAreAddresses = sizeof(size_t) > 4 ? uint64_t{1} << 47 : 0xF0000000U;
    ASSERT_EQ(pthread_attr_setstacksize(&huge, static_cast<size_t>(kMoreThanThereAreAddresses)), 0);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    EXPECT_EQ(Set(Calls::Call, &calls, 0), 1u);
    ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
    EXPECT_EQ(calls.n, 0);

    const auto fnEndThread = [](uint32_t nTimerId, void *pCalls) {
        Calls::Call(nTimerId, pCalls);
        VYX_Thread_Exit();
    };
    EXPECT_EQ(Set(fnEndThread, &calls, 0), 2u);
    EXPECT_EQ(Set(fnEndThread, &calls, 0), 3u);
    EXPECT_TRUE(WaitUntil([&] { return calls.n == 2 && Threads() == m_nThreads; }));
    EXPECT_EQ(Set(nullptr, nullptr, kLong), 4u); // the places are taken
    Kill(0);
    Kill(2);
    (void)VYX_InitTimer(); // 1, 3 and 4
    EXPECT_EQ(calls.n, 2);
}

TEST(TimerHours, NothingIsDueWithoutTheLibraryAndItsStopCallsNobody) {
    Calls always;
    Calls quick;
    Calls never;
    const uint32_t ids[] = {Set(Calls::Call, &always, 0), Set(nullptr, nullptr, 0),
                            Set(Calls::Call, &quick, 1), Set(Calls::Call, &never, kLong),
                            Set(Calls::Call, &never, VYX_INFINITE)};
    EXPECT_TRUE(always.Wait(1000)); // needs no library
    for (int iHours = 0; iHours < 2; ++iHours) {
        const int nCalls = quick.n;               // and the one that is under way
        EXPECT_TRUE(always.Wait(always.n + 100)); // a chance to call, which nobody else must take
        EXPECT_LE(quick.n, nCalls + iHours);
        ASSERT_EQ(VYX_Init(), VYX_OK);
        EXPECT_TRUE(quick.Wait(quick.n + 3));
        ASSERT_EQ(VYX_Fini(), VYX_OK);
    }
    for (const uint32_t nTimerId : ids)
        Kill(nTimerId); // works without the library
    EXPECT_EQ(never.n, 0);
}

} // namespace
