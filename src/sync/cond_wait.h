// Bounded waits for conditions.
#ifndef VYX_SYNC_COND_WAIT_H
#define VYX_SYNC_COND_WAIT_H

#include <atomic>

#include <vyx/sync.h>

#include "base/fork.h"
#include "base/list.h"

// One of them. Lies on its waiter's stack; guarded by s_hCondLock, but for what is atomic.
struct TIMED_COND_S {
    VYX_COND_T *condition;        // the caller's
    VYX_MUTEX_T *mutex;           // the caller's, held by it around the wait
    vyx_inter::Deadline deadline; // as asked for, on the wall clock
    uint32_t nThread;             // who waits, as the system numbers it; 0 where it does not tell
    uint32_t nForks;              // when it was registered
    std::atomic<bool> bEnded;     // the library was stopped
    bool bWoken;                  // and nothing is left to do for it
    vyx_inter::Links<TIMED_COND_S> all;
};

VYX_BEGIN_DECLS

// VYX_CondTimedWait says what it does.
int32_t CondTimedWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex, uint32_t nTimeOut);

// From now on the waits end by time.
void VYX_CondWaitsStart_Inter(void);

// From now on they do not; those that have begun are ended.
void VYX_CondWaitsStop_Inter(void);

// How many there are.
uint32_t VYX_CondWaitsPending_Inter(void);

// The child begins with none, in a library that is not started.
extern const vyx_inter::ForkRow g_struCondWaitForkRow;

VYX_END_DECLS

#endif
