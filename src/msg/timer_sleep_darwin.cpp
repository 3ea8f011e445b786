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
void SleepUntil_Local(VYX_TIMER_RUN_S &run, VYX_TIME_T iDue) {
    const uint32_t nStops = VYX_TimedWaitEpoch_Inter() >> 1;
    while (!run.IsOver()) {
        const uint32_t nEpoch = VYX_TimedWaitEpoch_Inter();
        if (nEpoch >> 1 != nStops)
            return;
        if ((nEpoch & 1) == 0) {
            (void)VYX_SemWait(&run.hSem);
            continue;
        }
        const int64_t iLeft = (iDue - VYX_TimeNow() + kMicrosPerMilli - 1) / kMicrosPerMilli;
        if (iLeft <= 0 ||
            VYX_SemTimedWaitInEpoch_Inter(run.hSem, static_cast<uint32_t>(iLeft), nEpoch) != VYX_OK)
            return;
    }
}

} // namespace

void VYX_TimerSleep_Inter(VYX_TIMER_RUN_S *pRun) {
    if (pRun->nPeriod == 0 || pRun->nPeriod == VYX_INFINITE)
        (void)VYX_SemTimedWait(&pRun->hSem, pRun->nPeriod); // no time to be kept
    else
        SleepUntil_Local(*pRun, VYX_TimeNow() + pRun->nPeriod * kMicrosPerMilli);
}

void VYX_TimerSleepSetup_Inter(void (*fnWake)(void)) {
    VYX_TimedWaitTell_Inter(fnWake);
}
