// What is read from the clock and the calendar, with a platform that the test sets: the wrap of the tick comes once in
// seven weeks, and zone files belong to the system.
#include "base/platform.h" // compiled with _TIME_BITS=64, as the library's part that asks the platform

#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "time/calendar.h"

namespace {

struct timeval s_now;

uint32_t s_nSecond = 100;  // of the coarse clock
long s_lWest = 0;          // seconds; the zone that the C library has
long s_lWestInTheFile = 0; // the one it has after its next look, while TZ is not set
int s_iLooks = 0;          // at the zone
int s_iConversions = 0;
int s_iOffsets = 0; // asked for
int s_iNames = 0;   // what the last conversion left in the C library
bool s_bZoneUnknown = false;

} // namespace

// These take the place of the platform's in this program.
extern "C" {

int gettimeofday(struct timeval *pNow, void * /*pZone*/) {
    *pNow = s_now;
    return 0;
}

void tzset() {
    const char *szZone = std::getenv("TZ");
    s_lWest = szZone == nullptr ? s_lWestInTheFile : std::atol(szZone);
    ++s_iLooks;
}

struct tm *localtime_r(const time_t *pSeconds, struct tm *pOut) {
    ++s_iConversions;
    s_iNames = static_cast<int>(*pSeconds);
    *pOut = {};
    pOut->tm_sec = static_cast<int>(*pSeconds - s_lWest);
    return pOut;
}

uint32_t VYX_CoarseSecond_Inter(void) {
    return s_nSecond;
}

int32_t VYX_MinutesWest_Inter(int32_t *pMinutes) {
    ++s_iOffsets;
    *pMinutes = static_cast<int32_t>(s_lWest / 60);
    return s_bZoneUnknown ? VYX_ERROR : VYX_OK;
}

struct VYX_ZONE_MARK_S VYX_ZoneMark_Inter(void) {
    return {{nullptr, nullptr}, s_lWest, s_iNames};
}

} // extern "C"

namespace {

TEST(Clock, TickIsCutToMillisecondsAndWraps) {
    s_now.tv_sec = 4294967;
    s_now.tv_usec = 295999; // the last tick before the wrap
    EXPECT_EQ(VYX_GetTimeTick(), 4294967295U);
    s_now.tv_usec = 296000;
    EXPECT_EQ(VYX_GetTimeTick(), 0U);
    EXPECT_EQ(VYX_TimeNow(), 4294967296000);
    EXPECT_EQ(vyx::vyx_time_tick().update_time(), 4294967296000);
}

// Each step changes something and asks for local times; the last two columns say what that cost.
TEST(Calendar, LooksAtTheZoneWhenItMayHaveChanged) {
    const std::string longest = "1500" + std::string(46, ' '), tooLong = "1800" + std::string(47, ' ');
    const struct {
        const char *szWhat;
        const char *szZone;
        long lInTheFile;
        uint32_t nSecond;
        long lTakenBySomebody; // -1: nobody
        int64_t iSeconds;
        long lExpectedWest;
        int iLooks, iConversions;
        bool bMayHaveChanged;
    } kSteps[] = {
        {"first call", nullptr, 60, 100, -1, 7000, 60, 1, 1, true},
        {"the same second again", nullptr, 60, 100, -1, 7000, 60, 0, 0, false},
        {"other second", nullptr, 60, 100, -1, 7001, 60, 0, 1, false},
        {"new file, in the second of the look", nullptr, 120, 100, -1, 7001, 60, 0, 0, false},
        {"a second later", nullptr, 120, 101, -1, 7001, 120, 1, 1, true},
        {"the application took another zone", nullptr, 120, 101, 3600, 7002, 120, 1, 1, false},
        {"TZ is set", "180", 120, 101, -1, 7002, 180, 1, 1, true},
        {"the C library compares the texts", "180", 120, 101, 3600, 7003, 180, 1, 1, false},
        {"TZ is changed", "240", 120, 101, -1, 7003, 240, 1, 1, true},
        {"and unset", nullptr, 120, 101, -1, 7003, 120, 1, 1, true},
        {"TZ is as long as can be", longest.c_str(), 120, 101, -1, 7003, 1500, 1, 1, true},
        {"and remembered", longest.c_str(), 120, 101, -1, 7003, 1500, 0, 0, false},
        {"TZ is too long to be remembered", tooLong.c_str(), 120, 101, -1, 7003, 1800, 1, 1, true},
        {"which costs a look each time", tooLong.c_str(), 120, 101, -1, 7003, 1800, 1, 1, true},
    };
    uint32_t nEdition = 0;
    for (const auto &step : kSteps) {
        SCOPED_TRACE(step.szWhat);
        step.szZone == nullptr ? unsetenv("TZ") : setenv("TZ", step.szZone, 1);
        s_lWestInTheFile = step.lInTheFile;
        s_nSecond = step.nSecond;
        s_lWest = step.lTakenBySomebody >= 0 ? step.lTakenBySomebody : s_lWest;
        s_iLooks = s_iConversions = s_iOffsets = 0;
        struct tm fields = {};
        ASSERT_EQ(VYX_LocalTime_Inter(step.iSeconds, &fields), &fields);
        EXPECT_EQ(fields.tm_sec, step.iSeconds - step.lExpectedWest);
        EXPECT_EQ(s_iLooks, step.iLooks);
        EXPECT_EQ(s_iConversions, step.iConversions);
        int32_t iOffset = 0;
        EXPECT_EQ(VYX_StandardOffset_Inter(&iOffset), VYX_OK);
        EXPECT_EQ(iOffset, -step.lExpectedWest);
        EXPECT_EQ(s_iOffsets, step.bMayHaveChanged ? 1 : 0);
        const uint32_t nBefore = nEdition;
        nEdition = VYX_ZoneEdition_Inter();
        EXPECT_EQ(nEdition == nBefore, !step.bMayHaveChanged);
    }
    unsetenv("TZ");
    s_bZoneUnknown = true;
    VYX_TIME_EXP_T exploded;
    EXPECT_EQ(VYX_ExpTimeFromTimeLocal(0, &exploded), VYX_ERROR);
}

} // namespace
