#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "tests/library/BackupFixture.h"

namespace {

using namespace test;
using cloudclientlib::CFaultClient;
using cloudclientlib::EFaultMode;
using cloudclientlib::EOperation;
using logging::level_t;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr auto blobs = CloudStorageBlockStoreSchema::blobs;
constexpr auto legacy = CloudStorageBlockStoreSchema::legacy;

std::string Item(const guid::guid_t& id, unsigned long version) {
    return "/B/Metadata/" + id.ToAStr() + "." + std::to_string(version);
}
std::string Bank(const guid::guid_t& id, unsigned long version) { return Item(id, version) + "_metaparts/4"; }
std::string Store(const guid::guid_t& id) { return "/B/BlockStore/" + id.ToAStr(); }

class BackupDeletion : public BackupTest {
protected:
    /// A storage whose header and one bank lie in the store, and a block.
    CCloudStorageDescriptor Put1(std::uint8_t storage, unsigned long version,
                                 CloudStorageBlockStoreSchema schema = legacy) {
        return PutSharing(storage, version, version, schema);
    }
    /// The same, with the bank of another version.
    CCloudStorageDescriptor PutSharing(std::uint8_t storage, unsigned long version, unsigned long bankVersion,
                                       CloudStorageBlockStoreSchema schema = legacy) {
        const auto id = Guid(storage);
        Put(*client_, Item(id, version), "head");
        Put(*client_, Bank(id, bankVersion), "bank");
        Put(*client_, Store(id) + "/00/0011", "block");
        return Storage(id, version, 8, {{4, {Bank(id, bankVersion), 4, 4}}}, schema);
    }
    void Save(unsigned long id, const std::vector<CCloudStorageDescriptor>& storages,
              const std::string& longTerm = {}) {
        backup_->SaveCheckpoint(Checkpoint(id, storages, longTerm));
        client_->ClearCalls();
    }
    [[nodiscard]] std::string FailedDeletion(const std::vector<unsigned long>& ids) const {
        return FailureOf([&] { backup_->DeleteCheckpoints(ids); });
    }
    /// The calls that delete.
    [[nodiscard]] std::vector<std::string> Deletions() const {
        std::vector<std::string> deletions;
        for (const auto& call : Calls()) {
            if (call.starts_with("Delete")) {
                deletions.push_back(call);
            }
        }
        return deletions;
    }

