// The platform has no bounded wait for a semaphore: the sleep is the one without a limit, and timer_svc ends it.
#include <cerrno>

#include "base/deadline.h"
#include "base/platform.h"

bool VYX_SemSleep_Inter(sem_t *pSem, const vyx_inter::Deadline &deadline) {
    if (sem_trywait(pSem) == 0)
        return true;
    if (deadline.HasPassed())
        return false;
    int iResult;
    do
        iResult = sem_wait(pSem);
    while (iResult != 0 && errno == EINTR);
    return iResult == 0;
}

bool VYX_SemSleepKeepsTime_Inter(void) {
    return false;
}
