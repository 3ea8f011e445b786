/*
 * Synchronisation: mutexes, counting semaphores, condition variables, and atomic operations on integers.
 *
 * Bounded waits (VYX_SemTimedWait, VYX_CondTimedWait, VYX_Sema::TimedWait) with a limit other than 0 and
 * VYX_INFINITE, and the atomic operations, need the started library (VYX_Init); everything else works at any
 * time, also before main. Functions whose name contains Wait, and VYX_MutexLock, block.
 *
 * A bounded wait sleeps until it is over: pending waits cost no processor time, however many there are. Its limit is
 * counted on the wall clock. Setting that clock forward shortens the waits that are pending, setting it back
 * prolongs them (on Darwin within a tenth of a second).
 */
#ifndef VYX_SYNC_H
#define VYX_SYNC_H

#include <vyx/types.h>

/* Types of mutexes. */
#define VYX_MUTEX_NORMAL 0u             /* its owner may not lock it again: that deadlocks */
#define VYX_MUTEX_RECURSIVE 0xFFFFFFFFu /* its owner may lock it again */

VYX_BEGIN_DECLS

/* ---- Mutexes ------------------------------------------------------------------------------------------ */

/*
 * Makes a mutex in the caller's storage, which must stay in place until VYX_MutexDestroy.
 *   nType  VYX_MUTEX_RECURSIVE: the owner may lock again, each lock needs its own unlock.
 *          VYX_MUTEX_NORMAL, or any other number: passed to the platform as its own mutex type.
 *
 * Result:  VYX_OK; VYX_ERROR only for a null pointer. A type that the platform does not know still gives
 *          VYX_OK and leaves a mutex of the platform's default type.
 * Threads: the storage must not be in use yet.
 * Rests on pthread_mutexattr_settype, pthread_mutex_init.
 */
VYX_API int32_t VYX_MutexCreate(VYX_MUTEX_T *pMutex, uint32_t nType);

/*
 * Destroys a mutex made by VYX_MutexCreate (pthread_mutex_destroy). The storage is the caller's again.
 *
 * Result:  VYX_OK; VYX_ERROR for a null pointer and where the platform refuses it, as it may for one that is held.
 * Threads: nobody may be using it.
 */
VYX_API int32_t VYX_MutexDestroy(VYX_MUTEX_T *pMutex);

/*
 * Locks a mutex, waiting without limit (pthread_mutex_lock). Signals do not end the wait.
 *
 * Result:  VYX_OK; VYX_ERROR for a null pointer and for every failure. Locking a normal mutex twice on one thread
 *          deadlocks.
 * Threads: any.
 */
VYX_API int32_t VYX_MutexLock(VYX_MUTEX_T *pMutex);

/*
 * Locks a mutex if that needs no waiting (pthread_mutex_trylock).
 *
 * Result:  VYX_OK; VYX_ERROR for a null pointer, for one that is held and for every failure: these are not told apart.
 * Threads: any.
 */
VYX_API int32_t VYX_MutexTryLock(VYX_MUTEX_T *pMutex);

/*
 * Gives a mutex back, a recursive one once for each time it was locked (pthread_mutex_unlock).
 *
 * Result:  VYX_OK; VYX_ERROR for a null pointer and for every failure. Unlocking a normal mutex that the thread does
 *          not hold is the caller's error and may not be noticed.
 * Threads: the one that locked it.
 */
VYX_API int32_t VYX_MutexUnlock(VYX_MUTEX_T *pMutex);

#if defined(__OPTIMIZE__) && !defined(VYX_NO_INLINE)
/*
 * The three of them that are on everybody's hot path, once more for the compiler to put in place of a call: the
 * platform call itself with the null check around it. Define VYX_NO_INLINE before including this header to have
 * every call go to the library.
 */
extern __inline __attribute__((__gnu_inline__)) int32_t VYX_MutexLock(VYX_MUTEX_T *pMutex) {
    return pMutex != NULL && pthread_mutex_lock(pMutex) == 0 ? VYX_OK : VYX_ERROR;
}
extern __inline __attribute__((__gnu_inline__)) int32_t VYX_MutexTryLock(VYX_MUTEX_T *pMutex) {
    return pMutex != NULL && pthread_mutex_trylock(pMutex) == 0 ? VYX_OK : VYX_ERROR;
}
extern __inline __attribute__((__gnu_inline__)) int32_t VYX_MutexUnlock(VYX_MUTEX_T *pMutex) {
    return pMutex != NULL && pthread_mutex_unlock(pMutex) == 0 ? VYX_OK : VYX_ERROR;
}
#endif

