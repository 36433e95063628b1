#include <functional>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"
#include "tests/library/BackupFixture.h"

namespace {

using namespace test;
using logging::level_t;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string plainDocument = R"(<Checkpoint FormatVersion="2" Id="7"><Dxr/></Checkpoint>)";
const std::string longTermDocument =
    R"(<Checkpoint FormatVersion="2" Id="7" IsLongTerm="1"><Dxr/><DxrLongTerm/></Checkpoint>)";

class BackupCheckpoints : public BackupTest {
protected:
    const std::shared_ptr<CCloudBackup> backup_ = Backup(client_);
};

TEST_F(BackupCheckpoints, SavesTheRegularCopyAlone) {
    backup_->SaveCheckpoint(Checkpoint(7, {Storage(Guid(1), 3, 10)}));
    EXPECT_THAT(Calls(), ElementsAre("IsFileExist /B/Metadata/Checkpoint/7", "UploadFile /B/Metadata/Checkpoint/7"));
    const std::string text = Get(*client_, RegularPath(7));
    EXPECT_THAT(text, StartsWith(R"(<Checkpoint FormatVersion="2" Id="7">)"));
    EXPECT_THAT(text, Not(HasSubstr("DxrLongTerm")));
    EXPECT_EQ(backup_->LoadCheckpoint(7)->GetStorageById(Guid(1)).GetMetaVersion(), 3U);
}

TEST_F(BackupCheckpoints, LongTermContentMakesASecondCopyAfterTheFirst) {
    const auto blobs = Storage(Guid(1), 3, 10, {}, CloudStorageBlockStoreSchema::blobs);
    backup_->SaveCheckpoint(Checkpoint(7, {blobs}, "keep"));
    EXPECT_THAT(Calls(), ElementsAre("IsFileExist /B/Metadata/Checkpoint/7", "UploadFile /B/Metadata/Checkpoint/7",
                                     "IsFileExist /B/Metadata/CheckpointLongTerm/7",
                                     "UploadFile /B/Metadata/CheckpointLongTerm/7"));
    const std::string regular = Get(*client_, RegularPath(7));
    const std::string longTerm = Get(*client_, LongTermPath(7));
    EXPECT_THAT(regular, HasSubstr("HasLongTerm=\"1\""));
    EXPECT_THAT(regular, HasSubstr("<StgLongTerm "));
    EXPECT_THAT(longTerm, HasSubstr("IsLongTerm=\"1\""));
    EXPECT_THAT(longTerm, HasSubstr("<Stg "));
    EXPECT_EQ(backup_->LoadCheckpointImpl(7, DxrContentFeature::longTerm)->GetDxrLongTerm().GetContent(), "keep");
}

TEST_F(BackupCheckpoints, SavingIsLogged) {
    const auto blobs = Storage(Guid(2), 4, 10, {}, CloudStorageBlockStoreSchema::blobs);
    backup_->SaveCheckpoint(Checkpoint(7, {Storage(Guid(1), 3, 10), blobs}, "keep"));
    EXPECT_THAT(sink_.GetTexts(level_t::tr), ElementsAre("Saving cloud storage checkpoint '7', part: compatible",
                                                         "Saving cloud storage checkpoint '7', part: longTerm"));
    const std::string opened =
        "> Saved cloud backup checkpoint. Backup id: 'B', Checkpoint: '7', Storages: '2', Content: longTerm";
    EXPECT_THAT(sink_.GetScopes(), ElementsAre(opened, "< ", opened, "< "));
    const std::string first = "Storage: 00000000-0000-0000-0000-000000000001, meta version: 3, schema: []";
    const std::string second = "Storage: 00000000-0000-0000-0000-000000000002, meta version: 4, schema: [blobs]";
    EXPECT_THAT(sink_.GetTexts(level_t::info), ElementsAre(first, second, first, second));
    const auto entries = sink_.GetEntries();
    EXPECT_EQ(entries.front().section, "library");
    EXPECT_EQ(entries.front().text, "Saving cloud storage checkpoint '7', part: compatible");
}

TEST_F(BackupCheckpoints, WhatIsNotSavedIsNotLoggedAsSaved) {
    Put(*client_, RegularPath(7), "x");
    EXPECT_THROW(backup_->SaveCheckpoint(Checkpoint(7)), exc::CRuntimeExc);
    EXPECT_THAT(sink_.GetScopes(), IsEmpty());
    EXPECT_THAT(sink_.GetTexts(level_t::tr), ElementsAre("Saving cloud storage checkpoint '7', part: compatible"));
}

TEST_F(BackupCheckpoints, TheCheckpointLogBelongsToStorages) {
    LogCheckpoint("50%1 done:", Checkpoint(7, {Storage(Guid(1), 3, 10)}), "B");
    const auto entries = sink_.GetEntries();
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(
        entries[0].text,
        "50%1 done: cloud backup checkpoint. Backup id: 'B', Checkpoint: '7', Storages: '1', Content: compatible");
    for (const auto& entry : entries) {
        EXPECT_EQ(entry.section, "storage");
    }
}

TEST_F(BackupCheckpoints, NeverOverwrites) {
    backup_->SaveCheckpoint(Checkpoint(7));
    const std::string before = Get(*client_, RegularPath(7));
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { backup_->SaveCheckpoint(Checkpoint(7, {Storage(Guid(1), 3, 10)})); }),
              "Failed to save checkpoint '7' for cloud backup 'B': Checkpoint already exists");
    EXPECT_THAT(Calls(), ElementsAre("IsFileExist /B/Metadata/Checkpoint/7"));
    EXPECT_EQ(Get(*client_, RegularPath(7)), before);
}

