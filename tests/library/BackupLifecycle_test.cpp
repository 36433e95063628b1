#include <algorithm>

#include "cloudbackuplib/RestrictedCloudClient.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"
#include "tests/library/BackupFixture.h"

namespace {

using namespace test;
using cloudclientlib::CFaultClient;
using cloudclientlib::CRestrictedCloudClient;
using logging::level_t;
using testing::ElementsAre;
using testing::IsEmpty;

class BackupLifecycle : public BackupTest {
protected:
    std::shared_ptr<CCloudBackup> CreateNew(const std::shared_ptr<cloudclientlib::ICloudClient>& client) {
        return CCloudBackup::CreateNew("B", client, nullptr, owner_, Guid(8));
    }
    std::shared_ptr<CCloudBackup> Load(const std::string& id = "B") {
        return CCloudBackup::LoadExisting(id, client_, archive_, owner_, Guid(8), ErrorHandling::skip);
    }
    std::vector<CCloudBackupCollectionItem> Enum(EnumBackupsStyle style) {
        return CCloudBackup::EnumBackups(client_, owner_, Guid(8), style, ErrorHandling::skip);
    }

    const COwnerDescriptor owner_{Guid(9), "host", "the owner"};
    const std::shared_ptr<clients::CMemoryClient> archive_ = std::make_shared<clients::CMemoryClient>();
};

std::vector<std::string> IdsOf(const std::vector<CCloudBackupCollectionItem>& items) {
    std::vector<std::string> ids;
    for (const auto& item : items) {
        ids.push_back(item.GetId());
    }
    return ids;
}

TEST_F(BackupLifecycle, KeepsWhatItIsBuiltFrom) {
    const CCloudBackup backup("B", owner_, Guid(8), client_, archive_, 7, ErrorHandling::skip);
    EXPECT_EQ(backup.GetBackupId(), "B");
    EXPECT_EQ(backup.GetCurrentOwner().GetId(), Guid(9));
    EXPECT_EQ(backup.GetCurrentOwner().GetDescription(), "the owner");
    EXPECT_EQ(backup.GetGuid(), Guid(8));
    EXPECT_EQ(backup.GetBackupClient(), client_);
    EXPECT_EQ(backup.GetArchiveBlobsClient(), archive_);
    EXPECT_EQ(backup.GetLastCheckpointId(), 7U);
    EXPECT_EQ(backup.GetRepositoryErrorHandling(), ErrorHandling::skip);
}

TEST_F(BackupLifecycle, ANewBackupGetsItsFoldersInOrder) {
    const auto confined = std::make_shared<CRestrictedCloudClient>(client_, "/R");
    const auto backup = CCloudBackup::CreateNew("B", confined, archive_, owner_, Guid(8));
    EXPECT_THAT(Calls(),
                ElementsAre("IsFolderExist /R/B/Metadata/Checkpoint", "IsFolderExist /R/B/Metadata/CheckpointLongTerm",
                            "IsFolderExist /R", "CreateFolder /R", "IsFolderExist /R/B", "CreateFolder /R/B",
                            "IsFolderExist /R/B/Metadata", "CreateFolder /R/B/Metadata",
                            "IsFolderExist /R/B/BlockStore", "CreateFolder /R/B/BlockStore",
                            "IsFolderExist /R/B/Metadata/Checkpoint", "CreateFolder /R/B/Metadata/Checkpoint"));
    EXPECT_THAT(sink_.GetTexts(level_t::tr),
                ElementsAre("Creating cloud backup root directory", "Creating cloud backup session directory",
                            "Creating cloud backup metadata directory", "Creating cloud backup block store directory",
                            "Creating cloud backup checkpoint directory"));
    EXPECT_EQ(backup->GetBackupId(), "B");
    EXPECT_EQ(backup->GetGuid(), Guid(8));
    EXPECT_EQ(backup->GetCurrentOwner().GetType(), "host");
    EXPECT_EQ(backup->GetBackupClient(), confined);
    EXPECT_EQ(backup->GetArchiveBlobsClient(), archive_);
    EXPECT_EQ(backup->GetLastCheckpointId(), 0U);
    EXPECT_EQ(backup->GetRepositoryErrorHandling(), ErrorHandling::fail);
    EXPECT_THAT(Sections(), ElementsAre("library"));
}

TEST_F(BackupLifecycle, EverythingIsLoggedInTheLibrarysSection) {
    CCloudBackup::InitBackupFolders("B", client_);
    (void)CreateNew(client_);
    Put(*client_, "/Bad/x", "x");
    (void)Enum(EnumBackupsStyle::load);
    CCloudBackup::DeleteBackup("B", client_);
    EXPECT_THAT(Sections(), ElementsAre("library"));
}

TEST_F(BackupLifecycle, AnUnfinishedBackupIsMadeAnew) {
    CCloudBackup::InitBackupFolders("B", client_);
    Put(*client_, "/B/Metadata/left over", "x");
    Put(*client_, "/Other/Metadata/Checkpoint/1", "x");
    client_->ClearCalls();
    EXPECT_EQ(CreateNew(client_)->GetLastCheckpointId(), 0U);
    EXPECT_THAT(sink_.GetTexts(level_t::warn), ElementsAre("Re-creating incomplete cloud backup 'B'"));
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist /B/Metadata/Checkpoint", "QueryFolder /B/Metadata/Checkpoint",
                                     "DeleteFolder /B", "IsFolderExist ", "IsFolderExist /B", "CreateFolder /B",
                                     "IsFolderExist /B/Metadata", "CreateFolder /B/Metadata",
                                     "IsFolderExist /B/BlockStore", "CreateFolder /B/BlockStore",
                                     "IsFolderExist /B/Metadata/Checkpoint", "CreateFolder /B/Metadata/Checkpoint"));
    EXPECT_FALSE(Exists("/B/Metadata/left over"));
    EXPECT_TRUE(Exists("/Other/Metadata/Checkpoint/1"));
}

