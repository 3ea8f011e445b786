// Periodic timers, one thread each, in a table of fixed size.
//
// A timer's thread sleeps on its semaphore for the period and calls the routine, over and over, until it is to end.
// There are two ways to end it:
//  - A killer asks it to end, joins it and frees the place. Until then the place stays taken.
//  - Where nobody can wait (the routine kills its own timer, or one that waits for it; VYX_InitTimer), the place is
//    freed at once and the thread let go: it ends at its next look.
// The record is apart from its place, and goes with whoever is last to use it. A thread knows its own timer by the
// record; the system gives a thread's id away again while its killer is still busy with the place.
//
// No lock is held while a routine runs, a thread is joined, or a semaphore is made or destroyed.
#include "msg/timer_inter.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <new>
#include <pthread.h>
#include <utility>
#include <vyx/sync.h>
#include <vyx/thread.h>

#include "base/describe.h"
#include "base/lock.h"
#include "base/probes.h"
#include "base/uncancelled.h"
#include "sync/sem_wait.h"
#include "thread/service_thread.h"

using vyx_inter::Clock;
using vyx_inter::Condition;
using vyx_inter::Deadline;
using vyx_inter::Lock;
using vyx_inter::LockGuard;

namespace {

struct TIMER_EVENT_T;

struct Place {
    bool bUsed;
    TIMER_EVENT_T *pTimer; // null also where there was no memory for it
};

Lock s_VyxTimerMutex{vyx_inter::Rank::Timers};
Place s_VyxTimerEvents[VYX_MAX_TIMERS] VYX_GUARDED_BY(s_VyxTimerMutex);
uint32_t s_bVyxTimerInit VYX_GUARDED_BY(s_VyxTimerMutex) = 0;
Condition s_freedCond; // broadcast when a killer has freed a place; with s_VyxTimerMutex

// One timer. What is not guarded is settled before its thread starts.
struct TIMER_EVENT_T {
    uint32_t nTimerId;          // its place in the table
    VYX_TIMER_PROC fnTimerProc; // null: nothing is ever called
    void *pUserData;
    uint32_t nPeriod;            // milliseconds
    VYX_SEM_T hSem;              // the thread sleeps on it; null: it could not be made
    VYX_THREAD_T hThread;        // VYX_INVALID_THREAD: it could not be started
    std::atomic<uint32_t> bStop; // 1 once the thread is to end; it looks without the lock

    // For tools; the timer's thread alone touches them.
    uint32_t nRuns; // of the routine, modulo 2^32
    uint32_t nLate; // microseconds by which the last one came late, at most UINT32_MAX

    // Its place or its killer, its thread, who waits for its end; the last of them frees it.
    uint32_t nUsers VYX_GUARDED_BY(s_VyxTimerMutex);
    // The timer whose end this one's routine is waiting for in a kill.
    TIMER_EVENT_T *pAwaited VYX_GUARDED_BY(s_VyxTimerMutex);
    TIMER_EVENT_T *pNextUnused; // of those that nobody uses any more
};

// Timers that nobody uses any more. They are freed at the end of the block, after the lock: making and destroying
// semaphores takes long where many threads do so, and the other timers are not to wait for that.
class Unused {
  public:
    Unused() = default;
    ~Unused() {
        while (m_pFirst != nullptr) {
            TIMER_EVENT_T *const pTimer = std::exchange(m_pFirst, m_pFirst->pNextUnused);
            (void)VYX_SemDestroy(&pTimer->hSem);
            delete pTimer;
        }
    }
    Unused(const Unused &) = delete;
    Unused &operator=(const Unused &) = delete;
    // One user less.
    void Drop(TIMER_EVENT_T *pTimer) VYX_REQUIRES(s_VyxTimerMutex) {
        if (--pTimer->nUsers == 0)
            pTimer->pNextUnused = std::exchange(m_pFirst, pTimer);
    }