TEST_F(BackupCheckpoints, TheRegularCopyStaysWhenTheLongTermOneFails) {
    Put(*client_, LongTermPath(7), "old");
    EXPECT_EQ(FailureOf([&] { backup_->SaveCheckpoint(Checkpoint(7, {}, "keep")); }),
              "Failed to save checkpoint '7' for cloud backup 'B': Checkpoint already exists");
    EXPECT_EQ(backup_->LoadCheckpoint(7)->GetDxrLongTerm().GetContent(), "keep");
    EXPECT_EQ(Get(*client_, LongTermPath(7)), "old");
}

TEST_F(BackupCheckpoints, AFailedUploadIsToldWithItsCheckpoint) {
    const auto faults = std::make_shared<cloudclientlib::CFaultClient>(client_);
    faults->Arm({.call = 2});
    EXPECT_THAT(FailureOf([&] { Backup(faults)->SaveCheckpoint(Checkpoint(7)); }),
                StartsWith("Failed to save checkpoint '7' for cloud backup 'B': UploadFile "
                           "'/B/Metadata/Checkpoint/7': "));
    faults->Arm({.call = 1});
    EXPECT_THAT(FailureOf([&] { Backup(faults)->SaveCheckpoint(Checkpoint(7)); }),
                StartsWith("Failed to save checkpoint '7' for cloud backup 'B': IsFileExist "));
}

// What could not be read again is not written: it may be all that is left of the data.

TEST_F(BackupCheckpoints, ADocumentOfAnUnknownFormatIsNotSaved) {
    const auto future = std::make_shared<CCloudCheckpoint>(
        std::vector<CCloudStorageDescriptor>(), CCloudDxrDescriptor(), CCloudDxrDescriptor(), COwnerDescriptor(), 7, 3);
    EXPECT_EQ(FailureOf([&] { backup_->SaveCheckpoint(future); }),
              "Failed to save checkpoint '7' for cloud backup 'B': Unsupported cloud backup version: [3]");
    EXPECT_FALSE(Exists(RegularPath(7)));
}

TEST_F(BackupCheckpoints, ALongTermCopyWithoutItsContentIsNotSaved) {
    EXPECT_EQ(FailureOf([&] { backup_->SaveCheckpointImpl(Checkpoint(7), DxrContentFeature::longTerm); }),
              "Failed to save checkpoint '7' for cloud backup 'B': Cannot find required node: DxrLongTerm");
    EXPECT_FALSE(Exists(LongTermPath(7)));
}

TEST_F(BackupCheckpoints, PartsThatWouldReadBackDifferentlyAreNotSaved) {
    // Two entries that name the same offset: a reader would find one of them.
    const auto storage = Storage(Guid(1), 3, 10, {{5, {"/B/a", 5, 5}}, {6, {"/B/b", 5, 5}}});
    EXPECT_EQ(FailureOf([&] { backup_->SaveCheckpoint(Checkpoint(7, {storage})); }),
              "Failed to save checkpoint '7' for cloud backup 'B': Checkpoint document does not read back as it was "
              "written");
    EXPECT_FALSE(Exists(RegularPath(7)));
}

