// Looking again for a moment before going to sleep.
#ifndef VYX_BASE_SPIN_H
#define VYX_BASE_SPIN_H

#include <sched.h>

#include "base/deadline.h"

namespace vyx_inter {

// Under a steady load the next item, or the next idle worker, is there sooner than a thread falls asleep and is
// woken. So both sides look this often before they sleep. In between they let others run, who may be those that
// they wait for; where these take longer than kBriefMicros, the machine is busy with something else.
constexpr uint32_t kBriefTries = 32;
constexpr int64_t kBriefMicros = 30;

// Result: true as soon as fnTry succeeds, false when the time is over.
template <class Try>
bool TryBriefly(Try fnTry) {
    if (fnTry())
        return true;
    const int64_t iEnd = Now(Clock::Monotonic) + kBriefMicros;
    for (uint32_t nTry = 0; nTry < kBriefTries && Now(Clock::Monotonic) < iEnd; ++nTry) {
        (void)sched_yield();
        if (fnTry())
            return true;
    }
    return false;
}

} // namespace vyx_inter

#endif
