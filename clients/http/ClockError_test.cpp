#include "clients/http/ClockError.h"

#include <gtest/gtest.h>

#include "clients/http/HttpDate.h"

namespace clients::http {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr const char* date = "Sun, 06 Nov 1994 08:49:37 GMT";

std::string ErrorOf(seconds ahead, minutes least = minutes(1), const std::string& told = date) {
    SHttpAnswer answer;
    answer.headers["date"] = told;
    answer.signedAt = ParseHttpDate(date) + ahead;
    return ClockError(answer, least);
}

TEST(ClockError, IsToldWithItsDirection) {
    EXPECT_EQ(ErrorOf(hours(3) + minutes(5)), "this machine's clock is 3 h 5 min ahead of the service's");
    EXPECT_EQ(ErrorOf(-hours(3) - minutes(5)), "this machine's clock is 3 h 5 min behind the service's");
    EXPECT_EQ(ErrorOf(minutes(16)), "this machine's clock is 16 min ahead of the service's");
    EXPECT_EQ(ErrorOf(minutes(60)), "this machine's clock is 1 h 0 min ahead of the service's");
    EXPECT_EQ(ErrorOf(hours(48) - minutes(1)), "this machine's clock is 47 h 59 min ahead of the service's");
    EXPECT_EQ(ErrorOf(hours(48)), "this machine's clock is 2 days ahead of the service's");
    EXPECT_EQ(ErrorOf(-hours(24 * 365 * 20)), "this machine's clock is 7300 days behind the service's");
}

TEST(ClockError, SecondsAreRounded) {
    EXPECT_EQ(ErrorOf(minutes(16) + seconds(29)), "this machine's clock is 16 min ahead of the service's");
    EXPECT_EQ(ErrorOf(-minutes(16) - seconds(31)), "this machine's clock is 17 min behind the service's");
}

TEST(ClockError, SmallOnesAreNone) {
    EXPECT_EQ(ErrorOf(seconds(0)), "");
    EXPECT_EQ(ErrorOf(seconds(29)), "");
    EXPECT_EQ(ErrorOf(minutes(14), minutes(15)), "");
    EXPECT_EQ(ErrorOf(-minutes(14), minutes(15)), "");
    EXPECT_EQ(ErrorOf(minutes(15), minutes(15)), "this machine's clock is 15 min ahead of the service's");
}

TEST(ClockError, IsUnknownWithoutBothTimes) {
    EXPECT_EQ(ErrorOf(hours(3), minutes(1), ""), "");
    EXPECT_EQ(ErrorOf(hours(3), minutes(1), "yesterday"), "");
    SHttpAnswer answer;
    answer.headers["date"] = date;
    EXPECT_EQ(ClockError(answer, minutes(1)), "");
}

}  // namespace
}  // namespace clients::http
