// What both pools need to wait and to hold locks.
#ifndef VYX_POOL_WAITING_H
#define VYX_POOL_WAITING_H

#include <sched.h>
#include <vyx/sync.h>

namespace vyx_inter {

// Holds a mutex that lives in a pool for the length of a block, also if the thread ends in it.
class MutexHold {
  public:
    explicit MutexHold(VYX_MUTEX_T &hMutex) : m_hMutex(hMutex) { (void)VYX_MutexLock(&m_hMutex); }
    ~MutexHold() { (void)VYX_MutexUnlock(&m_hMutex); }
    MutexHold(const MutexHold &) = delete;
    MutexHold &operator=(const MutexHold &) = delete;

  private:
    VYX_MUTEX_T &m_hMutex;
};

// Under a steady load the next item, or the next idle worker, is there within microseconds, sooner than a
// thread falls asleep and is woken. So both sides try this often first, letting others run in between.
constexpr uint32_t kBriefTries = 32;

// Result: true as soon as fnTry succeeds, false when all tries have failed.
template <class Try>
bool TryBriefly(Try fnTry) {
    for (uint32_t nTry = 0; nTry < kBriefTries; ++nTry) {
        if (fnTry())
            return true;
        (void)sched_yield();
    }
    return false;
}

} // namespace vyx_inter

#endif
