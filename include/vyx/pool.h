/*
 * Thread pools. The fixed pool (VYX_ThreadPool_...) runs one routine with one argument on an idle worker and
 * has no queue: an item is accepted only when a worker can take it at once. The flexible pool
 * (VYX_ThreadPoolFlex_...) queues pointers for one handler and starts workers as they are needed.
 *
 * Fixed pools need the started library (VYX_Init) from their creation to their destruction; the next start
 * begins with an empty registry. Flexible pools work whether the library is started or not, idle time-outs included.
 * Destroying a pool blocks until its work has ended, also if the thread is cancelled meanwhile;
 * VYX_ThreadPool_WorkEx blocks if asked to.
 *
 * For both kinds: work runs on the library's worker threads with no lock of the library held. Workers keep
 * the signal mask of the thread that caused their start; a signal that interrupts one neither ends it nor
 * repeats or loses work. An exception that leaves the work ends the process, as in any thread. Work that ends
 * its own thread (VYX_Thread_Exit), or is cancelled (pthread_cancel), takes that worker out of the pool, and a
 * later item may start another. A worker that is cancelled while it has no work ends in, or after, its next.
 * Debuggers and process listings show workers as vyx-poolP.W and vyx-flexP.W: P numbers the live pools of the kind
 * from 0, W the pool's workers, by their places in a fixed pool, by their start in a flexible one.
 */
#ifndef VYX_POOL_H
#define VYX_POOL_H

#include <vyx/types.h>

#define MAX_THREAD_PER_THREADPOOL 512 /* workers of one fixed pool */
#define VYX_MAX_THREADPOOLS 64        /* fixed pools of one process */

/* What a flexible pool does with each pointer. */
typedef void (*VYX_THRMGR_PROC)(void *pData);

VYX_BEGIN_DECLS

/* ---- Fixed pool ------------------------------------------------------------------------------------------ */

/*
 * Makes a pool whose workers have a stack of 1 MiB and never retire; as VYX_ThreadPool_CreateFlex with nStackSize
 * 0 and nIdleTimeOut VYX_INFINITE.
 *   nInitCount  workers to start now
 *   nMaxCount   most workers at a time, 0 to MAX_THREAD_PER_THREADPOOL
 *
 * Result:  the pool, to be given back with VYX_ThreadPool_Destroy; null on failure, with a message on standard error.
 * Threads: any.
 */
VYX_API VYX_HANDLE_THREADPOOL VYX_ThreadPool_Create(uint32_t nInitCount, uint32_t nMaxCount);

/*
 * Makes a pool whose workers never retire; as VYX_ThreadPool_CreateFlex with nIdleTimeOut VYX_INFINITE.
 *   nInitCount  workers to start now
 *   nMaxCount   most workers at a time, 0 to MAX_THREAD_PER_THREADPOOL
 *   nStackSize  bytes for each worker; 0 = 1 MiB
 *
 * Result:  the pool, to be given back with VYX_ThreadPool_Destroy; null on failure, with a message on standard error.
 * Threads: any.
 */
VYX_API VYX_HANDLE_THREADPOOL VYX_ThreadPool_CreateEx(uint32_t nInitCount, uint32_t nMaxCount,
                                                      uint32_t nStackSize);

/*
 * Makes a pool and starts its first workers.
 *   nInitCount    workers to start now. Those with a place below this number never retire.
 *   nMaxCount     most workers at a time, 0 to MAX_THREAD_PER_THREADPOOL. 0 (with nInitCount 0) makes a pool
 *                 that refuses all work.
 *   nStackSize    bytes for each worker; 0 = 1 MiB
 *   nIdleTimeOut  milliseconds after which a worker without work retires; VYX_INFINITE = never
 *
 * Result:  the pool, to be given back with VYX_ThreadPool_Destroy; null on failure: nMaxCount too large,
 *          VYX_MAX_THREADPOOLS pools live already, nInitCount above nMaxCount, or a worker could not be
 *          started (no thread, stack size refused, no semaphore name left: each worker uses one, see
 *          VYX_SemCreate). The workers started until then are stopped again.
 * Errors:  a message on standard error tells which; no error number.
 * Threads: any.
 */
VYX_API VYX_HANDLE_THREADPOOL VYX_ThreadPool_CreateFlex(uint32_t nInitCount, uint32_t nMaxCount,
                                                        uint32_t nStackSize, uint32_t nIdleTimeOut);

/*
 * Hands one item to a worker, and never waits for one; as VYX_ThreadPool_WorkEx with bWait 0.
 *   fnWork  routine to run; its result is ignored
 *   pParam  handed to fnWork, may be null; the library neither reads nor frees it
 *
 * Result:  VYX_OK: the item runs, exactly once. VYX_ERROR: it does not, all workers being busy for instance.
 * Threads: any, also from inside an item.
 */
VYX_API int32_t VYX_ThreadPool_Work(VYX_HANDLE_THREADPOOL hPool, VYX_THREAD_PROC fnWork, void *pParam);

