#include "agent/check/BlockSample.h"

#include <gtest/gtest.h>

#include "common/digest.h"
#include "common/exc.h"

namespace {

using agent::CBlockSample;

std::vector<agent::block_name_t> Names(std::size_t count) {
    std::vector<agent::block_name_t> names;
    for (std::size_t i = 0; i < count; ++i) {
        names.push_back(digest::Md5(std::to_string(i)).bytes);
    }
    return names;
}

std::size_t Count(const CBlockSample& sample, const std::vector<agent::block_name_t>& names) {
    std::size_t count = 0;
    for (const auto& name : names) {
        count += sample.Takes(name) ? 1U : 0U;
    }
    return count;
}

TEST(BlockSample, AllMeansAll) {
    const auto names = Names(1000);
    for (const char* text : {"", "100%", "1/1"}) {
        const auto sample = CBlockSample::FromText(text, 5);
        EXPECT_TRUE(sample.IsAll());
        EXPECT_EQ(Count(sample, names), 1000U);
        EXPECT_EQ(sample.ToText(), "all blocks");
    }
}

TEST(BlockSample, AShareIsAboutThatShareAndOthersForAnotherSeed) {
    const auto names = Names(20'000);
    const auto sample = CBlockSample::FromText("5%", 17);
    EXPECT_FALSE(sample.IsAll());
    EXPECT_EQ(sample.ToText(), "5% of the blocks (seed 17)");
    EXPECT_NEAR(static_cast<double>(Count(sample, names)), 1000, 150);
    EXPECT_NEAR(static_cast<double>(Count(CBlockSample::FromText("0.5%", 17), names)), 100, 50);
    const auto other = CBlockSample::FromText("5%", 18);
    std::size_t both = 0;
    for (const auto& name : names) {
        both += sample.Takes(name) && other.Takes(name) ? 1U : 0U;
    }
    EXPECT_LT(both, 120U);  // 50 by chance, 1000 were they the same
}

TEST(BlockSample, PartsTogetherAreAllAndOverlapNowhere) {
    const auto names = Names(1000);
    for (const auto& name : names) {
        int taken = 0;
        for (int part = 1; part <= 7; ++part) {
            taken += CBlockSample::FromText(std::to_string(part) + "/7", 0).Takes(name) ? 1 : 0;
        }
        EXPECT_EQ(taken, 1);
    }
    EXPECT_EQ(CBlockSample::FromText("2/7", 0).ToText(), "part 2 of 7");
}

TEST(BlockSample, RefusesWhatIsNoShare) {
    for (const char* text : {"5", "0%", "101%", "%", "-1%", "0/7", "8/7", "1/0", "/", "1.23456%", "5.%", "a%"}) {
        EXPECT_THROW((void)CBlockSample::FromText(text, 0), exc::CRuntimeExc) << text;
    }
}

}  // namespace
