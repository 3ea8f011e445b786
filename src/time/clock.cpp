// The clock, read with 64-bit seconds. This file is compiled with the platform's wide time_t (_TIME_BITS=64), which 32-bit
// Linux has beside its narrow one: elsewhere time_t is part of the interface.
#include <vyx/time.h>

#include "base/units.h"
#include "time/calendar.h"

VYX_TIME_T VYX_TimeNow(void) {
    struct timeval now;
    if (gettimeofday(&now, nullptr) != 0)
        return VYX_ERROR;
    return static_cast<int64_t>(now.tv_sec) * vyx_inter::kMicrosPerSecond + now.tv_usec;
}

uint32_t VYX_GetTimeTick(void) {
    struct timeval now = {};
    (void)gettimeofday(&now, nullptr); // a clock that cannot be read stands at 0
    const int64_t iMillis =
        now.tv_sec * vyx_inter::kMillisPerSecond + now.tv_usec / vyx_inter::kMicrosPerMilli;
    return static_cast<uint32_t>(iMillis);
}

int64_t VYX_SecondsNow_Inter(void) {
    return time(nullptr);
}
