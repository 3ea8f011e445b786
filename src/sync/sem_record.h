// The record behind a semaphore slot.
#ifndef VYX_SYNC_SEM_RECORD_H
#define VYX_SYNC_SEM_RECORD_H

#include <semaphore.h>
#include <vyx/sync.h>

#include "base/fork.h"

VYX_BEGIN_DECLS

struct VYX_SEM_S {
    sem_t *pSem;     // first: the timed-wait service relies on it
    char szName[64]; // the name to unlink, zero-terminated
};

extern const vyx_inter::ForkRow g_struSemNameForkRow;

// Gives a freshly opened semaphore the count nInitial, whatever count the system gave it. Defined per platform.
void VYX_SemSetCount_Inter(sem_t *pSem, uint32_t nInitial);

VYX_END_DECLS

#endif
