#include "time/platform_calendar.h" // compiled with _TIME_BITS=64

static_assert(sizeof(time_t) == 8, "wide enough to compare with");

int64_t support::PlatformSeconds(struct tm *pFields) {
    return timegm(pFields);
}
