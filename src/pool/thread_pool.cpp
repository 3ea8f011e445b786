// The fixed pools: registry, creation, hand-over of items, destruction. The workers are in
// thread_pool_worker.cpp.
//
// A pool is a record of a static registry; its handle is the record's address. There is no queue: an item
// goes to an idle worker under the pool's hLock, or to a worker started for it, or is refused. Callers that
// want to wait for a worker sleep on hFree, which is signalled whenever one becomes idle or goes.
//
// Destruction sets bQuit, which is looked at again under hLock before an item is accepted, so that no worker
// is claimed or started once the workers are being stopped. A caller may be anywhere inside
// VYX_ThreadPool_WorkEx at that time; nUses counts such callers, and hLock goes only after the last has left.
#include <new>
#include <vyx/pool.h>
#include <vyx/sys.h>

#include "base/lock.h"
#include "base/spin.h"
#include "pool/thread_pool_inter.h"
#include "pool/waiting.h"

using vyx_inter::Lock;
using vyx_inter::LockGuard;
using vyx_inter::MutexHold;
using vyx_inter::TryBriefly;

// Guards every bUsed: taking a place in the registry and giving it back.
static Lock s_csLock{vyx_inter::Rank::PoolRegistry};
static THREAD_POOL_T s_struThreadPools[VYX_MAX_THREADPOOLS];

namespace {

constexpr uint32_t kLeavePause = 50; // microseconds between looks whether the last caller has left

// Counts the calling thread among those inside VYX_ThreadPool_WorkEx for the length of a block.
class PoolUse {
  public:
    explicit PoolUse(THREAD_POOL_T &pool) : m_nUses(pool.nUses) { m_nUses.fetch_add(1); }
    ~PoolUse() { m_nUses.fetch_sub(1); }
    PoolUse(const PoolUse &) = delete;
    PoolUse &operator=(const PoolUse &) = delete;

  private:
    std::atomic<uint32_t> &m_nUses;
};

// Result: the first free place of the registry, now taken; null if there is none.
THREAD_POOL_T *TakePool_Local() {
    const LockGuard guard(s_csLock);
    for (THREAD_POOL_T &pool : s_struThreadPools) {
        if (pool.bUsed != 0)
            continue;
        pool.bUsed = 1;
        return &pool;
    }
    return nullptr;
}

// Result: true if all the pool's first workers were started.
bool StartWorkers_Local(THREAD_POOL_T &pool) {
    const MutexHold hold(pool.hLock);
    for (uint32_t nStarted = 0; nStarted < pool.nInitCount; ++nStarted) {
        if (VYX_CreateThread_Local(&pool) == VYX_OK)
            continue;
        (void)VYX_OutputDebug("quelby !!! VYX_InitThread_Local VYX_CreateThread_Local error, return -1 2\n");
        return false;
    }
    return true;
}

void StopWorkers_Local(THREAD_POOL_T &pool) {
    const uint32_t nMaxCount = pool.nMaxCount;
    for (uint32_t nStopped = 0; nStopped < nMaxCount; ++nStopped)
        (void)VYX_DestroyThread_Local(&pool);
}

void WakeWaiters_Local(THREAD_POOL_T &pool) {
    const MutexHold hold(pool.hLock);
    (void)VYX_CondBroadCast(&pool.hFree);
}

// Claims an idle worker, or starts one while the pool has room. Result: -1 only if one could not be started;
// *ppWorker is null when the pool is full. With hLock held.
int32_t ClaimWorker_Local(THREAD_POOL_T &pool, THREAD_INFO_T **ppWorker) {
    *ppWorker = VYX_GetIdle_Local(&pool);
    if (*ppWorker != nullptr || pool.nCurrCount >= pool.nMaxCount)
        return VYX_OK;
    if (VYX_CreateThread_Local(&pool) != VYX_OK)
        return VYX_ERROR;
    *ppWorker = VYX_GetIdle_Local(&pool);
    return VYX_OK;
}

// The post comes last: it publishes the item to the worker. With hLock held.
void HandOver_Local(THREAD_INFO_T &worker, VYX_THREAD_PROC fnWork, void *pParam) {
    worker.fWork = fnWork;
    worker.pParam = pParam;
    (void)VYX_SemPost(&worker.hSem);
}

// Looks for a moment whether a worker becomes idle, without the lock. With hLock held exactly once, as
// afterwards.
void LookForIdle_Local(THREAD_POOL_T &pool) {
    const uint32_t nSeen = pool.nFreed.load();
    (void)VYX_MutexUnlock(&pool.hLock);
    (void)TryBriefly([&pool, nSeen] { return pool.nFreed.load() != nSeen || pool.bQuit.load() != 0; });
    (void)VYX_MutexLock(&pool.hLock);
}

// Sleeps until a worker may have become idle or gone, or the pool is being destroyed. With hLock held exactly
// once, and since no idle worker was found.
void AwaitFree_Local(THREAD_POOL_T &pool) {
    struct Waiting { // counted also if the thread is cancelled in its sleep
        uint32_t &nWaiting;
        explicit Waiting(uint32_t &n) : nWaiting(n) { ++nWaiting; }
        ~Waiting() { --nWaiting; }
        Waiting(const Waiting &) = delete;
        Waiting &operator=(const Waiting &) = delete;
    };
    const Waiting waiting(pool.nWaiting);
    (void)VYX_CondWait(&pool.hFree, &pool.hLock);
}

vyx_inter::ForkHold s_forkHold(s_csLock);

} // namespace

