// The platform's conditions wait for a moment of the wall clock or for a time that passes. It turns the former into the
// latter when the wait begins, so a clock that is set meanwhile is looked at again after the wait only.
#include <cerrno>
#include <sys/time.h>

#include "base/deadline.h"

namespace {

struct timespec Split_Local(int64_t iMicros) {
    struct timespec time = {};
    time.tv_sec = static_cast<time_t>(iMicros / vyx_inter::kMicrosPerSecond);
    time.tv_nsec = static_cast<long>(iMicros % vyx_inter::kMicrosPerSecond * vyx_inter::kNanosPerMicro);
    return time;
}

} // namespace

namespace vyx_inter {

int64_t Now(Clock eClock) {
    struct timespec now = {};
    (void)clock_gettime(eClock == Clock::Wall ? CLOCK_REALTIME : CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * kMicrosPerSecond + now.tv_nsec / kNanosPerMicro;
}

bool CondWaitUntil(pthread_cond_t *pCond, pthread_mutex_t *pMutex, const Deadline &deadline) {
    if (deadline.IsNever())
        return pthread_cond_wait(pCond, pMutex) == 0;
    const struct timespec left = Split_Local(deadline.LeftMicros());
    return pthread_cond_timedwait_relative_np(pCond, pMutex, &left) != ETIMEDOUT || !deadline.HasPassed();
}

} // namespace vyx_inter
