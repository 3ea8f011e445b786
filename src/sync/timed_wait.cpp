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
#include "sync/timed_wait.h"

#include <cerrno>
#include <new>
#include <unistd.h>
#include <vyx/sync.h>
#include <vyx/sys.h>
#include <vyx/thread.h>
#include <vyx/time.h>

#include "sync/lock_order.h"
#include "thread/service_thread.h"

using vyx_inter::Lock;
using vyx_inter::LockGuard;

// Ready at all times and never destroyed, since a semaphore may be created while the library stops.
VYX_MUTEX_T s_hCreateLock = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr uint32_t kStackSize = 262144; // bytes
constexpr uint32_t kPassPause = 100;    // microseconds between two passes that completed nothing
constexpr uint32_t kBusyPasses = 16;    // passes on which a busy mutex is only tried; then see WakeTimedOut
constexpr uint32_t kStopPasses = 1000;  // passes that stop grants to wake pending condition waiters
constexpr VYX_TIME_T kWakeGrace = 1000; // microseconds a signalled waiter has before all are woken
constexpr int64_t kMicrosPerMilli = 1000;

// How far the service has come in waking a condition waiter whose time is out.
enum class Wake : uint8_t {
    None,      // time is not out, or the mutex was busy so far
    Signalled, // one waiter of the condition was signalled
    Certain,   // all were, with the mutex held: nothing is left to do
};

// A record in its registry. Links are guarded by the registry's lock.
struct SemWait {
    TIMED_SEM_S struWait;
    VYX_TIME_T iDue; // not before this moment
    SemWait *pPrev;
    SemWait *pNext;
};

struct CondWait {
    TIMED_COND_S struWait;
    VYX_TIME_T iDue;      // nothing to do before this moment; guarded by s_hCondLock
    Wake eWake;           // guarded by s_hCondLock
    uint32_t nBusyPasses; // passes that found the caller's mutex busy; guarded by s_hCondLock
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

Lock s_hSemLock;
Registry<SemWait> s_struTimeSems VYX_GUARDED_BY(s_hSemLock);

Lock s_hCondLock VYX_ACQUIRED_AFTER(s_hSemLock);
Registry<CondWait> s_struTimeConds VYX_GUARDED_BY(s_hCondLock);

std::atomic<int32_t> s_bBreakTimer{1};
VYX_THREAD_T s_hThreadId = VYX_INVALID_THREAD; // under the start/stop mutex
pid_t s_iServicePid = 0;                       // the process the service was started in; likewise

// Where the service sleeps while nothing is registered. s_nPending rises before the sleeper is signalled and
// is looked at under the lock, so a registration is never missed.
Lock s_hParkLock;
VYX_COND_T s_hParkCond = PTHREAD_COND_INITIALIZER;
std::atomic<uint32_t> s_nPending{0};

void WakeService_Local() {
    const LockGuard guard(s_hParkLock);
    (void)VYX_CondSignal(&s_hParkCond);
}

void ParkService_Local() {
    const LockGuard guard(s_hParkLock);
    while (s_nPending.load() == 0 && s_bBreakTimer.load() == 0)
        (void)VYX_CondWait(&s_hParkCond, &s_hParkLock.hMutex);
}

void CountPending_Local() {
    if (s_nPending.fetch_add(1) == 0)
        WakeService_Local();
}

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
        {
            const LockGuard guard(s_hSemLock);
            s_struTimeSems.Remove(m_pWait);
        }
        s_nPending.fetch_sub(1);
        (void)VYX_CondDestroy(&m_pWait->struWait.wake);
        (void)VYX_MutexDestroy(&m_pWait->struWait.lock);
        delete m_pWait;
    }
    SemRegistration(const SemRegistration &) = delete;
    SemRegistration &operator=(const SemRegistration &) = delete;

  private:
    SemWait *m_pWait;
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

// Sleeps until the service has completed the wait.
void AwaitCompletion_Local(TIMED_SEM_S &wait) {
    struct Hold { // released also if the thread is cancelled in its sleep
        VYX_MUTEX_T *pMutex;
        explicit Hold(VYX_MUTEX_T *p) : pMutex(p) { (void)VYX_MutexLock(p); }
        ~Hold() { (void)VYX_MutexUnlock(pMutex); }
        Hold(const Hold &) = delete;
        Hold &operator=(const Hold &) = delete;
    };
    const Hold hold(&wait.lock);
    while (wait.waiting.load() != 0)
        (void)VYX_CondWait(&wait.wake, &wait.lock);
}

// Ends a semaphore wait. The waiter cannot free the record under us: for that it needs s_hSemLock.
void Complete_Local(TIMED_SEM_S &wait, int32_t iResult) VYX_REQUIRES(s_hSemLock) {
    wait.result = iResult;
    wait.waiting.store(0);
    (void)VYX_MutexLock(&wait.lock);
    (void)VYX_CondSignal(&wait.wake);
    (void)VYX_MutexUnlock(&wait.lock);
}

