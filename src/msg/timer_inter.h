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
    VYX_SEM_T hSem;              // the thread sleeps on it; null: none to be had
    std::atomic<uint32_t> bStop; // 1 once the thread is to end; it looks without the lock

    VYX_THREAD_T hThread;    // VYX_INVALID_THREAD: there was none to be had
    uint32_t nUsers;         // its place or its killer, its thread, who waits for its end; the last frees it
    TIMER_EVENT_T *pAwaited; // the timer whose end this one's routine is waiting for in a kill
};

extern const vyx_inter::ForkRow g_struTimerForkRow;

// A timer's thread. pParam is its TIMER_EVENT_T.
void *VYX_OnTimer(void *pParam);

VYX_END_DECLS

#endif
