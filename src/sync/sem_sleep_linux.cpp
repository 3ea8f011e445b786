// Compiled with 64-bit times also on 32-bit processors (CMakeLists.txt): deadlines do not end in 2038.
#include <cerrno>
#include <ctime>

#include "base/deadline.h"
#include "base/platform.h"

bool VYX_SemSleep_Inter(sem_t *pSem, const vyx_inter::Deadline &deadline) {
    const int64_t iMicros = deadline.Micros();
    struct timespec due = {};
    due.tv_sec = static_cast<time_t>(iMicros / vyx_inter::kMicrosPerSecond);
    due.tv_nsec = static_cast<long>(iMicros % vyx_inter::kMicrosPerSecond * vyx_inter::kNanosPerMicro);
    int iResult;
    do
        iResult = sem_timedwait(pSem, &due);
    while (iResult != 0 && errno == EINTR);
    return iResult == 0;
}

bool VYX_SemSleepKeepsTime_Inter(void) {
    return true;
}