  private:
    TIMER_EVENT_T *m_pFirst = nullptr;
};

// The timer on whose thread this is, else null; until the thread ends, in whatever way.
thread_local TIMER_EVENT_T *t_pOwn = nullptr;

void EndOfThread_Local(void *pTimer) {
    Unused unused;
    const LockGuard guard(s_VyxTimerMutex);
    t_pOwn = nullptr;
    unused.Drop(static_cast<TIMER_EVENT_T *>(pTimer));
}

// The key under which a timer's thread keeps its timer, so that the platform tells when it ends, after all destructors of
// its own. A destructor of a thread_local object would do, too, but without the memory to note it the C library
// ends the process.
pthread_key_t s_hEndKey VYX_GUARDED_BY(s_VyxTimerMutex);
bool s_bEndKeyMade VYX_GUARDED_BY(s_VyxTimerMutex) = false;

// Result: false if memory is short.
bool NoteOwn_Local(TIMER_EVENT_T *pTimer) {
    const LockGuard guard(s_VyxTimerMutex);
    if (pthread_setspecific(s_hEndKey, pTimer) != 0)
        return false;
    t_pOwn = pTimer;
    return true;
}

// Result: a free place, or null.
Place *FindFree_Local() VYX_REQUIRES(s_VyxTimerMutex) {
    for (Place &place : s_VyxTimerEvents)
        if (!place.bUsed)
            return &place;
    return nullptr;
}

// Result: a timer without a thread and a place, or null.
TIMER_EVENT_T *Make_Local(VYX_TIMER_PROC fnTimerProc, void *pUserData,
                          uint32_t nPeriod) VYX_UNCHECKED { // nobody has it
    auto *pTimer = new (std::nothrow) TIMER_EVENT_T();
    if (pTimer == nullptr)
        return nullptr;
    pTimer->fnTimerProc = fnTimerProc;
    pTimer->pUserData = pUserData;
    // Without a routine nothing is ever called, so the length of the sleeps does not show.
    pTimer->nPeriod = fnTimerProc == nullptr ? VYX_INFINITE : nPeriod;
    pTimer->hThread = VYX_INVALID_THREAD;
    pTimer->nUsers = 1;
    (void)VYX_SemCreate(&pTimer->hSem, 0);
    return pTimer;
}

bool IsFull_Local() {
    const LockGuard guard(s_VyxTimerMutex);
    return FindFree_Local() == nullptr;
}

// Only a timer with a semaphore gets a thread.
void StartThread_Local(TIMER_EVENT_T *pTimer) VYX_REQUIRES(s_VyxTimerMutex) {
    if (pTimer->hSem == nullptr)
        return;
    s_bEndKeyMade = s_bEndKeyMade || pthread_key_create(&s_hEndKey, EndOfThread_Local) == 0;
    if (!s_bEndKeyMade)
        return;
    pTimer->hThread = VYX_Thread_Create(VYX_OnTimer, pTimer, 0, 0, 0, 0);
    if (pTimer->hThread != VYX_INVALID_THREAD)
        ++pTimer->nUsers;
}

// Has a timer's thread end.
void Stop_Local(TIMER_EVENT_T *pTimer) {
    pTimer->bStop.store(1);
    if (pTimer->hSem != nullptr)
        VYX_SemClose_Inter(pTimer->hSem);
}

// Frees the place of a timer that nobody kills. Its thread ends by itself.
void LetGo_Local(Place &place, Unused &unused) VYX_REQUIRES(s_VyxTimerMutex) {
    TIMER_EVENT_T *const pTimer = place.pTimer;
    place = {};
    if (pTimer == nullptr)
        return;
    if (pTimer->hThread != VYX_INVALID_THREAD)
        (void)pthread_detach(pTimer->hThread);
    Stop_Local(pTimer);
    unused.Drop(pTimer);
}

// In a forked child, where only the forking thread exists. The semaphores are the parent's, so the records stay.
void Forget_Local() {
    s_freedCond.Renew();
    const LockGuard guard(s_VyxTimerMutex);
    for (Place &place : s_VyxTimerEvents) {
        if (place.pTimer != nullptr) {
            ++place.pTimer->nUsers;
            place.pTimer->bStop.store(1);
        }
        place = {};
    }
}

// Whether a timer is that one or waits for it, through however many others. Nobody may ever start to wait where
// this is true for itself, so there are no rings.
bool DependsOn_Local(const TIMER_EVENT_T *pTimer, const TIMER_EVENT_T *pOther) VYX_REQUIRES(s_VyxTimerMutex) {
    while (pTimer != nullptr && pTimer != pOther)
        pTimer = pTimer->pAwaited;
    return pTimer != nullptr;
}

// Notes what the routine on this thread waits for, if there is one.
void NoteAwaited_Local(TIMER_EVENT_T *pAwaited) VYX_REQUIRES(s_VyxTimerMutex) {
    if (t_pOwn != nullptr)
        t_pOwn->pAwaited = pAwaited;
}

// Sleeps until somebody else has killed the timer.
void AwaitKiller_Local(TIMER_EVENT_T *pTimer, Unused &unused) VYX_REQUIRES(s_VyxTimerMutex) {
    ++pTimer->nUsers;
    while (s_VyxTimerEvents[pTimer->nTimerId].pTimer == pTimer)
        s_freedCond.Wait(s_VyxTimerMutex);
    NoteAwaited_Local(nullptr);
    unused.Drop(pTimer);
}

// Kills a timer as far as that needs no joining. Result: null, or the timer whose thread the caller is to join before
// it frees the place.
TIMER_EVENT_T *BeginKill_Local(uint32_t nTimerId) {
    Unused unused;
    const LockGuard guard(s_VyxTimerMutex);
    Place &place = s_VyxTimerEvents[nTimerId];
    TIMER_EVENT_T *const pTimer = place.pTimer;
    const bool bStopping = pTimer != nullptr && pTimer->bStop.load() != 0; // somebody else kills it
    if (pTimer == nullptr || (t_pOwn != nullptr && DependsOn_Local(pTimer, t_pOwn))) {
        if (!bStopping)
            LetGo_Local(place, unused);
        return nullptr;
    }
    NoteAwaited_Local(pTimer);
    if (bStopping) {
        AwaitKiller_Local(pTimer, unused);
        return nullptr;
    }
    Stop_Local(pTimer);
    return pTimer;
}

void FinishKill_Local(TIMER_EVENT_T *pTimer) {
    Unused unused;
    const LockGuard guard(s_VyxTimerMutex);
    NoteAwaited_Local(nullptr);
    s_VyxTimerEvents[pTimer->nTimerId] = {};
    s_freedCond.Broadcast();
    unused.Drop(pTimer);
}

// One sleep of a timer's thread. Result: false if the library's stop ended it.
bool Sleep_Local(TIMER_EVENT_T &timer) {
    if (timer.nPeriod != 0 && timer.nPeriod != VYX_INFINITE) {
        const Deadline due = Deadline::In(timer.nPeriod, Clock::Wall);
        if (VYX_SemWaitUntil_Inter(timer.hSem, due) == VYX_SEM_END::Ended)
            return false;
        const int64_t iLate = Now(Clock::Wall) - due.Micros();
        timer.nLate = static_cast<uint32_t>(std::clamp<int64_t>(iLate, 0, UINT32_MAX));
        return true;
    }
    (void)VYX_SemTimedWait(&timer.hSem, timer.nPeriod); // these two periods cannot be late
    return true;
}

vyx_inter::ForkHold s_forkHold(s_VyxTimerMutex);

} // namespace

