// The platform's conditions wait for a moment of the wall clock or for a time that passes. It turns the former into the
// latter when the wait begins; so a wait on the wall clock is made of short ones, with a look at the clock after each.
// None of them loses a signal: the platform says whether it was the time that ended it.
#include <cerrno>
#include <sched.h>
#include <sys/time.h>

#include "base/deadline.h"
#include "base/timespec.h"

namespace {

constexpr int64_t kClockLook = 100000; // microseconds between looks whether the wall clock was set

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
    do {
        const int64_t iLeft = deadline.LeftMicros();
        const bool bShort = deadline.WhichClock() == Clock::Wall && iLeft > kClockLook;
        const struct timespec left = ToTimespec(bShort ? kClockLook : iLeft);
        if (pthread_cond_timedwait_relative_np(pCond, pMutex, &left) != ETIMEDOUT)
            return true;
    } while (!deadline.HasPassed());
    return false;
}

// The platform has no bounded wait for a mutex.
bool LockUntil(pthread_mutex_t *pMutex, const Deadline &deadline) {
    while (pthread_mutex_trylock(pMutex) != 0) {
        if (deadline.HasPassed())
            return false;
        (void)sched_yield();
    }
    return true;
}

} // namespace vyx_inter
