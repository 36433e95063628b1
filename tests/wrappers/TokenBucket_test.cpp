#include "cloudclientlib/wrappers/TokenBucket.h"

#include <gtest/gtest.h>

namespace cloudclientlib {

namespace {

using namespace std::chrono_literals;

TEST(TokenBucket, IsFullAtFirst) {
    CTokenBucket bucket(1000);
    EXPECT_EQ(bucket.GetSize(), 1000U);
    EXPECT_EQ(bucket.Take(0s, 400), 0s);
    EXPECT_EQ(bucket.Take(0s, 600), 0s);
    EXPECT_EQ(bucket.Take(0s, 1), 1ms);
}

TEST(TokenBucket, WaitsForWhatIsMissing) {
    CTokenBucket bucket(1000);
    EXPECT_EQ(bucket.Take(0s, 600), 0s);
    EXPECT_EQ(bucket.Take(0s, 600), 200ms);
    EXPECT_EQ(bucket.Take(200ms, 100), 100ms);
}

TEST(TokenBucket, FillsAsTimeGoesBy) {
    CTokenBucket bucket(1000);
    EXPECT_EQ(bucket.Take(5s, 1000), 0s);
    EXPECT_EQ(bucket.Take(5250ms, 200), 0s);
    EXPECT_EQ(bucket.Take(5250ms, 100), 50ms);
}

TEST(TokenBucket, SavesNoMoreThanASecondsWorth) {
    CTokenBucket bucket(1000);
    EXPECT_EQ(bucket.Take(0s, 1000), 0s);
    EXPECT_EQ(bucket.Take(1h, 1000), 0s);
    EXPECT_EQ(bucket.Take(1h, 1000), 1s);
}

TEST(TokenBucket, LargeTransferWaitsForAFullBucketAndLeavesADebt) {
    CTokenBucket bucket(1000);
    EXPECT_EQ(bucket.Take(0s, 5000), 0s);
    EXPECT_EQ(bucket.Take(0s, 100), 4100ms);
    EXPECT_EQ(bucket.Take(4100ms, 5000), 1s);
    EXPECT_EQ(bucket.Take(5100ms, 0), 4s);
}

TEST(TokenBucket, ServesInTheOrderOfAsking) {
    CTokenBucket bucket(1000);
    EXPECT_EQ(bucket.Take(0s, 1000), 0s);
    EXPECT_EQ(bucket.Take(0s, 500), 500ms);
    EXPECT_EQ(bucket.Take(0s, 500), 1s);
    EXPECT_EQ(bucket.Take(100ms, 1), 901ms);
    EXPECT_EQ(bucket.Take(100ms, 0), 901ms) << "nobody overtakes";
}

TEST(TokenBucket, NothingWaitsOnlyForADebt) {
    CTokenBucket bucket(1000);
    EXPECT_EQ(bucket.Take(0s, 1000), 0s);
    EXPECT_EQ(bucket.Take(0s, 0), 0s);
}

TEST(TokenBucket, SettlingTakesWhatCameBesides) {
    CTokenBucket bucket(1000);
    EXPECT_EQ(bucket.Take(0s, 0), 0s);
    bucket.Settle(0s, 0, 3000);
    EXPECT_EQ(bucket.Take(0s, 0), 2s);
    bucket.Settle(1h, 0, 1500);
    EXPECT_EQ(bucket.Take(1h, 0), 500ms) << "what was saved up in between counts first";
}

TEST(TokenBucket, SettlingGivesBackWhatDidNotCome) {
    CTokenBucket bucket(1000);
    EXPECT_EQ(bucket.Take(0s, 1000), 0s);
    bucket.Settle(0s, 1000, 300);
    EXPECT_EQ(bucket.Take(0s, 700), 0s);
    EXPECT_EQ(bucket.Take(0s, 1), 1ms);
    bucket.Settle(1h, 1000, 0);
    EXPECT_EQ(bucket.Take(1h, 1001), 0s);
    EXPECT_EQ(bucket.Take(1h, 0), 1ms) << "no more than a second's worth is kept";
}

TEST(TokenBucket, WithoutALimitNothingWaits) {
    CTokenBucket bucket(0);
    EXPECT_EQ(bucket.GetSize(), ~std::uint64_t{0});
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(bucket.Take(0s, ~std::uint64_t{0}), 0s);
        bucket.Settle(0s, 0, ~std::uint64_t{0});
    }
}

TEST(TokenBucket, DebtNeverOverflowsTheClock) {
    CTokenBucket bucket(1);
    for (int i = 0; i < 100; ++i) {
        const auto wait = bucket.Take(0s, ~std::uint64_t{0});
        EXPECT_GE(wait, 0s);
        EXPECT_LE(wait, 1'000'000'000s);
    }
}

}  // namespace

}  // namespace cloudclientlib
