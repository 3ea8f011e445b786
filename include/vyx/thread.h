/*
 * Threads and thread-local storage: a thin layer over POSIX threads. Nothing here needs the started library,
 * keeps state of its own or prints. Failures are VYX_ERROR (or the invalid handle); the platform's error
 * number is not passed on.
 *
 * A handle is valid from its creation until VYX_Thread_Wait has returned 0 for it. Using it later is the
 * caller's error, with undefined results on most platforms.
 */
#ifndef VYX_THREAD_H
#define VYX_THREAD_H

#include <vyx/types.h>

VYX_BEGIN_DECLS

/*
 * Starts a joinable thread.
 *   fnStart     routine to run; its result is discarded by VYX_Thread_Wait
 *   pParam      handed to fnStart; the library neither reads nor frees it
 *   nStackSize  bytes; 0 = platform default
 *   iArg1..3    accepted for portability and ignored
 *
 * Result:  the handle, which the caller owes one VYX_Thread_Wait; VYX_INVALID_THREAD if the stack size is not
 *          accepted (for instance below the platform's minimum) or no thread could be started.
 * Threads: any.
 * Rests on pthread_attr_setstacksize, pthread_create.
 */
VYX_API VYX_THREAD_T VYX_Thread_Create(VYX_THREAD_PROC fnStart, void *pParam, uint32_t nStackSize,
                                       int32_t iArg1, int32_t iArg2, int32_t iArg3);

/*
 * Starts a detached thread: nobody waits for it and its resources go when it ends.
 *   fnStart     routine to run; its result is discarded
 *   pParam      handed to fnStart; the library neither reads nor frees it
 *   nStackSize  bytes; 0 = platform default
 *
 * Result:  VYX_TRUE if the thread was started, otherwise VYX_FALSE. There is no handle.
 * Threads: any.
 * Rests on pthread_attr_setdetachstate, pthread_create.
 */
VYX_API int32_t VYX_ThreadDetached_Create(VYX_THREAD_PROC fnStart, void *pParam, uint32_t nStackSize);

/*
 * Ends the calling thread with a null result (pthread_exit) and does not return. C++ destructors of the thread's stack
 * may run; a catch (...) on the way must throw on.
 *
 * Threads: any. Not in a forked child, where the calling thread is the only one: its end is that of the process, which
 *          runs the exit handlers that the parent has set up. Such a child ends with _exit. What ends with a pool's
 *          worker or a timer's thread is said there.
 */
VYX_API VYX_NORETURN void VYX_Thread_Exit(void);

/*
 * Waits without limit until the thread has ended, and releases it (pthread_join).
 *
 * Result:  VYX_OK, or VYX_ERROR for the invalid handle and whatever the platform refuses (such as a thread
 *          waiting for itself).
 * Threads: any, but one waiter for each handle.
 */
VYX_API int32_t VYX_Thread_Wait(VYX_THREAD_T hThread);

/*
 * Tells the calling thread's handle (pthread_self).
 *
 * Result:  the handle, valid until the thread has ended and was waited for. It cannot fail.
 * Threads: any.
 */
VYX_API VYX_THREAD_T VYX_Thread_GetSelfId(void);

/* Would halt a thread, which no platform of the library offers: does nothing. Result: VYX_NOT_AVAILABLE (-2) for any
 * argument. Threads: any. */
VYX_API int32_t VYX_Thread_Suspend(VYX_THREAD_T hThread);

/* Would let a halted thread go on, which no platform of the library offers: does nothing. Result: VYX_NOT_AVAILABLE
 * (-2) for any argument. Threads: any. */
VYX_API int32_t VYX_Thread_Resume(VYX_THREAD_T hThread);

/*
 * A probe only: nothing is changed.
 *   iPriority  ignored
 *
 * Result:  VYX_OK if the thread's scheduling parameters could be read (pthread_getschedparam), VYX_ERROR
 *          otherwise and for the invalid handle.
 * Threads: any.
 */
VYX_API int32_t VYX_Thread_SetPriority(VYX_THREAD_T hThread, int32_t iPriority);

/*
 * A probe only: the thread is not changed.
 *   iPolicy  the platform's own number (SCHED_OTHER and its kin), passed through without mapping
 *
 * Result:  VYX_OK if the platform accepts that policy (pthread_attr_setschedpolicy), VYX_ERROR otherwise and
 *          for the invalid handle.
 * Threads: any.
 */
VYX_API int32_t VYX_Thread_SetSchedPolicy(VYX_THREAD_T hThread, int32_t iPolicy);

/*
 * Makes a key under which every thread keeps one pointer, null at first (pthread_key_create). The stored
 * pointers stay the caller's: nothing is freed when a thread ends.
 *
 * Result:  the key, to be given back with VYX_ThreadTls_Destroy; VYX_INVALID_TLS if none is left.
 * Threads: any.
 */
VYX_API VYX_TLS_T VYX_ThreadTls_Create(void);

/*
 * Stores the calling thread's pointer (pthread_setspecific).
 *
 * Result:  VYX_OK; VYX_ERROR for the invalid key, one that the platform refuses, and when memory is short.
 * Threads: any; each has a pointer of its own.
 */
VYX_API int32_t VYX_ThreadTls_SetValue(VYX_TLS_T hKey, void *pValue);

/*
 * Tells the calling thread's pointer (pthread_getspecific).
 *
 * Result:  the pointer; null if none was stored or the key is the invalid one.
 * Threads: any; each has a pointer of its own.
 */
VYX_API void *VYX_ThreadTls_GetValue(VYX_TLS_T hKey);

/*
 * Gives the key back (pthread_key_delete). What threads stored under it is not freed.
 *
 * Result:  VYX_OK; VYX_ERROR for the invalid key and one that the platform refuses.
 * Threads: nobody may use the key any more.
 */
VYX_API int32_t VYX_ThreadTls_Destroy(VYX_TLS_T hKey);

VYX_END_DECLS

#ifdef __cplusplus

/*
 * Keeps one thread handle. Copyable, since it owns nothing: the destructor neither joins nor detaches.
 * An object is used by one thread at a time. Methods work on the stored handle and return what the flat
 * function of the same name returns.
 */
class VYX_API VYX_Thread {
  public:
    /* Holds the invalid handle. Threads: one at a time. */
    VYX_Thread();
    /* Neither joins nor detaches. Threads: one at a time. */
    ~VYX_Thread();

    /* As VYX_Thread_Create; keeps the handle, of a failure the invalid one. 0, or -1. Threads: one at a time. */
    int Create(void *(*start)(void *), void *param, unsigned int stackSize, int arg1, int arg2, int arg3);

    /* As VYX_Thread_Wait. The handle is kept, so a second Wait() is the caller's error. Threads: one at a time. */
    int Wait();
    /* As VYX_Thread_SetPriority, a probe only: 0, or -1 on failure. Threads: one at a time. */
    int SetPriority(int priority);
    /* As VYX_Thread_SetSchedPolicy, a probe only: 0, or -1 on failure. Threads: one at a time. */
    int SetSchedPolicy(int policy);

    /* Does nothing: -2. Threads: one at a time. */
    int Suspend();
    /* Does nothing: -2. Threads: one at a time. */
    int Resume();

  private:
    VYX_THREAD_T m_hThread;
};

#endif

#endif
