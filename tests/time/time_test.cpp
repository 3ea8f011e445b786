// Local time, what the conversions refuse, and the two classes. What the conversions give, the fuzz target compares with the
// platform's.
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/time.h>

namespace {

// Zones as POSIX strings, so that no zone files are needed.
constexpr char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3"; // one hour east, two in summer
constexpr char kShanghai[] = "CST-8";                    // eight hours east, the whole year
constexpr char kNewYork[] = "EST5EDT,M3.2.0,M11.1.0";    // five hours west, four in summer

constexpr int64_t kSecond = 1000000;
constexpr int64_t kSummer = 1784116800; // Wednesday, 2026-07-15 12:00:00 UTC

TEST(Time, NullPointers) {
    VYX_TIME_EXP_T fields = {};
    VYX_TIME_T t = 0;
    char szOut[4] = "old";
    uint32_t nLength = 99;
    for (const int32_t iResult :
         {VYX_ExpTimeFromTime(0, 0, nullptr), VYX_ExpTimeFromTimeGMT(0, nullptr),
          VYX_ExpTimeFromTimeLocal(0, nullptr), VYX_CTime(nullptr, 0), VYX_TimeFromExpTime(nullptr, &t),
          VYX_TimeFromExpTime(&fields, nullptr), VYX_TimeFromExpTimeGMT(nullptr, &t),
          VYX_TimeFromExpTimeGMT(&fields, nullptr), VYX_StrFmtTime(nullptr, &nLength, 4, "%e", &fields),
          VYX_StrFmtTime(szOut, nullptr, 4, "%e", &fields),
          VYX_StrFmtTime(szOut, &nLength, 4, nullptr, &fields),
          VYX_StrFmtTime(szOut, &nLength, 4, "%e", nullptr)})
        EXPECT_EQ(iResult, VYX_ERROR);
    EXPECT_STREQ(szOut, "old");
}

TEST(LocalTime, OffsetLeavesDaylightSavingOut) {
    constexpr int64_t kWinter = 1768478400; // 2026-01-15 12:00:00 UTC
    const struct {
        const char *szZone;
        int64_t iSeconds;
        const char *szExpected;
        const char *szName;
        int32_t iOffset;
        int64_t iSaving; // seconds that the way back is off
    } kTable[] = {
        {kBerlin, kWinter, "Thu Jan 15 13:00:00 2026", "CET", 3600, 0},
        {kBerlin, kSummer, "Wed Jul 15 14:00:00 2026", "CEST", 3600, 3600},
        {kNewYork, kSummer, "Wed Jul 15 08:00:00 2026", "EDT", -18000, 3600},
        {"NPT-5:45", kWinter, "Thu Jan 15 17:45:00 2026", "NPT", 20700, 0},
        {"LMT0:53:28", kWinter, "Thu Jan 15 11:06:32 2026", "LMT", -3180, -28},
    };
    for (const auto &row : kTable) {
        SCOPED_TRACE(row.szZone);
        setenv("TZ", row.szZone, 1); // changed between calls: each call follows
        VYX_TIME_EXP_T fields;
        ASSERT_EQ(VYX_ExpTimeFromTimeLocal(row.iSeconds * kSecond + 7, &fields), VYX_OK);
        EXPECT_EQ(fields.tm_gmtoff, row.iOffset);
        EXPECT_EQ(fields.tm_isdst, row.iSaving > 0 ? 1 : 0);
        VYX_TIME_T back = 0;
        EXPECT_EQ(VYX_TimeFromExpTimeGMT(&fields, &back), VYX_OK);
        EXPECT_EQ(back, (row.iSeconds + row.iSaving) * kSecond + 7);
        char szText[25] = "";
        EXPECT_EQ(VYX_CTime(szText, row.iSeconds * kSecond + 7), VYX_OK);
        EXPECT_STREQ(szText, row.szExpected);
        uint32_t nLength = 0;
        EXPECT_EQ(VYX_StrFmtTime(szText, &nLength, sizeof szText, "%Z", &fields), VYX_OK);
        EXPECT_STREQ(szText, row.szName);
    }
}

// Each thread goes back and forth between two seconds, so that it remembers neither.
TEST(LocalTime, ExactWhileOthersConvert) {
    setenv("TZ", kBerlin, 1);
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

using vyx::vyx_time;
using vyx::vyx_time_tick;

// That t has the local fields of that second.
void ExpectFields(const vyx_time &t, int64_t iSeconds) {
    const auto tSeconds = static_cast<time_t>(iSeconds);
    const struct tm fields = *localtime(&tSeconds);
    EXPECT_EQ(t.get_year(), fields.tm_year + 1900);
    EXPECT_EQ(t.get_mon(), fields.tm_mon);
    EXPECT_EQ(t.get_day(), fields.tm_mday);
    EXPECT_EQ(t.get_mon_day(), fields.tm_mday);
    EXPECT_EQ(t.get_hour(), fields.tm_hour);
    EXPECT_EQ(t.get_min(), fields.tm_min);
    EXPECT_EQ(t.get_sec(), fields.tm_sec);
    EXPECT_EQ(t.get_week_day(), fields.tm_wday);
    EXPECT_EQ(t.get_year_day(), fields.tm_yday);
}

TEST(AnsiTime, TruncatesTowardZero) {
    EXPECT_EQ(VYX_TimeFromAnsiTime(1234567890), 1234567890 * INT64_C(1000000));
    EXPECT_EQ(VYX_AnsiTimeFromTime(1999999), 1);
    EXPECT_EQ(VYX_AnsiTimeFromTime(-1999999), -1);
}

// Also where subtraction stops at zero, and in years that no fields can hold.
TEST(TimeClass, FieldsFollowTheTimeUnlessItIsNegative) {
    const struct {
        int64_t iBefore;
        char cOperation; // 'c' is a new object from the operand
        int64_t iOperand, iAfter, iShown;
    } kTable[] = {
        {0, 'c', kSummer + 61, kSummer + 61, kSummer + 61},
        {0, 'c', -1, -1, -1},
        {kSummer, '=', kSummer - 1, kSummer - 1, kSummer - 1},
        {kSummer, '=', -86400, -86400, kSummer},
        {-1, '+', 2, 1, 1},
        {-1, '+', 1, 0, 0},
        {-86400, '+', 86399, -1, -86400},
        {10, '-', 20, 0, 0},
        {kSummer, '-', 1, kSummer - 1, kSummer - 1},
        {kSummer, '+', INT64_MAX - kSummer, INT64_MAX, kSummer},     // a year that does not fit
        {kSummer, '+', INT64_MAX, INT64_MIN + kSummer - 1, kSummer}, // wraps
        {INT64_MIN, '-', INT64_MAX, 1, 1},                           // wraps
    };
    for (const char *szZone : {kBerlin, kShanghai}) {
        setenv("TZ", szZone, 1);
        for (const auto &row : kTable) {
            SCOPED_TRACE(testing::Message() << row.iBefore << ' ' << row.cOperation << ' ' << row.iOperand);
            const vyx_time operand(row.iOperand);
            vyx_time t(row.cOperation == 'c' ? operand : vyx_time(row.iBefore));
            if (row.cOperation == '=')
                t = operand;
            else if (row.cOperation == '+')
                t += operand;
            else if (row.cOperation == '-')
                t -= operand;
            EXPECT_EQ(t.get_time(), row.iAfter);
            ExpectFields(t, row.iShown);
        }
    }
}

TEST(TimeClass, Time2tm) {
    setenv("TZ", kShanghai, 1);
    struct tm fields = {};
    fields.tm_hour = 99;
    for (const int64_t iRefused : {INT64_C(-1), INT64_MAX})
        EXPECT_EQ(vyx_time::time2tm(iRefused, &fields), nullptr);
    EXPECT_EQ(fields.tm_hour, 99);
    EXPECT_EQ(vyx_time::time2tm(0, nullptr), nullptr);
    EXPECT_EQ(vyx_time::time2tm(0, &fields), &fields);
    EXPECT_EQ(fields.tm_hour, 8);
}

// Also with equal seconds and other fields.
TEST(TimeClass, ComparesSecondsOnly) {
    vyx_time kept(kSummer);
    kept = vyx_time(-3);
    const vyx_time fresh(-3), later(4);
    EXPECT_TRUE(kept == fresh && !(kept != fresh) && !(kept < fresh) && !(kept > fresh));
    EXPECT_TRUE(kept < later && later > kept && kept != later && !(kept == later) && !(kept > later));
    const vyx_time_tick tick(-3), same(tick), next(-2);
    EXPECT_TRUE(tick == same && !(tick < same) && !(tick > same));
    EXPECT_TRUE(tick < next && next > tick && !(tick == next) && !(tick > next));
}

TEST(TickClass, ArithmeticDoesNotClamp) {
    vyx_time_tick t(10);
    t -= vyx_time_tick(20);
    EXPECT_EQ(t.get_time(), -10);
    t = vyx_time_tick(INT64_MAX);
    t += vyx_time_tick(1); // wraps
    EXPECT_EQ(t.get_time(), INT64_MIN);
}

TEST(TickClass, WholeUnitsRoundHalfUp) {
    const struct {
        int64_t (*fnConvert)(int64_t);
        int64_t iUnit;
    } kConversions[] = {
        {vyx_time_tick::us2ms, 1000}, {vyx_time_tick::us2s, 1000000}, {vyx_time_tick::ms2s, 1000}};
    for (const auto &[fnConvert, iUnit] : kConversions) {
        SCOPED_TRACE(iUnit);
        EXPECT_EQ(fnConvert(0), 0);
        EXPECT_EQ(fnConvert(iUnit + iUnit / 2 - 1), 1);
        EXPECT_EQ(fnConvert(iUnit + iUnit / 2), 2);
        EXPECT_EQ(fnConvert(-5 * iUnit), -1);
        EXPECT_EQ(fnConvert(INT64_MAX), INT64_MAX / iUnit + 1) << "both end in 775807 and 807";
    }
}

TEST(TickClass, FromTimeval) {
    const struct {
        int64_t iSeconds, iMicros, iExpectedMs, iExpectedUs;
    } kTable[] = {
        {2, 999500, 3000, 2999500},
        {2, 999499, 2999, 2999499},
        {-1, 5, -1, -1},
        {5, -1, -1, -1},
        {0, -1501, -1, -1501},
        {1, INT32_MAX, 2148484, 2148483647},
        {INT64_MAX, 0, -1000, -1000000},   // wraps
        {INT64_MIN, 999999, 1000, 999999}, // wraps
    };
    for (const auto &row : kTable) {
        struct timeval tv = {static_cast<time_t>(row.iSeconds), static_cast<suseconds_t>(row.iMicros)};
        if (tv.tv_sec != row.iSeconds)
            continue; // a narrow time_t has no such second
        EXPECT_EQ(vyx_time_tick::timeval2ms(&tv), row.iExpectedMs) << row.iSeconds << " s " << row.iMicros;
        EXPECT_EQ(vyx_time_tick::timeval2us(&tv), row.iExpectedUs) << row.iSeconds << " s " << row.iMicros;
    }
    EXPECT_EQ(vyx_time_tick::timeval2ms(nullptr), -1);
    EXPECT_EQ(vyx_time_tick::timeval2us(nullptr), -1);
}

TEST(TickClass, ToTimevalTruncates) {
    const struct {
        struct timeval *(*fnConvert)(int64_t, struct timeval *);
        int64_t iValue, iSeconds, iMicros; // -1 seconds: refused
    } kTable[] = {
        {vyx_time_tick::ms2timeval, 1234, 1, 234000},
        {vyx_time_tick::ms2timeval, INT64_MAX, INT64_MAX / 1000, 807000},
        {vyx_time_tick::ms2timeval, -1, -1, 8},
        {vyx_time_tick::us2timeval, 1999999, 1, 999999},
        {vyx_time_tick::us2timeval, -1, -1, 8},
    };
    for (const auto &row : kTable) {
        struct timeval tv = {-1, 8};
        EXPECT_EQ(row.fnConvert(row.iValue, &tv), row.iSeconds == -1 ? nullptr : &tv);
        EXPECT_EQ(tv.tv_sec, static_cast<time_t>(row.iSeconds));
        EXPECT_EQ(tv.tv_usec, row.iMicros);
        EXPECT_EQ(row.fnConvert(1, nullptr), nullptr);
    }
}

} // namespace
