// The flexible pools: a queue, and detached workers that come when none is idle and go when they stay idle.
//
// hLock guards the queue, nAlive and the start of workers. Workers sleep on hWorkSem, but the queue decides: a
// worker goes to sleep only after it has seen, under the lock, that the queue is empty. So an item that was
// queued without a word, because no worker could be started, still runs.
//
// A dispatch wakes a sleeper only if more is queued than workers are on their way to the queue, woken or looking
// for work; each of these takes one item or finds the queue empty. Thus no item waits while a worker sleeps, and
// under a steady load almost nobody is woken for nothing.
//
// Whether a worker may retire is decided under hLock, where it also stops counting as alive: of two whose time
// is out together only one goes, and an item queued meanwhile keeps it. The last live worker thus stays until
// the pool is destroyed, unless a handler ends its thread.
#include <cstdio>
#include <memory>
#include <new>
#include <vyx/pool.h>
#include <vyx/sync.h>
#include <vyx/sys.h>
#include <vyx/thread.h>

#include "base/spin.h"
#include "base/units.h"
#include "pool/thrmgr.h"
#include "pool/waiting.h"

using vyx_inter::MutexHold;
using vyx_inter::RefuseCancellation;
using vyx_inter::RunCancellable;
using vyx_inter::TryBriefly;

namespace {

constexpr int kDefaultStackSize = 1048576; // bytes
constexpr int kLeastStackSize = 262144;    // bytes
constexpr int32_t kRunning = 0;
constexpr int32_t kDestroying = 1;
constexpr uint32_t kPollPause = 5; // milliseconds between looks where a semaphore could not be had

// The time of day, cut to the millisecond.
void GetTimeOfDay_Local(timeval *pNow) {
    (void)gettimeofday(pNow, nullptr);
    pNow->tv_usec -= pNow->tv_usec % static_cast<suseconds_t>(vyx_inter::kMicrosPerMilli);
}

uint32_t StackSize_Local(int nStackSize) {
    if (nStackSize == 0)
        nStackSize = kDefaultStackSize;
    return static_cast<uint32_t>(nStackSize < kLeastStackSize ? kLeastStackSize : nStackSize);
}

// The queue's two operations, with hLock held.
void Append_Local(thrmgr_queue_t &queue, thrmgr_item_t *pItem) {
    (queue.nCount == 0 ? queue.pHead : queue.pTail->pNext) = pItem;
    queue.pTail = pItem;
    queue.nCount.fetch_add(1);
}

std::unique_ptr<thrmgr_item_t> TakeHead_Local(thrmgr_queue_t &queue) {
    std::unique_ptr<thrmgr_item_t> pItem(queue.pHead);
    if (pItem == nullptr)
        return pItem;
    queue.pHead = pItem->pNext;
    if (queue.pHead == nullptr)
        queue.pTail = nullptr;
    queue.nCount.fetch_sub(1);
    return pItem;
}

// Starts a worker if none is idle and the pool has room. Result: false if the pool is left without any worker.
// With hLock held.
bool StartWorker_Local(thrmgr_pool_t &pool) {
    const int32_t nAlive = pool.nAlive.load();
    // A pool whose last worker was ended by its handler needs one whatever the idle count says.
    if ((pool.nIdle.load() != 0 && nAlive != 0) || nAlive >= pool.nMaxThreads)
        return true;
    if (VYX_ThreadDetached_Create(thrmgr_worker, &pool, pool.nStackSize) == VYX_TRUE) {
        pool.nAlive.store(nAlive + 1);
        return true;
    }
    (void)std::puts("!pthread_create failed");
    return nAlive != 0;
}

// A worker's place among the live ones, for the length of its thread however that ends.
class Membership {
  public:
    explicit Membership(thrmgr_pool_t &pool) : m_pPool(&pool) {}
    ~Membership() {
        if (m_pPool == nullptr)
            return;
        // The destroyer frees the pool once it has seen, under the lock, that nobody is left.
        const MutexHold hold(m_pPool->hLock);
        m_pPool->nAlive.fetch_sub(1);
        if (m_pPool->nState.load() == kRunning && m_pPool->pQueue->nCount != 0)
            (void)StartWorker_Local(*m_pPool); // the handler ended this thread; what is queued still runs
        if (m_pPool->nAlive.load() == 0)
            (void)VYX_SemPost(&m_pPool->hExitSem);
    }
    Membership(const Membership &) = delete;
    Membership &operator=(const Membership &) = delete;

