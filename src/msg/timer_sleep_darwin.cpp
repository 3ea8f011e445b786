// A timer's sleep through the timed-wait service: the platform has no bounded wait for a semaphore.
#include <vyx/sync.h>

#include "msg/timer_inter.h"

void VYX_TimerSleep_Inter(VYX_TIMER_RUN_S *pRun) {
    (void)VYX_SemTimedWait(&pRun->hSem, pRun->nPeriod);
}

void VYX_TimerSleepSetup_Inter(void (* /*fnWake*/)(void)) {
    // The service itself wakes those who sleep when it stops.
}
