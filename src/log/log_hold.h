// Holds the log service's locks for the length of a block.
#ifndef VYX_LOG_LOG_HOLD_H
#define VYX_LOG_LOG_HOLD_H

#include <vyx/sync.h>

namespace vyx_inter {

class ClassHold {
  public:
    explicit ClassHold(VYX_Mutex &mutex) : m_mutex(mutex) { (void)m_mutex.Lock(); }
    ~ClassHold() { (void)m_mutex.Unlock(); }
    ClassHold(const ClassHold &) = delete;
    ClassHold &operator=(const ClassHold &) = delete;

  private:
    VYX_Mutex &m_mutex;
};

class QueueHold {
  public:
    explicit QueueHold(VYX_MUTEX_T &hMutex) : m_hMutex(hMutex) { (void)VYX_MutexLock(&m_hMutex); }
    ~QueueHold() { (void)VYX_MutexUnlock(&m_hMutex); }
    QueueHold(const QueueHold &) = delete;
    QueueHold &operator=(const QueueHold &) = delete;

  private:
    VYX_MUTEX_T &m_hMutex;
};

} // namespace vyx_inter

#endif
