// How long a caller is willing to wait.
#ifndef VYX_BASE_DEADLINE_H
#define VYX_BASE_DEADLINE_H

#include <cstdint>
#include <ctime>

#include "base/platform.h"
#include "base/units.h"

namespace vyx_inter {

// A moment up to which a wait may last, or no limit.
class Deadline {
  public:
    // nMillis milliseconds from now; 0xFFFFFFFF: no limit.
    static Deadline In(uint32_t nMillis, Clock eClock) {
        return nMillis == UINT32_MAX ? Deadline(kNever, eClock)
                                     : Deadline(Now(eClock) + nMillis * kMicrosPerMilli, eClock);
    }
    static Deadline Never() { return {kNever, Clock::Monotonic}; }

    [[nodiscard]] bool IsNever() const { return m_iMicros == kNever; }
    [[nodiscard]] bool HasPassed() const { return LeftMicros() == 0; }
    // What is left, 0 if nothing is. Not for a deadline that is never.
    [[nodiscard]] int64_t LeftMicros() const {
        const int64_t iLeft = IsNever() ? kNever : m_iMicros - Now(m_eClock);
        return iLeft > 0 ? iLeft : 0;
    }
    // What is left as a time-out for poll: rounded up, so that the wait is not cut short; -1 without a limit.
    [[nodiscard]] int LeftForPoll() const {
        if (IsNever())
            return -1;
        const int64_t iMillis = (LeftMicros() + kMicrosPerMilli - 1) / kMicrosPerMilli;
        return iMillis < INT32_MAX ? static_cast<int>(iMillis) : INT32_MAX;
    }
    // The moment itself, in microseconds of its clock.
    [[nodiscard]] int64_t Micros() const { return m_iMicros; }
    [[nodiscard]] Clock WhichClock() const { return m_eClock; }

  private:
    friend struct LockRows;
    static constexpr int64_t kNever = INT64_MAX;
    Deadline(int64_t iMicros, Clock eClock) : m_iMicros(iMicros), m_eClock(eClock) {}
    int64_t m_iMicros;
    Clock m_eClock;
};

} // namespace vyx_inter

#endif
