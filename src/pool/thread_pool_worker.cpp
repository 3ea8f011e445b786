// The workers of the fixed pools: their start, their life and their end.
//
// A worker sleeps on its own semaphore. Whoever gives it something does so under the pool's hLock and posts
// last: an item goes only to an idle worker, the wish to end (bExit) to any, but only after the pool has ceased
// to accept items. A worker woken by either runs its item first, so that an accepted item is never lost. A worker
// whose time is out looks at its semaphore once more under the same lock, and retires only if nobody has posted.
//
// Who frees the record: the worker itself when it retires or when an item ends its thread; otherwise the
// thread that asked it to end, after joining it.
#include <vyx/pool.h>
#include <vyx/sys.h>
#include <vyx/thread.h>

#include "base/spin.h"
#include "pool/thread_pool_inter.h"
#include "pool/waiting.h"

using vyx_inter::MutexHold;
using vyx_inter::RefuseCancellation;
using vyx_inter::RunCancellable;
using vyx_inter::TryBriefly;

namespace {

constexpr uint32_t kDefaultStackSize = 1048576; // bytes
constexpr uint32_t kWordBits = 64;

// The calling worker's record. Null on other threads, and once the pool was destroyed from inside the item
// that runs here: then the record is gone when the item returns.
thread_local THREAD_INFO_T *t_pOwnRecord = nullptr;

// With hLock held, here and below as far as the pool is concerned.
void NoteIdle_Local(THREAD_INFO_T &info) {
    info.bIdle = 1;
    info.pThreadPool->nNotIdle[info.nIndex / kWordBits] &= ~(uint64_t{1} << info.nIndex % kWordBits);
}

void ClearRecord_Local(THREAD_INFO_T &info) {
    info = THREAD_INFO_T{};
    info.hThread = VYX_INVALID_THREAD;
}

void FreeRecord_Local(THREAD_POOL_T &pool, THREAD_INFO_T &info) {
    (void)VYX_SemDestroy(&info.hSem);
    ClearRecord_Local(info);
    --pool.nCurrCount;
    if (pool.nWaiting != 0)
        (void)VYX_CondSignal(&pool.hFree); // there is room for a new worker
}

// First record from 0 to nMaxCount - 1 whose place is free, or taken. Null if there is none.
THREAD_INFO_T *FindPlace_Local(THREAD_POOL_T &pool, bool bFree) {
    for (uint32_t nIndex = 0; nIndex < pool.nMaxCount; ++nIndex)
        if ((pool.struThreads[nIndex].hThread == VYX_INVALID_THREAD) == bFree)
            return &pool.struThreads[nIndex];
    return nullptr;
}

// Looks for an idle worker among 64 records, and notes which of them are not. Null if there is none.
THREAD_INFO_T *FindIdleInWord_Local(THREAD_POOL_T &pool, uint32_t nWord) {
    uint64_t &nNotIdle = pool.nNotIdle[nWord];
    while (~nNotIdle != 0) {
        const auto nBit = static_cast<uint32_t>(__builtin_ctzll(~nNotIdle));
        const uint32_t nIndex = nWord * kWordBits + nBit;
        if (nIndex >= pool.nMaxCount)
            return nullptr;
        THREAD_INFO_T &info = pool.struThreads[nIndex];
        if (info.bIdle == 1 && info.hThread != VYX_INVALID_THREAD)
            return &info;
        nNotIdle |= uint64_t{1} << nBit;
    }
    return nullptr;
}

// False on a worker that was still busy when the library was stopped and started again: the registry is a new
// one then, and the record somebody else's. Nobody will join that worker.
bool IsOwn_Local(const THREAD_INFO_T &info) {
    const VYX_THREAD_T hSelf = VYX_Thread_GetSelfId();
    if (info.hThread == hSelf)
        return true;
    (void)pthread_detach(hSelf);
    return false;
}

// An unlocked look at what was set before the worker was started.
bool MayRetire_Local(const THREAD_POOL_T &pool, const THREAD_INFO_T &info) {
    // By place: a freed record below nInitCount may have been taken again by a later worker, which then stays.
    return pool.nIdleTimeOut != VYX_INFINITE && info.nIndex >= pool.nInitCount;
}

// Result: true if the worker has retired; its record is free. False if somebody posted after all.
bool Retire_Local(THREAD_POOL_T &pool, THREAD_INFO_T &info) {
    const MutexHold hold(pool.hLock);
    if (!IsOwn_Local(info))
        return true;
    if (VYX_SemTimedWait(&info.hSem, 0) == VYX_OK)
        return false;
    FreeRecord_Local(pool, info);
    (void)pthread_detach(VYX_Thread_GetSelfId());
    return true;
}

// Waits until the worker has been given something. Result: false if it has retired.
bool AwaitPost_Local(THREAD_POOL_T &pool, THREAD_INFO_T &info) {
    VYX_SEM_T hSem = info.hSem; // a copy, so that a worker asleep while the registry is emptied stays asleep
    if (TryBriefly([&hSem] { return VYX_SemTimedWait(&hSem, 0) == VYX_OK; }))
        return true;
    if (MayRetire_Local(pool, info))
        return VYX_SemTimedWait(&hSem, pool.nIdleTimeOut) == VYX_OK || !Retire_Local(pool, info);
    while (VYX_SemWait(&hSem) != VYX_OK) {
        // A signal interrupted the wait.
    }
    return true;
}

// A worker's item while it runs. If the item ends its thread, takes the worker out of the pool, unless
// somebody is waiting to do that.
class RunningItem {
  public:
    RunningItem(THREAD_POOL_T &pool, THREAD_INFO_T &info) : m_pool(pool), m_info(info) {}
    ~RunningItem() {
        if (m_bReturned || t_pOwnRecord == nullptr)
            return;
        const MutexHold hold(m_pool.hLock);
        if (!IsOwn_Local(m_info) || m_info.bExit != 0)
            return;
        FreeRecord_Local(m_pool, m_info);
        (void)pthread_detach(VYX_Thread_GetSelfId());
    }
    RunningItem(const RunningItem &) = delete;
    RunningItem &operator=(const RunningItem &) = delete;