const vyx_inter::ForkRow g_struTimerForkRow = {
    [] { s_forkHold.Before(); },
    [] { s_forkHold.InParent(); },
    [] {
        if (s_forkHold.InChild())
            Forget_Local();
    },
};

void *VYX_OnTimer(void *pParam) {
    auto *const pTimer = static_cast<TIMER_EVENT_T *>(pParam);
    if (!NoteOwn_Local(pTimer)) {
        EndOfThread_Local(pTimer);
        return nullptr;
    }
    char szName[16];
    (void)std::snprintf(szName, sizeof szName, "vyx-timer%u", pTimer->nTimerId);
    VYX_NameThread_Inter(szName);
    while (pTimer->bStop.load() == 0) {
        const bool bDue = Sleep_Local(*pTimer);
        if (!bDue || pTimer->fnTimerProc == nullptr || pTimer->bStop.load() != 0)
            continue;
        ++pTimer->nRuns;
        VYX_PROBE2(timer_begin, pTimer, pTimer->nTimerId);
        pTimer->fnTimerProc(pTimer->nTimerId, pTimer->pUserData);
        VYX_PROBE1(timer_end, pTimer);
    }
    return nullptr;
}

int32_t VYX_SetTimer(VYX_TIMER_PROC fnTimerProc, void *pUserData, uint32_t nPeriod, uint32_t *pTimerId) {
    const vyx_inter::Uncancelled uncancelled; // a place with a timer that is half made
    if (IsFull_Local())
        return VYX_ERROR;
    TIMER_EVENT_T *const pTimer = Make_Local(fnTimerProc, pUserData, nPeriod);
    Unused unused;
    const LockGuard guard(s_VyxTimerMutex);
    Place *const pPlace = FindFree_Local();
    if (pPlace == nullptr) { // others have taken what was free
        if (pTimer != nullptr)
            unused.Drop(pTimer);
        return VYX_ERROR;
    }
    const auto nTimerId = static_cast<uint32_t>(pPlace - s_VyxTimerEvents);
    *pPlace = {true, pTimer};
    // Deliberate: a failure to get memory, a semaphore or a thread is not reported. The timer never calls its
    // routine. Pinned by Timer.SilentWithoutSemaphoreOrThread.
    if (pTimer != nullptr) {
        pTimer->nTimerId = nTimerId;
        StartThread_Local(pTimer);
    }
    if (pTimerId != nullptr)
        *pTimerId = nTimerId;
    return VYX_OK;
}

