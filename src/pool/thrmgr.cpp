// The flexible pools: a queue, and detached workers that come when none is idle and go when they stay idle.
//
// A worker that finds nothing queued looks for some more time, as an idle but not yet sleeping one, and then sleeps.
// A dispatch wakes a sleeper only if more is queued than workers are on their way to the queue, woken or looking;
// each of these takes one item or finds the queue empty. Thus no item waits while a worker sleeps, and under a steady
// load almost nobody is woken for nothing.
//
// Whether a worker may retire is decided under hLock, where it also stops counting as alive: of two whose time is
// out together only one goes, and an item queued meanwhile keeps it. The last live worker thus stays until the pool
// is destroyed, unless a handler ends its thread.
#include <cstdio>
#include <new>
#include <utility>
#include <vyx/pool.h>
#include <vyx/thread.h>

#include "base/describe.h"
#include "base/platform.h"
#include "base/probes.h"
#include "base/spin.h"
#include "base/uncancelled.h"
#include "pool/thrmgr.h"

using vyx_inter::Cancellable;
using vyx_inter::Clock;
using vyx_inter::Deadline;
using vyx_inter::ForkHold;
using vyx_inter::Lock;
using vyx_inter::LockGuard;
using vyx_inter::Rank;
using vyx_inter::TryBriefly;
using vyx_inter::Uncancelled;

Lock g_hFlexLock{Rank::FlexRegistry};
static thrmgr_pool_t *s_pFlexPools VYX_GUARDED_BY(g_hFlexLock) = nullptr; // all, by their numbers

struct thrmgr_queue_t::Block {
    static constexpr uint32_t kItems = 254;
    Block *pNext;
    void *items[kItems];
};

thrmgr_queue_t::~thrmgr_queue_t() {
    while (m_pFirst != nullptr)
        delete std::exchange(m_pFirst, m_pFirst->pNext);
}

void thrmgr_queue_t::Forget() {
    m_pFirst = m_pLast = nullptr;
    m_nCount.store(0, std::memory_order_relaxed);
}

bool thrmgr_queue_t::Append(void *pData) {
    if (m_pLast == nullptr || m_nEnd == Block::kItems) {
        auto *pBlock = new (std::nothrow) Block;
        if (pBlock == nullptr)
            return false;
        pBlock->pNext = nullptr;
        (m_pLast == nullptr ? m_pFirst : m_pLast->pNext) = pBlock;
        m_pLast = pBlock;
        m_nEnd = 0;
    }
    m_pLast->items[m_nEnd++] = pData;
    m_nCount.store(Count() + 1, std::memory_order_relaxed);
    return true;
}

bool thrmgr_queue_t::Take(void **ppData) {
    if (Count() == 0)
        return false;
    *ppData = m_pFirst->items[m_nFirst++];
    m_nCount.store(Count() - 1, std::memory_order_relaxed);
    if (Count() == 0) { // so there is one block only
        m_nFirst = m_nEnd = 0;
    } else if (m_nFirst == Block::kItems) {
        delete std::exchange(m_pFirst, m_pFirst->pNext);
        m_nFirst = 0;
    }
    return true;
}

