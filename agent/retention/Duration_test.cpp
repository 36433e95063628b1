#include <gmock/gmock.h>

#include "agent/retention/PolicyTestKit.h"
#include "common/exc.h"

namespace agent::retention {
namespace {

using namespace test_kit;

TEST(Duration, FromText) {
    EXPECT_EQ(SDuration::FromText("2y5m7d3h"), (SDuration{2, 5, 7, 3}));
    EXPECT_EQ(SDuration::FromText("36h"), (SDuration{0, 0, 0, 36}));
    EXPECT_EQ(SDuration::FromText("2w1d"), (SDuration{0, 0, 15, 0}));
    EXPECT_EQ(SDuration::FromText("7d1y"), (SDuration{1, 0, 7, 0}));
}

TEST(Duration, ToText) {
    EXPECT_EQ((SDuration{2, 5, 7, 3}).ToText(), "2y5m7d3h");
    EXPECT_EQ(SDuration::FromText("1w").ToText(), "7d");
}

TEST(Duration, WhatIsNone) {
    for (const auto* text : {"", "d", "7", "7x", "0d", "1d2d", "-1d", "1 d", "100001d", "1.5d", "d7"}) {
        EXPECT_THROW((void)SDuration::FromText(text), exc::CRuntimeExc) << text;
    }
    try {
        (void)SDuration::FromText("soon");
        FAIL();
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ(failure.what(),
                     "'soon' is no duration: numbers with the units y, m, w, d and h, such as 1y6m, 2w or 36h");
    }
}

TEST(Duration, BeforeGoesByTheCalendar) {
    const CZone zone("Europe/Berlin");
    EXPECT_EQ(SDuration::FromText("1m").Before(At(2026, 3, 15)), At(2026, 2, 15));
    EXPECT_EQ(SDuration::FromText("1y").Before(At(2026, 3, 15)), At(2025, 3, 15));
    // The day that summer time began has 23 hours.
    EXPECT_EQ(SDuration::FromText("1d").Before(At(2026, 3, 29, 12)), At(2026, 3, 28, 12));
    EXPECT_EQ(SDuration::FromText("24h").Before(At(2026, 3, 29, 12)), At(2026, 3, 28, 11));
}

TEST(Duration, BeforeKeepsTheNanoseconds) {
    EXPECT_EQ(SDuration::FromText("1h").Before({7200, 17}), (STime{3600, 17}));
}

}  // namespace
}  // namespace agent::retention
