// How many tasks the deletions of a backup keep in flight, and what they leave in flight: nothing.

#include <algorithm>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "tests/library/BackupFixture.h"
#include "tests/support/RoundsClient.h"

namespace {

using namespace test;
using cloudclientlib::CCountingClient;
using cloudclientlib::CFaultClient;
using cloudclientlib::EFaultMode;
using cloudclientlib::EOperation;
using testing::Each;
using testing::ElementsAre;

using digests_t = std::vector<digest::md5_digest_t>;

class BackupRounds : public BackupTest {
protected:
    static constexpr std::size_t blocks = 20;
    static constexpr std::size_t taskLimit = 10;

    BackupRounds() : BackupTest(taskLimit) {
        for (std::uint8_t i = 0; i < blocks; ++i) {
            digests_.push_back(Digest(i, i));
        }
    }

    static std::string PathOf(const digest::md5_digest_t& digest) {
        return paths::GetBackupBlockPath("B", Guid(1), paths::DigestToBlockName(digest));
    }
    void PutBlocks() {
        for (const auto& digest : digests_) {
            Put(*client_, PathOf(digest), "block");
        }
        client_->ClearCalls();
    }
    /// The numbers of the blocks that are there.
    [[nodiscard]] std::vector<std::size_t> Left() const {
        std::vector<std::size_t> left;
        for (std::size_t i = 0; i < blocks; ++i) {
            if (Exists(PathOf(digests_[i]))) {
                left.push_back(i);
            }
        }
        return left;
    }
    /// The paths of the deletions, in the order in which they reached the store.
    [[nodiscard]] std::vector<std::string> Deleted() const {
        std::vector<std::string> deleted;
        for (const auto& call : client_->GetCalls()) {
            if (call.operation == "DeleteFile") {
                deleted.push_back(call.path);
            }
        }
        return deleted;
    }
    [[nodiscard]] std::vector<std::string> AllPaths() const {
        std::vector<std::string> all;
        for (const auto& digest : digests_) {
            all.push_back(PathOf(digest));
        }
        return all;
    }

    digests_t digests_;
};

/// One of the operations that delete blocks one by one; all the blocks of the test are to go.
struct SBlockDeletion {
    const char* name;
    void (*run)(CCloudBackup&, const digests_t&);

