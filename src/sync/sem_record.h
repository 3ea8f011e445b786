// The record behind a semaphore slot.
#ifndef VYX_SYNC_SEM_RECORD_H
#define VYX_SYNC_SEM_RECORD_H

#include <atomic>
#include <semaphore.h>
#include <vyx/sync.h>

#include "base/fork.h"
#include "sync/sem_wait.h"

struct VYX_SEM_S {
    sem_t *pSem;     // first: debuggers and tools rely on it
    char szName[64]; // the name to unlink, zero-terminated

    // The bounded waits for it. Guarded by s_hSemLock; what is atomic is also looked at without it.
    vyx_inter::List<TIMED_SEM_S, &TIMED_SEM_S::same> waits;
    std::atomic<uint32_t> nWaits; // how many
    std::atomic<uint32_t> nWakes; // counts of pSem that were posted only to wake the first of them
    bool bClosed;                 // they end at once

    vyx_inter::Links<VYX_SEM_S> all; // guarded by s_hNameLock
};

VYX_BEGIN_DECLS

extern const vyx_inter::ForkRow g_struSemNameForkRow;

// Serialises the naming of new semaphores. Exported, so that a program in which several copies of such code
// live can share it.
extern VYX_API VYX_MUTEX_T s_hCreateLock;

// Gives a freshly opened semaphore the count nInitial, whatever count the system gave it. Defined per platform.
void VYX_SemSetCount_Inter(sem_t *pSem, uint32_t nInitial);

// True if a semaphore of that name is known to exist. Cheaper than to try to open it. Defined per platform.
bool VYX_SemNameIsTaken_Inter(const char *szName);

VYX_END_DECLS

#endif
