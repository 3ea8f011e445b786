// The platform's calendar, asked with 64-bit seconds. This file is compiled with the platform's wide time_t
// (_TIME_BITS=64), which 32-bit Linux has beside its narrow one: elsewhere time_t is part of the interface.
#include "time/calendar.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/describe.h"
#include "base/lock.h"
#include "base/platform.h"
#include "base/units.h"

using vyx_inter::LockGuard;

namespace {

vyx_inter::Lock s_hCalendarLock{vyx_inter::Rank::Calendar};
vyx_inter::ForkHold s_forkHold(s_hCalendarLock);

// The library's last look at a zone that is not in TZ, hence in a file.
struct Look {
    bool bDone;
    uint32_t nSecond;     // of the coarse clock
    VYX_ZONE_MARK_S mark; // what the library left the C library with
    bool IsRecent(uint32_t nNow) const {
        const VYX_ZONE_MARK_S now = VYX_ZoneMark_Inter();
        return bDone && nSecond == nNow && mark.pNames[0] == now.pNames[0] &&
               mark.pNames[1] == now.pNames[1] && mark.lWest == now.lWest && mark.iDaylight == now.iDaylight;
    }
};
Look s_look VYX_GUARDED_BY(s_hCalendarLock);

enum class Tz : uint8_t { Unset, Set, TooLong };

// What a thread found when it last asked for the zone.
struct View {
    uint32_t nEdition; // 0: it never has
    uint32_t nSecond;  // of the coarse clock
    Tz eTz;
    char szTz[51]; // its value, if set

    bool Holds(uint32_t nNow, const char *szNow) const {
        if (nEdition == 0 || nSecond != nNow)
            return false;
        return szNow == nullptr ? eTz == Tz::Unset : eTz == Tz::Set && std::strcmp(szTz, szNow) == 0;
    }
    void Take(uint32_t nNow, const char *szNow) {
        nEdition = nEdition == UINT32_MAX ? 1 : nEdition + 1;
        nSecond = nNow;
        const size_t nLength = szNow == nullptr ? 0 : std::strlen(szNow);
        eTz = szNow == nullptr ? Tz::Unset : nLength < sizeof szTz ? Tz::Set : Tz::TooLong;
        if (eTz == Tz::Set)
            std::memcpy(szTz, szNow, nLength + 1);
    }
};
thread_local View t_view;

// The second that a thread asked for last.
struct Second {
    uint32_t nEdition; // of the zone; 0: none
    int64_t iSeconds;
    struct tm fields;
};
thread_local Second t_second;

struct Offset {
    uint32_t nEdition; // of the zone; 0: none
    int32_t iMinutesWest;
};
thread_local Offset t_offset;

// Has the C library look at the zone, as localtime does each time; its reentrant form need not. Where TZ is set that is
// no more than a comparison of texts. Where it is not, it is a look at a file: once a second will do, unless
// somebody had the C library take another zone in between.
void LookAtZone_Local() VYX_REQUIRES(s_hCalendarLock) {
    const bool bInFile = t_view.eTz == Tz::Unset;
    if (bInFile && s_look.IsRecent(t_view.nSecond))
        return;
    tzset();
    s_look = {bInFile, t_view.nSecond, VYX_ZoneMark_Inter()};
}

using Convert = struct tm *(*)(const time_t *, struct tm *);

struct tm *Convert_Local(Convert convert, int64_t iSeconds, struct tm *pOut) VYX_REQUIRES(s_hCalendarLock) {
    const auto tSeconds = static_cast<time_t>(iSeconds);
    struct tm fields = {};
    if (tSeconds != iSeconds || convert(&tSeconds, &fields) == nullptr) // which leaves some fields changed
        return nullptr;
    *pOut = fields;
    return pOut;
}

// The names of the zone are the C library's, which the other calls here set.
size_t Print_Local(char *szOut, size_t nMax, const char *szFormat, const struct tm *pFields)
    VYX_REQUIRES(s_hCalendarLock) {
    return strftime(szOut, nMax, szFormat, pFields);
}

} // namespace

uint32_t VYX_ZoneEdition_Inter(void) {
    const uint32_t nNow = VYX_CoarseSecond_Inter();
    const char *szNow = std::getenv("TZ");
    if (!t_view.Holds(nNow, szNow))
        t_view.Take(nNow, szNow);
    return t_view.nEdition;
}

struct tm *VYX_LocalTime_Inter(int64_t iSeconds, struct tm *pOut) {
    const uint32_t nEdition = VYX_ZoneEdition_Inter();
    Second &second = t_second;
    if (second.nEdition != nEdition || second.iSeconds != iSeconds) {
        const LockGuard guard(s_hCalendarLock);
        LookAtZone_Local();
        if (Convert_Local(localtime_r, iSeconds, &second.fields) == nullptr)
            return nullptr;
        s_look.mark = VYX_ZoneMark_Inter(); // the names in force at that time are part of it
        second.nEdition = nEdition;
        second.iSeconds = iSeconds;
    }
    *pOut = second.fields;
    return pOut;
}

struct tm *VYX_UtcTime_Inter(int64_t iSeconds, struct tm *pOut) {
    const LockGuard guard(s_hCalendarLock);
    return Convert_Local(gmtime_r, iSeconds, pOut);
}

int32_t VYX_StandardOffset_Inter(int32_t *pSeconds) {
    const uint32_t nEdition = VYX_ZoneEdition_Inter();
    Offset &offset = t_offset;
    if (offset.nEdition != nEdition) {
        const LockGuard guard(s_hCalendarLock);
        LookAtZone_Local();
        int32_t iMinutesWest = 0;
        if (VYX_MinutesWest_Inter(&iMinutesWest) != VYX_OK)
            return VYX_ERROR;
        offset = {nEdition, iMinutesWest};
    }
    *pSeconds = -offset.iMinutesWest * vyx_inter::kSecondsPerMinute;
    return VYX_OK;
}

size_t VYX_FormatFields_Inter(char *szOut, size_t nMax, const char *szFormat, const struct tm *pFields) {
    const LockGuard guard(s_hCalendarLock);
    return Print_Local(szOut, nMax, szFormat, pFields);
}

const vyx_inter::ForkRow g_struCalendarForkRow = {
    [] { s_forkHold.Before(); },
    [] { s_forkHold.InParent(); },
    [] { (void)s_forkHold.InChild(); },
};

/* ---- Description */

static constexpr vyx_inter::DescriptionRow kRows[] = {VYX_LOCK("Calendar", s_hCalendarLock)};
VYX_DESCRIBE(calendar, kRows)
