// Semaphores and threads that the system refuses, on a test's order.
#ifndef VYX_TESTS_POOL_REFUSALS_H
#define VYX_TESTS_POOL_REFUSALS_H

#include <atomic>

#include "pool/pool_support.h"

namespace refusals {

// How many more of the library's semaphores and threads the system grants; -1 for no limit. A refused
// semaphore is one whose name is taken, whatever the name.
extern std::atomic<int> g_nSemaphoresLeft;
extern std::atomic<int> g_nThreadsLeft;

extern std::atomic<int> g_nNames; // semaphore names in use by this process

// Every test gives all semaphores back.
class RefusalsTest : public pooltest::StartedTest {
  protected:
    ~RefusalsTest() override {
        g_nSemaphoresLeft = g_nThreadsLeft = -1;
        EXPECT_EQ(g_nNames, 0);
    }
};

} // namespace refusals

#endif
