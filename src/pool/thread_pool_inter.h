// The fixed pools: records, and what their source files share.
#ifndef VYX_POOL_THREAD_POOL_INTER_H
#define VYX_POOL_THREAD_POOL_INTER_H

#include <atomic>

#include <vyx/pool.h>

#include "base/fork.h"

VYX_BEGIN_DECLS

// One possible worker. Free exactly when hThread is VYX_INVALID_THREAD. Guarded by the pool's hLock, except
// that an item passes from the caller to the worker, and bExit from the destroyer, by a post of hSem.
struct THREAD_INFO_T {
    uint32_t nIndex; // its own place in struThreads
    struct THREAD_POOL_T *pThreadPool;
    uint32_t bIdle; // 1: waits for work and may be chosen
    uint32_t bExit; // 1: is to end once it has no item; the thread that asked joins it and frees the record
    VYX_THREAD_T hThread;
    VYX_SEM_T hSem;        // wakes the worker; starts at 0
    VYX_THREAD_PROC fWork; // the item, or null
    void *pParam;
};

enum : uint32_t { VYX_POOL_WORDS = MAX_THREAD_PER_THREADPOOL / 64 };

// One pool. The size of the registry is fixed, so no memory is ever allocated for a pool.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): what belongs together stays together
struct THREAD_POOL_T {
    uint32_t bUsed;              // guarded by s_csLock
    std::atomic<uint32_t> bQuit; // 1 once destruction has begun; also read without the lock
    uint32_t nMaxCount;          // this and the next: set at creation, before the first worker
    uint32_t nInitCount;
    uint32_t nCurrCount;   // live workers; guarded by hLock
    uint32_t nStackSize;   // bytes; 0: 1 MiB
    uint32_t nIdleTimeOut; // milliseconds; VYX_INFINITE: workers never retire
    VYX_MUTEX_T hLock;     // recursive
    THREAD_INFO_T struThreads[MAX_THREAD_PER_THREADPOOL];

    // A set bit: that record is certainly not idle, so a search for an idle one leaves it out. A clear bit says
    // nothing. Guarded by hLock.
    uint64_t nNotIdle[VYX_POOL_WORDS];
    VYX_COND_T hFree;            // signalled when a worker becomes idle or goes; with hLock
    uint32_t nWaiting;           // callers asleep on hFree; guarded by hLock
    std::atomic<uint32_t> nUses; // callers inside VYX_ThreadPool_WorkEx; destruction waits for them
    // A hint for callers that look without the lock: changes soon after a worker has become idle.
    std::atomic<uint32_t> nFreed;
};

// Start and stop of the registry's stage, under the start/stop mutex. Both return 0. The start empties the
// registry: pools that were not destroyed before the last stop are forgotten, and their workers with them.
int32_t VYX_InitThreadPool_Inter(void);
int32_t VYX_FiniThreadPool_Inter(void);

extern const vyx_inter::ForkRow g_struPoolForkRow;

// Gives a pool's place in the registry back.
void VYX_MoveToIdleThreadPool_Local(THREAD_POOL_T *pThreadPool);

// Starts one worker at the first free place; it is idle. 0, or -1: pool full, no semaphore, no thread. With
// hLock held.
int32_t VYX_CreateThread_Local(THREAD_POOL_T *pThreadPool);

// Stops the live worker with the lowest place and waits until it has ended. 0, or -1 if none is live. Without
// hLock.
int32_t VYX_DestroyThread_Local(THREAD_POOL_T *pThreadPool);

// Claims the idle worker with the lowest place: it is not idle any more. Null if there is none.
THREAD_INFO_T *VYX_GetIdle_Local(THREAD_POOL_T *pThreadPool);

// A worker's body; pParam is its THREAD_INFO_T.
void *f_Thread_Svc(void *pParam);

VYX_END_DECLS

#endif