    const std::shared_ptr<CCloudBackup> backup_ = Backup(client_);
};

TEST_F(BackupDeletion, DocumentsFirstThenMetadataThenBlocks) {
    Save(1, {Put1(1, 1), Put1(2, 1)}, "keep");
    Save(2, {Put1(3, 1)});
    const RecordingSink sink;
    backup_->DeleteCheckpoints({1});
    EXPECT_THAT(Calls(),
                ElementsAre("QueryFolder /B/Metadata/Checkpoint", "QueryFolder /B/Metadata/CheckpointLongTerm",
                            "DownloadFile /B/Metadata/Checkpoint/1", "DownloadFile /B/Metadata/Checkpoint/2",
                            "DeleteFile /B/Metadata/Checkpoint/1", "DeleteFile /B/Metadata/CheckpointLongTerm/1",
                            "DeleteFile " + Item(Guid(1), 1), "DeleteFile " + Item(Guid(2), 1),
                            "DeleteFile " + Bank(Guid(1), 1), "DeleteFile " + Bank(Guid(2), 1),
                            "IsFolderExist " + Store(Guid(1)), "DeleteFolder " + Store(Guid(1)),
                            "IsFolderExist " + Store(Guid(2)), "DeleteFolder " + Store(Guid(2))));
    EXPECT_THAT(sink.GetTexts(level_t::tr), ElementsAre("Deleting checkpoint '1' descriptor",
                                                        "Deleting storage metadata '" + Guid(1).ToAStr() + ".1'",
                                                        "Deleting storage metadata '" + Guid(2).ToAStr() + ".1'",
                                                        "Deleting metadata part '" + Bank(Guid(1), 1) + "'",
                                                        "Deleting metadata part '" + Bank(Guid(2), 1) + "'"));
    EXPECT_THAT(sink.GetTexts(level_t::info), Contains("2 metadata versions and 2 storage folders will be deleted"));
    // The scopes of the block stores and of the documents read belong to storages, all else to the library.
    for (const auto& entry : sink.GetEntries()) {
        const bool ofStorages = entry.kind != logging::kind_t::line || entry.text.starts_with("Storage: ");
        EXPECT_EQ(entry.section, ofStorages ? "storage" : "library") << entry.text;
    }
    EXPECT_TRUE(Exists(Item(Guid(3), 1)));
    EXPECT_TRUE(Exists(Bank(Guid(3), 1)));
    EXPECT_TRUE(Exists(Store(Guid(3)) + "/00/0011"));
}

TEST_F(BackupDeletion, WhatARemainingCheckpointUsesIsKept) {
    Save(1, {Put1(1, 1)});
    Save(2, {PutSharing(1, 2, 1)});
    Save(3, {PutSharing(1, 3, 1)});
    backup_->DeleteCheckpoints({1, 2});
    EXPECT_FALSE(Exists(Item(Guid(1), 1)));
    EXPECT_FALSE(Exists(Item(Guid(1), 2)));
    EXPECT_TRUE(Exists(Item(Guid(1), 3)));
    EXPECT_TRUE(Exists(Bank(Guid(1), 1)));
    EXPECT_TRUE(Exists(Store(Guid(1)) + "/00/0011"));
    EXPECT_TRUE(sink_.Has("2 metadata versions and 0 storage folders will be deleted"));
}

TEST_F(BackupDeletion, UnchangedMetadataIsKeptAsAWhole) {
    const auto storage = Put1(1, 1);
    Save(1, {storage});
    Save(2, {storage});
    backup_->DeleteCheckpoints({1});
    EXPECT_THAT(Deletions(),
                ElementsAre("DeleteFile /B/Metadata/Checkpoint/1", "DeleteFile /B/Metadata/CheckpointLongTerm/1"));
}

TEST_F(BackupDeletion, ABlobsStorageKeepsItsMetadataButNotItsOldFolder) {
    const auto storage = Put1(1, 1);
    Save(1, {storage});
    Save(2, {Storage(Guid(1), 1, 8, storage.GetCloudMetadataPartDescriptionsMap(), blobs)});
    backup_->DeleteCheckpoints({1});
    EXPECT_TRUE(Exists(Item(Guid(1), 1)));
    EXPECT_TRUE(Exists(Bank(Guid(1), 1)));
    EXPECT_FALSE(client_->IsFolderExist(Store(Guid(1))));
    const std::string switched =
        "checkpoint: 2, storageDesc: " + Guid(1).ToAStr() + ", version: 1, schema: [blobs], switchedToBlobs: 1";
    EXPECT_THAT(sink_.GetEntries(),
                Contains(SEntry{"library", level_t::info, logging::kind_t::line, switched}).Times(1));
    EXPECT_TRUE(sink_.Has("0 metadata versions and 1 storage folders will be deleted"));
}

TEST_F(BackupDeletion, AStorageThatHasNotSwitchedIsNotLoggedAsSuch) {
    const auto storage = Put1(1, 1);
    Save(1, {storage});
    Save(2, {storage});
    const RecordingSink sink;
    backup_->DeleteCheckpoints({1});
    for (const auto& entry : sink.GetEntries()) {
        EXPECT_THAT(entry.text, Not(testing::HasSubstr("switchedToBlobs")));
    }
}

TEST_F(BackupDeletion, InTheOrderGiven) {
    for (unsigned long id = 1; id <= 4; ++id) {
        Save(id, {});
    }
    backup_->DeleteCheckpoints({3, 1, 2});
    EXPECT_THAT(Calls(),
                ElementsAre("QueryFolder /B/Metadata/Checkpoint", "QueryFolder /B/Metadata/CheckpointLongTerm",
                            "DownloadFile /B/Metadata/Checkpoint/3", "DownloadFile /B/Metadata/Checkpoint/1",
                            "DownloadFile /B/Metadata/Checkpoint/2", "DownloadFile /B/Metadata/Checkpoint/4",
                            "DeleteFile /B/Metadata/Checkpoint/3", "DeleteFile /B/Metadata/CheckpointLongTerm/3",
                            "DeleteFile /B/Metadata/Checkpoint/1", "DeleteFile /B/Metadata/CheckpointLongTerm/1",
                            "DeleteFile /B/Metadata/Checkpoint/2", "DeleteFile /B/Metadata/CheckpointLongTerm/2"));
}

TEST_F(BackupDeletion, NothingToDeleteDeletesNothing) {
    Save(1, {Put1(1, 1)});
    backup_->DeleteCheckpoints({});
    EXPECT_THAT(Deletions(), IsEmpty());
    EXPECT_TRUE(sink_.Has("0 metadata versions and 0 storage folders will be deleted"));
}

TEST_F(BackupDeletion, BothCopiesGoThroughTheClientsTaskUtilities) {
    Save(1, {});
    Save(2, {});
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(client_);
    Backup(counting)->DeleteCheckpoints({1});
    EXPECT_EQ(counting->GetCounts().Of(EOperation::createAsyncTaskUtils), 1U);
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 2U);
}