    // Result: true if the worker has left; the pool must not be touched any more.
    bool Retire() {
        const MutexHold hold(m_pPool->hLock);
        if (m_pPool->nAlive.load() <= 1 || m_pPool->pQueue->nCount != 0)
            return false;
        m_pPool->nAlive.fetch_sub(1);
        m_pPool = nullptr;
        return true;
    }

  private:
    thrmgr_pool_t *m_pPool;
};

// Wakes one sleeper if more is queued than others are coming for. With hLock held.
void WakeSleeper_Local(thrmgr_pool_t &pool) {
    if (pool.nAsleep <= pool.nWoken || pool.nWoken + pool.nLooking.load() >= pool.pQueue->nCount.load())
        return;
    if (VYX_SemPost(&pool.hWorkSem) == VYX_OK)
        ++pool.nWoken;
}

// Counts the calling worker as asleep for the length of a block, without the lock.
class Sleeping {
  public:
    explicit Sleeping(thrmgr_pool_t &pool) : m_pool(pool) {}
    ~Sleeping() {
        const MutexHold hold(m_pool.hLock);
        --m_pool.nAsleep;
        // A post that came together with the time-out is taken along.
        if ((m_bPosted || VYX_SemTimedWait(&m_pool.hWorkSem, 0) == VYX_OK) && m_pool.nWoken > 0)
            --m_pool.nWoken;
    }
    Sleeping(const Sleeping &) = delete;
    Sleeping &operator=(const Sleeping &) = delete;

    // Result: false if the time is out.
    bool Wait(uint32_t nTimeOut) {
        m_bPosted = VYX_SemTimedWait(&m_pool.hWorkSem, nTimeOut) == VYX_OK;
        return m_bPosted;
    }

  private:
    thrmgr_pool_t &m_pool;
    bool m_bPosted = false;
};

// Looks at the queue for a moment. Result: true if there is something in it.
bool LookForWork_Local(thrmgr_pool_t &pool) {
    pool.nLooking.fetch_add(1);
    const bool bFound =
        TryBriefly([&pool] { return pool.pQueue->nCount.load() != 0 || pool.nState.load() == kDestroying; });
    pool.nLooking.fetch_sub(1); // and now the lock: a dispatch that relied on this look is found there
    return bFound;
}

// Result: true if the queue is empty and the worker counts as asleep from now on.
bool FallAsleep_Local(thrmgr_pool_t &pool) {
    const MutexHold hold(pool.hLock);
    if (pool.pQueue->nCount.load() != 0 || pool.nState.load() == kDestroying)
        return false;
    ++pool.nAsleep;
    return true;
}

// Waits until there may be work or the time is out. Result: false if the time is out.
bool AwaitWork_Local(thrmgr_pool_t &pool, uint32_t nTimeOut) {
    if (LookForWork_Local(pool) || !FallAsleep_Local(pool))
        return true;
    Sleeping sleeping(pool);
    if (pool.hWorkSem == nullptr) {
        (void)VYX_Sleep(kPollPause);
        return true;
    }
    if (nTimeOut != VYX_INFINITE)
        return sleeping.Wait(nTimeOut);
    while (!sleeping.Wait(VYX_INFINITE)) {
        // A signal interrupted the wait.
    }
    return true;
}

void RunNext_Local(thrmgr_pool_t &pool) {
    void *pData = nullptr;
    {
        const MutexHold hold(pool.hLock);
        const std::unique_ptr<thrmgr_item_t> pItem = TakeHead_Local(*pool.pQueue);
        if (pItem == nullptr)
            return;
        pData = pItem->pData;
    }
    RunCancellable([&pool, pData] { pool.fnHandler(pData); });
}

void FreePool_Local(thrmgr_pool_t *pPool) {
    (void)VYX_SemDestroy(&pPool->hExitSem);
    (void)VYX_SemDestroy(&pPool->hWorkSem);
    (void)VYX_MutexDestroy(&pPool->hLock);
    while (TakeHead_Local(*pPool->pQueue) != nullptr) {
        // Deliberate: what is still queued is dropped. Pinned by FlexPool.DestroyDropsWhatIsQueued.
    }
    delete pPool->pQueue;
    delete pPool;
}

bool HasWorkers_Local(thrmgr_pool_t &pool) {
    const MutexHold hold(pool.hLock);
    return pool.nAlive.load() != 0;
}

} // namespace