// Deliberate: a successful kill answers -1, too. Pinned by Timer.CallsAfterEachPeriod.
int32_t VYX_KillTimer(int32_t iTimerId) {
    if (static_cast<uint32_t>(iTimerId) >= VYX_MAX_TIMERS)
        return VYX_ERROR;
    const vyx_inter::Uncancelled uncancelled; // nobody else frees the place
    TIMER_EVENT_T *const pTimer = BeginKill_Local(static_cast<uint32_t>(iTimerId));
    if (pTimer == nullptr)
        return VYX_ERROR;
    (void)VYX_Thread_Wait(pTimer->hThread); // fails at once if it has no thread
    FinishKill_Local(pTimer);
    return VYX_ERROR;
}

int32_t VYX_InitTimer(void) {
    const vyx_inter::Uncancelled uncancelled;
    Unused unused;
    const LockGuard guard(s_VyxTimerMutex);
    if (s_bVyxTimerInit != 0)
        return VYX_OK;
    s_bVyxTimerInit = 1;
    for (Place &place : s_VyxTimerEvents)
        if (place.pTimer == nullptr || place.pTimer->bStop.load() == 0) // who kills a timer frees its place
            LetGo_Local(place, unused);
    return VYX_OK;
}

int32_t VYX_FiniTimer(void) {
    const LockGuard guard(s_VyxTimerMutex);
    s_bVyxTimerInit = 0;
    return VYX_OK;
}

/* ---- Description */

namespace {

constexpr vyx_inter::DescriptionRow kRows[] = {
    VYX_REGISTRY("timer", s_VyxTimerEvents),
    VYX_LOCK("Timers", s_VyxTimerMutex),
    VYX_FIELD("timer.used", Place, bUsed),
    VYX_FIELD("timer.record", Place, pTimer),
    VYX_FIELD("timer_record.number", TIMER_EVENT_T, nTimerId),
    VYX_FIELD("timer_record.routine", TIMER_EVENT_T, fnTimerProc),
    VYX_FIELD("timer_record.period", TIMER_EVENT_T, nPeriod), // milliseconds
    VYX_FIELD("timer_record.runs", TIMER_EVENT_T, nRuns),
    VYX_FIELD("timer_record.late", TIMER_EVENT_T, nLate), // microseconds
};

} // namespace

VYX_DESCRIBE(timers, kRows)
