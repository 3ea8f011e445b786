// Looking again for a moment before going to sleep.
#ifndef VYX_BASE_SPIN_H
#define VYX_BASE_SPIN_H

#include <atomic>
#include <sched.h>

#include "base/deadline.h"

namespace vyx_inter {

// Under a steady load the next item, or the next idle worker, is there sooner than a thread falls asleep and is
// woken. So both sides look this often before they sleep. In between they let others run, who may be those that
// they wait for; where these take longer than kBriefMicros, the machine is busy with something else.
constexpr uint32_t kBriefTries = 32;
constexpr int64_t kBriefMicros = 30;

// Beside programs that compute all the time, letting others run costs their whole time slice, while a thread that sleeps
// is woken at once. Where that is seen, the next kCrowdedCalls calls do not look again.
constexpr int64_t kCrowdedMicros = 1000;
constexpr uint32_t kCrowdedCalls = 1000;
inline std::atomic<uint32_t> g_nCrowdedCalls{0}; // that are left; a lost change does no harm

// Result: true as soon as fnTry succeeds, false when the time is over.
template <class Try>
bool TryBriefly(Try fnTry) {
    if (fnTry())
        return true;
    const uint32_t nCrowdedCalls = g_nCrowdedCalls.load(std::memory_order_relaxed);
    if (nCrowdedCalls > 0) {
        g_nCrowdedCalls.store(nCrowdedCalls - 1, std::memory_order_relaxed);
        return false;
    }
    const int64_t iStart = Now(Clock::Monotonic);
    int64_t iPast = 0;
    for (uint32_t nTry = 0; nTry < kBriefTries && iPast < kBriefMicros; ++nTry) {
        (void)sched_yield();
        if (fnTry())
            return true;
        iPast = Now(Clock::Monotonic) - iStart;
    }
    if (iPast >= kCrowdedMicros)
        g_nCrowdedCalls.store(kCrowdedCalls, std::memory_order_relaxed);
    return false;
}

} // namespace vyx_inter

#endif