// Result: true if the wait was completed.
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
    // taken and the wait goes on. The service blocks all signals, so its own errno never does.
    // Pinned by TimedWait.StaleInterruptionKeepsTheCount.
    if (errno == EINTR)
        return false;
    Complete_Local(wait, VYX_OK);
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
bool WakeTimedOut_Local(CondWait &entry, VYX_TIME_T iNow) VYX_REQUIRES(s_hCondLock) {
    TIMED_COND_S &wait = entry.struWait;
    if (entry.eWake == Wake::Certain)
        return false;
    if (VYX_MutexTryLock(wait.mutex) != VYX_OK) {
        ++entry.nBusyPasses;
        const bool bPowerOfTwo = (entry.nBusyPasses & (entry.nBusyPasses - 1)) == 0;
        if (entry.nBusyPasses >= kBusyPasses && bPowerOfTwo)
            (void)VYX_CondBroadCast(wait.condition);
        return false;
    }
    const bool bFirst = entry.eWake == Wake::None;
    if (bFirst) {
        wait.result = VYX_ERROR;
        wait.waiting.store(0);
        (void)VYX_CondSignal(wait.condition);
    } else {
        (void)VYX_CondBroadCast(wait.condition);
    }
    entry.eWake = bFirst ? Wake::Signalled : Wake::Certain;
    entry.iDue = iNow + kWakeGrace;
    (void)VYX_MutexUnlock(wait.mutex);
    return bFirst;
}

bool ScanConds_Local() {
    const LockGuard guard(s_hCondLock);
    if (s_struTimeConds.pFirst == nullptr)
        return false;
    const VYX_TIME_T iNow = VYX_TimeNow();
    bool bCompleted = false;
    for (CondWait *pEntry = s_struTimeConds.pFirst; pEntry != nullptr; pEntry = pEntry->pNext)
        if (pEntry->iDue <= iNow)
            bCompleted = WakeTimedOut_Local(*pEntry, iNow) || bCompleted;
    return bCompleted;
}

// Ends every pending semaphore wait with -1.
void ReleaseSems_Local() {
    const LockGuard guard(s_hSemLock);
    for (SemWait *pEntry = s_struTimeSems.pFirst; pEntry != nullptr; pEntry = pEntry->pNext)
        if (pEntry->struWait.waiting.load() != 0)
            Complete_Local(pEntry->struWait, VYX_ERROR);
}

// Wakes every pending condition waiter as if its time were out. Result: true if none needs another try.
bool ReleaseConds_Local() {
    const LockGuard guard(s_hCondLock);
    bool bDone = true;
    for (CondWait *pEntry = s_struTimeConds.pFirst; pEntry != nullptr; pEntry = pEntry->pNext) {
        (void)WakeTimedOut_Local(*pEntry, 0);
        bDone = bDone && pEntry->eWake == Wake::Certain;
    }
    return bDone;
}

// In a forked child: the service and the waiters exist in the parent only, and may have held the locks.
void ForgetService_Local() {
    s_hSemLock.hMutex = PTHREAD_MUTEX_INITIALIZER;
    s_hCondLock.hMutex = PTHREAD_MUTEX_INITIALIZER;
    s_hParkLock.hMutex = PTHREAD_MUTEX_INITIALIZER;
    s_hParkCond = PTHREAD_COND_INITIALIZER;
    {
        const LockGuard guard(s_hSemLock);
        s_struTimeSems = {};
    }
    {
        const LockGuard guard(s_hCondLock);
        s_struTimeConds = {};
    }
    s_nPending.store(0);
}

} // namespace

int32_t VYX_InitTimeWait_Inter(void) {
    s_bBreakTimer.store(0);
    s_iServicePid = getpid();
    s_hThreadId = VYX_StartServiceThread_Inter(timer_svc, nullptr, kStackSize);
    return s_hThreadId != VYX_INVALID_THREAD ? VYX_OK : VYX_ERROR;
}

int32_t VYX_FiniTimedWait_Inter(void) {
    s_bBreakTimer.store(1);
    const bool bForked = s_iServicePid != getpid();
    if (bForked) {
        ForgetService_Local();
    } else {
        WakeService_Local();
        (void)VYX_Thread_Wait(s_hThreadId);
    }
    s_hThreadId = VYX_INVALID_THREAD;
    ReleaseSems_Local();
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

void *timer_svc(void * /*pIgnored*/) {
    VYX_NameThread_Inter("timer_svc");
    while (s_bBreakTimer.load() == 0) {
        if (VYX_TimedWaitPass_Inter())
            continue;
        if (s_nPending.load() == 0)
            ParkService_Local();
        else
            (void)VYX_USleep(kPassPause);
    }
    return nullptr;
}

int32_t SemTimedWait(VYX_SEM_S *pRecord, uint32_t nTimeOut) {
    if (nTimeOut == VYX_INFINITE)
        return sem_wait(pRecord->pSem);
    auto *pWait = new (std::nothrow) SemWait();
    if (pWait == nullptr)
        return VYX_ERROR;
    const VYX_TIME_T iNow = VYX_TimeNow();
    TIMED_SEM_S &wait = pWait->struWait;
    wait.waiting.store(1);
    wait.semaphore = pRecord;
    wait.timeout = nTimeOut;
    wait.start = iNow / kMicrosPerMilli;
    wait.result = VYX_OK;
    pWait->iDue = iNow + wait.timeout * kMicrosPerMilli;
    const SemRegistration registration(pWait);
    AwaitCompletion_Local(wait);
    return wait.result;
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
