// Periodic timers, one thread each, in a table of fixed size.
//
// A timer's thread sleeps on its semaphore for the period and calls the routine, over and over, until its run is
// over. There are two ways to end it:
//  - A killer asks it to end, joins it and frees the place. Until then the place stays taken.
//  - Where nobody can wait (the routine kills its own timer, or one that waits for it; VYX_InitTimer), the place is
//    freed at once and the thread let go: it sees at its next look that the place has changed hands, and ends.
// A thread therefore works on its own copy of the record, and the semaphore goes with whoever is last to use it.
//
// No lock is held while a routine runs or a thread is joined.
#include "msg/timer_inter.h"

#include <pthread.h>
#include <unistd.h>
#include <vyx/sync.h>
#include <vyx/thread.h>

#include "base/lock.h"
#include "base/uncancelled.h"

using vyx_inter::Condition;
using vyx_inter::Lock;
using vyx_inter::LockGuard;

namespace {

Lock s_VyxTimerMutex{vyx_inter::Rank::Timers};
TIMER_EVENT_T s_VyxTimerEvents[VYX_MAX_TIMERS] VYX_GUARDED_BY(s_VyxTimerMutex);
uint32_t s_bVyxTimerInit VYX_GUARDED_BY(s_VyxTimerMutex) = 0;
Condition s_freedCond; // broadcast when a place is freed; with s_VyxTimerMutex

// A run for the length of its thread.
class Run {
  public:
    // Waits until the place is filled in. By then the timer may already have lost it to another one.
    explicit Run(TIMER_EVENT_T *pSlot) : m_run{}, m_iPid(getpid()) {
        const LockGuard guard(s_VyxTimerMutex);
        m_run.pSlot = pSlot;
        m_run.nTenure = pSlot->nTenure.load();
        if (m_run.nTenure != 0 && pthread_equal(pSlot->hThread, pthread_self()) == 0) {
            --m_run.nTenure;
            return;
        }
        m_run.nTimerId = pSlot->nTimerId;
        m_run.fnTimerProc = pSlot->fnTimerProc;
        m_run.pUserData = pSlot->pUserData;
        // Nothing is to be called without a routine, so nobody can tell how long the sleeps are.
        m_run.nPeriod = pSlot->fnTimerProc == nullptr ? VYX_INFINITE : pSlot->nPeriod;
        m_run.hSem = pSlot->hSem;
        pSlot->bRunning = 1;
    }
    ~Run() {
        if (m_iPid != getpid()) // the routine has forked: the semaphore is the parent's
            return;
        const LockGuard guard(s_VyxTimerMutex);
        if (m_run.pSlot->nTenure.load() == m_run.nTenure)
            m_run.pSlot->bRunning = 0;
        else
            (void)VYX_SemDestroy(&m_run.hSem);
    }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    void Loop() {
        while (!m_run.IsOver()) {
            VYX_TimerSleep_Inter(&m_run);
            if (m_run.fnTimerProc != nullptr && !m_run.IsOver())
                m_run.fnTimerProc(m_run.nTimerId, m_run.pUserData);
        }
    }