TEST_F(BackupCheckpoints, NamesThatAreNotTextAreNotSaved) {
    const CCloudStorageDescriptor storage(Guid(1), "\xFF", 3, 10, CloudStorageBlockStoreSchema::legacy, {});
    EXPECT_THAT(FailureOf([&] { backup_->SaveCheckpoint(Checkpoint(7, {storage})); }),
                StartsWith("Failed to save checkpoint '7' for cloud backup 'B': Attribute 'FileName' of node 'Stg' is "
                           "not UTF-8 text"));
    EXPECT_FALSE(Exists(RegularPath(7)));
}

TEST_F(BackupCheckpoints, AwkwardNamesReadBackExactly) {
    const std::string name = "a&#x41;<\"'>\n\t&amp; \xC3\xA9";
    const CCloudStorageDescriptor storage(Guid(1), name, 3, 10, CloudStorageBlockStoreSchema::legacy, {});
    backup_->SaveCheckpoint(Checkpoint(7, {storage}));
    EXPECT_EQ(backup_->LoadCheckpoint(7)->GetStorageById(Guid(1)).GetFileName(), name);
}

TEST_F(BackupCheckpoints, IdZeroIsTheEmptyCheckpoint) {
    const auto empty = backup_->LoadCheckpoint(0);
    EXPECT_EQ(empty->GetId(), 0U);
    EXPECT_THAT(empty->GetStorages(), IsEmpty());
    EXPECT_THAT(client_->GetCalls(), IsEmpty());
}

TEST_F(BackupCheckpoints, LoadsAndLogs) {
    backup_->SaveCheckpoint(Checkpoint(7, {Storage(Guid(1), 3, 10)}));
    client_->ClearCalls();
    const RecordingSink sink;
    EXPECT_EQ(backup_->LoadCheckpoint(7)->GetDxr().GetContent(), "content 7");
    EXPECT_THAT(Calls(), ElementsAre("DownloadFile /B/Metadata/Checkpoint/7"));
    EXPECT_THAT(sink.GetScopes(), ElementsAre("> Loaded compatible cloud backup checkpoint. Backup id: 'B', "
                                              "Checkpoint: '7', Storages: '1', Content: compatible",
                                              "< "));
    EXPECT_THAT(sink.GetTexts(level_t::info),
                ElementsAre("Storage: 00000000-0000-0000-0000-000000000001, meta version: 3, schema: []"));
}

TEST_F(BackupCheckpoints, FallsBackToTheLongTermCopy) {
    backup_->SaveCheckpoint(Checkpoint(7, {Storage(Guid(1), 3, 10)}, "keep"));
    client_->DeleteFileAsync(RegularPath(7))->Wait();
    client_->ClearCalls();
    const RecordingSink sink;
    EXPECT_EQ(backup_->LoadCheckpoint(7)->GetDxrLongTerm().GetContent(), "keep");
    EXPECT_THAT(Calls(),
                ElementsAre("DownloadFile /B/Metadata/Checkpoint/7", "DownloadFile /B/Metadata/CheckpointLongTerm/7"));
    EXPECT_EQ(sink.GetEntries().front().section, "library");
    EXPECT_THAT(sink.GetTexts(level_t::info),
                ElementsAre("Loading long-term checkoint. Backup id: 'B', Checkpoint: '7'",
                            "Storage: 00000000-0000-0000-0000-000000000001, meta version: 3, schema: []"));
    EXPECT_THAT(sink.GetScopes(), ElementsAre("> Loaded longTerm cloud backup checkpoint. Backup id: 'B', Checkpoint: "
                                              "'7', Storages: '1', Content: longTerm",
                                              "< "));
}

TEST_F(BackupCheckpoints, WithoutEitherCopyTheLastErrorIsUnchanged) {
    try {
        (void)backup_->LoadCheckpoint(7);
        FAIL();
    } catch (const cloudclientlib::CObjectNotFoundExc& e) {
        EXPECT_EQ(e.GetPath(), LongTermPath(7));
        EXPECT_STREQ(e.what(), "DownloadFile '/B/Metadata/CheckpointLongTerm/7': object not found");
    }
    EXPECT_THROW((void)backup_->LoadCheckpointImpl(7, DxrContentFeature::longTerm), cloudclientlib::CObjectNotFoundExc);
    EXPECT_THAT(sink_.GetTexts(level_t::info),
                ElementsAre("Loading long-term checkoint. Backup id: 'B', Checkpoint: '7'"));
}

