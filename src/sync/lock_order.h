// The library's own locks. Outermost first; a thread that holds one may take only those below it.
//
//   lock             where                      guards
//   ---------------  -------------------------  ------------------------------------------------------------
//   s_vyxmutex       src/frame/lifecycle.cpp    the start counter and the stage flags; held through every
//                                               stage's start and stop
//   s_VyxTimerMutex  src/msg/timer.cpp          the table of timers; under it only s_hCreateLock is taken
//   (caller's mutex) argument of                the caller's predicate; held by the caller
//                    VYX_CondTimedWait
//   s_msgQMutex      src/msg/msgq.cpp           which message queues are live; held to create and destroy one
//   hQueueLock       VYX_MQ_INTER               a queue's messages in order; senders do without it
//   hRecvLock,       VYX_MQ_INTER               who waits at a queue; never both
//   hSendLock
//   hLock            THREAD_POOL_T, recursive   a fixed pool's live count, its thread records, who waits
//   hLock            thrmgr_pool_t              a flexible pool's queue, its live count, the start of workers
//   hMutex           VYX_EVENT_T                what is in an event's pipe, and the closing of the pipe
//   m_switchLock     LogService                 which targets are switched, and the stop of the service
//   m_serviceLock    LogService                 the log service's start and stop
//   m_hQueueLock     LogService                 the ring of log lines and their queue; never with m_fileLock
//   m_fileLock       LogService                 the log files
//   s_hSemLock       src/sync/timed_wait.cpp    s_struTimeSems; never together with s_hCondLock
//   s_hCondLock      src/sync/timed_wait.cpp    s_struTimeConds
//   TIMED_SEM_S lock src/sync/timed_wait.cpp    one pending semaphore wait's `waiting`, for its sleep
//   s_hParkLock      src/sync/timed_wait.cpp    the service's sleep while nothing is registered
//
// A thread that forks holds s_msgQMutex and then the hQueueLock of every live queue.
//
// s_hCalendarLock (src/log/log_header.cpp) is held alone, or within m_hQueueLock by a thread that forks.
//
// Only ever held alone: s_csLock (src/pool/thread_pool.cpp), s_csLock (src/sync/atomic.cpp), the mutex inside
// a VYX_Sema. Innermost: s_hCreateLock (src/sync/timed_wait.cpp), with which a fixed pool names the semaphore of
// a worker while it holds its hLock, and so does a timer. No two pools are ever locked together.
//
// VYX_CondDestroy takes s_hCondLock, hence may be called with a caller's mutex held.
//
// One intended reversal: the timed-wait service holds s_hCondLock and then takes a caller's mutex, while a
// waiter holds that mutex and then takes s_hCondLock. The service therefore only ever tries the caller's
// mutex and comes back later if it is busy, so that neither can wait for the other.
//
// The lock of values that a processor cannot exchange as one (src/container/whole_value.h) is innermost.
//
// The lock of a vyx::vyx_msgq is only ever held alone.
//
// A pool's hLock is made and destroyed with the pool. Every other lock here is initialised by the compiler or
// before any other static object, and none is destroyed before the process ends, so each may be used from a
// static constructor and during stop.
#ifndef VYX_SYNC_LOCK_ORDER_H
#define VYX_SYNC_LOCK_ORDER_H

#include <vyx/sync.h>

#include "sync/thread_annotations.h"

namespace vyx_inter {

// A lock of the library's own: a normal mutex, ready before any code runs, never destroyed.
struct VYX_CAPABILITY("mutex") Lock {
    VYX_MUTEX_T hMutex = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a Lock for the length of a block. A normal mutex that only this code locks cannot fail to lock or to
// unlock, so the results carry nothing.
class VYX_SCOPED_CAPABILITY LockGuard {
  public:
    explicit LockGuard(Lock &lock) VYX_ACQUIRE(lock) : m_lock(lock) { (void)VYX_MutexLock(&m_lock.hMutex); }
    ~LockGuard() VYX_RELEASE() { (void)VYX_MutexUnlock(&m_lock.hMutex); }
    LockGuard(const LockGuard &) = delete;
    LockGuard &operator=(const LockGuard &) = delete;

  private:
    Lock &m_lock;
};

} // namespace vyx_inter

#endif