    void Run() {
        RunCancellable([this] { (void)m_info.fWork(m_info.pParam); });
        m_bReturned = true;
    }

  private:
    THREAD_POOL_T &m_pool;
    THREAD_INFO_T &m_info;
    bool m_bReturned = false;
};

// Result: false if the record is not the worker's any more.
bool BecomeIdle_Local(THREAD_POOL_T &pool, THREAD_INFO_T &info) {
    if (t_pOwnRecord == nullptr)
        return false;
    bool bWaited = false;
    {
        const MutexHold hold(pool.hLock);
        if (!IsOwn_Local(info))
            return false;
        info.fWork = nullptr;
        info.pParam = nullptr;
        NoteIdle_Local(info);
        bWaited = pool.nWaiting != 0;
    }
    // Told after the lock is free again, so that nobody is woken only to wait for it. Until it is joined, a
    // worker keeps the pool from going.
    pool.nFreed.fetch_add(1);
    if (bWaited)
        (void)VYX_CondSignal(&pool.hFree);
    return true;
}

// Waits for one post and does what it asks for. Result: false if the thread is to end.
bool ServeOnce_Local(THREAD_POOL_T &pool, THREAD_INFO_T &info) {
    if (!AwaitPost_Local(pool, info))
        return false;
    if (info.fWork == nullptr)
        return info.bExit == 0;
    RunningItem item(pool, info);
    item.Run();
    return BecomeIdle_Local(pool, info);
}

} // namespace

