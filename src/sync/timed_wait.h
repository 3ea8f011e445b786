// The timed-wait service: bounded waits on semaphores and conditions, kept by one thread that scans deadlines.
#ifndef VYX_SYNC_TIMED_WAIT_H
#define VYX_SYNC_TIMED_WAIT_H

#include <atomic>

#include "base/fork.h"
#include "sync/sem_record.h"

VYX_BEGIN_DECLS

// One pending semaphore wait. The waiting caller makes it and frees it.
struct TIMED_SEM_S {
    std::atomic<int32_t> waiting; // 1 pending; the service stores 0 when it has completed the wait
    VYX_SEM_S *semaphore;         // what is waited for
    int64_t timeout;              // milliseconds
    int64_t start;                // milliseconds since 1970, rounded down
    int32_t result;               // 0 taken, -1 not; written before waiting becomes 0
    VYX_MUTEX_T lock;             // orders the completion with the caller's sleep
    VYX_COND_T wake;              // signalled on completion
};

// One pending condition wait. The waiting caller makes it and frees it.
struct TIMED_COND_S {
    std::atomic<int32_t> waiting; // 1 pending; the service stores 0 when time has run out and it has woken
    VYX_COND_T *condition;        // the caller's
    VYX_MUTEX_T *mutex;           // the caller's, held by it around the wait
    int64_t timeout;              // milliseconds
    int64_t start;                // milliseconds since 1970, rounded down
    int32_t result;               // -1, whatever ends the wait; guarded by s_hCondLock
};

// Serialises the naming of new semaphores. Exported, so that a program in which several copies of such code
// live can share it.
extern VYX_API VYX_MUTEX_T s_hCreateLock;

// Start and stop of the service, under the start/stop mutex. Start: 0 running, -1 no thread to be had. Stop:
// 0; waits still pending are woken with -1.
int32_t VYX_InitTimeWait_Inter(void);
int32_t VYX_FiniTimedWait_Inter(void);

// The bounded waits themselves; VYX_SemTimedWait and VYX_CondTimedWait say what they do.
int32_t SemTimedWait(VYX_SEM_S *pRecord, uint32_t nTimeOut);
int32_t CondTimedWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex, uint32_t nTimeOut);

// One look at every pending wait. Result: true if a wait was completed. The service calls it in a loop; tests
// call it on a thread of their own while the service is not running.
bool VYX_TimedWaitPass_Inter(void);

// Makes the service forget a condition that is about to be destroyed, hence has no sleeping waiters.
void VYX_TimedWaitWithdraw_Inter(const VYX_COND_T *pCond);

// Waits registered at this moment, of both kinds.
uint32_t VYX_TimedWaitPending_Inter(void);

extern const vyx_inter::ForkRow g_struTimedWaitForkRow;

// Whether the service runs, and how often it has stopped, for those who sleep by other means and keep to its
// hours: the epoch is odd while the service runs, and half of it, rounded down, is the number of stops.
uint32_t VYX_TimedWaitEpoch_Inter(void);

// As SemTimedWait, for a time-out that is not VYX_INFINITE; but ends with -1 at once if the epoch is not nEpoch any more,
// and when it changes: no wait is left to a service that does not run.
int32_t VYX_SemTimedWaitInEpoch_Inter(VYX_SEM_S *pRecord, uint32_t nTimeOut, uint32_t nEpoch);

// Has a function called, under the start/stop mutex, after every change of the epoch. There is room for one.
void VYX_TimedWaitTell_Inter(void (*fnChanged)(void));

// The service thread's body.
void *timer_svc(void *pIgnored);

VYX_END_DECLS

#endif
