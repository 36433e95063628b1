#include "agent/run/Repack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exc.h"
#include "tests/agent/NumberedBlock.h"

namespace agent {
namespace {

/// A storage of blocks of 1000 bytes, of which so many are needed.
CBlockUse UseOf(const std::vector<std::uint32_t>& needed) {
    CMetaState state;
    for (std::size_t i = 0; i < needed.size(); ++i) {
        state.AddBlock(NumberedBlock(static_cast<std::uint8_t>(i + 1), 1000));
        SChunk chunk;
        chunk.streamOffset = i * 1000;
        chunk.plainSize = needed[i];
        chunk.storedSize = needed[i];
        chunk.block = static_cast<std::uint32_t>(i);
        state.AddChunk(chunk);
    }
    CBlockUse use;
    EXPECT_EQ(use.Add(state).size(), needed.size());
    return use;
}

const guid::guid_t storage = guid::guid_t::FromStr("11111111-2222-3333-4444-555555555555");

SRepackPlan Choose(const std::vector<std::uint32_t>& needed, const std::string& limit,
                   const SRepackPlan::block_names_t& missing = {}) {
    return ChooseBlocks({{storage, UseOf(needed)}}, {{storage, missing}}, SUnusedLimit::FromText(limit));
}

SRepackPlan::block_names_t Names(const SRepackPlan& plan) {
    return plan.blocks.empty() ? SRepackPlan::block_names_t() : plan.blocks.at(storage);
}

TEST(UnusedLimit, Texts) {
    EXPECT_EQ(SUnusedLimit().Of(1000), 100U);
    EXPECT_EQ(SUnusedLimit::FromText("10%").Of(1000), 100U);
    EXPECT_EQ(SUnusedLimit::FromText("2.5%").Of(1000), 25U);
    EXPECT_EQ(SUnusedLimit::FromText("0%").Of(1000), 0U);
    EXPECT_EQ(SUnusedLimit::FromText("100%").Of(1000), 1000U);
    EXPECT_EQ(SUnusedLimit::FromText("0").Of(1000), 0U);
    EXPECT_EQ(SUnusedLimit::FromText("517").Of(1000), 517U);
    EXPECT_EQ(SUnusedLimit::FromText("3M").Of(1000), 3U << 20U);
    EXPECT_EQ(SUnusedLimit::FromText("unlimited").Of(1000), ~std::uint64_t{0});
    for (const std::string text : {"", "%", "-1%", "101%", "nan%", "1e1%", "10 %", "-5", "5X", "Unlimited", "M",
                                   "99999999999999999999", "99999999999999T"}) {
        EXPECT_THROW((void)SUnusedLimit::FromText(text), exc::CRuntimeExc) << text;
    }
    try {
        (void)SUnusedLimit::FromText("much");
        FAIL();
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_THAT(failure.what(), testing::StartsWith("'much' is no limit such as 10%, 500M or 'unlimited'"));
    }
}

TEST(ChooseBlocks, NothingWithinTheLimit) {
    EXPECT_TRUE(Choose({900, 900, 900}, "10%").IsEmpty());
    EXPECT_TRUE(Choose({1000, 700}, "300").IsEmpty());
    EXPECT_TRUE(Choose({1, 1, 1}, "unlimited").IsEmpty());
    EXPECT_TRUE(ChooseBlocks({}, {}, SUnusedLimit()).IsEmpty());
}

TEST(ChooseBlocks, TheMostWastefulFirstUntilTheLimitIsMet) {
    const auto plan = Choose({700, 100, 500}, "800");
    EXPECT_EQ(Names(plan), SRepackPlan::block_names_t{NumberedName(2)}) << "of 1700 bytes of waste it has 900";
    EXPECT_EQ(plan.blockCount, 1U);
}

TEST(ChooseBlocks, CountsWhatIsMovedAndFreed) {
    const auto plan = Choose({700, 100, 500}, "300");
    EXPECT_EQ(Names(plan), (SRepackPlan::block_names_t{NumberedName(2), NumberedName(3)}));
    EXPECT_EQ(plan.blockCount, 2U);
    EXPECT_EQ(plan.movedBytes, 600U);
    EXPECT_EQ(plan.freedBytes, 1400U);
    EXPECT_TRUE(plan.HasBlock(storage, NumberedName(2)));
    EXPECT_FALSE(plan.HasBlock(storage, NumberedName(1)));
    EXPECT_FALSE(plan.HasBlock(guid::guid_t(), NumberedName(2)));
}

TEST(ChooseBlocks, NoneThatIsNeededNearlyWhole) {
    EXPECT_EQ(Names(Choose({951, 950, 1000}, "0")), SRepackPlan::block_names_t{NumberedName(2)});
}

TEST(ChooseBlocks, NoneThatIsMissing) {
    EXPECT_EQ(Names(Choose({100, 500}, "0", {NumberedName(1)})), SRepackPlan::block_names_t{NumberedName(2)});
}

TEST(ChooseBlocks, AShareIsOfWhatIsLeft) {
    // 1200 of 3000 are waste. Without the first block 300 of 2100 are: 14 %.
    EXPECT_EQ(Names(Choose({100, 800, 900}, "15%")), SRepackPlan::block_names_t{NumberedName(1)});
    EXPECT_EQ(Names(Choose({100, 800, 900}, "14%")), (SRepackPlan::block_names_t{NumberedName(1), NumberedName(2)}));
}

}  // namespace
}  // namespace agent