/* ---- Semaphores: for the threads of one process --------------------------------------------------------- */

/*
 * Makes a counting semaphore. It is a POSIX named semaphore, registered with the system under a generated
 * name ("vyx_named_semaphore_%05d", 32767 of them) until it is destroyed; names in use are skipped. A process
 * that ends without destroying its semaphores leaves their names behind; each costs the next processes about a
 * microsecond, once.
 *   pSem      slot that receives the library's record; the caller owns the slot, the library the record
 *   nInitial  count to start with
 *
 * Result:  VYX_OK; VYX_ERROR for a null pointer, when the system refuses the semaphore (errno tells), when
 *          all names are taken (EEXIST), and when memory is short. The slot is written only on success.
 * Threads: any.
 * Rests on sem_open with O_CREAT | O_EXCL and mode 0777.
 */
VYX_API int32_t VYX_SemCreate(VYX_SEM_T *pSem, uint32_t nInitial);

/*
 * Gives the semaphore, its name and its record back (sem_close, sem_unlink). The slot is not cleared: it must be
 * filled by a new VYX_SemCreate before it is used again, and destroying twice is the caller's error.
 *
 * Result:  VYX_OK; VYX_ERROR for a null pointer or an empty (null) slot.
 * Threads: nobody may be waiting or posting.
 */
VYX_API int32_t VYX_SemDestroy(VYX_SEM_T *pSem);

/*
 * Takes one count, waiting without limit (sem_wait).
 *
 * Result:  VYX_OK taken; VYX_ERROR for a null pointer or empty slot, and when a signal handler interrupted
 *          the wait (errno is EINTR then; there is no retry).
 * Threads: any number at once; the slot must outlive the call.
 */
VYX_API int32_t VYX_SemWait(VYX_SEM_T *pSem);

/*
 * Adds one count and wakes a waiter (sem_post).
 *
 * Result:  VYX_OK; VYX_ERROR for a null pointer or empty slot, and at the platform's maximum (errno is EOVERFLOW).
 * Threads: any. Unlike the rest, it may be called from a signal handler.
 */
VYX_API int32_t VYX_SemPost(VYX_SEM_T *pSem);

/*
 * Takes one count, waiting at most nTimeOut. A count that is there costs little more than a try; else the wait is as
 * long as the platform's own (sem_timedwait where there is one).
 *   nTimeOut  milliseconds of the wall clock; 0 = try once (sem_trywait), VYX_INFINITE = as VYX_SemWait
 *
 * Result:  VYX_OK taken; VYX_ERROR not taken: time-out, null pointer or empty slot, library stopped meanwhile
 *          (these are not told apart). Not before nTimeOut has passed on a time-out. Of several bounded waiters the
 *          one that began first is served first. A post through another handle of the same name is found within 10 ms.
 * Threads: any number at once; the slot must outlive the call. A signal does not end a bounded wait. A
 *          thread that is cancelled (pthread_cancel) in it takes no count.
 * Needs:   the started library, except for 0 and VYX_INFINITE. Without it the wait ends neither by a count nor by
 *          time until the library is started; its limit counts from the call all the same.
 */
VYX_API int32_t VYX_SemTimedWait(VYX_SEM_T *pSem, uint32_t nTimeOut);

/* ---- Condition variables -------------------------------------------------------------------------------- */

/*
 * Makes a condition in the caller's storage, which must stay in place until VYX_CondDestroy (pthread_cond_init).
 *
 * Result:  0, or the platform's error number (positive); -1 for a null pointer.
 * Threads: the storage must not be in use yet.
 */
VYX_API int32_t VYX_CondCreate(VYX_COND_T *pCond);

/*
 * Destroys a condition (pthread_cond_destroy). The storage is the caller's again.
 *
 * Result:  0, or the platform's error number (positive); -1 for a null pointer.
 * Threads: nobody may be waiting. It is allowed as soon as all waiters have been woken, also if they have not got
 *          their mutex back.
 */
VYX_API int32_t VYX_CondDestroy(VYX_COND_T *pCond);

/*
 * Waits without limit, releasing the mutex meanwhile (pthread_cond_wait). Wake-ups may be spurious, the library's stop
 * causes some where others wait on the same condition with a limit: test the predicate again.
 *   pMutex  held by the caller exactly once, held again on return
 *
 * Result:  0, or the platform's error number (positive); -1 if either pointer is null.
 * Threads: any number on one condition, all with the same mutex.
 */