int32_t VYX_CreateThread_Local(THREAD_POOL_T *pThreadPool) {
    if (pThreadPool->nCurrCount == pThreadPool->nMaxCount) {
        (void)VYX_OutputDebug("quelby !!! VYX_CreateThread_Local (pThreadPool->nCurrCount == "
                              "pThreadPool->nMaxCount) error, return -1, 1\n");
        return VYX_ERROR;
    }
    THREAD_INFO_T *pInfo = FindPlace_Local(*pThreadPool, true);
    if (pInfo == nullptr)
        return VYX_ERROR;
    pInfo->fWork = nullptr;
    if (VYX_SemCreate(&pInfo->hSem, 0) != VYX_OK) {
        (void)VYX_OutputDebug("quelby !!! VYX_CreateThread_Local VYX_SemCreate error, return -1 2\n");
        return VYX_ERROR;
    }
    pInfo->nIndex = static_cast<uint32_t>(pInfo - pThreadPool->struThreads);
    pInfo->bExit = 0;
    pInfo->pThreadPool = pThreadPool;
    const uint32_t nStackSize = pThreadPool->nStackSize == 0 ? kDefaultStackSize : pThreadPool->nStackSize;
    const VYX_THREAD_T hThread = VYX_Thread_Create(f_Thread_Svc, pInfo, nStackSize, 0, 0, 0);
    if (hThread == VYX_INVALID_THREAD) {
        (void)VYX_OutputDebug("quelby !!! VYX_CreateThread_Local VYX_Thread_Create error, return -1 3\n");
        (void)VYX_SemDestroy(&pInfo->hSem);
        ClearRecord_Local(*pInfo);
        return VYX_ERROR;
    }
    pInfo->hThread = hThread;
    NoteIdle_Local(*pInfo);
    ++pThreadPool->nCurrCount;
    return VYX_OK;
}

int32_t VYX_DestroyThread_Local(THREAD_POOL_T *pThreadPool) {
    THREAD_INFO_T *pInfo = nullptr;
    VYX_THREAD_T hThread = VYX_INVALID_THREAD;
    {
        const MutexHold hold(pThreadPool->hLock);
        if (pThreadPool->nCurrCount == 0)
            return VYX_ERROR;
        pInfo = FindPlace_Local(*pThreadPool, false);
        if (pInfo == nullptr)
            return VYX_OK;
        pInfo->bIdle = 0;
        pInfo->bExit = 1;
        hThread = pInfo->hThread;
        (void)VYX_SemPost(&pInfo->hSem);
    }
    if (pInfo == t_pOwnRecord) { // from inside an item: this thread cannot wait for itself
        t_pOwnRecord = nullptr;
        (void)pthread_detach(hThread);
    } else {
        (void)VYX_Thread_Wait(hThread);
    }
    const MutexHold hold(pThreadPool->hLock);
    FreeRecord_Local(*pThreadPool, *pInfo);
    return VYX_OK;
}

THREAD_INFO_T *VYX_GetIdle_Local(THREAD_POOL_T *pThreadPool) {
    if (pThreadPool == nullptr) {
        (void)VYX_OutputDebug("quelby !!! VYX_GetIdle_Local pThreadPool == NULL error, return NULL 1\n");
        return nullptr;
    }
    const MutexHold hold(pThreadPool->hLock);
    for (uint32_t nWord = 0; nWord * kWordBits < pThreadPool->nMaxCount; ++nWord) {
        THREAD_INFO_T *pInfo = FindIdleInWord_Local(*pThreadPool, nWord);
        if (pInfo == nullptr)
            continue;
        pInfo->bIdle = 0;
        return pInfo;
    }
    return nullptr;
}

void *f_Thread_Svc(void *pParam) {
    if (pParam == nullptr) {
        (void)VYX_OutputDebug("quelby !!! f_Thread_Svc pParam == NULL error, return NULL 1\n");
        return nullptr;
    }
    auto &info = *static_cast<THREAD_INFO_T *>(pParam);
    THREAD_POOL_T &pool = *info.pThreadPool;
    t_pOwnRecord = &info;
    RefuseCancellation();
    while (ServeOnce_Local(pool, info)) {
    }
    return nullptr;
}
