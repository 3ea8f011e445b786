// The timed-wait service.
//
// A caller that wants a bounded wait puts a record into one of two registries and sleeps. One thread,
// timer_svc, looks at all records every 100 microseconds: it takes semaphores on their waiters' behalf and
// ends the waits whose time is out. While nothing is registered it sleeps.
//
// A record belongs to its waiter from start to end: the waiter allocates it, registers it, takes it out and
// frees it. The service touches a record only while it holds the registry's lock, hence never a record that
// has been taken out.
//
// Waking a condition's waiter has two traps, and the order of locks here is chosen around them:
//  - The waiter registers while it holds its own mutex, so it takes s_hCondLock after that mutex; the service
//    holds s_hCondLock first. The service therefore only tries the caller's mutex and comes back on its next
//    pass if it is busy. Neither can wait for the other.
//  - A signal may reach another waiter on the same condition. The record stays registered until its waiter
//    has woken, so the service sees that and broadcasts on a later pass, once, with the mutex held. With the
//    mutex held every registered waiter is either asleep on the condition or has been woken already, so that
//    broadcast cannot miss.
//
// A condition may be destroyed as soon as all its waiters have been woken, before they have got their mutex
// back and taken their records out. VYX_CondDestroy therefore withdraws the condition from the registry.
#include "sync/timed_wait.h"

#include <cerrno>
#include <new>
#include <vyx/sync.h>
#include <vyx/sys.h>
#include <vyx/thread.h>
#include <vyx/time.h>

#include "base/lock.h"
#include "base/units.h"
#include "thread/service_thread.h"

using vyx_inter::Condition;
using vyx_inter::ForkHold;
using vyx_inter::kMicrosPerMilli;
using vyx_inter::Lock;
using vyx_inter::LockGuard;
using vyx_inter::Rank;

// Ready at all times and never destroyed, since a semaphore may be created while the library stops.
VYX_MUTEX_T s_hCreateLock = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr uint32_t kStackSize = 262144; // bytes
constexpr uint32_t kPassPause = 100;    // microseconds between two passes that completed nothing
constexpr uint32_t kBusyPasses = 16;    // passes on which a busy mutex is only tried; see WakeTimedOut_Local
constexpr uint32_t kGracePasses = 10;   // passes that a signalled waiter has before all are woken
constexpr uint32_t kStopPasses = 5000;  // passes that stop grants to wake pending condition waiters

// How far the service has come in waking a condition waiter. It only ever goes on, also if the clock is set
// back meanwhile.
enum class Wake : uint8_t {
    Pending,   // time is not out
    Due,       // time is out, the mutex was busy so far
    Signalled, // one waiter of the condition was signalled
    Certain,   // all were, with the mutex held, or the condition is gone: nothing is left to do
};

// A record in its registry. Links are guarded by the registry's lock.
struct SemWait {
    TIMED_SEM_S struWait;
    VYX_TIME_T iDue; // time is out from this moment on
    SemWait *pPrev;
    SemWait *pNext;
};

struct CondWait {
    TIMED_COND_S struWait;
    VYX_TIME_T iDue;  // time is out from this moment on
    Wake eWake;       // guarded by s_hCondLock
    uint32_t nPasses; // since the wait became due or was signalled; guarded by s_hCondLock
    CondWait *pPrev;
    CondWait *pNext;
};

// Pending waits in the order of their registration. Needs no construction and no destruction, so that waits
// are possible before main and the service may outlive it.
template <class T>
struct Registry {
    T *pFirst = nullptr;
    T *pLast = nullptr;

    void Append(T *pWait) {
        pWait->pNext = nullptr;
        pWait->pPrev = pLast;
        (pLast == nullptr ? pFirst : pLast->pNext) = pWait;
        pLast = pWait;
    }
    void Remove(T *pWait) {
        (pWait->pPrev == nullptr ? pFirst : pWait->pPrev->pNext) = pWait->pNext;
        (pWait->pNext == nullptr ? pLast : pWait->pNext->pPrev) = pWait->pPrev;
    }
};

Lock s_hSemLock{Rank::SemWaits};
Registry<SemWait> s_struTimeSems VYX_GUARDED_BY(s_hSemLock);