TEST_F(BackupDeletion, OneLegacyCheckpointIsEnoughToKeepTheFolder) {
    const auto storage = Put1(1, 1);
    Save(1, {storage});
    Save(2, {storage});
    Save(3, {Put1(1, 2, blobs)});
    backup_->DeleteCheckpoints({1});
    EXPECT_TRUE(client_->IsFolderExist(Store(Guid(1))));
}

TEST_F(BackupDeletion, TheLastCheckpointStays) {
    Save(4, {Put1(1, 1)});
    EXPECT_EQ(FailedDeletion({4}),
              "Failed to delete checkpoints for cloud backup 'B': Cannot delete last checkpoint in cloud backup 'B'");
    Save(3, {});
    EXPECT_EQ(FailedDeletion({3, 4}),
              "Failed to delete checkpoints for cloud backup 'B': Cannot delete last checkpoint in cloud backup 'B'");
    EXPECT_THAT(Deletions(), IsEmpty());
    // Of two things wrong, the one that the ids come to first.
    EXPECT_THAT(FailedDeletion({9, 3, 4}), testing::HasSubstr("Checkpoint '9' not found"));
    EXPECT_THAT(FailedDeletion({3, 4, 9}), testing::HasSubstr("Cannot delete last checkpoint"));
    backup_->DeleteCheckpoints({3});
    EXPECT_TRUE(Exists(RegularPath(4)));
    EXPECT_FALSE(Exists(RegularPath(3)));
}

TEST_F(BackupDeletion, ALongTermCopyCountsAsACheckpoint) {
    Save(4, {Put1(1, 1)}, "keep");
    client_->DeleteFileAsync(RegularPath(4))->Wait();
    EXPECT_EQ(FailedDeletion({4}),
              "Failed to delete checkpoints for cloud backup 'B': Cannot delete last checkpoint in cloud backup 'B'");
    Save(3, {Put1(1, 2)});
    backup_->DeleteCheckpoints({3});
    EXPECT_FALSE(Exists(RegularPath(3)));
    EXPECT_TRUE(Exists(Item(Guid(1), 1)));  // the long-term copy remains, with what it uses
    EXPECT_FALSE(Exists(Item(Guid(1), 2)));
}

TEST_F(BackupDeletion, ABackupWithoutCheckpointsHasNoneToDelete) {
    EXPECT_EQ(FailedDeletion({1}),
              "Failed to delete checkpoints for cloud backup 'B': Checkpoint '1' not found in cloud backup 'B'");
    EXPECT_THROW(backup_->DeleteCheckpoints({1}), exc::CRuntimeExc);
}

TEST_F(BackupDeletion, UnknownIdsAreRefusedBeforeAnythingIsDeleted) {
    Save(1, {Put1(1, 1)});
    Save(2, {});
    Save(3, {});
    EXPECT_EQ(FailedDeletion({1, 9}),
              "Failed to delete checkpoints for cloud backup 'B': Checkpoint '9' not found in cloud backup 'B'");
    EXPECT_EQ(FailedDeletion({1, 1}),
              "Failed to delete checkpoints for cloud backup 'B': Checkpoint '1' not found in cloud backup 'B'");
    EXPECT_THAT(Deletions(), IsEmpty());
}

TEST_F(BackupDeletion, AnUnreadableCheckpointIsDeletedAllTheSame) {
    Save(1, {Put1(1, 1)});
    Save(2, {Put1(2, 1)});
    Put(*client_, RegularPath(1), "<x/>");
    backup_->DeleteCheckpoints({1});
    EXPECT_FALSE(Exists(RegularPath(1)));
    EXPECT_TRUE(Exists(Item(Guid(1), 1)));  // nobody knows that it was this one's
    EXPECT_THAT(sink_.GetTexts(level_t::warn),
                ElementsAre("Failed to load information to delete checkpoint '1' for cloud backup 'B'",
                            "Ignoring: Failed to load checkpoint '1' for cloud backup 'B': Cannot find required node: "
                            "Checkpoint"));
}

