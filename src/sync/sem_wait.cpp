// Waits for semaphores.
//
// The platform's semaphore has the counts. A try and a wait without a limit are the platform's own, and so is every post:
// nothing of it needs the registry here, so that it can come from a signal handler or through another handle of the
// same name.
//
// A bounded wait that does not end at once is put into a registry, behind those for the same semaphore. The first of
// these sleeps in the platform's wait until its deadline; the others sleep on conditions of their own, until they have
// become the first or their time is out. So who began first is served first, and nobody has to look after the
// waits. While the library is not started all of them sleep on their conditions, without a limit.
//
// Nothing but a count ends the platform's sleep before its deadline. Who wants the sleeper to look up (the library's
// stop, and the service where that sleep has no deadline) therefore posts one and notes it in nWakes. It is none of
// the semaphore's own counts, so the semaphore always has nWakes counts less than the platform's:
//  - The sleeper that takes a count while nWakes is not 0 lowers nWakes and looks around. A sleeper that leaves takes
//    back what was posted for it.
//  - Whoever else takes a count then may have taken the wake: see Keep_Local.
//
// A waiter may be cancelled wherever it sleeps. Cleaning up is a cleanup handler's, as destructors are not run on all
// platforms then.
#include "sync/sem_wait.h"

#include "base/describe.h"
#include "base/platform.h"
#include "base/probes.h"
#include "base/uncancelled.h"
#include "sync/sem_record.h"

using vyx_inter::Clock;
using vyx_inter::Condition;
using vyx_inter::Deadline;
using vyx_inter::Lock;
using vyx_inter::LockGuard;
using vyx_inter::Rank;

Lock s_hSemLock{Rank::SemWaits};