TEST_F(BackupLifecycle, ABackupWithACheckpointIsNotMadeAnew) {
    Put(*client_, RegularPath(5), "x");
    EXPECT_EQ(FailureOf([&] { (void)CreateNew(client_); }),
              "Cloud backup 'B' already exists. Checkpoint number: '1', last checkpoint id: '5'");
    EXPECT_TRUE(Exists(RegularPath(5)));
    Put(*client_, RegularPath(10), "x");
    EXPECT_EQ(FailureOf([&] { (void)CreateNew(client_); }),
              "Cloud backup 'B' already exists. Checkpoint number: '2', last checkpoint id: '10'");
    EXPECT_THROW((void)CreateNew(client_), exc::CRuntimeExc);
}

TEST_F(BackupLifecycle, LongTermCopiesAloneAreNoBackupYet) {
    Put(*client_, LongTermPath(5), "x");
    EXPECT_EQ(CreateNew(client_)->GetLastCheckpointId(), 0U);
    EXPECT_THAT(sink_.GetTexts(level_t::warn), ElementsAre("Re-creating incomplete cloud backup 'B'"));
    EXPECT_FALSE(Exists(LongTermPath(5)));
    EXPECT_TRUE(client_->IsFolderExist("/B/Metadata/Checkpoint"));
    EXPECT_FALSE(client_->IsFolderExist("/B/Metadata/CheckpointLongTerm"));
}

TEST_F(BackupLifecycle, AFolderThatCannotBeMadeIsToldWithItsBackup) {
    const auto faults = std::make_shared<CFaultClient>(client_);
    faults->Arm({.call = 5});  // after the two tests for the backup and those of its root and its folder
    const std::string failure = FailureOf([&] { (void)CreateNew(faults); });
    EXPECT_TRUE(failure.starts_with("Failed to create directories for cloud backup 'B': CreateFolder '/B': "))
        << failure;
}

TEST_F(BackupLifecycle, EveryFailureToMakeFoldersIsToldWithItsBackup) {
    constexpr std::uint64_t calls = 9;  // five tests, and four folders made, for the root is there
    for (std::uint64_t call = 1; call <= calls; ++call) {
        const auto faults = std::make_shared<CFaultClient>(std::make_shared<clients::CMemoryClient>());
        faults->Arm({.call = call});
        EXPECT_THAT(FailureOf([&] { CCloudBackup::InitBackupFolders("B", faults); }),
                    testing::StartsWith("Failed to create directories for cloud backup 'B': "));
    }
    const auto faults = std::make_shared<CFaultClient>(std::make_shared<clients::CMemoryClient>());
    faults->Arm({.call = calls + 1});
    CCloudBackup::InitBackupFolders("B", faults);
    EXPECT_FALSE(faults->IsReached());
}