Lock s_hCondLock{Rank::CondWaits};
Registry<CondWait> s_struTimeConds VYX_GUARDED_BY(s_hCondLock);

std::atomic<int32_t> s_bBreakTimer{1};
VYX_THREAD_T s_hThreadId = VYX_INVALID_THREAD; // under the start/stop mutex

// See VYX_TimedWaitEpoch_Inter. Written under the start/stop mutex.
std::atomic<uint32_t> s_nEpoch{0};
std::atomic<void (*)(void)> s_fnEpochChanged{nullptr};

// Where the service sleeps while nothing is registered. s_nPending rises before the sleeper is signalled and
// is looked at under the lock, so a registration is never missed.
Lock s_hParkLock{Rank::ServicePark};
Condition s_parkCond;
std::atomic<uint32_t> s_nPending{0};

void SetEpoch_Local(uint32_t nEpoch) {
    s_nEpoch.store(nEpoch);
    void (*const fnChanged)(void) = s_fnEpochChanged.load();
    if (fnChanged != nullptr)
        fnChanged();
}

void WakeService_Local() {
    const LockGuard guard(s_hParkLock);
    s_parkCond.Signal();
}

void ParkService_Local() {
    const LockGuard guard(s_hParkLock);
    while (s_nPending.load() == 0 && s_bBreakTimer.load() == 0)
        s_parkCond.Wait(s_hParkLock);
}

void CountPending_Local() {
    if (s_nPending.fetch_add(1) == 0)
        WakeService_Local();
}

// A normal mutex for the length of a block, also if the thread is cancelled in it.
class Hold {
  public:
    explicit Hold(VYX_MUTEX_T *pMutex) : m_pMutex(pMutex) { (void)VYX_MutexLock(m_pMutex); }
    ~Hold() { (void)VYX_MutexUnlock(m_pMutex); }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;

  private:
    VYX_MUTEX_T *m_pMutex;
};

// Keeps a semaphore wait registered for the length of a block, also if the thread is cancelled in it.
class SemRegistration {
  public:
    explicit SemRegistration(SemWait *pWait) : m_pWait(pWait) {
        (void)VYX_MutexCreate(&m_pWait->struWait.lock, VYX_MUTEX_NORMAL);
        (void)VYX_CondCreate(&m_pWait->struWait.wake);
        {
            const LockGuard guard(s_hSemLock);
            s_struTimeSems.Append(m_pWait);
        }
        CountPending_Local();
    }
    ~SemRegistration() {
        TIMED_SEM_S &wait = m_pWait->struWait;
        {
            const LockGuard guard(s_hSemLock);
            s_struTimeSems.Remove(m_pWait);
        }
        s_nPending.fetch_sub(1);
        if (!m_bReturned && wait.waiting.load() == 0 && wait.result == VYX_OK)
            (void)sem_post(wait.semaphore->pSem); // the count was taken for a thread that was cancelled
        (void)pthread_cond_destroy(&wait.wake);   // known to nobody else: there is nothing to withdraw
        (void)VYX_MutexDestroy(&wait.lock);
        delete m_pWait;
    }
    SemRegistration(const SemRegistration &) = delete;
    SemRegistration &operator=(const SemRegistration &) = delete;

    // Sleeps until the service has completed the wait. Result: the wait's.
    int32_t Await() {
        TIMED_SEM_S &wait = m_pWait->struWait;
        {
            const Hold hold(&wait.lock);
            while (wait.waiting.load() != 0)
                (void)VYX_CondWait(&wait.wake, &wait.lock);
        }
        m_bReturned = true;
        return wait.result;
    }

  private:
    SemWait *m_pWait;
    bool m_bReturned = false; // the caller learns the result
};

// The same for a condition wait.
class CondRegistration {
  public:
    explicit CondRegistration(CondWait *pWait) : m_pWait(pWait) {
        {
            const LockGuard guard(s_hCondLock);
            s_struTimeConds.Append(m_pWait);
        }
        CountPending_Local();
    }
    ~CondRegistration() {
        {
            const LockGuard guard(s_hCondLock);
            s_struTimeConds.Remove(m_pWait);
        }
        s_nPending.fetch_sub(1);
        delete m_pWait;
    }
    CondRegistration(const CondRegistration &) = delete;
    CondRegistration &operator=(const CondRegistration &) = delete;

