// The time value, calendar fields and the fixed text.
#include <array>
#include <climits>
#include <cstring>
#include <ctime>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <vyx/time.h>

#include "time/platform_calendar.h"
#include "time/zone.h"

namespace {

using support::Zone;

constexpr int64_t kSecond = 1000000;
constexpr int64_t kDay = 86400;

VYX_TIME_EXP_T Fields(int32_t iYear, int32_t iMonth, int32_t iDay, int32_t iHour = 0, int32_t iMinute = 0,
                      int32_t iSec = 0, int32_t iMicros = 0, int32_t iOffset = 0) {
    VYX_TIME_EXP_T fields;
    std::memset(&fields, 0x5A, sizeof fields); // what a conversion should not read is far from plausible
    fields.tm_year = iYear - 1900;
    fields.tm_mon = iMonth - 1;
    fields.tm_mday = iDay;
    fields.tm_hour = iHour;
    fields.tm_min = iMinute;
    fields.tm_sec = iSec;
    fields.tm_usec = iMicros;
    fields.tm_gmtoff = iOffset;
    return fields;
}

// Every field as text, so that a difference shows all of them.
std::string Show(const VYX_TIME_EXP_T &f) {
    char szText[200];
    (void)snprintf(szText, sizeof szText,
                   "%lld-%02lld-%02d %02d:%02d:%02d us=%d wday=%d yday=%d dst=%d off=%d", f.tm_year + 1900LL,
                   f.tm_mon + 1LL, f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec, f.tm_usec, f.tm_wday, f.tm_yday,
                   f.tm_isdst, f.tm_gmtoff);
    return szText;
}

constexpr int64_t kUntouched = 4711;

TEST(AnsiTime, TruncatesTowardZero) {
    EXPECT_EQ(VYX_TimeFromAnsiTime(1234567890), 1234567890 * kSecond);
    EXPECT_EQ(VYX_TimeFromAnsiTime(-1), -kSecond);
    for (const auto &[iMicros, iSeconds] : {std::pair<int64_t, int64_t>{0, 0},
                                            {999999, 0},
                                            {1000000, 1},
                                            {-1, 0},
                                            {-999999, 0},
                                            {-1000000, -1},
                                            {INT64_MAX, INT64_MAX / kSecond},
                                            {INT64_MIN, INT64_MIN / kSecond}})
        EXPECT_EQ(VYX_AnsiTimeFromTime(iMicros), static_cast<time_t>(iSeconds)) << iMicros;
}

TEST(ExplodeTime, KnownInstants) {
    const struct {
        VYX_TIME_T t;
        int32_t iOffset;
        const char *szExpected;
    } kTable[] = {
        {0, 0, "1970-01-01 00:00:00 us=0 wday=4 yday=0 dst=0 off=0"},
        {-1, 0, "1970-01-01 00:00:00 us=-1 wday=4 yday=0 dst=0 off=0"},
        {-kSecond, 0, "1969-12-31 23:59:59 us=0 wday=3 yday=364 dst=0 off=0"},
        {-1500000, 0, "1969-12-31 23:59:59 us=-500000 wday=3 yday=364 dst=0 off=0"},
        {0, -1, "1969-12-31 23:59:59 us=0 wday=3 yday=364 dst=0 off=-1"},
        {951825600 * kSecond + 999999, 0, "2000-02-29 12:00:00 us=999999 wday=2 yday=59 dst=0 off=0"},
        {951825600 * kSecond, 43200, "2000-03-01 00:00:00 us=0 wday=3 yday=60 dst=0 off=43200"},
        {INT64_MAX, 0, "294247-01-10 04:00:54 us=775807 wday=0 yday=9 dst=0 off=0"},
        {INT64_MIN, 0, "-290308-12-21 19:59:06 us=-775808 wday=0 yday=355 dst=0 off=0"},
        {INT64_MAX, INT32_MAX, "294315-01-29 07:15:01 us=775807 wday=5 yday=28 dst=0 off=2147483647"},
    };
    for (const auto &row : kTable) {
        VYX_TIME_EXP_T fields;
        std::memset(&fields, 0x5A, sizeof fields);
        EXPECT_EQ(VYX_ExpTimeFromTime(row.t, row.iOffset, &fields), VYX_OK);
        EXPECT_EQ(Show(fields), row.szExpected);
    }
    EXPECT_EQ(VYX_ExpTimeFromTime(0, 0, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_ExpTimeFromTimeGMT(0, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_ExpTimeFromTimeLocal(0, nullptr), VYX_ERROR);
}

// A calendar that only knows how to go on by one day.
struct Calendar {
    int32_t iYear = 1600, iMonth = 1, iDay = 1, iWeekDay = 6, iYearDay = 0;
    int64_t iDayNumber = -135140;

    void Next() {
        const bool bLeap = (iYear % 4 == 0 && iYear % 100 != 0) || iYear % 400 == 0;
        const int kLengths[] = {31, bLeap ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        ++iDayNumber;
        iWeekDay = (iWeekDay + 1) % 7;
        ++iYearDay;
        if (++iDay <= kLengths[iMonth - 1])
            return;
        iDay = 1;
        if (++iMonth <= 12)
            return;
        iMonth = 1;
        iYearDay = 0;
        ++iYear;
    }
};

TEST(ExplodeTime, EveryDayOfTwelveHundredYearsBothWays) {
    for (Calendar day; day.iYear < 2800; day.Next()) {
        VYX_TIME_EXP_T expected = Fields(day.iYear, day.iMonth, day.iDay, 23, 59, 59);
        expected.tm_wday = day.iWeekDay;
        expected.tm_yday = day.iYearDay;
        expected.tm_isdst = 0;
        const VYX_TIME_T t = (day.iDayNumber * kDay + kDay - 1) * kSecond;
        VYX_TIME_EXP_T fields = {};
        ASSERT_EQ(VYX_ExpTimeFromTimeGMT(t, &fields), VYX_OK);
        ASSERT_EQ(std::memcmp(&fields, &expected, sizeof fields), 0) << Show(fields) << "\n"
                                                                     << Show(expected);
        VYX_TIME_T back = kUntouched;
        ASSERT_EQ(VYX_TimeFromExpTime(&expected, &back), t < 0 ? VYX_ERROR : VYX_OK) << Show(expected);
        ASSERT_EQ(back, t < 0 ? kUntouched : t) << Show(expected);
    }
}

TEST(TimeFromFields, KnownInstants) {
    const struct {
        VYX_TIME_EXP_T fields;
        VYX_TIME_T expected; // kUntouched: refused
    } kTable[] = {
        {Fields(1970, 1, 1), 0},
        {Fields(1970, 1, 1, 0, 0, 0, 1), 1},
        {Fields(1970, 1, 1, 0, 0, 0, -1), -1},
        {Fields(1969, 12, 31, 23, 59, 59), kUntouched},
        {Fields(1969, 12, 31, 23, 59, 59, 1000000), kUntouched},
        {Fields(2000, 2, 29, 12), 951825600 * kSecond},
        {Fields(2000, 2, 30, 12), 951912000 * kSecond},
        {Fields(2000, 3, 1, -12), 951825600 * kSecond},
        {Fields(2100, 2, 28, 24), 4107542400 * kSecond},
        {Fields(1970, 1, 2, -24, 0, 0), 0},
        {Fields(1970, 1, 2, -24, 0, -1), kUntouched},
        {Fields(2000, 0, 1), kUntouched},
        {Fields(2000, 13, 1), kUntouched},
    };
    for (const auto &row : kTable) {
        SCOPED_TRACE(Show(row.fields));
        VYX_TIME_T t = kUntouched;
        EXPECT_EQ(VYX_TimeFromExpTime(&row.fields, &t), row.expected == kUntouched ? VYX_ERROR : VYX_OK);
        EXPECT_EQ(t, row.expected);
    }
    VYX_TIME_T t = kUntouched;
    EXPECT_EQ(VYX_TimeFromExpTime(nullptr, &t), VYX_ERROR);
    EXPECT_EQ(VYX_TimeFromExpTime(&kTable[0].fields, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_TimeFromExpTimeGMT(nullptr, &t), VYX_ERROR);
    EXPECT_EQ(VYX_TimeFromExpTimeGMT(&kTable[0].fields, nullptr), VYX_ERROR);
    EXPECT_EQ(t, kUntouched);
}

TEST(TimeFromFields, AgreesWithThePlatformWhateverCarriesOver) {
    std::mt19937_64 random(20261105);
    const auto Pick = [&random](int64_t iLow, int64_t iHigh) {
        return static_cast<int32_t>(iLow +
                                    static_cast<int64_t>(random() % static_cast<uint64_t>(iHigh - iLow + 1)));
    };
    for (int i = 0; i < 2000000; ++i) {
        const bool bTidy = i % 2 == 0; // half within the calendar, half far outside
        const int32_t iSpread = bTidy ? 59 : 100000000;
        VYX_TIME_EXP_T fields = Fields(Pick(1900, bTidy ? 2500 : 200000), Pick(1, 12),
                                       bTidy ? Pick(1, 31) : Pick(-1000000, 1000000), Pick(-iSpread, iSpread),
                                       Pick(-iSpread, iSpread), Pick(-iSpread, iSpread), Pick(0, 999999));
        struct tm platform = {};
        platform.tm_year = fields.tm_year;
        platform.tm_mon = fields.tm_mon;
        platform.tm_mday = fields.tm_mday;
        platform.tm_hour = fields.tm_hour;
        platform.tm_min = fields.tm_min;
        platform.tm_sec = fields.tm_sec;
        const int64_t iSeconds = support::PlatformSeconds(&platform);
        VYX_TIME_T t = kUntouched;
        ASSERT_EQ(VYX_TimeFromExpTime(&fields, &t), iSeconds < 0 ? VYX_ERROR : VYX_OK) << Show(fields);
        ASSERT_EQ(t, iSeconds < 0 ? kUntouched : iSeconds * kSecond + fields.tm_usec) << Show(fields);
        VYX_TIME_EXP_T back = {};
        ASSERT_EQ(VYX_ExpTimeFromTimeGMT(iSeconds * kSecond, &back), VYX_OK);
        ASSERT_TRUE(back.tm_year == platform.tm_year && back.tm_mon == platform.tm_mon &&
                    back.tm_mday == platform.tm_mday && back.tm_hour == platform.tm_hour &&
                    back.tm_min == platform.tm_min && back.tm_sec == platform.tm_sec &&
                    back.tm_wday == platform.tm_wday && back.tm_yday == platform.tm_yday)
            << Show(back);
    }
}

// All combinations of extreme fields, while the sanitizers watch the arithmetic. What passes 64 bits wraps.
TEST(TimeFromFields, ExtremesDoNotOverflow) {
    constexpr int32_t kExtremes[] = {INT32_MIN, 0, INT32_MAX};
    for (int iCode = 0; iCode < 3 * 3 * 3 * 3 * 3 * 3 * 3 * 3; ++iCode) {
        std::array<int32_t, 8> v;
        int iRest = iCode;
        for (int32_t &iValue : v) {
            iValue = kExtremes[iRest % 3];
            iRest /= 3;
        }
        const VYX_TIME_EXP_T fields = {v[0], v[1], v[2], v[3], v[4], v[5], v[6], 0, 0, 0, v[7]};
        SCOPED_TRACE(Show(fields));
        struct tm newYear = {};
        newYear.tm_mday = 1;
        newYear.tm_year = fields.tm_year;
        const int64_t iSeconds = support::PlatformSeconds(&newYear) + (int64_t{fields.tm_mday} - 1) * kDay +
                                 int64_t{fields.tm_hour} * 3600 + int64_t{fields.tm_min} * 60 + fields.tm_sec;
        const bool bRefused = fields.tm_mon != 0 || iSeconds < 0;
        const auto expected = static_cast<VYX_TIME_T>(static_cast<uint64_t>(iSeconds) * kSecond +
                                                      static_cast<uint64_t>(int64_t{fields.tm_usec}));
        VYX_TIME_T t = kUntouched;
        ASSERT_EQ(VYX_TimeFromExpTime(&fields, &t), bRefused ? VYX_ERROR : VYX_OK);
        ASSERT_EQ(t, bRefused ? kUntouched : expected);
        t = kUntouched;
        ASSERT_EQ(VYX_TimeFromExpTimeGMT(&fields, &t), VYX_OK);
        const auto shifted = static_cast<VYX_TIME_T>(static_cast<uint64_t>(expected) -
                                                     static_cast<uint64_t>(fields.tm_gmtoff * kSecond));
        ASSERT_EQ(t, bRefused ? kUntouched : shifted);
    }
}

TEST(TimeFromFields, LocalFormReportsSuccessOnFailure) {
    const VYX_TIME_EXP_T noon = Fields(2000, 2, 29, 12, 0, 0, 5, 3600);
    VYX_TIME_T t = kUntouched;
    EXPECT_EQ(VYX_TimeFromExpTimeGMT(&noon, &t), VYX_OK);
    EXPECT_EQ(t, (951825600 - 3600) * kSecond + 5);
    for (const VYX_TIME_EXP_T &refused : {Fields(1969, 12, 31, 23, 59, 59, 0, 3600), Fields(2000, 13, 1)}) {
        t = kUntouched;
        EXPECT_EQ(VYX_TimeFromExpTimeGMT(&refused, &t), VYX_OK);
        EXPECT_EQ(t, kUntouched);
    }
    const VYX_TIME_EXP_T east = Fields(1970, 1, 1, 0, 0, 0, 0, 3600);
    EXPECT_EQ(VYX_TimeFromExpTimeGMT(&east, &t), VYX_OK);
    EXPECT_EQ(t, -3600 * kSecond) << "the shift may lead before 1970";
}

TEST(LocalTime, OffsetLeavesDaylightSavingOut) {
    constexpr int64_t kWinter = 1768478400; // 2026-01-15 12:00:00 UTC
    constexpr int64_t kSummer = 1784116800; // 2026-07-15 12:00:00 UTC
    const struct {
        const char *szZone;
        int64_t iSeconds;
        const char *szExpected;
        int64_t iSaving; // seconds that the way back is off
    } kTable[] = {
        {support::kBerlin, kWinter, "2026-01-15 13:00:00 us=7 wday=4 yday=14 dst=0 off=3600", 0},
        {support::kBerlin, kSummer, "2026-07-15 14:00:00 us=7 wday=3 yday=195 dst=1 off=3600", 3600},
        {support::kShanghai, kSummer, "2026-07-15 20:00:00 us=7 wday=3 yday=195 dst=0 off=28800", 0},
        {support::kNewYork, kWinter, "2026-01-15 07:00:00 us=7 wday=4 yday=14 dst=0 off=-18000", 0},
        {support::kNewYork, kSummer, "2026-07-15 08:00:00 us=7 wday=3 yday=195 dst=1 off=-18000", 3600},
        {"UTC0", kSummer, "2026-07-15 12:00:00 us=7 wday=3 yday=195 dst=0 off=0", 0},
        {"XXX-5:45", kWinter, "2026-01-15 17:45:00 us=7 wday=4 yday=14 dst=0 off=20700", 0},
        {"LMT0:53:28", kWinter, "2026-01-15 11:06:32 us=7 wday=4 yday=14 dst=0 off=-3180", -28},
    };
    for (const auto &row : kTable) {
        SCOPED_TRACE(row.szZone);
        const Zone zone(row.szZone); // changed between calls: each call follows
        VYX_TIME_EXP_T fields;
        std::memset(&fields, 0x5A, sizeof fields);
        ASSERT_EQ(VYX_ExpTimeFromTimeLocal(row.iSeconds * kSecond + 7, &fields), VYX_OK);
        EXPECT_EQ(Show(fields), row.szExpected);
        VYX_TIME_T back = kUntouched;
        EXPECT_EQ(VYX_TimeFromExpTimeGMT(&fields, &back), VYX_OK);
        EXPECT_EQ(back, (row.iSeconds + row.iSaving) * kSecond + 7);
    }
}

TEST(LocalTime, RoundTripsInAZoneWithoutDaylightSaving) {
    const Zone zone(support::kShanghai);
    std::mt19937_64 random(8);
    for (int i = 0; i < 200000; ++i) {
        const auto t = static_cast<VYX_TIME_T>(random() % 400000000000000000U);
        VYX_TIME_EXP_T fields = {};
        VYX_TIME_T back = kUntouched;
        ASSERT_EQ(VYX_ExpTimeFromTimeLocal(t, &fields), VYX_OK);
        ASSERT_EQ(VYX_TimeFromExpTimeGMT(&fields, &back), VYX_OK);
        ASSERT_EQ(back, t);
    }
}

TEST(CTime, FixedText) {
    const struct {
        const char *szZone;
        VYX_TIME_T t;
        const char *szExpected;
    } kTable[] = {
        {"UTC0", 1793869443 * kSecond, "Thu Nov 05 09:04:03 2026"},
        {support::kShanghai, (1793869443 - 28800) * kSecond + 999999, "Thu Nov 05 09:04:03 2026"},
        {support::kBerlin, 1784116800 * kSecond, "Wed Jul 15 14:00:00 2026"},
        {"UTC0", 0, "Thu Jan 01 00:00:00 1970"},
        {"UTC0", -kSecond, "Wed Dec 31 23:59:59 1969"},
        {"UTC0", 253402300799 * kSecond, "Fri Dec 31 23:59:59 9999"},
        {"UTC0", 253402300800 * kSecond, "Sat Jan 01 00:00:00 0000"},
        {"UTC0", INT64_MAX, "Sun Jan 10 04:00:54 4247"},
        {"UTC0", INT64_MIN, "Sun Dec 21 19:59:06 0308"},
    };
    for (const auto &row : kTable) {
        const Zone zone(row.szZone);
        std::string buffer(24 + 1 + 8, '#');
        EXPECT_EQ(VYX_CTime(&buffer[0], row.t), VYX_OK);
        EXPECT_EQ(buffer, std::string(row.szExpected) + '\0' + "########");
    }
    EXPECT_EQ(VYX_CTime(nullptr, 0), VYX_ERROR);
}

} // namespace
