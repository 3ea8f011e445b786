// The two time classes.
#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>

#include <gtest/gtest.h>
#include <vyx/time.h>

#include "time/zone.h"

namespace {

using support::Zone;
using vyx::vyx_time;
using vyx::vyx_time_tick;

constexpr int64_t kSummer = 1784116800; // Wednesday, 2026-07-15 12:00:00 UTC

void ExpectFields(const vyx_time &t, int iYear, int iMonth, int iDay, int iHour, int iMinute, int iSecond) {
    EXPECT_EQ(t.get_year(), iYear);
    EXPECT_EQ(t.get_mon(), iMonth);
    EXPECT_EQ(t.get_day(), iDay);
    EXPECT_EQ(t.get_mon_day(), iDay);
    EXPECT_EQ(t.get_hour(), iHour);
    EXPECT_EQ(t.get_min(), iMinute);
    EXPECT_EQ(t.get_sec(), iSecond);
}

TEST(TimeClass, ShowsLocalFields) {
    const Zone zone(support::kBerlin);
    const vyx_time summer(kSummer + 61);
    EXPECT_EQ(summer.get_time(), kSummer + 61);
    ExpectFields(summer, 2026, 6, 15, 14, 1, 1);
    EXPECT_EQ(summer.get_week_day(), 3);
    EXPECT_EQ(summer.get_year_day(), 195);
    ExpectFields(vyx_time(-1), 1970, 0, 1, 0, 59, 59);
    ExpectFields(vyx_time(summer), 2026, 6, 15, 14, 1, 1);
}

TEST(TimeClass, NowFollowsTheClock) {
    const int64_t iBefore = time(nullptr);
    EXPECT_GE(vyx_time().get_time(), iBefore);
    vyx_time old(0);
    EXPECT_GE(old.update_time(), iBefore);
    EXPECT_GE(old.get_year(), 2024);
    EXPECT_LE(old.get_time(), static_cast<int64_t>(time(nullptr)));
}

TEST(TimeClass, NegativeTimeKeepsTheFields) {
    const Zone zone("UTC0");
    vyx_time t(kSummer);
    t = vyx_time(-86400);
    EXPECT_EQ(t.get_time(), -86400);
    ExpectFields(t, 2026, 6, 15, 12, 0, 0);
    t += vyx_time(86399); // still negative: -1
    EXPECT_EQ(t.get_time(), -1);
    ExpectFields(t, 2026, 6, 15, 12, 0, 0);
    t += vyx_time(2);
    ExpectFields(t, 1970, 0, 1, 0, 0, 1);
    t = vyx_time(kSummer);
    ExpectFields(t, 2026, 6, 15, 12, 0, 0);
    const vyx_time negativeCopy(vyx_time(-1));
    ExpectFields(negativeCopy, 1969, 11, 31, 23, 59, 59);
}

TEST(TimeClass, SubtractionStopsAtZero) {
    const Zone zone(support::kShanghai);
    vyx_time t(10);
    t -= vyx_time(20);
    EXPECT_EQ(t.get_time(), 0);
    ExpectFields(t, 1970, 0, 1, 8, 0, 0);
    t = vyx_time(kSummer);
    t -= vyx_time(1);
    ExpectFields(t, 2026, 6, 15, 19, 59, 59);
    const vyx_time &self = t;
    t -= self;
    EXPECT_EQ(t.get_time(), 0);
}

TEST(TimeClass, YearThatDoesNotFitKeepsTheFields) {
    const Zone zone("UTC0");
    vyx_time t(kSummer + 5);
    t += vyx_time(INT64_MAX - kSummer - 5);
    EXPECT_EQ(t.get_time(), INT64_MAX);
    ExpectFields(t, 2026, 6, 15, 12, 0, 5);
    t += vyx_time(1); // wraps
    EXPECT_EQ(t.get_time(), INT64_MIN);
    t -= vyx_time(INT64_MAX);
    EXPECT_EQ(t.get_time(), 1);
    struct tm fields = {};
    fields.tm_hour = 99;
    EXPECT_EQ(vyx_time::time2tm(INT64_MAX, &fields), nullptr);
    EXPECT_EQ(fields.tm_hour, 99);
}

TEST(TimeClass, Time2tm) {
    const Zone zone(support::kShanghai);
    struct tm fields = {};
    fields.tm_year = -7;
    EXPECT_EQ(vyx_time::time2tm(-1, &fields), nullptr);
    EXPECT_EQ(fields.tm_year, -7);
    EXPECT_EQ(vyx_time::time2tm(0, nullptr), nullptr);
    EXPECT_EQ(vyx_time::time2tm(0, &fields), &fields);
    EXPECT_EQ(fields.tm_hour, 8);
    const Zone other(support::kBerlin); // changed between calls: each call follows
    EXPECT_EQ(vyx_time::time2tm(0, &fields), &fields);
    EXPECT_EQ(fields.tm_hour, 1);
}

TEST(TimeClass, ComparesSecondsOnly) {
    vyx_time kept(kSummer);
    kept = vyx_time(-3); // equal seconds, other fields
    const vyx_time fresh(-3), later(4);
    EXPECT_TRUE(kept == fresh && !(kept != fresh) && !(kept < fresh) && !(kept > fresh));
    EXPECT_TRUE(kept < later && later > kept && kept != later && !(kept == later) && !(kept > later));
}

TEST(TickClass, ArithmeticDoesNotClamp) {
    vyx_time_tick t(10);
    t -= vyx_time_tick(20);
    EXPECT_EQ(t.get_time(), -10);
    const vyx_time_tick copy(t);
    EXPECT_TRUE(copy == t && t < vyx_time_tick(-9) && t > vyx_time_tick(-11));
    EXPECT_FALSE(copy > t || copy < t || t == vyx_time_tick(10));
    t = vyx_time_tick(INT64_MAX);
    t += vyx_time_tick(1); // wraps
    EXPECT_EQ(t.get_time(), INT64_MIN);
    t -= vyx_time_tick(1);
    EXPECT_EQ(t.get_time(), INT64_MAX);
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
    struct timeval tv = {7, 8};
    for (auto fnConvert : {vyx_time_tick::ms2timeval, vyx_time_tick::us2timeval}) {
        EXPECT_EQ(fnConvert(-1, &tv), nullptr);
        EXPECT_EQ(fnConvert(1, nullptr), nullptr);
        EXPECT_TRUE(tv.tv_sec == 7 && tv.tv_usec == 8);
    }
    EXPECT_EQ(vyx_time_tick::ms2timeval(1234, &tv), &tv);
    EXPECT_TRUE(tv.tv_sec == 1 && tv.tv_usec == 234000);
    EXPECT_EQ(vyx_time_tick::us2timeval(1999999, &tv), &tv);
    EXPECT_TRUE(tv.tv_sec == 1 && tv.tv_usec == 999999);
    EXPECT_EQ(vyx_time_tick::ms2timeval(INT64_MAX, &tv), &tv);
    EXPECT_TRUE(tv.tv_sec == static_cast<time_t>(INT64_MAX / 1000) && tv.tv_usec == 807000);
}

} // namespace
