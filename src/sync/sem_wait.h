// Waits for semaphores, above all the bounded ones.
#ifndef VYX_SYNC_SEM_WAIT_H
#define VYX_SYNC_SEM_WAIT_H

#include <atomic>
#include <vyx/sync.h>

#include "base/fork.h"
#include "base/list.h"

// Guards all bounded waits for semaphores.
extern vyx_inter::Lock s_hSemLock;

// One bounded wait that did not end at once. Lies on its waiter's stack.
struct TIMED_SEM_S {
    VYX_SEM_S *pSemaphore;                       // what is waited for
    vyx_inter::Deadline deadline;                // on the wall clock
    pthread_t hThread;                           // who waits
    uint32_t nThread VYX_GUARDED_BY(s_hSemLock); // as the system numbers it; 0 where it does not tell
    bool bAsleep VYX_GUARDED_BY(s_hSemLock);     // in the platform's wait, as the first for its semaphore
    bool bWoken VYX_GUARDED_BY(s_hSemLock);      // while it is asleep: a count was posted to wake it
    bool bEnded VYX_GUARDED_BY(s_hSemLock);      // the library was stopped
    vyx_inter::Condition
        turn; // where it sleeps when it is not the first; signalled when there is news for it
    vyx_inter::Links<TIMED_SEM_S> all VYX_GUARDED_BY(s_hSemLock);
    vyx_inter::Links<TIMED_SEM_S> same VYX_GUARDED_BY(s_hSemLock); // for the same semaphore
};

VYX_BEGIN_DECLS

enum class VYX_SEM_END : uint8_t {
    Taken,    // a count
    TimedOut, // the limit has passed
    Ended,    // the library was stopped, or the semaphore closed
};

// A bounded wait with a limit that is not VYX_INFINITE; VYX_SemTimedWait says what it does.
VYX_SEM_END VYX_SemTimedWait_Inter(VYX_SEM_S *pRecord, uint32_t nTimeOut);

// The same up to a moment of the wall clock, for a semaphore of which no count is expected.
VYX_SEM_END VYX_SemWaitUntil_Inter(VYX_SEM_S *pRecord, const vyx_inter::Deadline &deadline);

// The same for all limits. Result: VYX_OK if a count was taken.
int32_t SemTimedWait(VYX_SEM_S *pRecord, uint32_t nTimeOut);

// Takes a count without waiting, and waiting without a limit. Results and errno as sem_trywait and sem_wait.
int32_t VYX_SemTry_Inter(VYX_SEM_S *pRecord);
int32_t VYX_SemWait_Inter(VYX_SEM_S *pRecord);

// Ends the bounded waits for a semaphore, those to come as well, whether or not the library is started, and posts one
// count for a wait without a limit.
void VYX_SemClose_Inter(VYX_SEM_S *pRecord);

// From now on bounded waits end by counts and by time.
void VYX_SemWaitsStart_Inter(void);

// From now on they do not; those that have begun end without a count.
void VYX_SemWaitsStop_Inter(void);

// Keeps the time of those that cannot do so themselves, until bBreak is set and the waits stopped.
void VYX_SemWaitsServe_Inter(const std::atomic<int32_t> &bBreak);

// How many bounded waits there are.
uint32_t VYX_SemWaitsPending_Inter(void);

// The child has the waits of the thread that forked, and they are those of a library that is not started.
extern const vyx_inter::ForkRow g_struSemWaitForkRow;

VYX_END_DECLS

#endif