VYX_API int32_t VYX_CondWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex);

/*
 * As VYX_CondWait, but for at most nTimeOut: the platform's own bounded wait (pthread_cond_timedwait).
 *   nTimeOut  milliseconds of the wall clock; VYX_INFINITE = exactly VYX_CondWait. 0 is a very short wait.
 *
 * Result:  VYX_ERROR always, whether time ran out, somebody signalled, the wake-up was spurious or the library was
 *          stopped: test the predicate, not the result. (With VYX_INFINITE the result of VYX_CondWait.) The mutex
 *          is held again on return.
 * Errors:  the pointers are not checked for null, except with VYX_INFINITE.
 * Threads: any number on one condition; each one's time-out is kept. The library's stop tries to take the mutex for a
 *          moment, and ends without it after half a second if it stays busy.
 * Needs:   the started library, except for VYX_INFINITE. Without it the wait lasts until somebody signals; if its limit
 *          has passed when the library is started, it ends then.
 */
VYX_API int32_t VYX_CondTimedWait(VYX_COND_T *pCond, VYX_MUTEX_T *pMutex, uint32_t nTimeOut);

/*
 * Wakes one waiter, if there is one (pthread_cond_signal).
 *
 * Result:  0, or the platform's error number (positive); -1 for a null pointer.
 * Threads: any, with or without the mutex.
 */
VYX_API int32_t VYX_CondSignal(VYX_COND_T *pCond);

/*
 * Wakes all waiters (pthread_cond_broadcast).
 *
 * Result:  0, or the platform's error number (positive); -1 for a null pointer.
 * Threads: any, with or without the mutex.
 */
VYX_API int32_t VYX_CondBroadCast(VYX_COND_T *pCond);

/* ---- Atomic operations ---------------------------------------------------------------------------------- */

/*
 * Stores nNew into *pDest if *pDest equals nComparand (compared as 32 bits), as one step under the lock that
 * all atomic operations of the process share.
 *
 * Result:  always 0; whether the value was stored is not told.
 * Threads: any. Pointers are not checked for null; they must be aligned for their type.
 */
VYX_API int32_t VYX_AtomicCas(volatile uint32_t *pDest, uint32_t nNew, int32_t nComparand);

/*
 * Reads *pDest, then asks VYX_AtomicCas to replace exactly that value by nValue. If another thread changes *pDest in
 * between, nothing is stored and the update is lost. Where every update must count, use a mutex.
 *
 * Result:  always 0, also for a lost update.
 * Threads: any. The pointer is not checked for null; it must be aligned for its type.
 */
VYX_API int32_t VYX_AtomicSet(volatile uint32_t *pDest, uint32_t nValue);

/*
 * As VYX_AtomicSet with the sum of what it read and nAddend, modulo 2^32. An update may be lost in the same way.
 *
 * Result:  always 0, also for a lost update.
 * Threads: any. The pointer is not checked for null; it must be aligned for its type.
 */
VYX_API int32_t VYX_AtomicAdd(volatile uint32_t *pDest, uint32_t nAddend);

/*
 * VYX_AtomicAdd of 1: the update may be lost.
 *
 * Result:  always 0, also for a lost update.
 * Threads: any. The pointer is not checked for null; it must be aligned for its type.
 */
VYX_API int32_t VYX_AtomicInc(volatile uint32_t *pDest);

/*
 * Subtracts 1, modulo 2^32, as VYX_AtomicAdd would: the update may be lost.
 *
 * Result:  always 0, also for a lost update.
 * Threads: any. The pointer is not checked for null; it must be aligned for its type.
 */
VYX_API int32_t VYX_AtomicDec(volatile uint32_t *pDest);

/*
 * Does nothing; kept so that portable code links. The pointers are not looked at.
 *
 * Result:  always 0.
 * Threads: any.
 */
VYX_API int32_t VYX_AtomicCasPtr(void *volatile *ppDest, void *pNew, void *pComparand);

VYX_END_DECLS

#ifdef __cplusplus

