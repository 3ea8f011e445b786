// The sleep of the bounded wait that is the first for its semaphore. Defined per platform.
#ifndef VYX_SYNC_SEM_SLEEP_H
#define VYX_SYNC_SEM_SLEEP_H

#include <semaphore.h>

#include "base/deadline.h"

// Takes a count, sleeping until the deadline if need be. Signals do not end the sleep, a cancellation does. Result:
// whether a count was taken.
bool VYX_SemSleep_Inter(sem_t *pSem, const vyx_inter::Deadline &deadline);

// Whether the sleep ends at the deadline. If not it lasts until there is a count, and timer_svc posts one.
bool VYX_SemSleepKeepsTime_Inter(void);

#endif
