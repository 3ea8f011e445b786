// What is read from the clock, with a clock that the test sets: the wrap of the tick comes once in seven weeks.
#include <cstdint>

#include <gtest/gtest.h>
#include <vyx/time.h>

namespace {

bool s_bBroken = false;
struct timeval s_now;

void SetClock(int64_t iSeconds, int iMicros) {
    s_now.tv_sec = static_cast<time_t>(iSeconds);
    s_now.tv_usec = iMicros;
}

} // namespace

// Takes the place of the platform's clock in this program.
extern "C" int gettimeofday(struct timeval *pNow, void * /*pZone*/) {
    if (s_bBroken)
        return -1;
    *pNow = s_now;
    return 0;
}

namespace {

TEST(Clock, TickIsCutToMillisecondsAndWraps) {
    const struct {
        int64_t iSeconds;
        int iMicros;
        uint32_t nTick;
    } kTable[] = {
        {0, 999, 0},          {0, 1000, 1},
        {1, 999999, 1999},    {4294967, 295999, 4294967295U}, // the last tick before the wrap
        {4294967, 296000, 0}, {1793869443, 123456, static_cast<uint32_t>(1793869443123)},
    };
    for (const auto &row : kTable) {
        SetClock(row.iSeconds, row.iMicros);
        EXPECT_EQ(VYX_GetTimeTick(), row.nTick) << row.iSeconds << "." << row.iMicros;
        EXPECT_EQ(VYX_TimeNow(), row.iSeconds * 1000000 + row.iMicros);
        EXPECT_EQ(vyx::vyx_time_tick().get_time(), row.iSeconds * 1000000 + row.iMicros);
    }
}

TEST(Clock, UnreadableClockShowsInTheTickClass) {
    SetClock(5, 0);
    vyx::vyx_time_tick tick;
    s_bBroken = true;
    EXPECT_EQ(vyx::vyx_time_tick::now(), -1);
    EXPECT_EQ(tick.get_time(), 5000000);
    EXPECT_EQ(tick.update_time(), -1);
    EXPECT_EQ(tick.get_time(), -1);
    EXPECT_EQ(vyx::vyx_time_tick().get_time(), -1);
}

} // namespace
