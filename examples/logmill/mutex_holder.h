// Holds a mutex for the length of a block.
#ifndef LOGMILL_MUTEX_HOLDER_H
#define LOGMILL_MUTEX_HOLDER_H

#include <vyx/sync.h>

namespace logmill {

class MutexHolder {
  public:
    explicit MutexHolder(VYX_Mutex &mutex) : m_mutex(mutex) { (void)m_mutex.Lock(); }
    ~MutexHolder() { (void)m_mutex.Unlock(); }
    MutexHolder(const MutexHolder &) = delete;
    MutexHolder &operator=(const MutexHolder &) = delete;

  private:
    VYX_Mutex &m_mutex;
};

} // namespace logmill

#endif
