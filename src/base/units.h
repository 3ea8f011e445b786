// Units of time.
#ifndef VYX_BASE_UNITS_H
#define VYX_BASE_UNITS_H

#include <cstdint>

namespace vyx_inter {

constexpr int64_t kMillisPerSecond = 1000;
constexpr int64_t kMicrosPerMilli = 1000;
constexpr int64_t kMicrosPerSecond = 1000000;
constexpr int64_t kNanosPerMicro = 1000;
constexpr int32_t kSecondsPerMinute = 60;
constexpr int32_t kMinutesPerHour = 60;
constexpr int32_t kHoursPerDay = 24;

} // namespace vyx_inter

#endif