  private:
    CondWait *m_pWait;
};

// Ends a semaphore wait. The waiter cannot free the record under us: for that it needs s_hSemLock.
void Complete_Local(TIMED_SEM_S &wait, int32_t iResult) VYX_REQUIRES(s_hSemLock) {
    wait.result = iResult;
    wait.waiting.store(0);
    (void)VYX_MutexLock(&wait.lock);
    (void)VYX_CondSignal(&wait.wake);
    (void)VYX_MutexUnlock(&wait.lock);
}

// The first pending wait for a semaphore. One of them is known to be pending.
TIMED_SEM_S &FirstFor_Local(const VYX_SEM_S *pSemaphore) VYX_REQUIRES(s_hSemLock) {
    SemWait *pEntry = s_struTimeSems.pFirst;
    while (pEntry->struWait.semaphore != pSemaphore || pEntry->struWait.waiting.load() == 0)
        pEntry = pEntry->pNext;
    return pEntry->struWait;
}

// Result: true if a wait was completed.
bool TryComplete_Local(SemWait &entry, VYX_TIME_T iNow) VYX_REQUIRES(s_hSemLock) {
    TIMED_SEM_S &wait = entry.struWait;
    if (wait.waiting.load() == 0)
        return false;
    if (sem_trywait(wait.semaphore->pSem) == -1) {
        if (iNow < entry.iDue)
            return false;
        Complete_Local(wait, VYX_ERROR);
        return true;
    }
    // Deliberate: errno as an earlier call left it decides. If it says EINTR, the count just taken stays
    // taken and the wait goes on. The service blocks all signals and forgets what the C library's own ones,
    // which nobody can block, did to its pause, so its own errno never does.
    // Pinned by TimedWait.StaleInterruptionKeepsTheCount.
    if (errno == EINTR)
        return false;
    // The count may have been posted after this pass had passed by an earlier waiter: that one is served first.
    Complete_Local(FirstFor_Local(wait.semaphore), VYX_OK);
    return true;
}

bool ScanSems_Local() {
    const LockGuard guard(s_hSemLock);
    if (s_struTimeSems.pFirst == nullptr)
        return false;
    const VYX_TIME_T iNow = VYX_TimeNow();
    bool bCompleted = false;
    for (SemWait *pEntry = s_struTimeSems.pFirst; pEntry != nullptr; pEntry = pEntry->pNext)
        bCompleted = TryComplete_Local(*pEntry, iNow) || bCompleted;
    return bCompleted;
}

// Wakes the waiter of an entry whose time is out; called again on each pass until it has woken and taken its
// entry out. Result: true if this ended its wait for the first time.
//
// A mutex that stays busy is in the hands of somebody who delays the waiter anyway, but may also be one that
// the service is unlucky with: on every doubling of the passes spent the condition is broadcast without it.
bool WakeTimedOut_Local(CondWait &entry) VYX_REQUIRES(s_hCondLock) {
    TIMED_COND_S &wait = entry.struWait;
    if (entry.eWake == Wake::Certain)
        return false;
    ++entry.nPasses;
    if (entry.eWake == Wake::Signalled && entry.nPasses < kGracePasses)
        return false;
    if (VYX_MutexTryLock(wait.mutex) != VYX_OK) {
        const bool bPowerOfTwo = (entry.nPasses & (entry.nPasses - 1)) == 0;
        if (entry.nPasses >= kBusyPasses && bPowerOfTwo)
            (void)VYX_CondBroadCast(wait.condition);
        return false;
    }
    const bool bFirst = entry.eWake == Wake::Due;
    if (bFirst) {
        wait.result = VYX_ERROR;
        wait.waiting.store(0);
        (void)VYX_CondSignal(wait.condition);
    } else {
        (void)VYX_CondBroadCast(wait.condition);
    }
    entry.eWake = bFirst ? Wake::Signalled : Wake::Certain;
    entry.nPasses = 0;
    (void)VYX_MutexUnlock(wait.mutex);
    return bFirst;
}

