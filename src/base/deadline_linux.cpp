// Compiled with 64-bit times also on 32-bit processors (cmake/Platform.cmake): deadlines do not end in 2038.
#include <cerrno>

#include "base/deadline.h"
#include "base/timespec.h"

namespace {

clockid_t Id_Local(vyx_inter::Clock eClock) {
    return eClock == vyx_inter::Clock::Wall ? CLOCK_REALTIME : CLOCK_MONOTONIC;
}

} // namespace

namespace vyx_inter {

int64_t Now(Clock eClock) {
    struct timespec now = {};
    (void)clock_gettime(Id_Local(eClock), &now); // cannot fail for these two
    return static_cast<int64_t>(now.tv_sec) * kMicrosPerSecond + now.tv_nsec / kNanosPerMicro;
}

bool CondWaitUntil(pthread_cond_t *pCond, pthread_mutex_t *pMutex, const Deadline &deadline) {
    if (deadline.IsNever())
        return pthread_cond_wait(pCond, pMutex) == 0;
    const struct timespec due = ToTimespec(deadline.Micros());
    return pthread_cond_clockwait(pCond, pMutex, Id_Local(deadline.WhichClock()), &due) != ETIMEDOUT;
}

// On the wall clock: the thread sanitizer of GCC 12 does not know pthread_mutex_clocklock.
bool LockUntil(pthread_mutex_t *pMutex, const Deadline &deadline) {
    const struct timespec due = ToTimespec(Now(Clock::Wall) + deadline.LeftMicros());
    return pthread_mutex_timedlock(pMutex, &due) == 0;
}

} // namespace vyx_inter