namespace {

vyx_inter::List<TIMED_SEM_S, &TIMED_SEM_S::all> s_struTimeSems VYX_GUARDED_BY(s_hSemLock);
std::atomic<bool> s_bStarted{false}; // changed with s_hSemLock held, so that no waiter misses it
Condition s_wokenCond;               // broadcast when a sleeper that was woken is awake; with s_hSemLock
Condition s_serviceCond;             // where the service sleeps; with s_hSemLock

constexpr uint32_t kClockLook = 10; // milliseconds between looks whether the wall clock was set

bool IsFirst_Local(const TIMED_SEM_S &wait) VYX_REQUIRES(s_hSemLock) {
    return wait.pSemaphore->waits.pFirst == &wait;
}

// Whether a wake is on its way to the first waiter.
bool IsBeingWoken_Local(const VYX_SEM_S &semaphore) VYX_REQUIRES(s_hSemLock) {
    return semaphore.waits.pFirst != nullptr && semaphore.waits.pFirst->bWoken;
}

// Has a waiter look around if it is asleep in the platform's wait.
void Wake_Local(TIMED_SEM_S &wait) VYX_REQUIRES(s_hSemLock) {
    if (!wait.bAsleep || wait.bWoken)
        return;
    VYX_SEM_S &semaphore = *wait.pSemaphore;
    semaphore.nWakes.fetch_add(1);
    wait.bWoken = sem_post(semaphore.pSem) == 0;
    if (!wait.bWoken) // no room for one more, so there are counts to wake it
        semaphore.nWakes.fetch_sub(1);
}

// Wakes the sleepers whose time is out. Result: when to look again.
Deadline WakeDue_Local() VYX_REQUIRES(s_hSemLock) {
    Deadline next = Deadline::Never();
    for (TIMED_SEM_S *pWait = s_struTimeSems.pFirst; pWait != nullptr; pWait = s_struTimeSems.Next(pWait)) {
        if (!pWait->bAsleep)
            continue;
        if (pWait->deadline.HasPassed())
            Wake_Local(*pWait);
        else if (next.IsNever() || pWait->deadline.Micros() < next.Micros())
            next = pWait->deadline;
    }
    const bool bSoon = next.IsNever() || next.LeftMicros() < kClockLook * vyx_inter::kMicrosPerMilli;
    return bSoon ? next : Deadline::In(kClockLook, Clock::Monotonic);
}

void NoteAwake_Local(TIMED_SEM_S &wait) VYX_REQUIRES(s_hSemLock) {
    wait.bAsleep = false;
    if (wait.bWoken)
        s_wokenCond.Broadcast();
    wait.bWoken = false;
}

// The sleep of the first waiter. Result: true if a count was taken.
bool SleepAsFirst_Local(TIMED_SEM_S &wait) VYX_REQUIRES(s_hSemLock) {
    wait.bAsleep = true;
    if (!VYX_SemSleepKeepsTime_Inter())
        s_serviceCond.Signal();
    s_hSemLock.Release();
    const bool bTaken = VYX_SemSleep_Inter(wait.pSemaphore->pSem, wait.deadline);
    s_hSemLock.Acquire();
    NoteAwake_Local(wait);
    return bTaken;
}

VYX_SEM_END Await_Local(TIMED_SEM_S &wait) VYX_REQUIRES(s_hSemLock) {
    VYX_SEM_S &semaphore = *wait.pSemaphore;
    while (!wait.bEnded && !semaphore.bClosed) {
        const bool bStarted = s_bStarted.load();
        if (!bStarted || !IsFirst_Local(wait)) {
            const bool bInTime =
                wait.turn.WaitUntil(s_hSemLock, bStarted ? wait.deadline : Deadline::Never());
            if (!bInTime && !IsFirst_Local(wait)) // the first may still find a count
                return VYX_SEM_END::TimedOut;
            continue;
        }
        if (!SleepAsFirst_Local(wait))
            return VYX_SEM_END::TimedOut;
        if (semaphore.nWakes.load() == 0)
            return VYX_SEM_END::Taken;
        semaphore.nWakes.fetch_sub(1);
    }
    return VYX_SEM_END::Ended;
}

void Register_Local(TIMED_SEM_S &wait) VYX_REQUIRES(s_hSemLock) {
    wait.nThread = s_hSemLock.OwnThread();
    s_struTimeSems.Append(&wait);
    wait.pSemaphore->waits.Append(&wait);
    wait.pSemaphore->nWaits.fetch_add(1);
}

void Unregister_Local(TIMED_SEM_S &wait) VYX_REQUIRES(s_hSemLock) {
    s_struTimeSems.Remove(&wait);
    wait.pSemaphore->waits.Remove(&wait);
    wait.pSemaphore->nWaits.fetch_sub(1);
}

// Takes a waiter out and gives the lock back, which it has if it was not cancelled in the platform's wait.
void Leave_Local(void *pWait) VYX_UNCHECKED {
    auto &wait = *static_cast<TIMED_SEM_S *>(pWait);
    VYX_SEM_S &semaphore = *wait.pSemaphore;
    const bool bCancelledAsleep = wait.bAsleep;
    if (bCancelledAsleep) {
        s_hSemLock.Acquire();
        NoteAwake_Local(wait);
    }
    const bool bFirst = IsFirst_Local(wait);
    Unregister_Local(wait);
    while (bFirst && semaphore.nWakes.load() != 0 && sem_trywait(semaphore.pSem) == 0)
        semaphore.nWakes.fetch_sub(1);
    if (bCancelledAsleep && sem_trywait(semaphore.pSem) == 0)
        (void)sem_post(semaphore.pSem); // the platform may just have woken this one: another one's turn
    if (bFirst && semaphore.waits.pFirst != nullptr)
        semaphore.waits.pFirst->turn.Signal();
    s_hSemLock.Release();
    wait.turn.Destroy();
}

// For a count that was taken while nWakes was not 0. Result: true if it is the caller's; false if it was, or may have
// been, a wake. Then it is not there any more, and the caller looks for another one.
bool Keep_Local(VYX_SEM_S &semaphore) {
    const vyx_inter::Uncancelled uncancelled;
    const LockGuard guard(s_hSemLock);
    const uint32_t nWakes = semaphore.nWakes.load();
    if (nWakes == 0)
        return true;
    if (nWakes > 1 || !IsBeingWoken_Local(semaphore)) { // whom it was for has left without it
        semaphore.nWakes.fetch_sub(1);
        return false;
    }
    (void)sem_post(semaphore.pSem);
    while (IsBeingWoken_Local(semaphore))
        s_wokenCond.Wait(s_hSemLock);
    return false;
}

// Takes a count with one of the platform's calls.
template <class Call>
int32_t Take_Local(VYX_SEM_S &semaphore, Call fnCall) {
    while (fnCall(semaphore.pSem) == 0)
        if (semaphore.nWakes.load() == 0 || Keep_Local(semaphore))
            return VYX_OK;
    return VYX_ERROR;
}

// In a forked child.
void ForgetOthers_Local() {
    const LockGuard guard(s_hSemLock);
    s_bStarted.store(false);
    s_wokenCond.Renew();
    s_serviceCond.Renew();
    for (TIMED_SEM_S *pWait = s_struTimeSems.pFirst; pWait != nullptr; pWait = s_struTimeSems.Next(pWait)) {
        if (pthread_equal(pWait->hThread, pthread_self()) != 0)
            continue;
        pWait->pSemaphore->nWakes.store(0);
        Unregister_Local(*pWait);
    }
}

vyx_inter::ForkHold s_forkHold(s_hSemLock);

} // namespace

const vyx_inter::ForkRow g_struSemWaitForkRow = {
    [] { s_forkHold.Before(); },
    [] { s_forkHold.InParent(); },
    [] {
        if (s_forkHold.InChild())
            ForgetOthers_Local();
    },
};

int32_t VYX_SemTry_Inter(VYX_SEM_S *pRecord) {
    return Take_Local(*pRecord, sem_trywait);
}