namespace {

constexpr int kDefaultStackSize = 1048576; // bytes
constexpr int kLeastStackSize = 262144;    // bytes

// The pool that the calling thread works for; null on other threads, when the worker has retired, and in a forked child.
thread_local thrmgr_pool_t *t_pOwnPool = nullptr;

uint32_t StackSize_Local(int nStackSize) {
    if (nStackSize == 0)
        nStackSize = kDefaultStackSize;
    return static_cast<uint32_t>(nStackSize < kLeastStackSize ? kLeastStackSize : nStackSize);
}

// Puts the pool into the list of all, and gives it its number.
void Enlist_Local(thrmgr_pool_t &pool) {
    const LockGuard guard(g_hFlexLock);
    thrmgr_pool_t **ppLink = &s_pFlexPools;
    for (; *ppLink != nullptr && (*ppLink)->nNumber == pool.nNumber; ppLink = &(*ppLink)->pNext)
        ++pool.nNumber;
    pool.pNext = *ppLink;
    *ppLink = &pool;
}

void Delist_Local(const thrmgr_pool_t &pool) {
    const LockGuard guard(g_hFlexLock);
    thrmgr_pool_t **ppLink = &s_pFlexPools;
    while (*ppLink != &pool)
        ppLink = &(*ppLink)->pNext;
    *ppLink = pool.pNext;
}

ForkHold s_forkHold(g_hFlexLock);

// The three steps of a fork. Where the list's lock could not be taken, the list may be half changed, and the pools are
// left alone.
void BeforeFork_Local() VYX_UNCHECKED {
    s_forkHold.Before();
    for (auto *pPool = s_forkHold.IsWhole() ? s_pFlexPools : nullptr; pPool != nullptr; pPool = pPool->pNext)
        pPool->forkHold.Before();
}

void AfterForkInParent_Local() VYX_UNCHECKED {
    for (auto *pPool = s_forkHold.IsWhole() ? s_pFlexPools : nullptr; pPool != nullptr; pPool = pPool->pNext)
        pPool->forkHold.InParent();
    s_forkHold.InParent();
}

void AfterForkInChild_Local() VYX_UNCHECKED {
    for (auto *pPool = s_forkHold.IsWhole() ? s_pFlexPools : nullptr; pPool != nullptr;
         pPool = pPool->pNext) {
        pPool->eState = FlexState::Abandoned;
        if (!pPool->forkHold.InChild())
            continue;
        pPool->work.Renew();
        pPool->gone.Renew();
        if (!pPool->forkHold.IsWhole())
            pPool->queue.Forget();
    }
    (void)s_forkHold.InChild();
    t_pOwnPool = nullptr;
}

// Starts a worker if none is idle and the pool has room. Result: false if the pool is left without any worker.
bool StartWorker_Local(thrmgr_pool_t &pool) VYX_REQUIRES(pool.hLock) {
    if (pool.nAlive >= pool.nMaxThreads)
        return true;
    // Deliberate: once a worker has retired, later items start no more of them, as long as there is one. Pinned by
    // FlexPool.DoesNotGrowAgainAfterItShrankToItsLastWorker.
    if (pool.nAlive != 0 && (pool.nIdle != 0 || pool.bHasShrunk))
        return true;
    if (VYX_ThreadDetached_Create(thrmgr_worker, &pool, pool.nStackSize) == VYX_TRUE) {
        ++pool.nAlive;
        return true;
    }
    (void)std::puts("!pthread_create failed");
    return pool.nAlive != 0;
}

bool IsQuiet_Local(const thrmgr_pool_t &pool) VYX_REQUIRES(pool.hLock) {
    return pool.queue.Count() == 0 && pool.eState == FlexState::Running;
}

// Without the lock. An outdated answer is harmless: what is queued counts only under the lock.
bool MayHaveWork_Local(const thrmgr_pool_t &pool) VYX_UNCHECKED {
    return pool.queue.Count() != 0;
}

// Looks at the queue for a moment, during which the lock is free.
void LookForWork_Local(thrmgr_pool_t &pool) VYX_REQUIRES(pool.hLock) {
    ++pool.nLooking;
    pool.hLock.Release();
    (void)TryBriefly([&pool] { return MayHaveWork_Local(pool); });
    pool.hLock.Acquire();
    --pool.nLooking;
}

// Sleeps until there is work, the pool is destroyed, or the time is out.
void Sleep_Local(thrmgr_pool_t &pool) VYX_REQUIRES(pool.hLock) {
    // The only worker cannot retire, and while it is idle no other is started.
    const Deadline deadline =
        pool.nAlive == 1 ? Deadline::Never() : Deadline::In(pool.nIdleTimeOut, Clock::Monotonic);
    ++pool.nAsleep;
    for (bool bInTime = true; bInTime && IsQuiet_Local(pool);) {
        bInTime = pool.work.WaitUntil(pool.hLock, deadline);
        if (pool.nWoken != 0)
            --pool.nWoken;
    }
    --pool.nAsleep;
}

// Waits for work or the pool's end; or retires, and then no worker of the pool any more.
void AwaitWork_Local(thrmgr_pool_t &pool) VYX_REQUIRES(pool.hLock) {
    ++pool.nIdle;
    LookForWork_Local(pool);
    if (IsQuiet_Local(pool))
        Sleep_Local(pool);
    --pool.nIdle;
    if (!IsQuiet_Local(pool) || pool.nAlive == 1)
        return;
    --pool.nAlive;
    pool.bHasShrunk = true;
    t_pOwnPool = nullptr;
}

// Result: false if the worker is to end.
bool NextItem_Local(thrmgr_pool_t &pool, void **ppData) {
    const LockGuard guard(pool.hLock);
    while (t_pOwnPool != nullptr && pool.eState == FlexState::Running) {
        if (pool.queue.Take(ppData)) {
            ++pool.nItems;
            VYX_PROBE2(flex_hand_over, &pool, *ppData);
            return true;
        }
        AwaitWork_Local(pool);
    }
    return false;
}

// A worker from its thread's start to its end, which the handler may bring about as well.
class Worker {
  public:
    explicit Worker(thrmgr_pool_t &pool) {
        t_pOwnPool = &pool;
        char szName[16];
        {
            const LockGuard guard(pool.hLock);
            (void)std::snprintf(szName, sizeof szName, "vyx-flex%u.%u", pool.nNumber, pool.nStarted++);
        }
        VYX_NameThread_Inter(szName);
    }
    ~Worker() {
        if (t_pOwnPool != nullptr)
            Leave_Local(*t_pOwnPool);
    }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

  private:
    // The destroyer frees the pool once it has seen, under the lock, that nobody is left.
    static void Leave_Local(thrmgr_pool_t &pool) {
        const LockGuard guard(pool.hLock);
        --pool.nAlive;
        if (pool.queue.Count() != 0 && pool.eState == FlexState::Running)
            (void)StartWorker_Local(pool); // the handler ended this thread; what is queued still runs
        if (pool.nAlive == 0)
            pool.gone.Signal();
    }
};

} // namespace