TEST_F(BackupLifecycle, AFailedTestForTheBackupPassesThrough) {
    for (const std::uint64_t call : {1U, 2U}) {
        const auto faults = std::make_shared<CFaultClient>(client_);
        faults->Arm({.call = call});
        EXPECT_THROW((void)CreateNew(faults), cloudclientlib::CCloudExc);
        faults->Arm({.call = call});
        EXPECT_THROW((void)CCloudBackup::LoadExisting("B", faults, archive_, owner_, Guid(8), ErrorHandling::skip),
                     cloudclientlib::CCloudExc);
    }
}

TEST_F(BackupLifecycle, AFailureToMakeOneFolderPassesThrough) {
    for (const std::uint64_t call : {1U, 2U}) {
        const auto faults = std::make_shared<CFaultClient>(client_);
        faults->Arm({.call = call});
        EXPECT_THROW(CCloudBackup::CreateCloudFolder("/x", "odd", faults), cloudclientlib::CCloudExc);
    }
}

TEST_F(BackupLifecycle, AFailedDeletionOfAnUnfinishedBackupPassesThrough) {
    CCloudBackup::InitBackupFolders("B", client_);
    const auto faults = std::make_shared<CFaultClient>(client_);
    faults->Arm({.call = 1, .kinds = {cloudclientlib::EOperation::deleteFolder}});
    EXPECT_THROW((void)CreateNew(faults), cloudclientlib::CCloudExc);
}

TEST_F(BackupLifecycle, CreatesAFolderOnlyWhenMissing) {
    EXPECT_TRUE(CCloudBackup::CreateCloudFolder("/x", "odd", client_));
    EXPECT_TRUE(sink_.Has("Creating cloud backup odd directory"));
    const std::size_t logged = sink_.GetEntries().size();
    EXPECT_FALSE(CCloudBackup::CreateCloudFolder("/x", "odd", client_));
    EXPECT_EQ(sink_.GetEntries().size(), logged);
}

TEST_F(BackupLifecycle, TheRootIsTheEmptyPath) {
    std::string root = "something";
    bool created = false;
    CCloudBackup::PrepareBackupRootFolder(root, created, std::make_shared<CRestrictedCloudClient>(client_, "/R"));
    EXPECT_EQ(root, "");
    EXPECT_TRUE(created);
    CCloudBackup::PrepareBackupRootFolder(root, created, std::make_shared<CRestrictedCloudClient>(client_, "/R"));
    EXPECT_FALSE(created);
}

TEST_F(BackupLifecycle, AnAbsentBackupIsNotFound) {
    EXPECT_EQ(FailureOf([&] { (void)Load(); }), "Cloud backup 'B' not found");
    EXPECT_THROW((void)Load(), CBackupNotFoundExc);
    client_->ClearCalls();
    EXPECT_THROW((void)Load(), CBackupNotFoundExc);
    EXPECT_THAT(Calls(),
                ElementsAre("IsFolderExist /B/Metadata/Checkpoint", "IsFolderExist /B/Metadata/CheckpointLongTerm"));
    // Folders without those of checkpoints make no backup.
    Put(*client_, "/B/Metadata/x", "x");
    EXPECT_THROW((void)Load(), CBackupNotFoundExc);
}

TEST_F(BackupLifecycle, TheNotFoundExceptionCanBeCopiedAndThrownAgain) {
    const CBackupNotFoundExc original("B");
    const auto copy = original.Clone();
    EXPECT_STREQ(copy->what(), "Cloud backup 'B' not found");
    EXPECT_THROW(copy->Generate(), CBackupNotFoundExc);
    EXPECT_THROW(original.Generate(), CBackupNotFoundExc);
}

