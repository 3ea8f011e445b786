// The start and stop of the library, seen through stages that the test puts into the table.
#include <stdexcept>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/vyx.h>

#include "frame/frame_inter.h"

namespace {

// What happens, stage by stage: 1 started, -1 stopped, in the order in which it happened.
using Events = std::vector<int>;
const Events kAllUp = {1, 2, 3, 4, 5};
const Events kAllUpAndDown = {1, 2, 3, 4, 5, -1, -2, -3, -4, -5};

Events s_events;
int s_failing = 0;  // a stage whose start fails
int s_throwing = 0; // an event that throws

template <int N>
int32_t Start() {
    if (N == s_throwing)
        throw std::runtime_error("start");
    if (N == s_failing)
        return VYX_ERROR;
    s_events.push_back(N);
    return VYX_OK;
}

template <int N>
int32_t Stop() VYX_REQUIRES(s_vyxmutex) {
    s_events.push_back(-N);
    if (-N == s_throwing)
        throw std::runtime_error("stop");
    return VYX_ERROR; // a stage that cannot stop is not reported
}

class Lifecycle : public testing::Test {
  protected:
    Lifecycle() {
        ReplaceAll(std::make_integer_sequence<int, VYX_STAGE_COUNT>());
        s_events.clear();
        s_failing = s_throwing = 0;
    }

  private:
    template <int... N>
    static void ReplaceAll(std::integer_sequence<int, N...> /*numbers*/) {
        ((VYX_Stages_Inter()[N].fnStart = Start<N + 1>, VYX_Stages_Inter()[N].fnStop = Stop<N + 1>), ...);
    }
};

TEST_F(Lifecycle, StopsInTheOrderOfTheStart) {
    EXPECT_EQ(VYX_Init(), VYX_OK);
    EXPECT_EQ(VYX_InitEx(), VYX_OK);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(s_events, kAllUp) << "only the first start and the last stop do work";
    EXPECT_EQ(VYX_FiniEx(), VYX_OK);
    EXPECT_EQ(s_events, kAllUpAndDown);
}

TEST_F(Lifecycle, FailingStageStopsThoseThatCameUp) {
    s_failing = 3;
    EXPECT_EQ(VYX_Init(), VYX_ERROR);
    EXPECT_EQ(s_events, (Events{1, 2, -1, -2}));
    s_failing = 0;
    s_events.clear();
    EXPECT_EQ(VYX_Init(), VYX_OK) << "the counter did not move, so the next start tries all stages";
    EXPECT_EQ(s_events, kAllUp);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
}

TEST_F(Lifecycle, UnmatchedStopEatsTheNextStart) {
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(VYX_Init(), VYX_OK);
    EXPECT_TRUE(s_events.empty());
    EXPECT_EQ(VYX_Init(), VYX_OK);
    EXPECT_EQ(s_events, kAllUp);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(s_events, kAllUpAndDown);
}

TEST_F(Lifecycle, ExceptionPassesOnAndLeavesTheMutexFree) {
    s_throwing = 4;
    EXPECT_THROW(VYX_Init(), std::runtime_error);
    EXPECT_EQ(s_events, (Events{1, 2, 3, -1, -2, -3}));
    s_throwing = -2;
    EXPECT_EQ(VYX_Init(), VYX_OK); // would wait for ever
    EXPECT_THROW(VYX_Fini(), std::runtime_error);
    s_throwing = 0;
    s_events.clear();
    EXPECT_EQ(VYX_Init(), VYX_OK);
    EXPECT_EQ(VYX_Fini(), VYX_OK);
    EXPECT_EQ(s_events, kAllUpAndDown);
}

} // namespace
