#include "common/options.h"

#include <gtest/gtest.h>

namespace {

TEST(Options, SingleFileMetadataIsOffUntilEnabled) {
    EXPECT_FALSE(options_t::GetInst().IsSingleFileCloudMetadataEnabled());
    options_t::GetInst().EnableSingleFileCloudMetadata(true);
    EXPECT_TRUE(options_t::GetInst().IsSingleFileCloudMetadataEnabled());
    options_t::GetInst().EnableSingleFileCloudMetadata(false);
    EXPECT_FALSE(options_t::GetInst().IsSingleFileCloudMetadataEnabled());
}

TEST(Options, BlocksAreDeletedOneAfterAnotherUnlessToldOtherwise) {
    EXPECT_EQ(options_t::GetInst().GetBlockDeletionConcurrency(), 1U);
    options_t::GetInst().SetBlockDeletionConcurrency(5);
    EXPECT_EQ(options_t::GetInst().GetBlockDeletionConcurrency(), 5U);
    options_t::GetInst().SetBlockDeletionConcurrency(1);
}

TEST(Options, ThereIsOneInstance) { EXPECT_EQ(&options_t::GetInst(), &options_t::GetInst()); }

}  // namespace