TEST_F(BackupCheckpoints, OnlyAMissingObjectLeadsToTheLongTermCopy) {
    backup_->SaveCheckpoint(Checkpoint(7, {}, "keep"));
    const auto faults = std::make_shared<cloudclientlib::CFaultClient>(client_);
    faults->Arm({.call = 1});
    const RecordingSink sink;
    EXPECT_THAT(FailureOf([&] { (void)Backup(faults)->LoadCheckpoint(7); }),
                StartsWith("Failed to load checkpoint '7' for cloud backup 'B': DownloadFile "
                           "'/B/Metadata/Checkpoint/7': "));
    EXPECT_THAT(sink.GetEntries(), IsEmpty());
}

TEST_F(BackupCheckpoints, ADamagedLongTermCopyIsToldOnce) {
    Put(*client_, LongTermPath(7), plainDocument);
    EXPECT_EQ(FailureOf([&] { (void)backup_->LoadCheckpoint(7); }),
              "Failed to load checkpoint '7' for cloud backup 'B': Cannot find required node: DxrLongTerm");
    Put(*client_, LongTermPath(7), longTermDocument);
    EXPECT_EQ(backup_->LoadCheckpoint(7)->GetId(), 7U);
}

TEST_F(BackupCheckpoints, ADocumentUnderAnotherIdIsRefused) {
    Put(*client_, RegularPath(8), plainDocument);
    EXPECT_EQ(FailureOf([&] { (void)backup_->LoadCheckpoint(8); }),
              "Failed to load checkpoint '8' for cloud backup 'B': Invalid checkpoint id: '7', expected: '8'");
}

TEST_F(BackupCheckpoints, DamagedDocumentsAreRefused) {
    Put(*client_, RegularPath(7), R"(<Checkoint FormatVersion="2" Id="7"><Dxr/></Checkoint>)");
    EXPECT_EQ(FailureOf([&] { (void)backup_->LoadCheckpoint(7); }),
              "Failed to load checkpoint '7' for cloud backup 'B': Cannot find required node: Checkpoint");
    for (const std::string& text : {std::string(), std::string("\0", 1), plainDocument.substr(0, 40)}) {
        Put(*client_, RegularPath(7), text);
        EXPECT_THAT(FailureOf([&] { (void)backup_->LoadCheckpoint(7); }),
                    StartsWith("Failed to load checkpoint '7' for cloud backup 'B': "));
    }
}

TEST_F(BackupCheckpoints, ABackupIdThatIsNoNameIsRefusedByTheClient) {
    const CCloudBackup outside("..", COwnerDescriptor(), Guid(8), client_, client_, 0, ErrorHandling::fail);
    EXPECT_THAT(FailureOf([&] { (void)outside.LoadCheckpoint(7); }),
                StartsWith("Failed to load checkpoint '7' for cloud backup '..': DownloadFile "));
}

TEST_F(BackupCheckpoints, TheFilterChoosesTheFolders) {
    for (const unsigned long id : {1UL, 2UL, 5UL}) {
        Put(*client_, RegularPath(id), "x");
    }
    for (const unsigned long id : {2UL, 9UL}) {
        Put(*client_, LongTermPath(id), "x");
    }
    client_->ClearCalls();
    const auto list = [&](unsigned filter) { return backup_->EnumCheckpointsImpl(CheckpointFilter{filter}); };
    EXPECT_THAT(list(0), IsEmpty());
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(list(1), ElementsAre(1, 2, 5));
    EXPECT_THAT(Calls(), ElementsAre("QueryFolder /B/Metadata/Checkpoint"));
    EXPECT_THAT(list(2), ElementsAre(2, 9));
    EXPECT_THAT(list(3), ElementsAre(1, 2, 5, 9));
    for (const unsigned filter : {4U, 5U, 6U, 7U, ~0U}) {
        EXPECT_THAT(list(filter), IsEmpty()) << filter;
    }
}