TEST_F(BackupDeletion, AnUnreadableRemainingCheckpointEndsTheDeletion) {
    Save(1, {Put1(1, 1)});
    Save(2, {Put1(2, 1)});
    Put(*client_, RegularPath(2), "<x/>");
    EXPECT_EQ(
        FailedDeletion({1}),
        "Failed to delete checkpoints for cloud backup 'B': Failed to load information about remaining checkpoint "
        "'2' for cloud backup 'B': Failed to load checkpoint '2' for cloud backup 'B': Cannot find required node: "
        "Checkpoint");
    EXPECT_THAT(Deletions(), IsEmpty());
}

TEST_F(BackupDeletion, RemainingCheckpointsAreReadSeveralAtOnce) {
    for (unsigned long id = 1; id <= 20; ++id) {
        Save(id, {});
    }
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(client_);
    Backup(counting)->DeleteCheckpoints({1});
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 8U);
    EXPECT_EQ(counting->GetCounts().Of(EOperation::downloadFile), 20U);
}

TEST_F(BackupDeletion, AFailedListingDeletesNothing) {
    Save(1, {Put1(1, 1)});
    const auto faults = std::make_shared<CFaultClient>(client_);
    faults->Arm({.call = 1});
    EXPECT_THAT(FailureOf([&] { Backup(faults)->DeleteCheckpoints({1}); }),
                StartsWith("Failed to delete checkpoints for cloud backup 'B': Failed to enumerate checkpoints for "
                           "cloud backup 'B': "));
    EXPECT_THAT(Deletions(), IsEmpty());
}

/// The n-th deletion of an object fails.
CFaultClient& FailDeletion(CFaultClient& faults, std::uint64_t call, EFaultMode mode = EFaultMode::notDone) {
    faults.Arm({.call = call, .mode = mode, .kinds = {EOperation::deleteFile}});
    return faults;
}

TEST_F(BackupDeletion, AnUndeletedDocumentKeepsWhatItNames) {
    for (const unsigned call : {1U, 2U}) {  // the regular copy, the long-term one
        Save(1, {Put1(1, 1)}, "keep");
        Save(2, {Put1(2, 1)});
        Save(3, {Put1(3, 1)});
        const auto faults = std::make_shared<CFaultClient>(client_);
        FailDeletion(*faults, call);
        const RecordingSink sink;
        Backup(faults)->DeleteCheckpoints({1, 2});
        const auto warnings = sink.GetTexts(level_t::warn);
        ASSERT_EQ(warnings.size(), 2U);
        EXPECT_EQ(warnings[0], "Failed to delete checkpoint '1' descriptor for cloud backup 'B'");
        EXPECT_THAT(warnings[1], StartsWith("Ignoring: DeleteFile '/B/Metadata/Checkpoint"));
        EXPECT_TRUE(sink.Has("1 metadata versions and 1 storage folders will be deleted"));
        EXPECT_EQ(backup_->LoadCheckpoint(1)->GetId(), 1U);
        EXPECT_TRUE(Exists(Item(Guid(1), 1)));
        EXPECT_TRUE(Exists(Bank(Guid(1), 1)));
        EXPECT_TRUE(Exists(Store(Guid(1)) + "/00/0011"));
        EXPECT_FALSE(Exists(RegularPath(2)));
        EXPECT_FALSE(Exists(Item(Guid(2), 1)));
        EXPECT_FALSE(client_->IsFolderExist(Store(Guid(2))));
        client_->DeleteFolderAsync("/B", nullptr)->Wait();
    }
}

TEST_F(BackupDeletion, ARetryDeletesWhatWasKept) {
    Save(1, {Put1(1, 1)});
    Save(2, {Put1(2, 1)});
    const auto faults = std::make_shared<CFaultClient>(client_);
    FailDeletion(*faults, 1);
    Backup(faults)->DeleteCheckpoints({1});
    EXPECT_TRUE(Exists(Item(Guid(1), 1)));
    backup_->DeleteCheckpoints({1});
    EXPECT_FALSE(Exists(Item(Guid(1), 1)));
    EXPECT_FALSE(Exists(RegularPath(1)));
}