const vyx_inter::ForkRow g_struPoolForkRow = {
    [] { s_forkHold.Before(); },
    [] { s_forkHold.InParent(); },
    [] { (void)s_forkHold.InChild(); },
};

int32_t VYX_InitThreadPool_Inter(void) {
    const LockGuard guard(s_csLock);
    for (THREAD_POOL_T &pool : s_struThreadPools) {
        new (&pool) THREAD_POOL_T(); // all bytes zero
        for (THREAD_INFO_T &info : pool.struThreads)
            info.hThread = VYX_INVALID_THREAD;
    }
    return VYX_OK;
}

int32_t VYX_FiniThreadPool_Inter(void) {
    return VYX_OK; // s_csLock outlives the stage
}

void VYX_MoveToIdleThreadPool_Local(THREAD_POOL_T *pThreadPool) {
    const LockGuard guard(s_csLock);
    pThreadPool->bUsed = 0;
}

VYX_HANDLE_THREADPOOL VYX_ThreadPool_CreateFlex(uint32_t nInitCount, uint32_t nMaxCount, uint32_t nStackSize,
                                                uint32_t nIdleTimeOut) {
    if (nMaxCount > MAX_THREAD_PER_THREADPOOL) {
        (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Create nMaxCount > MAX_THREAD_PER_THREADPOOL error, "
                              "return -1 1\n");
        return nullptr;
    }
    THREAD_POOL_T *pPool = TakePool_Local();
    if (pPool == nullptr) {
        (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Create VYX_GetIdleThreadPool_Local error, "
                              "return -1 2\n");
        return nullptr;
    }
    pPool->nStackSize = nStackSize;
    pPool->nMaxCount = nMaxCount;
    pPool->nInitCount = nInitCount;
    pPool->nCurrCount = 0;
    pPool->nIdleTimeOut = nIdleTimeOut;
    pPool->nWaiting = 0;
    (void)VYX_MutexCreate(&pPool->hLock, VYX_MUTEX_RECURSIVE);
    (void)VYX_CondCreate(&pPool->hFree);
    if (StartWorkers_Local(*pPool)) {
        pPool->bQuit.store(0);
        return pPool;
    }
    StopWorkers_Local(*pPool);
    (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Create VYX_InitThread_Local error, return -1 3\n");
    // Deliberate: hLock stays; the next creation at this place makes it anew.
    (void)VYX_CondDestroy(&pPool->hFree);
    VYX_MoveToIdleThreadPool_Local(pPool);
    return nullptr;
}

VYX_HANDLE_THREADPOOL VYX_ThreadPool_Create(uint32_t nInitCount, uint32_t nMaxCount) {
    return VYX_ThreadPool_CreateFlex(nInitCount, nMaxCount, 0, VYX_INFINITE);
}

VYX_HANDLE_THREADPOOL VYX_ThreadPool_CreateEx(uint32_t nInitCount, uint32_t nMaxCount, uint32_t nStackSize) {
    return VYX_ThreadPool_CreateFlex(nInitCount, nMaxCount, nStackSize, VYX_INFINITE);
}

int32_t VYX_ThreadPool_Work(VYX_HANDLE_THREADPOOL hPool, VYX_THREAD_PROC fnWork, void *pParam) {
    return VYX_ThreadPool_WorkEx(hPool, fnWork, pParam, 0);
}

int32_t VYX_ThreadPool_WorkEx(VYX_HANDLE_THREADPOOL hPool, VYX_THREAD_PROC fnWork, void *pParam,
                              int32_t bWait) {
    if (hPool == nullptr || fnWork == nullptr) {
        (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Work param error, return -1 1\n");
        return VYX_ERROR;
    }
    const PoolUse use(*hPool);
    if (hPool->bQuit.load() != 0) // also the pool's lock may be gone
        return VYX_ERROR;
    const MutexHold hold(hPool->hLock);
    for (bool bLooked = false; hPool->bQuit.load() == 0; bLooked = !bLooked) {
        THREAD_INFO_T *pWorker = nullptr;
        if (ClaimWorker_Local(*hPool, &pWorker) != VYX_OK) {
            (void)VYX_CondSignal(&hPool->hFree); // the room is the next waiter's to try for
            return VYX_ERROR;
        }
        if (pWorker != nullptr) {
            HandOver_Local(*pWorker, fnWork, pParam);
            return VYX_OK;
        }
        if (bWait == 0)
            return VYX_ERROR;
        if (bLooked)
            AwaitFree_Local(*hPool);
        else
            LookForIdle_Local(*hPool);
    }
    return VYX_ERROR;
}

int32_t VYX_ThreadPool_Destroy(VYX_HANDLE_THREADPOOL hPool) {
    if (hPool == nullptr) {
        (void)VYX_OutputDebug("quelby !!! VYX_ThreadPool_Destroy pThreadPool == NULL return\n");
        return VYX_ERROR;
    }
    hPool->bQuit.store(1);
    WakeWaiters_Local(*hPool);
    StopWorkers_Local(*hPool);
    while (hPool->nUses.load() != 0)
        (void)VYX_USleep(kLeavePause);
    (void)VYX_CondDestroy(&hPool->hFree);
    (void)VYX_MutexDestroy(&hPool->hLock);
    VYX_MoveToIdleThreadPool_Local(hPool);
    return VYX_OK;
}

VYX_ThreadPool::VYX_ThreadPool() : m_hPool(nullptr) {}
VYX_ThreadPool::~VYX_ThreadPool() = default;

int VYX_ThreadPool::Create(unsigned int nInitCount, unsigned int nMaxCount) {
    m_hPool = VYX_ThreadPool_CreateFlex(nInitCount, nMaxCount, 0, VYX_INFINITE);
    return m_hPool != nullptr ? VYX_OK : VYX_ERROR;
}

int VYX_ThreadPool::Destroy() {
    return VYX_ThreadPool_Destroy(m_hPool);
}

int VYX_ThreadPool::Work(void *(*work)(void *), void *param) {
    return VYX_ThreadPool_WorkEx(m_hPool, work, param, 0);
}
