// What both pools need to wait and to hold locks.
#ifndef VYX_POOL_WAITING_H
#define VYX_POOL_WAITING_H

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

// Permission to look for something without sleeping, for the length of a block. Not granted when as many
// threads do that already as the machine has processors to spare.
class SpinTurn {
  public:
    SpinTurn();
    ~SpinTurn();
    SpinTurn(const SpinTurn &) = delete;
    SpinTurn &operator=(const SpinTurn &) = delete;

    bool IsGranted() const { return m_bGranted; }

  private:
    bool m_bGranted;
};

// Under a steady load the next item, or the next idle worker, is there sooner than a thread falls asleep and is
// woken. So both sides look this often, which takes a few microseconds, before they sleep.
constexpr uint32_t kBriefTries = 2000;

// Result: true as soon as fnTry succeeds, false when all tries have failed.
template <class Try>
bool TryBriefly(Try fnTry) {
    if (fnTry())
        return true;
    const SpinTurn turn;
    for (uint32_t nTry = 1; turn.IsGranted() && nTry < kBriefTries; ++nTry)
        if (fnTry())
            return true;
    return false;
}

} // namespace vyx_inter

#endif
