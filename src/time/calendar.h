// Local time, for everything in the library that shows a time.
//
// The C library has one zone for the whole process, behind a lock of its own that a forked child inherits as it was at
// that moment. All calls of the library that use the zone are therefore made here, under a lock of ours which a fork
// holds. Each thread remembers what it asked last, so that the same second costs no call and no lock.
#ifndef VYX_TIME_CALENDAR_H
#define VYX_TIME_CALENDAR_H

#include <vyx/time.h>

#include "base/fork.h"

VYX_BEGIN_DECLS

// Calendar fields of local time and of UTC. A change of TZ counts at once; one that only the C library can see (the file
// of the zone, where TZ is not set) within a second. Result: pOut, or null with pOut as it was if the year does not
// fit.
struct tm *VYX_LocalTime_Inter(int64_t iSeconds, struct tm *pOut);
struct tm *VYX_UtcTime_Inter(int64_t iSeconds, struct tm *pOut);

// Seconds, in whole minutes, that present local standard time, without daylight saving, lies east of Greenwich; follows
// the zone as VYX_LocalTime_Inter does. Result: 0, or -1 if the platform cannot tell.
int32_t VYX_StandardOffset_Inter(int32_t *pSeconds);

// A number that is never 0 and changes, for the calling thread, whenever the zone may have: at least once a second. Who
// keeps what was made of local time keeps this beside it.
uint32_t VYX_ZoneEdition_Inter(void);

// strftime, some directives of which use the zone.
size_t VYX_FormatFields_Inter(char *szOut, size_t nMax, const char *szFormat, const struct tm *pFields);

// Seconds since 1970, as time tells them.
int64_t VYX_SecondsNow_Inter(void);

// No other thread is in the C library on our account during a fork.
extern const vyx_inter::ForkRow g_struCalendarForkRow;

VYX_END_DECLS

#endif