/* A mutex as an object; the methods are the flat functions on it and return their results (0 or -1). */
class VYX_API VYX_Mutex {
  public:
    /* A recursive mutex. Threads: any. */
    VYX_Mutex();
    /* As VYX_MutexCreate with that type: VYX_Mutex m(0) is a normal one. Threads: any. */
    VYX_Mutex(unsigned int type);
    /* As VYX_MutexDestroy: nobody may be using it. Threads: the last one that has it. */
    ~VYX_Mutex();
    VYX_Mutex(const VYX_Mutex &) = delete;
    VYX_Mutex &operator=(const VYX_Mutex &) = delete;

    /* As VYX_MutexLock, without a limit: 0, or -1 on failure. Threads: any. */
    int Lock();
    /* As VYX_MutexUnlock: 0, or -1 on failure. Threads: its owner. */
    int Unlock();
    /* As VYX_MutexTryLock: 0 locked, -1 not. Threads: any. */
    int TryLock();

  private:
    VYX_MUTEX_T m_hMutex;
};

/*
 * A semaphore that holds at most a maximum. Any number of threads may use one object.
 * If the semaphore could not be created, every call on the object returns -1 (Post() returns 0 as long as
 * the maximum is not reached, having posted nothing).
 */
class VYX_API VYX_Sema {
  public:
    /* Starts with the count initial, which is not compared with maximum. Threads: any. */
    VYX_Sema(unsigned int initial, unsigned int maximum);
    /* Nobody may be waiting or posting. Threads: the last one that has it. */
    ~VYX_Sema();
    VYX_Sema(const VYX_Sema &) = delete;
    VYX_Sema &operator=(const VYX_Sema &) = delete;

    /* As VYX_SemWait: 0 taken, -1 not. Threads: any. */
    int Wait();
    /* As VYX_SemTimedWait, in milliseconds: 0 taken, -1 not. Threads: any. */
    int TimedWait(unsigned int ms);
    /* 0, or -1 without posting when the count is at its maximum. Threads: any. */
    int Post();

  private:
    VYX_SEM_T m_hSem;
    uint32_t m_nMaxCount;
    VYX_Mutex m_mutex;
    uint32_t m_nCount; /* guarded by m_mutex; follows the semaphore's own count */
};

namespace vyx {

/* As VYX_Mutex, under the names of this family. */
class VYX_API vyx_mutex {
  public:
    /* A recursive mutex. Threads: any. */
    vyx_mutex();
    /* As VYX_MutexCreate with that type. Threads: any. */
    vyx_mutex(int type);
    /* As VYX_MutexDestroy: nobody may be using it. Threads: the last one that has it. */
    ~vyx_mutex();
    vyx_mutex(const vyx_mutex &) = delete;
    vyx_mutex &operator=(const vyx_mutex &) = delete;

    /* As VYX_MutexLock, without a limit: 0, or -1 on failure. Threads: any. */
    int lock();
    /* As VYX_MutexUnlock: 0, or -1 on failure. Threads: its owner. */
    int unlock();
    /* As VYX_MutexTryLock: 0 locked, -1 not. Threads: any. */
    int trylock();

  private:
    VYX_MUTEX_T m_hMutex;
};

/* A mutex that is always recursive. */
class VYX_API vyx_recursive_mutex {
  public:
    /* Its owner may lock it again. Threads: any. */
    vyx_recursive_mutex();
    /* As VYX_MutexDestroy: nobody may be using it. Threads: the last one that has it. */
    virtual ~vyx_recursive_mutex();
    vyx_recursive_mutex(const vyx_recursive_mutex &) = delete;
    vyx_recursive_mutex &operator=(const vyx_recursive_mutex &) = delete;

    /* As VYX_MutexLock, without a limit: 0, or -1 on failure. Threads: any. */
    int lock();
    /* As VYX_MutexUnlock: 0, or -1 on failure. Threads: its owner. */
    int unlock();
    /* As VYX_MutexTryLock: 0 locked, -1 not. Threads: any. */
    int trylock();

  private:
    VYX_MUTEX_T m_hMutex;
};

/* Not available on this platform: every operation has no effect and returns -2. */
class VYX_API vyx_sem {
  public:
    /* Holds nothing. Threads: any. */
    vyx_sem();
    /* Holds nothing; the count is ignored. Threads: any. */
    vyx_sem(int count);
    virtual ~vyx_sem();

    /* -2. Threads: any. */
    int init(int count);
    /* -2. Threads: any. */
    int destroy();
    /* -2. Threads: any. */
    int post(int count);
    /* -2, at once. Threads: any. */
    int wait(int ms);
    /* -2. Threads: any. */
    int post_1();
};

} // namespace vyx

#endif

#endif
