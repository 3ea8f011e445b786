// The flexible pools: records and functions behind VYX_ThreadPoolFlex_...
#ifndef VYX_POOL_THRMGR_H
#define VYX_POOL_THRMGR_H

#include <atomic>
#include <sys/time.h>

#include <vyx/pool.h>

VYX_BEGIN_DECLS

// One queued pointer; allocated by the dispatch, freed by the worker that takes it.
struct thrmgr_item_t {
    thrmgr_item_t *pNext;
    void *pData;
    struct timeval tvEnqueue; // when it was queued, to the millisecond
};

struct thrmgr_queue_t {
    thrmgr_item_t *pHead;
    thrmgr_item_t *pTail;
    std::atomic<int32_t> nCount; // changed under the pool's hLock, read without
};

struct thrmgr_pool_t {
    uint32_t nStackSize;         // bytes of each worker, at least 262144
    std::atomic<int32_t> nState; // 0 running, 1 being destroyed; read without the lock
    int32_t nMaxThreads;
    std::atomic<int32_t> nAlive; // live workers; changed under hLock, read without
    std::atomic<int32_t> nIdle;  // workers waiting for work, and those that have retired; see thrmgr_worker
    int32_t nIdleTimeOut;        // milliseconds
    VYX_THRMGR_PROC fnHandler;
    VYX_SEM_T hExitSem;     // posted when the last worker has left
    VYX_SEM_T hWorkSem;     // where workers sleep
    VYX_MUTEX_T hLock;      // normal
    thrmgr_queue_t *pQueue; // guarded by hLock
    int32_t nAsleep;        // workers that sleep, or are about to; guarded by hLock
    int32_t nWoken;         // those of them that were posted for and have not come back yet; guarded by hLock
    std::atomic<int32_t> nLooking; // workers that are awake and will look at the queue before they sleep
};

// A pool without workers, to be given back with thrmgr_destroy; null if an argument is refused or memory short.
thrmgr_pool_t *thrmgr_new(int nMaxThreads, int nIdleTimeOut, void (*fnHandler)(void *), int nStackSize);

// Queues a pointer. 1 queued, 0 refused, or queued without a worker to run it; see VYX_ThreadPoolFlex_Work.
int thrmgr_dispatch(void *pPool, void *pData);

// Ends the workers and frees the pool with what is queued.
void thrmgr_destroy(void *pPool);

// A worker's body; the thread is detached.
void *thrmgr_worker(void *pPool);

VYX_END_DECLS

#endif
