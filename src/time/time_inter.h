// What the time functions need from each platform: calendar_linux.cpp, calendar_darwin.cpp. All but the clock is called
// with the lock of the calendar held.
#ifndef VYX_TIME_TIME_INTER_H
#define VYX_TIME_TIME_INTER_H

#include <vyx/time.h>

VYX_BEGIN_DECLS

// Seconds of a clock that is cheap to read and not behind by more than a small part of a second. It may start and jump
// anywhere: two readings are only ever compared for being the same.
uint32_t VYX_CoarseSecond_Inter(void);

// Minutes that local standard time, without daylight saving, lies west of Greenwich at present, in the zone that the C
// library has. Result: 0, or -1 if the platform cannot tell.
int32_t VYX_MinutesWest_Inter(int32_t *pMinutes);

// What can be told of the zone that the C library has: the application may have it take another one at any time.
struct VYX_ZONE_MARK_S {
    const char *pNames[2];
    long lWest; // seconds
    int iDaylight;
};
struct VYX_ZONE_MARK_S VYX_ZoneMark_Inter(void);

VYX_END_DECLS

#endif