TEST_F(BackupLifecycle, TheLastCheckpointIsTheLargestRegularId) {
    CCloudBackup::InitBackupFolders("B", client_);
    EXPECT_EQ(Load()->GetLastCheckpointId(), 0U);
    for (const unsigned long id : {1UL, 10UL, 9UL}) {
        Put(*client_, RegularPath(id), "x");
    }
    Put(*client_, LongTermPath(11), "x");
    client_->ClearCalls();
    const auto backup = Load();
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist /B/Metadata/Checkpoint", "QueryFolder /B/Metadata/Checkpoint"));
    EXPECT_EQ(backup->GetBackupId(), "B");
    EXPECT_EQ(backup->GetCurrentOwner().GetDescription(), "the owner");
    EXPECT_EQ(backup->GetBackupClient(), client_);
    EXPECT_EQ(backup->GetLastCheckpointId(), 10U);
    EXPECT_EQ(backup->GetArchiveBlobsClient(), archive_);
    EXPECT_EQ(backup->GetRepositoryErrorHandling(), ErrorHandling::skip);
    EXPECT_EQ(backup->GetGuid(), Guid(8));
}

TEST_F(BackupLifecycle, LoadsABackupWithLongTermCopiesOnly) {
    Put(*client_, LongTermPath(3), "x");
    EXPECT_EQ(Load()->GetLastCheckpointId(), 0U);
}

TEST_F(BackupLifecycle, AForeignNameAmongCheckpointsFailsTheLoad) {
    Put(*client_, "/B/Metadata/Checkpoint/x1", "x");
    EXPECT_EQ(FailureOf([&] { (void)Load(); }),
              "Failed to enumerate checkpoints for cloud backup 'B': Not an unsigned number: 'x1'");
}

TEST_F(BackupLifecycle, NoRootNoBackups) {
    const auto confined = std::make_shared<CRestrictedCloudClient>(client_, "/R");
    EXPECT_THAT(CCloudBackup::EnumBackups(confined, owner_, Guid(8), EnumBackupsStyle::load, ErrorHandling::fail),
                IsEmpty());
    EXPECT_THAT(sink_.GetScopes(), ElementsAre("> Enumerating cloud backups", "< Backup root directory not found"));
}

TEST_F(BackupLifecycle, ListsIdsWithoutLoading) {
    for (const char* path : {"/Config/Owner", "/B/x", "/config/x", "/Config2/x", "/A/Metadata/Checkpoint/1"}) {
        Put(*client_, path, "x");
    }
    client_->ClearCalls();
    const auto items = Enum(EnumBackupsStyle::idsOnly);
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist ", "QueryFolder "));
    EXPECT_THAT(IdsOf(items), ElementsAre("A", "B", "Config2", "config"));
    for (const auto& item : items) {
        EXPECT_TRUE(item.IsCorrupted());
    }
    EXPECT_THAT(sink_.GetScopes(), ElementsAre("> Enumerating cloud backups", "< ok"));
    // Every style but the first names them only.
    EXPECT_TRUE(Enum(EnumBackupsStyle{7}).at(0).IsCorrupted());
}

/// Lists in the reverse order of names.
class CReversingClient : public cloudclientlib::CForwardingClient {
public:
    using CForwardingClient::CForwardingClient;
    std::vector<cloudclientlib::SCloudObjectInfo> QueryFolder(const std::string& path) override {
        auto entries = CForwardingClient::QueryFolder(path);
        std::reverse(entries.begin(), entries.end());
        return entries;
    }
};

TEST_F(BackupLifecycle, ListsInTheOrderOfTheClient) {
    for (const char* path : {"/A/Metadata/Checkpoint/1", "/Config/Owner", "/D", "/B/x"}) {
        Put(*client_, path, "x");
    }
    const auto reversing = std::make_shared<CReversingClient>(client_);
    for (const auto style : {EnumBackupsStyle::load, EnumBackupsStyle::idsOnly}) {
        const auto items = CCloudBackup::EnumBackups(reversing, owner_, Guid(8), style, ErrorHandling::skip);
        EXPECT_THAT(IdsOf(items), ElementsAre("D", "B", "A"));  // an object beside the folders is an entry too
    }
}

