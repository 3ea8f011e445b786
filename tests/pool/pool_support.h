// What the tests of both pools share.
#ifndef VYX_TESTS_POOL_SUPPORT_H
#define VYX_TESTS_POOL_SUPPORT_H

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>
#include <vyx/vyx.h>

#include "support/calls.h"
#include "support/support.h"

namespace pooltest {

// A library that is started for the length of a test.
class StartedTest : public testing::Test {
  protected:
    StartedTest() { EXPECT_EQ(VYX_Init(), VYX_OK); }
    ~StartedTest() override { EXPECT_EQ(VYX_Fini(), VYX_OK); }
};

// As support::WaitUntil, for stress tests: looks all the time, but goes to sleep for a moment where others compute all the
// time, since to let these run takes their whole time slice.
template <class Predicate>
bool YieldUntil(Predicate predicate) {
    const auto crowded = support::Clock::now() + std::chrono::milliseconds(1);
    return support::WaitUntil([&] {
        while (!predicate() && support::Clock::now() < crowded)
            std::this_thread::yield();
        return predicate();
    });
}

// The calling thread's name.
inline std::string ThreadName() {
    char szName[64] = {};
    EXPECT_EQ(pthread_getname_np(pthread_self(), szName, sizeof szName), 0);
    return szName;
}

// Items that stay inside until the gate opens, and how many came in and went out.
struct Gate {
    std::atomic<int> nEntered{0};
    std::atomic<int> nLeft{0};
    std::atomic<bool> bOpen{false};
    std::atomic<bool> bCancel{false}; // their threads, which takes effect once they have returned
    std::mutex mutex;
    std::string lastName; // of the worker of the last item that came in; under the mutex

    void Pass() {
        {
            const std::lock_guard<std::mutex> guard(mutex);
            lastName = ThreadName();
        }
        ++nEntered;
        while (!bOpen.load())
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the poll's own pause
        if (bCancel) {
            EXPECT_EQ(pthread_cancel(pthread_self()), 0);
        }
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

} // namespace pooltest

#endif
