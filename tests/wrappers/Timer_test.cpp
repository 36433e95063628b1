#include "cloudclientlib/wrappers/Timer.h"

#include <gtest/gtest.h>

namespace cloudclientlib {

namespace {

using namespace std::chrono_literals;

TEST(Timer, DurationsAreTextsWithOneDigitBehindThePoint) {
    EXPECT_EQ(DurationText(0ns), "0 ms");
    EXPECT_EQ(DurationText(49us), "0 ms");
    EXPECT_EQ(DurationText(50us), "0.1 ms");
    EXPECT_EQ(DurationText(5600us), "5.6 ms");
    EXPECT_EQ(DurationText(250ms), "250 ms");
    EXPECT_EQ(DurationText(999'960us), "1000 ms");
    EXPECT_EQ(DurationText(1s), "1 s");
    EXPECT_EQ(DurationText(12'340ms), "12.3 s");
    EXPECT_EQ(DurationText(10min), "600 s");
}

TEST(Timer, SystemTimerGoesOnWhileItWaits) {
    const auto timer = SystemTimer();
    const auto before = timer->Now();
    timer->Wait(1ms);
    EXPECT_GE(timer->Now() - before, 1ms);
    EXPECT_EQ(SystemTimer(), timer);
}

}  // namespace

}  // namespace cloudclientlib