  private:
    VYX_TIMER_RUN_S m_run;
    pid_t m_iPid;
};

// Result: a free place, or null.
TIMER_EVENT_T *FindFree_Local() VYX_REQUIRES(s_VyxTimerMutex) {
    for (TIMER_EVENT_T &slot : s_VyxTimerEvents)
        if (slot.bUsed.load() == 0)
            return &slot;
    return nullptr;
}

void Free_Local(TIMER_EVENT_T &slot) VYX_REQUIRES(s_VyxTimerMutex) {
    slot.nTenure.fetch_add(1);
    slot.fnTimerProc = nullptr;
    slot.pUserData = nullptr;
    slot.nPeriod = 0;
    slot.bStop.store(0);
    slot.hThread = VYX_INVALID_THREAD;
    slot.hSem = nullptr;
    slot.bRunning = 0;
    slot.pAwaited = nullptr;
    for (TIMER_EVENT_T &other : s_VyxTimerEvents)
        if (other.pAwaited == &slot)
            other.pAwaited = nullptr;
    slot.bUsed.store(0);
    s_freedCond.Broadcast();
}

// Frees the place of a timer that nobody kills. Its thread ends by itself.
void LetGo_Local(TIMER_EVENT_T &slot) VYX_REQUIRES(s_VyxTimerMutex) {
    if (slot.hThread != VYX_INVALID_THREAD)
        (void)pthread_detach(slot.hThread);
    VYX_SEM_T hSem = slot.hSem;
    const bool bRunning = slot.bRunning != 0;
    Free_Local(slot);
    // Not before the place is free, as that is what the thread looks for when it wakes.
    if (bRunning)
        (void)VYX_SemPost(&hSem);
    else
        (void)VYX_SemDestroy(&hSem);
}

// Has every thread that sleeps for a time look around.
void WakeAll_Local() {
    const LockGuard guard(s_VyxTimerMutex);
    for (TIMER_EVENT_T &slot : s_VyxTimerEvents)
        if (slot.bUsed.load() != 0 && slot.nPeriod != VYX_INFINITE)
            (void)VYX_SemPost(&slot.hSem);
}

// In a forked child, where only the forking thread exists. The semaphores are the parent's.
void Forget_Local() {
    s_VyxTimerMutex.Renew();
    s_freedCond.Renew();
    const LockGuard guard(s_VyxTimerMutex);
    for (TIMER_EVENT_T &slot : s_VyxTimerEvents)
        if (slot.bUsed.load() != 0)
            Free_Local(slot);
}

void SetUpOnce_Local() {
    static const int iResult = pthread_atfork(nullptr, nullptr, Forget_Local);
    (void)iResult; // without memory for it, forked children keep ids that they must not kill
    VYX_TimerSleepSetup_Inter(WakeAll_Local);
}

// The timer on whose thread this is called, as long as it has its place; else null.
TIMER_EVENT_T *Own_Local() VYX_REQUIRES(s_VyxTimerMutex) {
    for (TIMER_EVENT_T &slot : s_VyxTimerEvents)
        if (slot.bUsed.load() != 0 && slot.hThread != VYX_INVALID_THREAD &&
            pthread_equal(slot.hThread, pthread_self()) != 0)
            return &slot;
    return nullptr;
}

// Whether a timer is that one or waits for it, through however many others. Nobody may ever start to wait where
// this is true for itself, so there are no rings.
bool DependsOn_Local(const TIMER_EVENT_T *pSlot, const TIMER_EVENT_T *pOther) VYX_REQUIRES(s_VyxTimerMutex) {
    while (pSlot != nullptr && pSlot != pOther)
        pSlot = pSlot->pAwaited;
    return pSlot != nullptr;
}

// Kills a timer as far as that needs no joining. Result: null, or a place whose thread the caller is to join
// before it frees the place.
TIMER_EVENT_T *BeginKill_Local(uint32_t nTimerId) {
    const LockGuard guard(s_VyxTimerMutex);
    TIMER_EVENT_T &slot = s_VyxTimerEvents[nTimerId];
    if (slot.bUsed.load() == 0)
        return nullptr;
    TIMER_EVENT_T *pSelf = Own_Local();
    const bool bStopping = slot.bStop.load() != 0; // somebody else kills it
    if (pSelf != nullptr && DependsOn_Local(&slot, pSelf)) {
        if (!bStopping)
            LetGo_Local(slot);
        return nullptr;
    }
    if (pSelf != nullptr)
        pSelf->pAwaited = &slot;
    if (!bStopping) {
        slot.bStop.store(1);
        (void)VYX_SemPost(&slot.hSem);
        return &slot;
    }
    const uint32_t nTenure = slot.nTenure.load();
    while (slot.nTenure.load() == nTenure)
        s_freedCond.Wait(s_VyxTimerMutex);
    return nullptr;
}

void FinishKill_Local(TIMER_EVENT_T &slot) {
    const LockGuard guard(s_VyxTimerMutex);
    (void)VYX_SemDestroy(&slot.hSem);
    Free_Local(slot);
}

} // namespace

void *VYX_OnTimer(void *pSlot) {
    Run(static_cast<TIMER_EVENT_T *>(pSlot)).Loop();
    return nullptr;
}

int32_t VYX_SetTimer(VYX_TIMER_PROC fnTimerProc, void *pUserData, uint32_t nPeriod, uint32_t *pTimerId) {
    SetUpOnce_Local();
    const LockGuard guard(s_VyxTimerMutex);
    TIMER_EVENT_T *pSlot = FindFree_Local();
    if (pSlot == nullptr)
        return VYX_ERROR;
    const auto nTimerId = static_cast<uint32_t>(pSlot - s_VyxTimerEvents);
    pSlot->pUserData = pUserData;
    pSlot->bUsed.store(1);
    pSlot->nTimerId = nTimerId;
    pSlot->fnTimerProc = fnTimerProc;
    pSlot->nPeriod = nPeriod;
    pSlot->hThread = VYX_INVALID_THREAD;
    // Deliberate: a semaphore or a thread that is not to be had is not reported. The timer stays silent.
    // Pinned by Timer.SilentWithoutSemaphoreOrThread.
    if (VYX_SemCreate(&pSlot->hSem, 0) == VYX_OK)
        pSlot->hThread = VYX_Thread_Create(VYX_OnTimer, pSlot, 0, 0, 0, 0);
    if (pTimerId != nullptr)
        *pTimerId = nTimerId;
    return VYX_OK;
}

// Deliberate: -1 for a kill as well. Pinned by Timer.KillNeverSaysWhatItDid.
int32_t VYX_KillTimer(int32_t iTimerId) {
    if (static_cast<uint32_t>(iTimerId) >= VYX_MAX_TIMERS)
        return VYX_ERROR;
    const vyx_inter::Uncancelled uncancelled; // nobody else frees the place
    TIMER_EVENT_T *pSlot = BeginKill_Local(static_cast<uint32_t>(iTimerId));
    if (pSlot == nullptr)
        return VYX_ERROR;
    // A place that is being killed changes only through its killer. No thread: nothing to wait for.
    (void)VYX_Thread_Wait(pSlot->hThread);
    FinishKill_Local(*pSlot);
    return VYX_ERROR;
}

int32_t VYX_InitTimer(void) {
    const LockGuard guard(s_VyxTimerMutex);
    if (s_bVyxTimerInit != 0)
        return VYX_OK;
    s_bVyxTimerInit = 1;
    for (TIMER_EVENT_T &slot : s_VyxTimerEvents)
        if (slot.bUsed.load() != 0 && slot.bStop.load() == 0) // who kills a timer frees its place
            LetGo_Local(slot);
    return VYX_OK;
}

int32_t VYX_FiniTimer(void) {
    const LockGuard guard(s_VyxTimerMutex);
    s_bVyxTimerInit = 0;
    return VYX_OK;
}
