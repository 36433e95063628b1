#include "tests/faults/BackupFaultFixture.h"

namespace {

using namespace test;
using cloudclientlib::EOperation;

/// One after another, and several at once.
class BackupBlockFaults : public BackupFaults, public testing::WithParamInterface<std::size_t> {
protected:
    void SetUp() override {
        BackupFaults::SetUp();
        for (const std::uint8_t orphan : orphans) {
            PutBlock(base_, 1, orphan);
        }
        options_t::GetInst().SetBlockDeletionConcurrency(GetParam());
    }

    static void ExpectUsedBlocksOnly(const store_ptr& store) {
        EXPECT_EQ(store->GetObjectCount("/B/BlockStore/" + Guid(1).ToAStr()), 2U);
    }

    static constexpr std::array<std::uint8_t, 5> orphans = {7, 8, 9, 10, 11};
};

INSTANTIATE_TEST_SUITE_P(AtOnce, BackupBlockFaults, testing::Values(1, 3));

TEST_P(BackupBlockFaults, ClearOrphanedBlocks) {
    const std::vector<digest::md5_digest_t> inUse = {Block(1), Block(2)};
    // The listings fail alike however many deletions follow at once.
    const bool withListings = GetParam() == 1;
    const auto result =
        RunSweep(base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> {
                             const auto backup = Open(faults);
                             return [=] { backup->ClearOrphanedBlocks(Guid(1), inUse); };
                         },
                         .check = Whole({1, 2, 3}),
                         .retry = [&](const store_ptr& store) { Open(store)->ClearOrphanedBlocks(Guid(1), inUse); },
                         .checkDone = ExpectUsedBlocksOnly,
                         .kinds = withListings ? cloudclientlib::StoreOperations()
                                               : cloudclientlib::operation_set{EOperation::deleteFile}});
    EXPECT_EQ(result.calls, (withListings ? 256U : 0U) + orphans.size());
    EXPECT_EQ(result.reported, 6 * result.calls);
}

TEST_P(BackupBlockFaults, ClearReleasedBlocks) {
    std::vector<digest::md5_digest_t> released;
    for (const std::uint8_t orphan : orphans) {
        released.push_back(Block(orphan));
    }
    const auto result =
        RunSweep(base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> {
                             const auto backup = Open(faults);
                             return [=] { backup->ClearReleasedBlocks(Guid(1), released); };
                         },
                         .check = Whole({1, 2, 3}),
                         .retry = [&](const store_ptr& store) { Open(store)->ClearReleasedBlocks(Guid(1), released); },
                         .checkDone = ExpectUsedBlocksOnly});
    EXPECT_EQ(result.calls, orphans.size());
    EXPECT_EQ(result.reported, 6 * result.calls);
}

TEST_F(BackupFaults, DeleteBlockStore) {
    const auto unused = Guid(7);  // a store that no checkpoint names
    PutBlock(base_, 7, 1);
    PutBlock(base_, 7, 2);
    const auto result = RunSweep(
        base_,
        {.prepare = [&](const faults_ptr& faults) -> std::function<void()> {
             const auto backup = Open(faults);
             return [=] { backup->DeleteBlockStore(unused); };
         },
         .check = Whole({1, 2, 3}),
         .retry = [&](const store_ptr& store) { Open(store)->DeleteBlockStore(unused); },
         .checkDone =
             [&](const store_ptr& store) { EXPECT_FALSE(store->IsFolderExist("/B/BlockStore/" + unused.ToAStr())); }});
    EXPECT_EQ(result.calls, 2U);
    EXPECT_EQ(result.reported, 6 * result.calls);
}

}  // namespace