bool ScanConds_Local() {
    const LockGuard guard(s_hCondLock);
    if (s_struTimeConds.pFirst == nullptr)
        return false;
    const VYX_TIME_T iNow = VYX_TimeNow();
    bool bCompleted = false;
    for (CondWait *pEntry = s_struTimeConds.pFirst; pEntry != nullptr; pEntry = pEntry->pNext) {
        if (pEntry->eWake == Wake::Pending && pEntry->iDue <= iNow)
            pEntry->eWake = Wake::Due;
        if (pEntry->eWake != Wake::Pending)
            bCompleted = WakeTimedOut_Local(*pEntry) || bCompleted;
    }
    return bCompleted;
}

// Ends every pending semaphore wait with -1.
void ReleaseSems_Local() {
    const LockGuard guard(s_hSemLock);
    for (SemWait *pEntry = s_struTimeSems.pFirst; pEntry != nullptr; pEntry = pEntry->pNext)
        if (pEntry->struWait.waiting.load() != 0)
            Complete_Local(pEntry->struWait, VYX_ERROR);
}

// Declares the time of every pending condition wait to be out.
void ExpireConds_Local() {
    const LockGuard guard(s_hCondLock);
    for (CondWait *pEntry = s_struTimeConds.pFirst; pEntry != nullptr; pEntry = pEntry->pNext)
        if (pEntry->eWake == Wake::Pending)
            pEntry->eWake = Wake::Due;
}

// Wakes the waiters whose time is out; waits that have begun since are left alone. Result: true if none needs
// another try.
bool ReleaseConds_Local() {
    const LockGuard guard(s_hCondLock);
    bool bDone = true;
    for (CondWait *pEntry = s_struTimeConds.pFirst; pEntry != nullptr; pEntry = pEntry->pNext) {
        if (pEntry->eWake == Wake::Pending)
            continue;
        (void)WakeTimedOut_Local(*pEntry);
        bDone = bDone && pEntry->eWake == Wake::Certain;
    }
    return bDone;
}

// In a forked child: the service and the waiters exist in the parent only.
void ForgetService_Local() {
    s_hCreateLock = PTHREAD_MUTEX_INITIALIZER;
    s_parkCond.Renew();
    {
        const LockGuard guard(s_hSemLock);
        s_struTimeSems = {};
    }
    {
        const LockGuard guard(s_hCondLock);
        s_struTimeConds = {};
    }
    s_nPending.store(0);
    s_hThreadId = VYX_INVALID_THREAD;
    s_bBreakTimer.store(1);
    s_nEpoch.store((s_nEpoch.load() | 1) + 1); // as after a stop
}

ForkHold s_semHold(s_hSemLock);
ForkHold s_condHold(s_hCondLock);
ForkHold s_parkHold(s_hParkLock);

// Result: a wait that begins now, not registered; null if memory is short.
SemWait *MakeSemWait_Local(VYX_SEM_S *pRecord, uint32_t nTimeOut) {
    auto *pWait = new (std::nothrow) SemWait();
    if (pWait == nullptr)
        return nullptr;
    const VYX_TIME_T iNow = VYX_TimeNow();
    TIMED_SEM_S &wait = pWait->struWait;
    wait.waiting.store(1);
    wait.semaphore = pRecord;
    wait.timeout = nTimeOut;
    wait.start = iNow / kMicrosPerMilli;
    wait.result = VYX_OK;
    pWait->iDue = iNow + wait.timeout * kMicrosPerMilli;
    return pWait;
}

} // namespace

const vyx_inter::ForkRow g_struTimedWaitForkRow = {
    [] {
        s_semHold.Before();
        s_condHold.Before();
        s_parkHold.Before();
    },
    [] {
        s_parkHold.InParent();
        s_condHold.InParent();
        s_semHold.InParent();
    },
    [] {
        const bool bPark = s_parkHold.InChild();
        const bool bCond = s_condHold.InChild();
        if (s_semHold.InChild() && bCond && bPark)
            ForgetService_Local();
    },
};

int32_t VYX_InitTimeWait_Inter(void) {
    s_bBreakTimer.store(0);
    s_hThreadId = VYX_StartServiceThread_Inter(timer_svc, nullptr, kStackSize);
    if (s_hThreadId == VYX_INVALID_THREAD)
        return VYX_ERROR;
    SetEpoch_Local(s_nEpoch.load() | 1);
    return VYX_OK;
}

