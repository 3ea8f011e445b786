// The timers: a record for each, and what their source files share.
#ifndef VYX_MSG_TIMER_INTER_H
#define VYX_MSG_TIMER_INTER_H

#include <atomic>

#include <vyx/msg.h>

#include "base/fork.h"

VYX_BEGIN_DECLS

// One timer. What it does is settled before its thread starts; the rest is guarded by s_VyxTimerMutex.
struct TIMER_EVENT_T {
    uint32_t nTimerId;          // its place in the table
    VYX_TIMER_PROC fnTimerProc; // null: nothing is ever called
    void *pUserData;
    uint32_t nPeriod;            // milliseconds
    VYX_SEM_T hSem;              // the thread sleeps on it, a post makes it look around; null: none to be had
    std::atomic<uint32_t> bStop; // 1 once the thread is to end; it looks without the lock

    VYX_THREAD_T hThread;    // VYX_INVALID_THREAD: there was none to be had
    uint32_t nUsers;         // its place or its killer, its thread, who waits for its end; the last frees it
    TIMER_EVENT_T *pAwaited; // the timer whose end this one's routine is waiting for in a kill
};

// One sleep of a timer's thread, of the period that VYX_SemTimedWait(&pTimer->hSem, nPeriod) takes: up to the end
// of the period while the library is started, else up to the stop or the start and the end of the period. May end
// early if the timer is to end. Defined per platform.
void VYX_TimerSleep_Inter(TIMER_EVENT_T *pTimer);

// Called before a thread sleeps for the first time. fnWake posts the semaphores of all timers and may be called
// under the start/stop mutex. Defined per platform.
void VYX_TimerSleepSetup_Inter(void (*fnWake)(void));

extern const vyx_inter::ForkRow g_struTimerForkRow;

// A timer's thread. pParam is its TIMER_EVENT_T.
void *VYX_OnTimer(void *pParam);

VYX_END_DECLS

#endif