TEST_F(BackupDeletion, ADocumentNeitherReadNorDeletedKeepsEverything) {
    const auto shared = Put1(1, 1);
    Save(1, {shared});
    Save(2, {shared});
    Save(3, {Put1(3, 1)});
    const auto faults = std::make_shared<CFaultClient>(client_);
    FailDeletion(*faults, 1);
    const std::string document = Get(*client_, RegularPath(1));
    Put(*client_, RegularPath(1), "<x/>");
    const RecordingSink sink;
    Backup(faults)->DeleteCheckpoints({1, 2});
    EXPECT_TRUE(
        sink.Has("Checkpoint '1' of cloud backup 'B' could be neither read nor deleted: all metadata and "
                 "storage folders are kept"));
    EXPECT_TRUE(sink.Has("0 metadata versions and 0 storage folders will be deleted"));
    EXPECT_FALSE(Exists(RegularPath(2)));
    EXPECT_TRUE(Exists(Item(Guid(1), 1)));
    EXPECT_TRUE(client_->IsFolderExist(Store(Guid(1))));
}

TEST_F(BackupDeletion, AFailureAfterTheDocumentsIsToldAndLeavesNoDanglingCheckpoint) {
    Save(1, {Put1(1, 1)});
    Save(2, {Put1(2, 1)});
    const auto faults = std::make_shared<CFaultClient>(client_);
    FailDeletion(*faults, 3);
    EXPECT_THAT(
        FailureOf([&] { Backup(faults)->DeleteCheckpoints({1}); }),
        StartsWith("Failed to delete checkpoints for cloud backup 'B': DeleteFile '" + Item(Guid(1), 1) + "': "));
    EXPECT_FALSE(Exists(RegularPath(1)));
    EXPECT_TRUE(Exists(Item(Guid(1), 1)));
    EXPECT_TRUE(Exists(Item(Guid(2), 1)));
}

TEST_F(BackupDeletion, WhatIsIgnoredIsLoggedInTheLibrarysSection) {
    Save(1, {Put1(1, 1)});
    Save(2, {});
    Put(*client_, RegularPath(1), "<x/>");
    const auto faults = std::make_shared<CFaultClient>(client_);
    FailDeletion(*faults, 1);
    const RecordingSink sink;
    Backup(faults)->DeleteCheckpoints({1});
    std::size_t warnings = 0;
    for (const auto& entry : sink.GetEntries()) {
        if (entry.level == level_t::warn) {
            EXPECT_EQ(entry.section, "library") << entry.text;
            ++warnings;
        }
    }
    EXPECT_EQ(warnings, 5U);  // neither read nor deleted, with the reasons, and what follows from it
}

using BackupOrphans = BackupDeletion;

TEST_F(BackupOrphans, NothingOrphanedNothingCalled) {
    backup_->ClearOrphanedLongTermCheckpoints({1, 2}, {1, 2});
    backup_->ClearOrphanedLongTermCheckpoints({1, 2}, {});
    EXPECT_THAT(client_->GetCalls(), IsEmpty());
    EXPECT_THAT(sink_.GetEntries(), IsEmpty());
}

TEST_F(BackupOrphans, OnlyOrphansAreDeleted) {
    Save(1, {Put1(1, 1)}, "keep");
    Save(2, {Put1(2, 1)}, "keep");
    Save(5, {Put1(5, 1)}, "keep");
    client_->DeleteFileAsync(RegularPath(5))->Wait();
    const RecordingSink sink;
    backup_->ClearOrphanedLongTermCheckpoints({1, 2}, {1, 2, 5});
    EXPECT_EQ(sink.GetScopes().front(),
              "> Clearing orphaned long-term checkpoints for cloud backup 'B', orphaned count: 1");
    EXPECT_EQ(sink.GetScopes().back(), "< ok");
    EXPECT_EQ(sink.GetEntries().front().section, "library");
    EXPECT_FALSE(Exists(LongTermPath(5)));
    EXPECT_FALSE(Exists(Item(Guid(5), 1)));
    EXPECT_TRUE(Exists(LongTermPath(1)));
    EXPECT_TRUE(Exists(LongTermPath(2)));
    EXPECT_TRUE(Exists(Item(Guid(1), 1)));
}

TEST_F(BackupOrphans, AFailureIsToldWithTheCount) {
    Save(5, {Put1(5, 1)}, "keep");
    client_->DeleteFileAsync(RegularPath(5))->Wait();
    EXPECT_EQ(
        FailureOf([&] { (void)backup_->EnumCheckpoints(); }),
        "Failed to clear orphaned long-term checkpoints for cloud backup 'B', orphaned count: 1: Failed to delete "
        "checkpoints for cloud backup 'B': Cannot delete last checkpoint in cloud backup 'B'");
    EXPECT_TRUE(Exists(LongTermPath(5)));
    EXPECT_THAT(sink_.GetScopes(), Contains("< failed"));
}

}  // namespace