TEST_F(BackupLifecycle, OneBadBackupDoesNotEndTheListing) {
    Put(*client_, "/A/Metadata/Checkpoint/4", "x");
    Put(*client_, "/B/x", "x");
    Put(*client_, "/C/Metadata/Checkpoint/odd", "x");
    Put(*client_, "/Config/Owner", "x");
    Put(*client_, "/D/Metadata/Checkpoint/6", "x");
    const auto items = Enum(EnumBackupsStyle::load);
    ASSERT_THAT(IdsOf(items), ElementsAre("A", "B", "C", "D"));
    EXPECT_EQ(items[0].GetBackup()->GetLastCheckpointId(), 4U);
    EXPECT_EQ(items[0].GetBackup()->GetBackupId(), "A");
    EXPECT_EQ(items[0].GetBackup()->GetGuid(), Guid(8));
    EXPECT_EQ(items[0].GetBackup()->GetCurrentOwner().GetDescription(), "the owner");
    EXPECT_EQ(items[0].GetBackup()->GetBackupClient(), client_);
    EXPECT_EQ(items[0].GetBackup()->GetArchiveBlobsClient(), client_);
    EXPECT_EQ(items[0].GetBackup()->GetRepositoryErrorHandling(), ErrorHandling::skip);
    EXPECT_FALSE(items[0].IsCorrupted());
    EXPECT_TRUE(items[1].IsCorrupted());
    EXPECT_TRUE(items[2].IsCorrupted());
    EXPECT_EQ(items[3].GetBackup()->GetLastCheckpointId(), 6U);
    EXPECT_EQ(FailureOf([&] { (void)items[1].GetBackup(); }), "Cloud backup 'B' is corrupted");
    EXPECT_THROW((void)items[1].GetBackup(), exc::CRuntimeExc);
    EXPECT_THAT(sink_.GetTexts(level_t::warn),
                ElementsAre("Cannot load cloud backup from directory 'B': Cloud backup 'B' not found",
                            "Cannot load cloud backup from directory 'C': Failed to enumerate checkpoints for cloud "
                            "backup 'C': Not an unsigned number: 'odd'"));
    EXPECT_THAT(sink_.GetScopes(), ElementsAre("> Enumerating cloud backups", "< ok"));
}

TEST_F(BackupLifecycle, AFailedListingEndsTheListing) {
    for (const std::uint64_t call : {1U, 2U}) {  // the test for the root, and its listing
        const auto faults = std::make_shared<CFaultClient>(client_);
        faults->Arm({.call = call});
        const auto list = [&] {
            (void)CCloudBackup::EnumBackups(faults, owner_, Guid(8), EnumBackupsStyle::load, ErrorHandling::skip);
        };
        const RecordingSink sink;
        EXPECT_THROW(list(), cloudclientlib::CCloudExc);
        EXPECT_THAT(sink.GetScopes(), ElementsAre("> Enumerating cloud backups", "< failed"));
    }
}

struct SProgress : progress::progress_base_t {
    void SetProgress(std::uint64_t done, std::uint64_t total) override {
        lastDone = done;
        lastTotal = total;
    }
    std::uint64_t lastDone = 0;
    std::uint64_t lastTotal = 0;
};

TEST_F(BackupLifecycle, DeletesTheWholeFolder) {
    Put(*client_, RegularPath(1), "x");
    Put(*client_, "/B/BlockStore/s/00/0011", "x");
    Put(*client_, "/B2/Metadata/Checkpoint/1", "x");
    client_->ClearCalls();
    const auto progress = std::make_shared<SProgress>();
    CCloudBackup::DeleteBackup("B", client_, progress);
    EXPECT_THAT(Calls(), ElementsAre("DeleteFolder /B"));
    EXPECT_EQ(progress->lastDone, 2U);
    EXPECT_EQ(progress->lastTotal, 2U);
    EXPECT_FALSE(client_->IsFolderExist("/B"));
    EXPECT_TRUE(Exists("/B2/Metadata/Checkpoint/1"));
    EXPECT_THAT(sink_.GetScopes(), ElementsAre("> Deleting cloud backup 'B'", "< "));
    EXPECT_THAT(sink_.GetTexts(level_t::tr), ElementsAre("Deleting entire backup directory '/B'"));
}

TEST_F(BackupLifecycle, AFailedDeletionPassesThrough) {
    const auto faults = std::make_shared<CFaultClient>(client_);
    faults->Arm({.call = 1});
    EXPECT_THROW(CCloudBackup::DeleteBackup("B", faults), cloudclientlib::CCloudExc);
    EXPECT_THAT(sink_.GetScopes(), ElementsAre("> Deleting cloud backup 'B'", "< failed"));
}

}  // namespace
