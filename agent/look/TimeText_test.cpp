#include "agent/look/TimeText.h"

#include <gtest/gtest.h>

#include "agent/run/SetDocument.h"
#include "common/exc.h"

namespace {

using agent::ETimeEnd;
using agent::ParseTime;
using agent::STime;
using agent::ToIsoText;

TEST(TimeText, ReadsWhatIsPrinted) {
    EXPECT_EQ(ToIsoText(ParseTime("2026-11-21T08:15:30Z")), "2026-11-21T08:15:30Z");
    EXPECT_EQ(ToIsoText(ParseTime("2026-11-21T08:15:30")), "2026-11-21T08:15:30Z");
    EXPECT_EQ(ToIsoText(ParseTime("2026-11-21 08:15")), "2026-11-21T08:15:00Z");
    EXPECT_EQ(ToIsoText(ParseTime("2026-11-21")), "2026-11-21T00:00:00Z");
    EXPECT_EQ(ToIsoText(ParseTime("1969-12-31T23:59:59Z")), "1969-12-31T23:59:59Z");
}

TEST(TimeText, TheEndIsTheLastMoment) {
    const STime day = ParseTime("2024-02-29", ETimeEnd::end);
    EXPECT_EQ(ToIsoText(day), "2024-02-29T23:59:59Z");
    EXPECT_EQ(day.nanoseconds, 999'999'999U);
    EXPECT_EQ(ToIsoText(ParseTime("2026-11-21T08:15", ETimeEnd::end)), "2026-11-21T08:15:59Z");
}

TEST(TimeText, RefusesEverythingElse) {
    for (const char* text :
         {"", "Z", "2026", "2026-11", "2026-11-31", "2023-02-29", "2026-13-01", "21.11.2026", "2026-11-21T",
          "2026-11-21T8:15", "2026-11-21T08:15:30+01:00", "2026-11-21x", "2026-11-21T24:01", "2026-11-21T08:61"}) {
        EXPECT_THROW((void)ParseTime(text), exc::CRuntimeExc) << text;
    }
    try {
        (void)ParseTime("yesterday");
        FAIL();
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ(failure.what(), "'yesterday' is no time such as 2026-11-21 or 2026-11-21T08:15:00 (UTC)");
    }
}

}  // namespace
