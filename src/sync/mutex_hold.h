// Holding a mutex that lives in a record. Clang follows locks only by name, so a lock that is a static is a
// Lock and held by a LockGuard (base/lock.h) instead.
#ifndef VYX_SYNC_MUTEX_HOLD_H
#define VYX_SYNC_MUTEX_HOLD_H

#include <vyx/sync.h>

namespace vyx_inter {

// Holds the mutex for the length of a block, also if the thread ends in it.
class MutexHold {
  public:
    explicit MutexHold(VYX_MUTEX_T &hMutex) : m_hMutex(hMutex) { (void)VYX_MutexLock(&m_hMutex); }
    ~MutexHold() { (void)VYX_MutexUnlock(&m_hMutex); }
    MutexHold(const MutexHold &) = delete;
    MutexHold &operator=(const MutexHold &) = delete;

  private:
    VYX_MUTEX_T &m_hMutex;
};

} // namespace vyx_inter

#endif