int32_t VYX_FiniTimedWait_Inter(void) {
    s_bBreakTimer.store(1);
    WakeService_Local();
    (void)VYX_Thread_Wait(s_hThreadId); // invalid, hence not waited for, in a forked child
    s_hThreadId = VYX_INVALID_THREAD;
    SetEpoch_Local((s_nEpoch.load() | 1) + 1);
    ReleaseSems_Local();
    ExpireConds_Local();
    // The caller may itself hold a mutex that a waiter needs, so this must not wait until all have left.
    for (uint32_t nPass = 0; nPass < kStopPasses && !ReleaseConds_Local(); ++nPass)
        (void)VYX_USleep(kPassPause);
    return VYX_OK;
}

bool VYX_TimedWaitPass_Inter(void) {
    const bool bSems = ScanSems_Local();
    const bool bConds = ScanConds_Local();
    return bSems || bConds;
}

uint32_t VYX_TimedWaitPending_Inter(void) {
    return s_nPending.load();
}

uint32_t VYX_TimedWaitEpoch_Inter(void) {
    return s_nEpoch.load();
}

void VYX_TimedWaitTell_Inter(void (*fnChanged)(void)) {
    s_fnEpochChanged.store(fnChanged);
}

void VYX_TimedWaitWithdraw_Inter(const VYX_COND_T *pCond) {
    if (s_nPending.load() == 0) // whoever may destroy it has seen its waiters registered
        return;
    const LockGuard guard(s_hCondLock);
    for (CondWait *pEntry = s_struTimeConds.pFirst; pEntry != nullptr; pEntry = pEntry->pNext)
        if (pEntry->struWait.condition == pCond)
            pEntry->eWake = Wake::Certain;
}

void *timer_svc(void * /*pIgnored*/) {
    VYX_NameThread_Inter("timer_svc");
    while (s_bBreakTimer.load() == 0) {
        if (VYX_TimedWaitPass_Inter())
            continue;
        if (s_nPending.load() == 0)
            ParkService_Local();
        else if (VYX_USleep(kPassPause) != 0)
            errno = 0; // by setuid on another thread, say, and no reason to drop a count
    }
    return nullptr;
}

int32_t SemTimedWait(VYX_SEM_S *pRecord, uint32_t nTimeOut) {
    if (nTimeOut == VYX_INFINITE)
        return sem_wait(pRecord->pSem);
    SemWait *pWait = MakeSemWait_Local(pRecord, nTimeOut);
    if (pWait == nullptr)
        return VYX_ERROR;
    SemRegistration registration(pWait);
    return registration.Await();
}

int32_t VYX_SemTimedWaitInEpoch_Inter(VYX_SEM_S *pRecord, uint32_t nTimeOut, uint32_t nEpoch) {
    SemWait *pWait = MakeSemWait_Local(pRecord, nTimeOut);
    if (pWait == nullptr)
        return VYX_ERROR;
    SemRegistration registration(pWait);
    // A stop changes the epoch before it releases who is registered.
    return s_nEpoch.load() == nEpoch ? registration.Await() : VYX_ERROR;
}

int32_t CondTimedWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex, uint32_t nTimeOut) {
    if (nTimeOut == VYX_INFINITE)
        return VYX_CondWait(pCond, pMutex);
    auto *pWait = new (std::nothrow) CondWait();
    if (pWait == nullptr)
        return VYX_ERROR;
    const VYX_TIME_T iNow = VYX_TimeNow();
    TIMED_COND_S &wait = pWait->struWait;
    wait.waiting.store(1);
    wait.condition = pCond;
    wait.mutex = pMutex;
    wait.timeout = nTimeOut;
    wait.start = iNow / kMicrosPerMilli;
    wait.result = VYX_ERROR;
    pWait->iDue = iNow + wait.timeout * kMicrosPerMilli;
    const CondRegistration registration(pWait);
    (void)VYX_CondWait(pCond, pMutex);
    // Deliberate: the same result for a time-out, a signal and a spurious wake-up. Callers test their own
    // predicate. Pinned by CondTimedWait.AnswersErrorHoweverItEnds.
    return VYX_ERROR;
}

int32_t VYX_CondTimedWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex, uint32_t nTimeOut) {
    return CondTimedWait(pCond, pMutex, nTimeOut);
}
