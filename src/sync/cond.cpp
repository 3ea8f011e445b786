// Condition variables: POSIX conditions in the caller's storage.
//
// A bounded wait is the platform's own, on the wall clock. It is registered besides, so that the library's stop can end
// it.
#include "sync/cond_wait.h"

#include <atomic>
#include <unistd.h>

#include "base/describe.h"
#include "base/list.h"
#include "base/probes.h"

using vyx_inter::Clock;
using vyx_inter::Deadline;
using vyx_inter::Lock;
using vyx_inter::LockGuard;

static Lock s_hCondLock{vyx_inter::Rank::CondWaits};

// One bounded wait. Lies on its waiter's stack.
struct TIMED_COND_S {
    VYX_COND_T *condition;        // the caller's
    VYX_MUTEX_T *mutex;           // the caller's, held by it around the wait
    vyx_inter::Deadline deadline; // as asked for, on the wall clock
    uint32_t
        nThread VYX_GUARDED_BY(s_hCondLock); // who waits, as the system numbers it; 0 where it does not tell
    uint32_t nForks VYX_GUARDED_BY(s_hCondLock); // when it was registered
    std::atomic<bool> bEnded;                    // the library was stopped
    bool bWoken VYX_GUARDED_BY(s_hCondLock);     // and nothing is left to do for it
    vyx_inter::Links<TIMED_COND_S> all VYX_GUARDED_BY(s_hCondLock);
};

namespace {

constexpr uint32_t kStartLook = 10; // milliseconds between looks whether the library was started
constexpr useconds_t kFirstPause =
    100;                            // microseconds before the stop tries a busy mutex again, then twice that
constexpr uint32_t kStopTries = 12; // and so on, for less than half a second

vyx_inter::List<TIMED_COND_S, &TIMED_COND_S::all> s_struTimeConds VYX_GUARDED_BY(s_hCondLock);
std::atomic<uint32_t> s_nWaits{0}; // how many these are
std::atomic<bool> s_bStarted{false};
uint32_t s_nForks VYX_GUARDED_BY(s_hCondLock) = 0; // since when the registry has begun anew

void Register_Local(TIMED_COND_S *pWait) {
    const LockGuard guard(s_hCondLock);
    pWait->nThread = s_hCondLock.OwnThread();
    s_struTimeConds.Append(pWait);
    s_nWaits.fetch_add(1);
    pWait->nForks = s_nForks;
}

void Leave_Local(void *pParam) {
    auto *pWait = static_cast<TIMED_COND_S *>(pParam);
    const LockGuard guard(s_hCondLock);
    if (pWait->nForks != s_nForks)
        return;
    s_struTimeConds.Remove(pWait);
    s_nWaits.fetch_sub(1);
}

// Until the library is started no time is out: those whose limit has passed look now and then. They have lost no
// signal by that, as the platform says whether it was the time that ended a wait.
void Await_Local(const TIMED_COND_S &wait) {
    Deadline deadline = wait.deadline;
    while (!CondWaitUntil(wait.condition, wait.mutex, deadline) && !s_bStarted.load() && !wait.bEnded.load())
        deadline = Deadline::In(kStartLook, Clock::Monotonic);
}

// Wakes the waiters whose wait was ended. The waiter registers while it holds its mutex, so a mutex that can be had says
// that all who use it sleep or have been woken, and the broadcast reaches them. It is only tried: its owner may
// be waiting for us. Result: true if no other try is needed.
bool WakeEnded_Local() {
    const LockGuard guard(s_hCondLock);
    bool bDone = true;
    for (TIMED_COND_S *pWait = s_struTimeConds.pFirst; pWait != nullptr;
         pWait = s_struTimeConds.Next(pWait)) {
        if (!pWait->bEnded.load() || pWait->bWoken)
            continue;
        pWait->bWoken = VYX_MutexTryLock(pWait->mutex) == VYX_OK;
        (void)pthread_cond_broadcast(pWait->condition);
        if (pWait->bWoken)
            (void)VYX_MutexUnlock(pWait->mutex);
        bDone = bDone && pWait->bWoken;
    }
    return bDone;
}

// A condition may go as soon as its waiters have been woken, before they have left: nobody is to touch it then.
void Forget_Local(const VYX_COND_T *pCond) {
    if (s_nWaits.load() == 0) // who may destroy it has seen its waiters registered
        return;
    const LockGuard guard(s_hCondLock);
    for (TIMED_COND_S *pWait = s_struTimeConds.pFirst; pWait != nullptr; pWait = s_struTimeConds.Next(pWait))
        if (pWait->condition == pCond)
            pWait->bWoken = true;
}

// In a forked child.
void ForgetAll_Local() {
    const LockGuard guard(s_hCondLock);
    s_bStarted.store(false);
    s_struTimeConds = {};
    s_nWaits.store(0);
    ++s_nForks;
}

vyx_inter::ForkHold s_forkHold(s_hCondLock);

} // namespace