    friend void PrintTo(const SBlockDeletion& one, std::ostream* out) { *out << one.name; }
};

class BlockDeletionRounds : public BackupRounds, public testing::WithParamInterface<SBlockDeletion> {
protected:
    void SetUp() override { PutBlocks(); }
    void Delete(const CCloudBackup::client_ptr& client) const { GetParam().run(*Backup(client), digests_); }
};

INSTANTIATE_TEST_SUITE_P(Operations, BlockDeletionRounds,
                         testing::Values(SBlockDeletion{"ClearReleasedBlocks",
                                                        [](CCloudBackup& backup, const digests_t& digests) {
                                                            backup.ClearReleasedBlocks(Guid(1), digests);
                                                        }},
                                         SBlockDeletion{"ClearOrphanedBlocks",
                                                        [](CCloudBackup& backup, const digests_t&) {
                                                            backup.ClearOrphanedBlocks(Guid(1), {});
                                                        }}),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_P(BlockDeletionRounds, OneAtATimeInOrderUnlessTheHostSaysOtherwise) {
    EXPECT_EQ(options_t::GetInst().GetBlockDeletionConcurrency(), 1U);
    const auto rounds = std::make_shared<RoundsClient>(client_, cloudclientlib::operation_set{EOperation::deleteFile});
    Delete(rounds);
    EXPECT_EQ(rounds->GetRounds().size(), blocks);
    EXPECT_THAT(rounds->GetRounds(), Each(1U));
    EXPECT_THAT(Deleted(), testing::ElementsAreArray(AllPaths()));
}

TEST_P(BlockDeletionRounds, AsManyAtOnceAsTheHostSays) {
    struct SCase {
        std::size_t wanted;
        std::size_t atOnce;
    };
    for (const SCase& one : {SCase{0, 1}, SCase{4, 4}, SCase{taskLimit, taskLimit}, SCase{1000, taskLimit}}) {
        SCOPED_TRACE(one.wanted);
        PutBlocks();
        options_t::GetInst().SetBlockDeletionConcurrency(one.wanted);
        const auto rounds =
            std::make_shared<RoundsClient>(client_, cloudclientlib::operation_set{EOperation::deleteFile});
        const auto counting = std::make_shared<CCountingClient>(rounds);
        Delete(counting);
        EXPECT_THAT(rounds->GetRounds(), Each(one.atOnce));
        EXPECT_EQ(rounds->GetRounds().size(), blocks / one.atOnce);
        EXPECT_EQ(counting->GetCounts().mostTasksInFlight, one.atOnce);
        EXPECT_EQ(counting->GetCounts().tasksInFlight, 0U);
        EXPECT_THAT(Deleted(), testing::ElementsAreArray(AllPaths()));
        EXPECT_THAT(Left(), testing::IsEmpty());
    }
}

TEST_P(BlockDeletionRounds, TheFirstFailureEndsItWithNothingInFlight) {
    struct SCase {
        std::size_t atOnce;
        std::vector<std::size_t> left;
    };
    // The sixth fails. One by one nothing follows it; four at once, the three behind it are on their way by then.
    for (const SCase& one : {SCase{1, {5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}},
                             SCase{4, {5, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}}}) {
        SCOPED_TRACE(one.atOnce);
        PutBlocks();
        options_t::GetInst().SetBlockDeletionConcurrency(one.atOnce);
        const auto faults = std::make_shared<CFaultClient>(client_);
        faults->Arm({.call = 6, .kinds = {EOperation::deleteFile}});
        const auto rounds =
            std::make_shared<RoundsClient>(faults, cloudclientlib::operation_set{EOperation::deleteFile});
        const auto counting = std::make_shared<CCountingClient>(rounds);
        try {
            Delete(counting);
            FAIL();
        } catch (const cloudclientlib::CCloudExc& e) {
            EXPECT_EQ(e.GetPath(), PathOf(digests_[5]));
        }
        EXPECT_EQ(counting->GetCounts().tasksInFlight, 0U);
        EXPECT_EQ(rounds->GetHeld(), 0U);
        EXPECT_THAT(Left(), testing::ElementsAreArray(one.left));
    }
}

TEST_P(BlockDeletionRounds, OfSeveralFailuresTheFirstInOrderIsTold) {
    options_t::GetInst().SetBlockDeletionConcurrency(4);
    const auto faults = std::make_shared<CFaultClient>(client_);
    faults->Arm({.call = 3, .kinds = {EOperation::deleteFile}, .crash = true});
    try {
        Delete(faults);
        FAIL();
    } catch (const cloudclientlib::CCloudExc& e) {
        EXPECT_EQ(e.GetPath(), PathOf(digests_[2]));
    }
}

// A thousand documents are read in a hundred round trips, not in a thousand.
TEST_F(BackupRounds, RemainingCheckpointsAreReadInBatches) {
    constexpr unsigned long remaining = 1000;
    const auto writer = Backup(client_);
    for (unsigned long id = 1; id <= remaining + 1; ++id) {
        writer->SaveCheckpoint(Checkpoint(id));
    }
    const auto rounds =
        std::make_shared<RoundsClient>(client_, cloudclientlib::operation_set{EOperation::downloadFile});
    const auto counting = std::make_shared<CCountingClient>(rounds);
    Backup(counting)->DeleteCheckpoints({1});
    EXPECT_EQ(counting->GetCounts().Of(EOperation::downloadFile), remaining + 1);
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, taskLimit);
    // The deleted one first, to know what it used.
    ASSERT_EQ(rounds->GetRounds().size(), 1 + remaining / taskLimit);
    EXPECT_EQ(rounds->GetRounds().front(), 1U);
    EXPECT_EQ(std::count(rounds->GetRounds().begin(), rounds->GetRounds().end(), taskLimit), remaining / taskLimit);
}

TEST_F(BackupRounds, DeletedCheckpointsAreReadInBatchesToo) {
    const auto writer = Backup(client_);
    std::vector<unsigned long> ids;
    for (unsigned long id = 1; id <= 31; ++id) {
        writer->SaveCheckpoint(Checkpoint(id));
        if (id <= 30) {
            ids.push_back(id);
        }
    }
    const auto rounds =
        std::make_shared<RoundsClient>(client_, cloudclientlib::operation_set{EOperation::downloadFile});
    Backup(rounds)->DeleteCheckpoints(ids);
    EXPECT_THAT(rounds->GetRounds(), ElementsAre(taskLimit, taskLimit, taskLimit, 1U));
}

/// Twelve storages with a header and a bank each, all of which checkpoint 1 alone uses.
std::vector<CCloudStorageDescriptor> PutStorages(cloudclientlib::ICloudClient& client) {
    std::vector<CCloudStorageDescriptor> storages;
    for (std::uint8_t i = 1; i <= 12; ++i) {
        const std::string item = "/B/Metadata/" + Guid(i).ToAStr() + ".1";
        Put(client, item, "head");
        Put(client, item + "_metaparts/4", "bank");
        storages.push_back(Storage(Guid(i), 1, 8, {{4, {item + "_metaparts/4", 4, 4}}}));
    }
    return storages;
}

TEST_F(BackupRounds, DocumentsGoBeforeMetadataAndMetadataInBatches) {
    const auto writer = Backup(client_);
    writer->SaveCheckpoint(Checkpoint(1, PutStorages(*client_)));
    writer->SaveCheckpoint(Checkpoint(2));
    const auto rounds = std::make_shared<RoundsClient>(client_, cloudclientlib::operation_set{EOperation::deleteFile});
    const auto counting = std::make_shared<CCountingClient>(rounds);
    Backup(counting)->DeleteCheckpoints({1});
    // Both copies of the document, the headers, the banks: each waited for before the next begins.
    EXPECT_THAT(rounds->GetRounds(), ElementsAre(2U, taskLimit, 2U, taskLimit, 2U));
    EXPECT_EQ(counting->GetCounts().tasksInFlight, 0U);
    EXPECT_EQ(client_->GetObjectCount("/B/Metadata"), 1U);
}

TEST_F(BackupRounds, AFailedMetadataDeletionLeavesNothingInFlight) {
    const auto writer = Backup(client_);
    writer->SaveCheckpoint(Checkpoint(1, PutStorages(*client_)));
    writer->SaveCheckpoint(Checkpoint(2));
    for (const std::uint64_t call : {4U, 16U}) {  // a header, a bank
        const auto store = client_->Clone();
        const auto faults = std::make_shared<CFaultClient>(store);
        faults->Arm({.call = call, .kinds = {EOperation::deleteFile}});
        const auto rounds =
            std::make_shared<RoundsClient>(faults, cloudclientlib::operation_set{EOperation::deleteFile});
        const auto counting = std::make_shared<CCountingClient>(rounds);
        EXPECT_THROW(Backup(counting)->DeleteCheckpoints({1}), exc::CRuntimeExc);
        EXPECT_EQ(rounds->GetHeld(), 0U);
        EXPECT_EQ(counting->GetCounts().tasksInFlight, 0U);
        EXPECT_FALSE(store->IsFileExist(RegularPath(1)));
    }
}

}  // namespace