TEST_F(BackupCheckpoints, IdsAreOrderedAsNumbers) {
    for (const unsigned long id : {10UL, 9UL, ~0UL}) {
        Put(*client_, RegularPath(id), "x");
    }
    EXPECT_THAT(backup_->EnumCheckpointsImpl(CheckpointFilter::regular), ElementsAre(9UL, 10UL, ~0UL));
}

TEST_F(BackupCheckpoints, NamesThatAreNoIdsEndTheListing) {
    Put(*client_, RegularPath(1), "x");
    for (const char* name : {"x", "1 ", "-1", "18446744073709551616"}) {
        const std::string path = std::string("/B/Metadata/CheckpointLongTerm/") + name;
        Put(*client_, path, "x");
        EXPECT_EQ(FailureOf([&] { (void)backup_->EnumCheckpointsImpl(CheckpointFilter::all); }),
                  std::string("Failed to enumerate checkpoints for cloud backup 'B': Not an unsigned number: '") +
                      name + "'");
        client_->DeleteFileAsync(path)->Wait();
    }
}

TEST_F(BackupCheckpoints, AFailedListingIsToldWithItsBackup) {
    const auto faults = std::make_shared<cloudclientlib::CFaultClient>(client_);
    faults->Arm({.call = 2});
    EXPECT_THAT(FailureOf([&] { (void)Backup(faults)->EnumCheckpointsImpl(CheckpointFilter::all); }),
                StartsWith("Failed to enumerate checkpoints for cloud backup 'B': QueryFolder "
                           "'/B/Metadata/CheckpointLongTerm': "));
}

TEST_F(BackupCheckpoints, ListingWithoutOrphansOnlyLists) {
    backup_->SaveCheckpoint(Checkpoint(1, {}, "keep"));
    backup_->SaveCheckpoint(Checkpoint(2));
    client_->ClearCalls();
    EXPECT_THAT(backup_->EnumCheckpoints(), ElementsAre(1, 2));
    EXPECT_THAT(Calls(),
                ElementsAre("QueryFolder /B/Metadata/Checkpoint", "QueryFolder /B/Metadata/CheckpointLongTerm"));
}

TEST_F(BackupCheckpoints, ListingRemovesOrphanedLongTermCopies) {
    for (const unsigned long id : {1UL, 2UL, 5UL}) {
        backup_->SaveCheckpoint(Checkpoint(id, {}, "keep"));
    }
    client_->DeleteFileAsync(RegularPath(5))->Wait();
    EXPECT_THAT(backup_->EnumCheckpoints(), ElementsAre(1, 2));
    EXPECT_EQ(backup_->GetLastCheckpointId(), 0U);  // as it was opened with: a listing does not change it
    EXPECT_FALSE(Exists(LongTermPath(5)));
    EXPECT_TRUE(Exists(LongTermPath(1)));
    EXPECT_TRUE(Exists(LongTermPath(2)));
}

/// Runs a hook before each listing.
class CHookedClient : public cloudclientlib::CForwardingClient {
public:
    CHookedClient(std::shared_ptr<cloudclientlib::ICloudClient> inner, std::function<void(const std::string&)> hook)
        : CForwardingClient(std::move(inner)), hook_(std::move(hook)) {}
    std::vector<cloudclientlib::SCloudObjectInfo> QueryFolder(const std::string& path) override {
        hook_(path);
        return CForwardingClient::QueryFolder(path);
    }

private:
    const std::function<void(const std::string&)> hook_;
};

TEST_F(BackupCheckpoints, ACheckpointSavedBetweenTheTwoListingsIsNoOrphan) {
    backup_->SaveCheckpoint(Checkpoint(1));
    bool saved = false;
    const auto hooked = std::make_shared<CHookedClient>(client_, [&](const std::string& folder) {
        if (folder == paths::GetCheckpointLongTermFolder("B") && !saved) {
            saved = true;
            backup_->SaveCheckpoint(Checkpoint(2, {}, "keep"));
        }
    });
    EXPECT_THAT(Backup(hooked)->EnumCheckpoints(), ElementsAre(1, 2));
    EXPECT_TRUE(saved);
    EXPECT_TRUE(Exists(RegularPath(2)));
    EXPECT_TRUE(Exists(LongTermPath(2)));
}

}  // namespace
