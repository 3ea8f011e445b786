// The timers: a record for each, and what their source files share.
#ifndef VYX_MSG_TIMER_INTER_H
#define VYX_MSG_TIMER_INTER_H

#include <atomic>

#include <vyx/msg.h>

VYX_BEGIN_DECLS

// One place in the table. Guarded by s_VyxTimerMutex, except that a timer's own thread reads what is atomic.
struct TIMER_EVENT_T {
    std::atomic<uint32_t> bUsed; // 1 while the place holds a timer
    uint32_t nTimerId;           // the place's index
    VYX_TIMER_PROC fnTimerProc;  // null: nothing is ever called
    void *pUserData;
    uint32_t nPeriod;            // milliseconds
    std::atomic<uint32_t> bStop; // 1 once a killer has asked the thread to end; that killer frees the place
    VYX_THREAD_T hThread;        // VYX_INVALID_THREAD: there was none to be had
    VYX_SEM_T hSem;              // the thread sleeps on it, a post makes it look around; null: none to be had

    std::atomic<uint32_t> nTenure; // differs for each timer that the place has held
    uint32_t bRunning;             // 1 while the thread uses hSem
    TIMER_EVENT_T *pAwaited;       // the timer whose end this one's routine is waiting for in a kill
};

// A timer as its thread sees it. All but the place is copied, since the place may be given to another timer while
// the routine runs.
struct VYX_TIMER_RUN_S {
    TIMER_EVENT_T *pSlot;
    uint32_t nTenure;
    uint32_t nTimerId;
    VYX_TIMER_PROC fnTimerProc;
    void *pUserData;
    uint32_t nPeriod;
    VYX_SEM_T hSem;

    // True if the thread is to end.
    bool IsOver() const { return pSlot->nTenure.load() != nTenure || pSlot->bStop.load() != 0; }
};

// One sleep of a timer's thread, of the period that VYX_SemTimedWait(&pRun->hSem, nPeriod) takes: up to the end
// of the period while the library is started, else up to the stop or the start and the end of the period. May end
// early if the run is over. Defined per platform.
void VYX_TimerSleep_Inter(VYX_TIMER_RUN_S *pRun);

// Called before a thread sleeps for the first time. fnWake posts the semaphores of all timers and may be called
// under the start/stop mutex. Defined per platform.
void VYX_TimerSleepSetup_Inter(void (*fnWake)(void));

// A timer's thread. pSlot is the timer's place.
void *VYX_OnTimer(void *pSlot);

VYX_END_DECLS

#endif