thrmgr_pool_t *thrmgr_new(int nMaxThreads, int nIdleTimeOut, void (*fnHandler)(void *), int nStackSize) {
    if (nMaxThreads <= 0 || nStackSize < 0 || fnHandler == nullptr)
        return nullptr;
    std::unique_ptr<thrmgr_pool_t> pPool(new (std::nothrow) thrmgr_pool_t());
    std::unique_ptr<thrmgr_queue_t> pQueue(new (std::nothrow) thrmgr_queue_t());
    if (pPool == nullptr || pQueue == nullptr)
        return nullptr;
    (void)VYX_MutexCreate(&pPool->hLock, VYX_MUTEX_NORMAL);
    (void)VYX_SemCreate(&pPool->hExitSem, 0); // a slot left empty makes waits fail at once, see the waits
    (void)VYX_SemCreate(&pPool->hWorkSem, 0);
    pPool->nMaxThreads = nMaxThreads;
    pPool->nIdleTimeOut = nIdleTimeOut;
    pPool->fnHandler = fnHandler;
    pPool->nStackSize = StackSize_Local(nStackSize);
    pPool->pQueue = pQueue.release();
    return pPool.release();
}

int thrmgr_dispatch(void *pPool, void *pData) {
    if (pPool == nullptr)
        return 0;
    auto &pool = *static_cast<thrmgr_pool_t *>(pPool);
    {
        const MutexHold hold(pool.hLock);
        if (pool.nState.load() != kRunning || pool.pQueue == nullptr)
            return 0;
        auto *pItem = new (std::nothrow) thrmgr_item_t();
        if (pItem == nullptr)
            return 0;
        pItem->pData = pData;
        GetTimeOfDay_Local(&pItem->tvEnqueue);
        Append_Local(*pool.pQueue, pItem);
        // Deliberate: refused, but queued all the same: the next worker that starts runs it. Pinned by
        // FlexPoolInside.ItemWithoutWorkerIsRunByTheNextOne.
        if (!StartWorker_Local(pool))
            return 0;
        WakeSleeper_Local(pool);
    }
    return 1;
}

void thrmgr_destroy(void *pPool) {
    auto *pDying = static_cast<thrmgr_pool_t *>(pPool);
    int32_t nState = kRunning;
    if (pDying == nullptr || !pDying->nState.compare_exchange_strong(nState, kDestroying))
        return;
    {
        const MutexHold hold(pDying->hLock);
        for (int32_t nWoken = pDying->nAlive.load(); nWoken > 0; --nWoken)
            (void)VYX_SemPost(&pDying->hWorkSem);
    }
    // The semaphore may be posted early, by a worker that its handler ended, or the wait be interrupted.
    while (HasWorkers_Local(*pDying))
        if (VYX_SemWait(&pDying->hExitSem) != VYX_OK)
            (void)VYX_Sleep(1);
    FreePool_Local(pDying);
}

void *thrmgr_worker(void *pPool) {
    auto &pool = *static_cast<thrmgr_pool_t *>(pPool);
    const auto nTimeOut = static_cast<uint32_t>(pool.nIdleTimeOut);
    RefuseCancellation();
    Membership membership(pool);
    while (pool.nState.load() != kDestroying) {
        pool.nIdle.fetch_add(1);
        if (!AwaitWork_Local(pool, nTimeOut)) {
            // Deliberate: a worker that retires stays in the idle count, so later dispatches find somebody idle
            // and start no more workers. Pinned by FlexPoolInside.DoesNotGrowAgainAfterItShrank.
            if (membership.Retire())
                return nullptr;
            // With the time-out 0 the last worker would look for work without a pause. It can sleep: while it
            // counts as idle nobody else is started.
            if (nTimeOut == 0)
                (void)AwaitWork_Local(pool, VYX_INFINITE);
        }
        if (pool.nState.load() == kDestroying)
            break;
        pool.nIdle.fetch_sub(1);
        RunNext_Local(pool);
    }
    return nullptr;
}

VYX_HANDLE_THREADPOOLFLEX VYX_ThreadPoolFlex_Create(int32_t nMaxThreads, int32_t nIdleTimeOut,
                                                    VYX_THRMGR_PROC fnHandler, int32_t nStackSize) {
    return thrmgr_new(nMaxThreads, nIdleTimeOut, fnHandler, nStackSize);
}

int32_t VYX_ThreadPoolFlex_Work(VYX_HANDLE_THREADPOOLFLEX hPool, void *pData) {
    return thrmgr_dispatch(hPool, pData) == 1 ? VYX_OK : VYX_ERROR;
}

int32_t VYX_ThreadPoolFlex_Destroy(VYX_HANDLE_THREADPOOLFLEX hPool) {
    thrmgr_destroy(hPool);
    return VYX_OK;
}
