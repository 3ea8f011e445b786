#include "base/platform.h"

// The platform cannot read a semaphore's count, so the count is drained and posted anew.
void VYX_SemSetCount_Inter(sem_t *pSem, uint32_t nInitial) {
    while (sem_trywait(pSem) != -1) {
    }
    for (uint32_t i = 0; i < nInitial; ++i)
        (void)sem_post(pSem); // the platform accepted this count when it opened the semaphore
}

const char *VYX_SemNamePrefix_Inter() {
    return "";
}

// The platform does not show its names.
bool VYX_SemNameIsTaken_Inter(const char * /*szName*/) {
    return false;
}

void VYX_EachSemName_Inter(void (* /*pfnName*/)(const char *, void *), void * /*pContext*/) {}
