// A timer's sleep through the timed-wait service: the platform has no bounded wait for a semaphore.
//
// While the service does not run it ends no wait, not even one whose semaphore is posted. The sleep is then on the
// semaphore itself, which the start of the service posts.
#include <vyx/sync.h>
#include <vyx/time.h>

#include "msg/timer_inter.h"
#include "sync/timed_wait.h"

namespace {

constexpr int64_t kMicrosPerMilli = 1000;

// Posts say that something has happened; which is looked up here, so that one too many does no harm.
void SleepUntil_Local(TIMER_EVENT_T &timer, VYX_TIME_T iDue) {
    const uint32_t nStops = VYX_TimedWaitEpoch_Inter() >> 1;
    while (timer.bStop.load() == 0) {
        const uint32_t nEpoch = VYX_TimedWaitEpoch_Inter();
        if (nEpoch >> 1 != nStops)
            return;
        if ((nEpoch & 1) == 0) {
            (void)VYX_SemWait(&timer.hSem);
            continue;
        }
        const int64_t iLeft = (iDue - VYX_TimeNow() + kMicrosPerMilli - 1) / kMicrosPerMilli;
        if (iLeft <= 0 ||
            VYX_SemTimedWaitInEpoch_Inter(timer.hSem, static_cast<uint32_t>(iLeft), nEpoch) != VYX_OK)
            return;
    }
}

} // namespace

void VYX_TimerSleep_Inter(TIMER_EVENT_T *pTimer) {
    if (pTimer->nPeriod == 0 || pTimer->nPeriod == VYX_INFINITE)
        (void)VYX_SemTimedWait(&pTimer->hSem, pTimer->nPeriod); // no time to be kept
    else
        SleepUntil_Local(*pTimer, VYX_TimeNow() + pTimer->nPeriod * kMicrosPerMilli);
}

void VYX_TimerSleepSetup_Inter(void (*fnWake)(void)) {
    VYX_TimedWaitTell_Inter(fnWake);
}
