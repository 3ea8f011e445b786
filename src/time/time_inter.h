// What the time functions need from each platform.
#ifndef VYX_TIME_TIME_INTER_H
#define VYX_TIME_TIME_INTER_H

#include <vyx/time.h>

VYX_BEGIN_DECLS

// Minutes that local standard time, without daylight saving, lies west of Greenwich. Result: 0, or -1 if the
// platform cannot tell.
int32_t VYX_MinutesWest_Inter(int32_t *pMinutes);

// Local calendar fields, with a change of TZ taken into account as localtime does. Result: pOut, or null with
// pOut as it was if the year does not fit.
struct tm *VYX_LocalTime_Inter(time_t tSeconds, struct tm *pOut);

VYX_END_DECLS

#endif