const vyx_inter::ForkRow g_struCondWaitForkRow = {
    [] {
        s_forkHold.Before();
        s_forkHold
            .InParent(); // at once: who wants it may have its own mutex, which the child would find taken
    },
    [] {},
    [] {
        if (s_forkHold.InChild())
            ForgetAll_Local();
    },
};

void VYX_CondWaitsStart_Inter(void) {
    s_bStarted.store(true);
}

void VYX_CondWaitsStop_Inter(void) {
    {
        const LockGuard guard(s_hCondLock);
        s_bStarted.store(false);
        for (TIMED_COND_S *pWait = s_struTimeConds.pFirst; pWait != nullptr;
             pWait = s_struTimeConds.Next(pWait))
            pWait->bEnded.store(true);
    }
    // The caller may itself hold a mutex that a waiter needs, so this must not wait until all have left.
    useconds_t nPause = kFirstPause;
    for (uint32_t nTry = 0; nTry < kStopTries && !WakeEnded_Local(); ++nTry, nPause *= 2)
        (void)usleep(nPause);
}

uint32_t VYX_CondWaitsPending_Inter(void) {
    return s_nWaits.load();
}

int32_t CondTimedWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex, uint32_t nTimeOut) {
    if (nTimeOut == VYX_INFINITE)
        return VYX_CondWait(pCond, pMutex);
    TIMED_COND_S wait = {pCond, pMutex, Deadline::In(nTimeOut, Clock::Wall), 0, 0, {false}, false, {}};
    Register_Local(&wait);
    VYX_PROBE1(cond_wait_begin, pCond);
    pthread_cleanup_push(Leave_Local, &wait); // also for a thread that is cancelled in its sleep
    Await_Local(wait);
    pthread_cleanup_pop(1);
    VYX_PROBE2(cond_wait_end, pCond, VYX_ERROR);
    // Deliberate: the same result for a time-out, a signal and a spurious wake-up. Callers test their own
    // predicate. Pinned by Torture.storms.
    return VYX_ERROR;
}

int32_t VYX_CondCreate(VYX_COND_T *pCond) {
    return pCond == nullptr ? VYX_ERROR : pthread_cond_init(pCond, nullptr);
}

int32_t VYX_CondDestroy(VYX_COND_T *pCond) {
    if (pCond == nullptr)
        return VYX_ERROR;
    Forget_Local(pCond);
    return pthread_cond_destroy(pCond);
}

int32_t VYX_CondWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex) {
    if (pCond == nullptr || pMutex == nullptr)
        return VYX_ERROR;
    VYX_PROBE1(cond_wait_begin, pCond);
    const int32_t iResult = pthread_cond_wait(pCond, pMutex);
    VYX_PROBE2(cond_wait_end, pCond, iResult);
    return iResult;
}

int32_t VYX_CondTimedWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex, uint32_t nTimeOut) {
    return CondTimedWait(pCond, pMutex, nTimeOut);
}

int32_t VYX_CondSignal(VYX_COND_T *pCond) {
    return pCond == nullptr ? VYX_ERROR : pthread_cond_signal(pCond);
}

int32_t VYX_CondBroadCast(VYX_COND_T *pCond) {
    return pCond == nullptr ? VYX_ERROR : pthread_cond_broadcast(pCond);
}

/* ---- Description */

namespace {

constexpr vyx_inter::DescriptionRow kRows[] = {
    VYX_SINGLE("cond_wait", s_struTimeConds.pFirst), // the first of them
    VYX_LOCK("CondWaits", s_hCondLock),
    VYX_FIELD_OF("cond_wait.next", TIMED_COND_S, all, vyx_inter::Links<TIMED_COND_S>, pNext),
    VYX_FIELD("cond_wait.condition", TIMED_COND_S, condition),
    VYX_FIELD("cond_wait.mutex", TIMED_COND_S, mutex),
    VYX_FIELD("cond_wait.deadline", TIMED_COND_S, deadline), // of the wall clock
    VYX_FIELD("cond_wait.thread", TIMED_COND_S, nThread),
};

} // namespace

VYX_DESCRIBE(condition_waits, kRows)
