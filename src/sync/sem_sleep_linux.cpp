// Compiled with 64-bit times also on 32-bit processors (cmake/Platform.cmake): deadlines do not end in 2038.
#include <cerrno>

#include "base/deadline.h"
#include "base/platform.h"
#include "base/timespec.h"

bool VYX_SemSleep_Inter(sem_t *pSem, const vyx_inter::Deadline &deadline) {
    const struct timespec due = vyx_inter::ToTimespec(deadline.Micros());
    int iResult;
    do
        iResult = sem_timedwait(pSem, &due);
    while (iResult != 0 && errno == EINTR);
    return iResult == 0;
}

bool VYX_SemSleepKeepsTime_Inter(void) {
    return true;
}
