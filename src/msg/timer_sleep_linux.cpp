// A timer's sleep on the platform's own bounded wait.
//
// The timed-wait service would wake each timer's thread by hand and look at all of them ten thousand times a
// second. The platform does it later by less and at a third of the processor time. What callers can see of the
// service stays: nothing is due while the library is not started, its stop ends every sleep that has begun, and
// time is that of the wall clock.
#include <cerrno>
#include <ctime>
#include <semaphore.h>
#include <vyx/sync.h>

#include "msg/timer_inter.h"
#include "sync/sem_record.h"
#include "sync/timed_wait.h"

namespace {

constexpr uint32_t kMillisPerSecond = 1000;
constexpr long kNanosPerMilli = 1000000;
constexpr long kNanosPerSecond = 1000000000;

struct timespec After_Local(uint32_t nMilliseconds) {
    struct timespec due;
    (void)clock_gettime(CLOCK_REALTIME, &due);
    due.tv_sec += static_cast<time_t>(nMilliseconds / kMillisPerSecond);
    due.tv_nsec += static_cast<long>(nMilliseconds % kMillisPerSecond) * kNanosPerMilli;
    if (due.tv_nsec >= kNanosPerSecond) {
        due.tv_nsec -= kNanosPerSecond;
        ++due.tv_sec;
    }
    return due;
}

// Posts say that something has happened; which is looked up here, so that one too many does no harm.
void SleepUntil_Local(const TIMER_EVENT_T &timer, const struct timespec &due) {
    const uint32_t nStops = VYX_TimedWaitEpoch_Inter() >> 1;
    while (timer.bStop.load() == 0) {
        const uint32_t nEpoch = VYX_TimedWaitEpoch_Inter();
        if (nEpoch >> 1 != nStops)
            return;
        if ((nEpoch & 1) == 0)
            (void)sem_wait(timer.hSem->pSem);
        else if (sem_timedwait(timer.hSem->pSem, &due) == -1 && errno == ETIMEDOUT)
            return;
    }
}

} // namespace

void VYX_TimerSleep_Inter(TIMER_EVENT_T *pTimer) {
    if (pTimer->nPeriod == 0 || pTimer->nPeriod == VYX_INFINITE)
        (void)VYX_SemTimedWait(&pTimer->hSem, pTimer->nPeriod); // no time to be kept
    else
        SleepUntil_Local(*pTimer, After_Local(pTimer->nPeriod));
}

void VYX_TimerSleepSetup_Inter(void (*fnWake)(void)) {
    VYX_TimedWaitTell_Inter(fnWake);
}
