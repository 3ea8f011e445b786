// The record behind a semaphore slot.
#ifndef VYX_SYNC_SEM_RECORD_H
#define VYX_SYNC_SEM_RECORD_H

#include <atomic>
#include <semaphore.h>
#include <vyx/sync.h>

#include "base/fork.h"
#include "sync/sem_wait.h"

// Guards the list of open semaphores. Held while the C library opens and closes one: it has a lock there that a forked
// child inherits as it is.
extern vyx_inter::Lock s_hNameLock;

struct VYX_SEM_S {
    sem_t *pSem;     // first: debuggers and tools rely on it
    char szName[64]; // the name to unlink, zero-terminated

    vyx_inter::List<TIMED_SEM_S, &TIMED_SEM_S::same>
        waits VYX_GUARDED_BY(s_hSemLock);    // the bounded ones for it
    std::atomic<uint32_t> nWaits;            // how many
    std::atomic<uint32_t> nWakes;            // counts of pSem that were posted only to wake the first of them
    bool bClosed VYX_GUARDED_BY(s_hSemLock); // they end at once

    vyx_inter::Links<VYX_SEM_S> all VYX_GUARDED_BY(s_hNameLock); // those that are open
};

VYX_BEGIN_DECLS

extern const vyx_inter::ForkRow g_struSemNameForkRow;

// Serialises the naming of new semaphores. Exported, so that a program in which several copies of such code
// live can share it.
extern VYX_API VYX_MUTEX_T s_hCreateLock;

VYX_END_DECLS

#endif
