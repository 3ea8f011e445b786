// Timers.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>
#include <vyx/vyx.h>

#include "support/calls.h"
#include "support/support.h"

namespace {

using support::WaitUntil;

constexpr uint32_t kLong = 600999; // milliseconds; never runs out during a test, and carries into the seconds

// What a timer did. As user data of Call, which stays inside until the gate is open.
struct Calls {
    std::atomic<int> n{0};
    std::atomic<int> nLeft{0};
    std::atomic<bool> bGate{true};

    static void Call(uint32_t /*nTimerId*/, void *pCalls) {
        auto *pSelf = static_cast<Calls *>(pCalls);
        ++pSelf->n;
        (void)WaitUntil([&] { return pSelf->bGate.load(); });
        ++pSelf->nLeft;
    }
    bool Wait(int nAtLeast) {
        return WaitUntil([&] { return n.load() >= nAtLeast; });
    }
};

uint32_t Set(VYX_TIMER_PROC fnRoutine, void *pUserData, uint32_t nPeriod) {
    uint32_t nTimerId = VYX_MAX_TIMERS;
    EXPECT_EQ(VYX_SetTimer(fnRoutine, pUserData, nPeriod, &nTimerId), VYX_OK);
    return nTimerId;
}

void Kill(uint32_t nTimerId) {
    EXPECT_EQ(VYX_KillTimer(static_cast<int32_t>(nTimerId)), VYX_ERROR) << "never says what it did";
}

// With the library started; the next VYX_InitTimer forgets.
class Timer : public testing::Test {
  protected:
    Timer() {
        EXPECT_EQ(VYX_Init(), VYX_OK);
        EXPECT_EQ(VYX_FiniTimer(), VYX_OK);
    }
    ~Timer() override { EXPECT_EQ(VYX_Fini(), VYX_OK); }
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
    EXPECT_TRUE(support::EndsThoughCancelled([] { Kill(0); }));
    EXPECT_TRUE(WaitUntil([&] { return busy.nLeft == 1; }));
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
    Calls silent;
    Calls ended;
    Calls always;
    struct rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const struct rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(Set(Calls::Call, &silent, 0), 0u);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const auto fnEndThread = [](uint32_t nTimerId, void *pCalls) {
        Calls::Call(nTimerId, pCalls);
        VYX_Thread_Exit();
    };
    EXPECT_EQ(Set(fnEndThread, &ended, 0), 1u);
    EXPECT_TRUE(ended.Wait(1));
    EXPECT_EQ(Set(Calls::Call, &always, 0), 2u);
    EXPECT_TRUE(always.Wait(100));
    for (const uint32_t nTimerId : {0U, 1U, 2U})
        Kill(nTimerId);
    EXPECT_EQ(silent.n, 0);
    EXPECT_EQ(ended.n, 1);
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
