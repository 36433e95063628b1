#include "clients/s3/S3Documents.h"

#include <gtest/gtest.h>

namespace clients::s3 {
namespace {

std::time_t Seconds(const std::string& text) { return std::chrono::system_clock::to_time_t(ParseTime(text)); }

TEST(S3Documents, ReadsTimes) {
    EXPECT_EQ(Seconds("2009-10-12T17:50:30.000Z"), 1255369830);
    EXPECT_EQ(Seconds("2009-10-12T17:50:30Z"), 1255369830);
    EXPECT_EQ(Seconds("1970-01-01T00:00:01Z"), 1);
    EXPECT_EQ(Seconds("2199-12-31T23:59:59Z"), 7258118399);
}

TEST(S3Documents, TimesThatTheClockCannotHoldAreNone) {
    for (const char* text : {"", "text", "2009-10-12", "1004-10-12T17:50:30.000Z", "1969-12-31T23:59:59Z",
                             "2200-01-01T00:00:00Z", "9999-12-31T23:59:59Z", "2009-13-12T17:50:30Z"}) {
        EXPECT_EQ(ParseTime(text), std::chrono::system_clock::time_point()) << text;
    }
}

}  // namespace
}  // namespace clients::s3
