// The workers of the fixed pools: their life and their end.
//
// A worker sleeps on its own semaphore. Whoever gives it something does so under the pool's hLock and posts
// last: an item goes only to an idle worker, and a worker that was taken out of its place is posted so that it ends. A
// worker that is given an item runs it in any case, so that an accepted item is never lost. A worker whose time is
// out looks at its semaphore once more under the same lock, and retires only if nobody has posted.
//
// Who takes a worker out of its place also joins or detaches its thread. The record goes with the thread.
#include <cstdio>
#include <vyx/pool.h>
#include <vyx/sync.h>
#include <vyx/sys.h>
#include <vyx/thread.h>

#include "base/platform.h"
#include "base/probes.h"
#include "base/spin.h"
#include "base/uncancelled.h"
#include "pool/thread_pool_inter.h"

using vyx_inter::Answer;
using vyx_inter::Cancellable;
using vyx_inter::LockGuard;
using vyx_inter::TryBriefly;
using vyx_inter::Uncancelled;
using vyx_inter::WaitingCaller;

namespace {

// The calling worker's record; null on other threads.
thread_local THREAD_INFO_T *t_pOwnRecord = nullptr;

// What a worker does next.
enum class Step : uint8_t { Wait, Run, End };

bool Belongs_Local(THREAD_POOL_T &pool, const THREAD_INFO_T &info) VYX_REQUIRES(pool.hLock) {
    return pool.pPlaces[info.nIndex].pWorker == &info;
}

// Takes the calling worker out of its pool, unless somebody has done so, who takes care of the thread then.
void Leave_Local(THREAD_POOL_T &pool, const THREAD_INFO_T &info) VYX_REQUIRES(pool.hLock) {
    if (!Belongs_Local(pool, info))
        return;
    VYX_LeavePool_Inter(pool, info.nIndex);
    (void)pthread_detach(VYX_Thread_GetSelfId());
}

// A worker from its thread's start to its end, which the item that runs may bring about as well.
class Worker {
  public:
    explicit Worker(THREAD_INFO_T *pInfo) : m_pInfo(pInfo) {
        t_pOwnRecord = pInfo;
        char szName[16];
        (void)std::snprintf(szName, sizeof szName, "vyx-pool%u.%u", pInfo->nPool, pInfo->nIndex);
        VYX_NameThread_Inter(szName);
    }
    ~Worker() {
        {
            const LockGuard guard(m_pInfo->pThreadPool->hLock);
            Leave_Local(*m_pInfo->pThreadPool, *m_pInfo);
        }
        t_pOwnRecord =
            nullptr; // the thread's own destructors may still destroy pools, and this memory may hold another record
        (void)VYX_SemDestroy(&m_pInfo->hSem);
        delete m_pInfo;
    }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

  private:
    THREAD_INFO_T *m_pInfo;
};

// Waits for a post. Result: false if the worker's time is out.
bool Sleep_Local(THREAD_INFO_T &info) {
    if (info.nIdleTimeOut != VYX_INFINITE)
        return VYX_SemTimedWait(&info.hSem, info.nIdleTimeOut) == VYX_OK;
    while (VYX_SemWait(&info.hSem) != VYX_OK) {
        // A signal interrupted the wait.
    }
    return true;
}

// Result: true if the worker has left the pool. False if somebody posted after all.
bool Retire_Local(THREAD_POOL_T &pool, THREAD_INFO_T &info) {
    const LockGuard guard(pool.hLock);
    if (VYX_SemTimedWait(&info.hSem, 0) == VYX_OK)
        return false;
    Leave_Local(pool, info);
    return true;
}

Step AwaitPost_Local(THREAD_POOL_T &pool, THREAD_INFO_T &info) {
    const bool bPosted = TryBriefly([&info] { return VYX_SemTimedWait(&info.hSem, 0) == VYX_OK; });
    if (!bPosted && !Sleep_Local(info) && Retire_Local(pool, info))
        return Step::End;
    return info.fWork != nullptr ? Step::Run : Step::End;
}

// Runs the item, and takes the next from a caller that waits. Without one the worker is idle.
Step RunItem_Local(THREAD_POOL_T &pool, THREAD_INFO_T &info) {
    {
        const Cancellable cancellable;
        (void)info.fWork(info.pParam);
        pthread_testcancel(); // a cancellation meant for this item must not end the next one
    }
    const LockGuard guard(pool.hLock);
    if (!Belongs_Local(pool, info))
        return Step::End;
    WaitingCaller *pCaller = pool.waiting.TakeFirst();
    if (pCaller == nullptr) {
        info.fWork = nullptr;
        pool.idle.Add(info.nIndex);
        return Step::Wait;
    }
    ++pool.nItems;
    info.fWork = pCaller->fWork;
    info.pParam = pCaller->pParam;
    VYX_PROBE3(pool_hand_over, &pool, &info, info.pParam);
    VYX_AnswerCaller_Inter(*pCaller, Answer::Taken);
    return Step::Run;
}

} // namespace

bool VYX_IsOwnWorker_Inter(const THREAD_INFO_T *pInfo) {
    return pInfo == t_pOwnRecord;
}

void VYX_DisownWorker_Inter() {
    if (t_pOwnRecord != nullptr)
        t_pOwnRecord->hSem = nullptr;
}

void *f_Thread_Svc(void *pParam) {
    if (pParam == nullptr) {
        (void)VYX_OutputDebug("quelby !!! f_Thread_Svc pParam == NULL error, return NULL 1\n");
        return nullptr;
    }
    auto &info = *static_cast<THREAD_INFO_T *>(pParam);
    THREAD_POOL_T &pool = *info.pThreadPool;
    // A worker can be cancelled in an item only: in its sleep it may already have been given one.
    const Uncancelled uncancelled;
    const Worker worker(&info);
    for (Step eStep = Step::Wait; eStep != Step::End;)
        eStep = eStep == Step::Run ? RunItem_Local(pool, info) : AwaitPost_Local(pool, info);
    return nullptr;
}
