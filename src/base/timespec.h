// A number of microseconds as the platform's calls want it.
#ifndef VYX_BASE_TIMESPEC_H
#define VYX_BASE_TIMESPEC_H

#include <ctime>

#include "base/units.h"

namespace vyx_inter {

// Static: the files that include this may be compiled with different widths of time_t.
static inline struct timespec ToTimespec(int64_t iMicros) {
    struct timespec time = {};
    time.tv_sec = static_cast<time_t>(iMicros / kMicrosPerSecond);
    time.tv_nsec = static_cast<long>(iMicros % kMicrosPerSecond * kNanosPerMicro);
    return time;
}

} // namespace vyx_inter

#endif