int32_t VYX_SemWait_Inter(VYX_SEM_S *pRecord) {
    VYX_PROBE1(sem_wait_begin, pRecord);
    const int32_t iResult = Take_Local(*pRecord, sem_wait);
    VYX_PROBE2(sem_wait_end, pRecord, iResult);
    return iResult;
}

VYX_SEM_END VYX_SemTimedWait_Inter(VYX_SEM_S *pRecord, uint32_t nTimeOut) {
    if (s_bStarted.load() && pRecord->nWaits.load() == 0 && VYX_SemTry_Inter(pRecord) == VYX_OK) {
        VYX_PROBE1(sem_wait_begin, pRecord);
        VYX_PROBE2(sem_wait_end, pRecord, 0);
        return VYX_SEM_END::Taken;
    }
    return VYX_SemWaitUntil_Inter(pRecord, Deadline::In(nTimeOut, Clock::Wall));
}

VYX_SEM_END VYX_SemWaitUntil_Inter(VYX_SEM_S *pRecord,
                                   const Deadline &deadline) VYX_UNCHECKED { // see Leave_Local
    VYX_PROBE1(sem_wait_begin, pRecord);
    TIMED_SEM_S wait = {pRecord, deadline, pthread_self(), 0, false, false, false, {}, {}, {}};
    VYX_SEM_END eEnd = VYX_SEM_END::Ended;
    s_hSemLock.Acquire();
    Register_Local(wait);
    pthread_cleanup_push(Leave_Local, &wait);
    eEnd = Await_Local(wait);
    pthread_cleanup_pop(1);
    VYX_PROBE2(sem_wait_end, pRecord, static_cast<int32_t>(eEnd));
    return eEnd; // NOLINT(clang-analyzer-core.StackAddressEscape): the handler has taken it out
}

int32_t SemTimedWait(VYX_SEM_S *pRecord, uint32_t nTimeOut) {
    if (nTimeOut == VYX_INFINITE)
        return VYX_SemWait_Inter(pRecord);
    return VYX_SemTimedWait_Inter(pRecord, nTimeOut) == VYX_SEM_END::Taken ? VYX_OK : VYX_ERROR;
}

void VYX_SemClose_Inter(VYX_SEM_S *pRecord) {
    const LockGuard guard(s_hSemLock);
    pRecord->bClosed = true;
    for (TIMED_SEM_S *pWait = pRecord->waits.pFirst; pWait != nullptr; pWait = pRecord->waits.Next(pWait))
        pWait->turn.Signal();
    (void)sem_post(pRecord->pSem);
}

void VYX_SemWaitsStart_Inter(void) {
    const LockGuard guard(s_hSemLock);
    s_bStarted.store(true);
    for (TIMED_SEM_S *pWait = s_struTimeSems.pFirst; pWait != nullptr; pWait = s_struTimeSems.Next(pWait))
        pWait->turn.Signal();
}

void VYX_SemWaitsStop_Inter(void) {
    {
        const LockGuard guard(s_hSemLock);
        s_bStarted.store(false);
        for (TIMED_SEM_S *pWait = s_struTimeSems.pFirst; pWait != nullptr;
             pWait = s_struTimeSems.Next(pWait)) {
            pWait->bEnded = true;
            Wake_Local(*pWait); // the others notice when they become the first
        }
    }
    s_serviceCond.Signal(); // without the lock, which is the first thing that the service needs
}

void VYX_SemWaitsServe_Inter(const std::atomic<int32_t> &bBreak) {
    const LockGuard guard(s_hSemLock);
    while (bBreak.load() == 0)
        (void)s_serviceCond.WaitUntil(s_hSemLock,
                                      VYX_SemSleepKeepsTime_Inter() ? Deadline::Never() : WakeDue_Local());
}

uint32_t VYX_SemWaitsPending_Inter(void) {
    const LockGuard guard(s_hSemLock);
    uint32_t nPending = 0;
    for (TIMED_SEM_S *pWait = s_struTimeSems.pFirst; pWait != nullptr; pWait = s_struTimeSems.Next(pWait))
        ++nPending;
    return nPending;
}

/* ---- Description */

namespace {

constexpr vyx_inter::DescriptionRow kRows[] = {
    VYX_SINGLE("sem_wait", s_struTimeSems.pFirst), // the first of them
    VYX_LOCK("SemWaits", s_hSemLock),
    VYX_FIELD_OF("sem_wait.next", TIMED_SEM_S, all, vyx_inter::Links<TIMED_SEM_S>, pNext),
    VYX_FIELD("sem_wait.semaphore", TIMED_SEM_S, pSemaphore),
    VYX_FIELD("sem_wait.deadline", TIMED_SEM_S, deadline), // of the wall clock
    VYX_FIELD("sem_wait.thread", TIMED_SEM_S, nThread),
};

} // namespace

VYX_DESCRIBE(semaphore_waits, kRows)
