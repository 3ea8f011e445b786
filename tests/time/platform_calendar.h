// The platform's own calendar, to compare with.
#ifndef VYX_TESTS_TIME_PLATFORM_CALENDAR_H
#define VYX_TESTS_TIME_PLATFORM_CALENDAR_H

#include <cstdint>
#include <ctime>

namespace support {

// timegm with 64-bit seconds, also where the rest of the tests has a narrower time_t.
int64_t PlatformSeconds(struct tm *pFields);

} // namespace support

#endif