const vyx_inter::ForkRow g_struFlexForkRow = {BeforeFork_Local, AfterForkInParent_Local,
                                              AfterForkInChild_Local};

void *thrmgr_worker(void *pPool) {
    auto &pool = *static_cast<thrmgr_pool_t *>(pPool);
    // A worker can be cancelled in the handler only: in its sleep it may already have been woken for an item.
    const Uncancelled uncancelled;
    const Worker worker(pool);
    void *pData = nullptr;
    while (t_pOwnPool != nullptr && NextItem_Local(pool, &pData)) {
        const Cancellable cancellable;
        pool.fnHandler(pData);
        pthread_testcancel(); // a cancellation meant for this item must not end the next one
    }
    return nullptr;
}

VYX_HANDLE_THREADPOOLFLEX VYX_ThreadPoolFlex_Create(int32_t nMaxThreads, int32_t nIdleTimeOut,
                                                    VYX_THRMGR_PROC fnHandler, int32_t nStackSize) {
    if (nMaxThreads <= 0 || nStackSize < 0 || fnHandler == nullptr)
        return nullptr;
    auto *pPool = new (std::nothrow) thrmgr_pool_t();
    if (pPool == nullptr)
        return nullptr;
    pPool->nMaxThreads = static_cast<uint32_t>(nMaxThreads);
    pPool->nIdleTimeOut = static_cast<uint32_t>(nIdleTimeOut);
    pPool->nStackSize = StackSize_Local(nStackSize);
    pPool->fnHandler = fnHandler;
    Enlist_Local(*pPool);
    return pPool;
}

int32_t VYX_ThreadPoolFlex_Work(VYX_HANDLE_THREADPOOLFLEX hPool, void *pData) {
    if (hPool == nullptr)
        return VYX_ERROR;
    auto &pool = *static_cast<thrmgr_pool_t *>(hPool);
    bool bWake = false;
    {
        const LockGuard guard(pool.hLock);
        if (pool.eState != FlexState::Running || !pool.queue.Append(pData))
            return VYX_ERROR;
        // Deliberate: refused, but queued all the same: the next worker that starts runs it. Pinned by
        // the scenario "flexible pool" of tests/torture/resources.
        if (!StartWorker_Local(pool))
            return VYX_ERROR;
        bWake = pool.nAsleep > pool.nWoken && pool.nWoken + pool.nLooking < pool.queue.Count();
        if (bWake)
            ++pool.nWoken;
    }
    if (bWake) // after the lock is released, so that the woken worker need not wait for it
        pool.work.Signal();
    return VYX_OK;
}

int32_t VYX_ThreadPoolFlex_Destroy(VYX_HANDLE_THREADPOOLFLEX hPool) {
    if (hPool == nullptr)
        return VYX_OK;
    const Uncancelled uncancelled;
    auto *pPool = static_cast<thrmgr_pool_t *>(hPool);
    {
        const LockGuard guard(pPool->hLock);
        if (pPool->eState == FlexState::Destroying)
            return VYX_OK;
        if (pPool->eState == FlexState::Running) {
            pPool->eState = FlexState::Destroying;
            pPool->work.Broadcast();
            while (pPool->nAlive != 0)
                pPool->gone.Wait(pPool->hLock);
        }
    }
    Delist_Local(*pPool);
    pPool->work.Destroy();
    pPool->gone.Destroy();
    pPool->hLock.Destroy();
    // Deliberate: what is still queued is dropped. Pinned by
    // FlexPool.RunsInOrderAndDropsWhatIsLeftAtTheEnd.
    delete pPool;
    return VYX_OK;
}

/* ---- Description */

struct FlexRows {
    static constexpr vyx_inter::DescriptionRow kRows[] = {
        VYX_SINGLE("flex", s_pFlexPools), // the first of them
        VYX_LOCK("FlexRegistry", g_hFlexLock),
        VYX_FIELD("flex.next", thrmgr_pool_t, pNext),
        VYX_FIELD("flex.lock", thrmgr_pool_t, hLock),
        VYX_FIELD("flex.state", thrmgr_pool_t, eState),
        VYX_FIELD("flex.number", thrmgr_pool_t, nNumber),
        VYX_FIELD("flex.workers", thrmgr_pool_t, nAlive),
        VYX_FIELD("flex.most", thrmgr_pool_t, nMaxThreads),
        VYX_FIELD("flex.idle", thrmgr_pool_t, nIdle),
        VYX_FIELD_OF("flex.queued", thrmgr_pool_t, queue, thrmgr_queue_t, m_nCount),
        VYX_FIELD("flex.items", thrmgr_pool_t, nItems),
        VYX_FIELD("flex.handler", thrmgr_pool_t, fnHandler),
    };
};

VYX_DESCRIBE(flexible_pools, FlexRows::kRows)
