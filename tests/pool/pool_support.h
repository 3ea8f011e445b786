// What the tests of both pools share.
#ifndef VYX_TESTS_POOL_SUPPORT_H
#define VYX_TESTS_POOL_SUPPORT_H

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/vyx.h>

#include "support/support.h"

namespace pooltest {

// A library that is started for the length of a test.
class StartedTest : public testing::Test {
  protected:
    StartedTest() { EXPECT_EQ(VYX_Init(), VYX_OK); }
    ~StartedTest() override { EXPECT_EQ(VYX_Fini(), VYX_OK); }
};

// As support::WaitUntil, for stress tests: looks all the time.
template <class Predicate>
bool YieldUntil(Predicate predicate) {
    const auto end = support::Clock::now() + std::chrono::seconds(10) * support::TimeScale();
    while (!predicate()) {
        if (support::Clock::now() > end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

// Items that stay inside until the gate opens, and how many came in and went out.
struct Gate {
    std::atomic<int> nEntered{0};
    std::atomic<int> nLeft{0};
    std::atomic<bool> bOpen{false};

    void Pass() {
        ++nEntered;
        while (!bOpen.load())
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the poll's own pause
        ++nLeft;
    }
    bool WaitEntered(int n) {
        return support::WaitUntil([&] { return nEntered.load() == n; });
    }
    bool WaitLeft(int n) {
        return support::WaitUntil([&] { return nLeft.load() == n; });
    }
    static void *Item(void *pGate) {
        static_cast<Gate *>(pGate)->Pass();
        return nullptr;
    }
    static void Handler(void *pGate) { static_cast<Gate *>(pGate)->Pass(); }
};

// What a call writes to standard error.
inline std::string ErrorsOf(const std::function<void()> &fnCall) {
    testing::internal::CaptureStderr();
    fnCall();
    return testing::internal::GetCapturedStderr();
}

// A message as the debug printer shows it: every text of the pools ends with a line feed of its own.
inline std::string Shown(const std::string &text) {
    return text + "\n\n";
}

// How many items a stress test runs: nFull, or a part of it where instrumentation makes every step slower.
// VYX_TEST_STRESS_DIVISOR sets another part.
inline int StressItems(int nFull) {
    int nDivisor = 1;
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    nDivisor = 40;
#endif
    if (const char *szDivisor = std::getenv("VYX_TEST_STRESS_DIVISOR"))
        nDivisor = std::max(1, std::atoi(szDivisor));
    return nFull / nDivisor;
}

// One mark for each item of a stress test: how often it ran.
struct Marks {
    explicit Marks(int nItems) : runs(static_cast<size_t>(nItems)) {}
    std::vector<std::atomic<uint8_t>> runs;

    static void *Item(void *pMark) {
        ++*static_cast<std::atomic<uint8_t> *>(pMark);
        return nullptr;
    }
    static void Handler(void *pMark) { ++*static_cast<std::atomic<uint8_t> *>(pMark); }
    int CountOf(uint8_t n) const {
        int nFound = 0;
        for (const auto &run : runs)
            nFound += run.load() == n ? 1 : 0;
        return nFound;
    }
};

// Counts the signals that reach this process' threads; a handler without SA_RESTART.
inline std::atomic<int> g_signals{0};
inline void CatchSignals() {
    struct sigaction action = {};
    action.sa_handler = [](int) { ++g_signals; };
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
}

} // namespace pooltest

#endif
