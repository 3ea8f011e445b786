// The time value, calendar fields and the fixed text.
#include <climits>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/time.h>

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

TEST(ExplodeTime, KnownInstants) {
    const struct {
        VYX_TIME_T t;
        int32_t iOffset;
        const char *szExpected;
    } kTable[] = {
        {-1500000, 0, "1969-12-31 23:59:59 us=-500000 wday=3 yday=364 dst=0 off=0"},
        {0, -1, "1969-12-31 23:59:59 us=0 wday=3 yday=364 dst=0 off=-1"},
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

// The field's extremes among the plausible values, while the sanitizers watch the arithmetic. What passes 64 bits wraps.
TEST(TimeFromFields, AgreesWithThePlatformAndNeverOverflows) {
    std::mt19937_64 random(20261105);
    const auto pick = [&random](int32_t iLow, uint32_t nValues) {
        constexpr int32_t kExtremes[] = {INT32_MIN, 0, INT32_MAX};
        return random() % 8 == 0 ? kExtremes[random() % 3] : iLow + static_cast<int32_t>(random() % nValues);
    };
    for (int i = 0; i < 200000; ++i) {
        const VYX_TIME_EXP_T fields = {pick(0, 1000000),
                                       pick(-59, 120),
                                       pick(-59, 120),
                                       pick(-59, 120),
                                       pick(1, 31),
                                       pick(0, 12),
                                       pick(0, 600),
                                       0,
                                       0,
                                       0,
                                       pick(-43200, 86400)};
        bool bRefused = fields.tm_mon < 0 || fields.tm_mon > 11;
        struct tm month = {};
        month.tm_mday = 1;
        month.tm_mon = bRefused ? 0 : fields.tm_mon;
        month.tm_year = fields.tm_year;
        const int64_t iSeconds = timegm(&month) + (int64_t{fields.tm_mday} - 1) * kDay +
                                 int64_t{fields.tm_hour} * 3600 + int64_t{fields.tm_min} * 60 + fields.tm_sec;
        bRefused = bRefused || iSeconds < 0;
        const uint64_t nExpected =
            static_cast<uint64_t>(iSeconds) * kSecond + static_cast<uint64_t>(int64_t{fields.tm_usec});
        const uint64_t nShifted = nExpected - static_cast<uint64_t>(fields.tm_gmtoff * kSecond);
        VYX_TIME_T t = kUntouched;
        ASSERT_EQ(VYX_TimeFromExpTime(&fields, &t), bRefused ? VYX_ERROR : VYX_OK) << Show(fields);
        ASSERT_EQ(t, bRefused ? kUntouched : static_cast<VYX_TIME_T>(nExpected)) << Show(fields);
        t = kUntouched;
        ASSERT_EQ(VYX_TimeFromExpTimeGMT(&fields, &t), VYX_OK);
        ASSERT_EQ(t, bRefused ? kUntouched : static_cast<VYX_TIME_T>(nShifted)) << Show(fields);
    }
}

TEST(TimeFromFields, LocalFormReportsSuccessOnFailure) {
    const struct {
        VYX_TIME_EXP_T fields;
        VYX_TIME_T expected, expectedLocal; // kUntouched: refused
    } kTable[] = {
        {Fields(1970, 1, 1, 0, 0, 0, 0, 3600), 0, -3600 * kSecond}, // the shift may lead before 1970
        {Fields(1970, 1, 1, 0, 0, 0, -1), -1, -1},
        {Fields(1970, 1, 2, -24, 0, -1), kUntouched, kUntouched},
        {Fields(1969, 12, 31, 23, 59, 59, 1000000), kUntouched, kUntouched},
        {Fields(2000, 0, 1), kUntouched, kUntouched},
        {Fields(2000, 13, 1), kUntouched, kUntouched},
    };
    VYX_TIME_T t = kUntouched;
    for (const auto &row : kTable) {
        SCOPED_TRACE(Show(row.fields));
        EXPECT_EQ(VYX_TimeFromExpTime(&row.fields, &(t = kUntouched)),
                  row.expected == kUntouched ? VYX_ERROR : VYX_OK);
        EXPECT_EQ(t, row.expected);
        EXPECT_EQ(VYX_TimeFromExpTimeGMT(&row.fields, &(t = kUntouched)), VYX_OK);
        EXPECT_EQ(t, row.expectedLocal);
    }
    for (auto fnConvert : {VYX_TimeFromExpTime, VYX_TimeFromExpTimeGMT}) {
        EXPECT_EQ(fnConvert(nullptr, &t), VYX_ERROR);
        EXPECT_EQ(fnConvert(&kTable[0].fields, nullptr), VYX_ERROR);
    }
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
        {support::kNewYork, kSummer, "2026-07-15 08:00:00 us=7 wday=3 yday=195 dst=1 off=-18000", 3600},
        {"NPT-5:45", kWinter, "2026-01-15 17:45:00 us=7 wday=4 yday=14 dst=0 off=20700", 0},
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

// Each thread goes back and forth between two seconds, so that it remembers neither.
TEST(LocalTime, ExactWhileOthersConvert) {
    const Zone zone(support::kBerlin);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([i] {
            for (int k = 0; k < 2000; ++k) {
                const int64_t iHour = (i + k % 2) % 24;
                VYX_TIME_EXP_T local, utc;
                char szText[25] = "", szZone[8] = "";
                uint32_t nLength = 0;
                ASSERT_EQ(VYX_ExpTimeFromTimeLocal(iHour * 3600 * kSecond, &local), VYX_OK);
                ASSERT_EQ(VYX_ExpTimeFromTimeGMT(iHour * 3600 * kSecond, &utc), VYX_OK);
                ASSERT_TRUE(local.tm_hour == iHour + 1 && local.tm_gmtoff == 3600 && utc.tm_hour == iHour);
                ASSERT_EQ(VYX_CTime(szText, iHour * 3600 * kSecond), VYX_OK);
                ASSERT_EQ(std::string(szText, 14), "Thu Jan 01 0" + std::to_string(iHour + 1) + ":");
                ASSERT_EQ(VYX_StrFmtTime(szZone, &nLength, sizeof szZone, "%Z", &local), VYX_OK);
                ASSERT_STREQ(szZone, "CET");
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(CTime, FixedText) {
    const struct {
        const char *szZone;
        VYX_TIME_T t;
        const char *szExpected;
    } kTable[] = {
        {support::kShanghai, (1793869443 - 28800) * kSecond + 999999, "Thu Nov 05 09:04:03 2026"},
        {"UTC0", (1793869443 - 28800) * kSecond, "Thu Nov 05 01:04:03 2026"}, // the same second, elsewhere
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
