#include <cstdio>
#include <unistd.h>

#include "base/platform.h"

void VYX_SemSetCount_Inter(sem_t *pSem, uint32_t nInitial) {
    // A semaphore that was just created has its count already; looking first keeps a large one from costing
    // a platform call for every unit.
    int iCount = 0;
    if (sem_getvalue(pSem, &iCount) == 0 && static_cast<uint32_t>(iCount) == nInitial)
        return;
    while (sem_trywait(pSem) == 0) {
    }
    for (uint32_t i = 0; i < nInitial; ++i)
        (void)sem_post(pSem); // the platform accepted this count when it opened the semaphore
}

const char *VYX_SemNamePrefix_Inter() {
    return ""; // the C library takes names with and without a slash for the same
}

bool VYX_SemNameIsTaken_Inter(const char *szName) {
    char szPath[128];
    (void)std::snprintf(szPath, sizeof szPath, "/dev/shm/sem.%s", szName); // where the C library has them
    return access(szPath, F_OK) == 0;
}
