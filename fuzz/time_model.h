// The calendar by own arithmetic, and zones.
#ifndef VYX_FUZZ_TIME_MODEL_H_
#define VYX_FUZZ_TIME_MODEL_H_

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <tuple>
#include <vyx/time.h>

#include "input.h"

namespace fuzz {

// Zones and their seconds east of UTC, without daylight saving. POSIX strings, so that no zone files are needed.
inline const struct {
    const char *szZone;
    int32_t iOffset;
} kZones[] = {{"UTC0", 0},
              {"CET-1CEST,M3.5.0,M10.5.0/3", 3600},
              {"EST5EDT,M3.2.0,M11.1.0", -18000},
              {"IST-5:30", 19800},
              {"NST3:30NDT,M3.2.0,M11.1.0", -12600},
              {"<+1245>-12:45<+1345>,M9.5.0/2:45,M4.1.0/3:45", 45900},
              {"<-12>12", -43200},
              {"<+14>-14", 50400}};

// One of the zones for this process, by the time. Result: its seconds east of UTC. The C library is not told yet.
inline int32_t SetZone(VYX_TIME_T t) {
    const auto &zone = kZones[static_cast<uint64_t>(t) % std::size(kZones)];
    (void)setenv("TZ", zone.szZone, 1);
    return zone.iOffset;
}

// The days from 1970-01-01 to a date, for any year.
inline int64_t DaysTo(int64_t iYear, int iMonth, int iDay) {
    static const int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const int64_t iCycles = (iYear >= 0 ? iYear : iYear - 399) / 400;
    const int64_t iRest = iYear - iCycles * 400;
    const bool bLeap = iRest % 4 == 0 && (iRest % 100 != 0 || iRest == 0);
    const int64_t iLeapDays = (iRest + 3) / 4 - (iRest + 99) / 100 + (iRest > 0 ? 1 : 0);
    return iCycles * 146097 + iRest * 365 + iLeapDays + kBefore[iMonth] + (bLeap && iMonth > 1 ? 1 : 0) +
           iDay - 1 - 719528;
}

// The seconds since 1970 of fields that hold anything, as days and hours carry over; -1 where there is no such month, or
// before 1970.
inline int64_t SecondsOf(const VYX_TIME_EXP_T &f) {
    if (f.tm_mon < 0 || f.tm_mon > 11)
        return -1;
    const int64_t iDays = DaysTo(int64_t{f.tm_year} + 1900, f.tm_mon, 1) + f.tm_mday - 1;
    return std::max<int64_t>(-1, ((iDays * 24 + f.tm_hour) * 60 + f.tm_min) * 60 + f.tm_sec);
}

// The fields are those of the second, which is local.
inline void RequireFields(const VYX_TIME_EXP_T &fields, int64_t iSeconds, int32_t iMicros, int32_t iOffset) {
    const int64_t iDays = DaysTo(int64_t{fields.tm_year} + 1900, fields.tm_mon, fields.tm_mday);
    REQUIRE(fields.tm_hour >= 0 && fields.tm_hour < 24 && fields.tm_min >= 0 && fields.tm_min < 60);
    REQUIRE(fields.tm_sec >= 0 && fields.tm_sec < 60 && fields.tm_mday >= 1 && fields.tm_mday <= 31);
    REQUIRE(iDays * 86400 + fields.tm_hour * 3600 + fields.tm_min * 60 + fields.tm_sec == iSeconds);
    REQUIRE(fields.tm_wday == ((iDays + 4) % 7 + 7) % 7);
    REQUIRE(fields.tm_yday == iDays - DaysTo(int64_t{fields.tm_year} + 1900, 0, 1));
    REQUIRE(fields.tm_usec == iMicros && fields.tm_gmtoff == iOffset);
}

// Fields that hold anything.
inline VYX_TIME_EXP_T OddFields(Input *pInput) {
    VYX_TIME_EXP_T fields = {};
    for (int32_t *pField : {&fields.tm_usec, &fields.tm_sec, &fields.tm_min, &fields.tm_hour, &fields.tm_mday,
                            &fields.tm_year, &fields.tm_gmtoff})
        *pField = pInput->Number<int32_t>();
    fields.tm_year &= INT32_MAX;
    fields.tm_mon = static_cast<int>(pInput->Pick(14)) - 1;
    fields.tm_wday = static_cast<int>(pInput->Pick(9)) - 1;
    fields.tm_yday = pInput->Number<int16_t>();
    return fields;
}

// The same fields as the platform has them.
inline struct tm PlatformFields(const VYX_TIME_EXP_T &f) {
    struct tm platform = {};
    std::tie(platform.tm_sec, platform.tm_min, platform.tm_hour, platform.tm_mday) =
        std::tie(f.tm_sec, f.tm_min, f.tm_hour, f.tm_mday);
    std::tie(platform.tm_mon, platform.tm_year, platform.tm_wday, platform.tm_yday, platform.tm_isdst) =
        std::tie(f.tm_mon, f.tm_year, f.tm_wday, f.tm_yday, f.tm_isdst);
    return platform;
}

} // namespace fuzz

#endif