/*
 * Hands one item to an idle worker, the one with the lowest place; if none is idle and the pool is not full, a
 * worker is started for it.
 *   fnWork  routine to run; its result is ignored
 *   pParam  handed to fnWork, may be null; the library neither reads nor frees it
 *   bWait   when all nMaxCount workers are busy: 0 = give up at once, otherwise wait until one is free or the
 *           pool is destroyed. Of several callers the one that has waited longest comes first.
 *
 * Result:  VYX_OK: the item runs, exactly once. VYX_ERROR: it does not: null pool or routine (with a message on
 *          standard error), all workers busy, destruction has begun, or a worker had to be started and could
 *          not be (with a message; also if bWait is set).
 * Threads: any, also from inside an item (with bWait set a pool may thereby wait for itself). A caller that waits
 *          may be cancelled; then its item does not run, unless a worker has it already.
 */
VYX_API int32_t VYX_ThreadPool_WorkEx(VYX_HANDLE_THREADPOOL hPool, VYX_THREAD_PROC fnWork, void *pParam,
                                      int32_t bWait);

/*
 * Refuses further work, waits without limit until every accepted item has run, ends the workers one by one and
 * gives the pool's place back. Callers that wait in VYX_ThreadPool_WorkEx come back with VYX_ERROR.
 *
 * Result:  VYX_OK; VYX_ERROR for null (with a message on standard error).
 * Threads: any, once for each pool. From inside an item of the pool itself it waits for all other items; the
 *          calling worker ends when its item returns. Handles are not checked: using one that is not from a
 *          creation, or was destroyed, is the caller's error.
 */
VYX_API int32_t VYX_ThreadPool_Destroy(VYX_HANDLE_THREADPOOL hPool);

/* ---- Flexible pool --------------------------------------------------------------------------------------- */

/*
 * Makes a pool without workers; the first items start them.
 *   nMaxThreads   most workers at a time, above 0
 *   nIdleTimeOut  milliseconds after which a worker without work retires, unless it is the only one left;
 *                 0 = at once, -1 = never. Other negative values count as unsigned, some 49 days. Changes of the
 *                 wall clock do not matter.
 *   fnHandler     called with every accepted pointer
 *   nStackSize    bytes for each worker, raised to 262144 if smaller; 0 = 1 MiB
 *
 * Once a worker has retired, the pool believes that one more is idle than really is, and starts no more
 * workers: the ones it has do all further work.
 *
 * Result:  the pool, to be given back with VYX_ThreadPoolFlex_Destroy; null for a maximum below 1, a negative
 *          stack size or no handler, and when memory is short.
 * Threads: any.
 */
VYX_API VYX_HANDLE_THREADPOOLFLEX VYX_ThreadPoolFlex_Create(int32_t nMaxThreads, int32_t nIdleTimeOut,
                                                            VYX_THRMGR_PROC fnHandler, int32_t nStackSize);

/*
 * Queues one pointer, behind those queued before. If no worker is idle and the maximum is not reached, a worker
 * is started for it; where that fails, "!pthread_create failed" and a line end go to standard output.
 *   pData  handed to the handler, may be null; the library neither reads nor frees it
 *
 * Result:  VYX_OK: queued. VYX_ERROR: null pool, destruction has begun, memory short: not queued. VYX_ERROR
 *          also when not even a first worker could be started: then the pointer stays queued all the same, and
 *          the next worker that starts takes it.
 * Threads: any, also the handler; never beside or after VYX_ThreadPoolFlex_Destroy, except from a handler that
 *          the destruction waits for (refused).
 */
VYX_API int32_t VYX_ThreadPoolFlex_Work(VYX_HANDLE_THREADPOOLFLEX hPool, void *pData);

/*
 * Waits without limit for the handlers in progress, ends the workers and frees the pool. What is still queued
 * is dropped without the handler being called.
 *
 * Result:  VYX_OK always; null is ignored.
 * Threads: any but the pool's own workers (the handler would wait for itself for ever), once for each pool.
 */
VYX_API int32_t VYX_ThreadPoolFlex_Destroy(VYX_HANDLE_THREADPOOLFLEX hPool);

VYX_END_DECLS

#ifdef __cplusplus

/*
 * Keeps the handle of one fixed pool. Copyable, since it owns nothing: the destructor leaves the pool and its
 * workers as they are. An object is set up by one thread; any number may call Work.
 */
class VYX_API VYX_ThreadPool {
  public:
    /* Holds null. Threads: any. */
    VYX_ThreadPool();
    /* Does nothing: the pool goes on. Threads: any. */
    ~VYX_ThreadPool();

    /* As VYX_ThreadPool_Create; 0 made, -1 not. Overwrites the handle, also with null: a pool that the object
     * held before is not destroyed. Threads: one at a time. */
    int Create(unsigned int nInitCount, unsigned int nMaxCount);
    /* As VYX_ThreadPool_Destroy. The handle is kept: a second Destroy() is an error. Threads: one at a time. */
    int Destroy();
    /* As VYX_ThreadPool_Work. Threads: any. */
    int Work(void *(*work)(void *), void *param);

  private:
    VYX_HANDLE_THREADPOOL m_hPool;
};

#endif

#endif
