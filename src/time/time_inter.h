// What the time functions need from each platform.
#ifndef VYX_TIME_TIME_INTER_H
#define VYX_TIME_TIME_INTER_H

#include <vyx/time.h>

VYX_BEGIN_DECLS

// Minutes that local standard time, without daylight saving, lies west of Greenwich. Result: 0, or -1 if the
// platform cannot tell.
int32_t VYX_MinutesWest_Inter(int32_t *pMinutes);

// Calendar fields of local time, with a change of TZ taken into account as localtime does, and of UTC. Result:
// pOut, or null with pOut as it was if the year does not fit.
struct tm *VYX_LocalTime_Inter(int64_t iSeconds, struct tm *pOut);
struct tm *VYX_UtcTime_Inter(int64_t iSeconds, struct tm *pOut);

VYX_END_DECLS

#endif
