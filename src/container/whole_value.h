// A value of two words that is read and exchanged as one.
#ifndef VYX_CONTAINER_WHOLE_VALUE_H
#define VYX_CONTAINER_WHOLE_VALUE_H

#include <atomic>
#include <cstring>

#include "base/lock.h"

namespace vyx_inter {

// With the processor's own operations where it has them.
template <class T, bool kLockFree = std::atomic<T>::is_always_lock_free>
class WholeValue : public std::atomic<T> {
    static_assert(sizeof(std::atomic<T>) == sizeof(T), "no more than the value");
};

// Under a lock elsewhere, as on 32-bit PowerPC. It is shared by all such values and held for a few instructions, so
// nobody waits for what its holder does with the value.
template <class T>
class WholeValue<T, false> {
  public:
    T load(std::memory_order /*order*/) const {
        const LockGuard guard(s_csLock);
        return m_value;
    }
    bool compare_exchange_weak(T &expected, T desired, std::memory_order /*success*/,
                               std::memory_order /*failure*/ = std::memory_order_relaxed) {
        const LockGuard guard(s_csLock);
        const bool bSame = std::memcmp(&m_value, &expected, sizeof m_value) == 0;
        if (bSame)
            m_value = desired;
        else
            expected = m_value;
        return bSame;
    }

  private:
    static inline Lock s_csLock{Rank::WholeValue};
    T m_value VYX_GUARDED_BY(s_csLock) = {};
};

} // namespace vyx_inter

#endif
