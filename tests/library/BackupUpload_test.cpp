#include <limits>

#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"
#include "tests/library/BackupFixture.h"

namespace {

using namespace test;
using cloudclientlib::CFaultClient;
using logging::level_t;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

const std::string storageText = "00000000-0000-0000-0000-000000000001";
const std::string header7 = "/B/Metadata/" + storageText + ".7";
const std::string uploadFailed = "Failed to upload storage metadata to cloud. Cloud path: '" + header7 + "': ";

SChangedStorage Changed(unsigned long version, unsigned long size, const parts_map_t& parts,
                        const cloud_parts_map_t& kept = {}) {
    return {Storage(Guid(1), version, size, kept), parts};
}

class BackupUpload : public BackupTest {
protected:
    const std::shared_ptr<CCloudBackup> backup_ = Backup(client_);
};

TEST_F(BackupUpload, EveryPartIsAnObjectNamedByItsOffset) {
    backup_->UploadMetadata(Guid(1), 7, {{0, Part("head")}, {4, Part("bank")}, {1048576, Part("far")}});
    EXPECT_THAT(Calls(), ElementsAre("UploadFile " + header7, "UploadFile " + header7 + "_metaparts/4",
                                     "UploadFile " + header7 + "_metaparts/1048576"));
    EXPECT_EQ(Get(*client_, header7), "head");
    EXPECT_EQ(Get(*client_, header7 + "_metaparts/4"), "bank");
    EXPECT_EQ(Get(*client_, header7 + "_metaparts/1048576"), "far");
    EXPECT_THAT(sink_.GetScopes(),
                ElementsAre("> Starting uploading metadata '" + header7 + "'", "< Uploaded [7] bytes"));
    EXPECT_THAT(sink_.GetTexts(level_t::info),
                ElementsAre("Uploading storage metadata part to cloud. Cloud path: '" + header7 +
                                "_metaparts/4', metadata part size: '4'",
                            "Uploading storage metadata part to cloud. Cloud path: '" + header7 +
                                "_metaparts/1048576', metadata part size: '3'"));
    EXPECT_THAT(Sections(), ElementsAre("library"));
}

TEST_F(BackupUpload, AHeaderAloneIsOneObject) {
    backup_->UploadMetadata(Guid(1), 7, {{0, Part("")}});
    EXPECT_THAT(Calls(), ElementsAre("UploadFile " + header7));
    EXPECT_FALSE(client_->IsFolderExist(header7 + "_metaparts"));
}

TEST_F(BackupUpload, AllPartsAreInFlightAtOnce) {
    parts_map_t parts;
    for (unsigned long offset = 0; offset < 30; ++offset) {
        parts[offset] = Part("x");
    }
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(client_);
    Backup(counting)->UploadMetadata(Guid(1), 7, parts);
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 30U);
    EXPECT_EQ(counting->GetCounts().tasksInFlight, 0U);
}

TEST_F(BackupUpload, WithoutAHeaderNothingIsUploaded) {
    EXPECT_EQ(FailureOf([&] { backup_->UploadMetadata(Guid(1), 7, {}); }),
              uploadFailed + "No header info in metadata parts");
    EXPECT_EQ(FailureOf([&] {
                  backup_->UploadMetadata(Guid(1), 7, {{4, Part("bank")}});
              }),
              uploadFailed + "No header info in metadata parts");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(sink_.GetScopes(), Contains("< failed"));
}

TEST_F(BackupUpload, APartWithoutItsBytesIsRefusedBeforeAnythingIsUploaded) {
    SMetaLocationDescr unread;
    unread.Size = 4;
    const auto upload = [&](const SMetaLocationDescr& part) {
        return FailureOf([&] { backup_->UploadMetadata(Guid(1), 7, {{0, Part("head")}, {4, part}}); });
    };
    EXPECT_EQ(upload(unread),
              uploadFailed + "Metadata part at offset '4' of storage '" + storageText + "' has no data");
    unread.Data.Set(nullptr);
    EXPECT_EQ(upload(unread),
              uploadFailed + "Metadata part at offset '4' of storage '" + storageText + "' has no data");
    for (const char* bytes : {"ban", "banks"}) {
        unread.Data.Set(Bytes(bytes));
        EXPECT_EQ(upload(unread), uploadFailed + "Metadata part at offset '4' of storage '" + storageText + "' has '" +
                                      std::to_string(std::string(bytes).size()) + "' bytes of data instead of '4'");
    }
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(BackupUpload, AFailedUploadIsToldWithNothingInFlight) {
    const parts_map_t parts = {{0, Part("head")}, {4, Part("bank")}, {8, Part("bank")}};
    for (const unsigned call : {1U, 2U, 3U}) {
        const auto faults = std::make_shared<CFaultClient>(client_);
        faults->Arm({.call = call});
        const auto counting = std::make_shared<cloudclientlib::CCountingClient>(faults);
        EXPECT_THAT(FailureOf([&] { Backup(counting)->UploadMetadata(Guid(1), 7, parts); }),
                    StartsWith(uploadFailed + "UploadFile '" + header7));
        EXPECT_EQ(counting->GetCounts().tasksInFlight, 0U);
        EXPECT_EQ(counting->GetCounts().Total(), 4U);  // the other parts were sent, and the helpers asked for
        EXPECT_EQ(counting->GetCounts().Of(cloudclientlib::EOperation::createAsyncTaskUtils), 1U);
        EXPECT_EQ(client_->GetObjectCount("/B/Metadata"), 2U) << "what was written stays";
        client_->DeleteFolderAsync("/B", nullptr)->Wait();
    }
}

/// Refuses the second upload by throwing from the call, as for an invalid path; counts the waits for the first.
class CRefusingClient : public cloudclientlib::CForwardingClient {
public:
    using CForwardingClient::CForwardingClient;
    task::task_ptr UploadFileAsync(const std::string&, buffer_ptr) override {
        if (++uploads_ == 2) {
            throw exc::CRuntimeExc("refused");
        }
        return std::make_shared<CWaited>(waits_);
    }
    [[nodiscard]] int GetWaits() const { return waits_; }

private:
    class CWaited : public task::IAsyncTask {
    public:
        explicit CWaited(int& waits) : waits_(waits) {}
        void Wait() override {
            ++waits_;
            throw exc::CRuntimeExc("failed meanwhile");
        }

    private:
        int& waits_;
    };
    int uploads_ = 0;
    int waits_ = 0;
};

TEST_F(BackupUpload, AnUploadThatCannotStartWaitsForThoseInFlight) {
    const auto refusing = std::make_shared<CRefusingClient>(client_);
    EXPECT_EQ(FailureOf([&] {
                  Backup(refusing)->UploadMetadata(Guid(1), 7, {{0, Part("head")}, {4, Part("bank")}});
              }),
              uploadFailed + "refused");
    EXPECT_EQ(refusing->GetWaits(), 1);
}

TEST_F(BackupUpload, TheLocationMapTakesTheUploadedParts) {
    cloud_parts_map_t cloudParts = {{4, {"/old/4", 4, 9}}, {100, {"/old/100", 100, 5}}};
    backup_->UpdateMetaLocationMapForCheckpoint(
        Changed(7, 16, {{0, Part("head")}, {4, Part("bank")}, {8, Part("bankbank")}}), cloudParts);
    const cloud_parts_map_t expected = {
        {4, {header7 + "_metaparts/4", 4, 4}}, {8, {header7 + "_metaparts/8", 8, 8}}, {100, {"/old/100", 100, 5}}};
    EXPECT_EQ(cloudParts, expected);
    EXPECT_THAT(sink_.GetTexts(level_t::dbg),
                ElementsAre("Updated metadata part: Path: [" + header7 + "_metaparts/4] offset: [4] size: [4]",
                            "Updated metadata part: Path: [" + header7 + "_metaparts/8] offset: [8] size: [8]"));
    EXPECT_THAT(Sections(), ElementsAre("library"));
    EXPECT_THAT(Calls(), IsEmpty());
}

using BackupCommit = BackupUpload;

TEST_F(BackupCommit, UploadsThenSavesTheNextCheckpoint) {
    const auto backup = Backup(client_, 4);
    SCheckpointCreationParams params;
    params.dxrContent = "content";
    params.unchangedStorages = {Storage(Guid(2), 3, 10, {{4, {"/x", 4, 6}}})};
    params.changedStorages = {Changed(7, 8, {{0, Part("head")}, {4, Part("bank")}})};
    const auto created = backup->CreateCheckpoint(params);
    EXPECT_THAT(Calls(), ElementsAre("UploadFile " + header7, "UploadFile " + header7 + "_metaparts/4",
                                     "IsFileExist /B/Metadata/Checkpoint/5", "UploadFile /B/Metadata/Checkpoint/5"));
    EXPECT_EQ(created->GetId(), 5U);
    EXPECT_EQ(backup->GetLastCheckpointId(), 5U);
    EXPECT_EQ(created->GetFormatVersion(), 2);
    EXPECT_EQ(created->GetDxr().GetContent(), "content");
    EXPECT_TRUE(created->GetDxrLongTerm().IsEmpty());
    EXPECT_EQ(created->GetOwner().GetDescription(), "the owner");
    ASSERT_EQ(created->GetStorages().size(), 2U);
    EXPECT_EQ(created->GetStorages()[0].GetStorageId(), Guid(2));
    EXPECT_EQ(created->GetStorages()[0].GetCloudMetadataPartDescriptionsMap().at(4).filePath, "/x");
    EXPECT_EQ(created->GetStorages()[1].GetFileName(), storageText + ".7");
    EXPECT_EQ(created->GetStorages()[1].GetCloudMetadataPartDescriptionsMap().at(4).filePath, header7 + "_metaparts/4");
    EXPECT_EQ(sink_.GetScopes().front(),
              "> Creating cloud backup checkpoint. Backup id: 'B', previous checkpoint: '4', changed storage: '1', "
              "unchanged storages: '1'");
    EXPECT_EQ(sink_.GetScopes().back(), "< ok");
    EXPECT_THAT(sink_.GetTexts(level_t::warn), IsEmpty());
    EXPECT_EQ(backup->LoadCheckpoint(5)->GetStorages().size(), 2U);
}

TEST_F(BackupCommit, StorageAfterStorageThenTheDocument) {
    const auto item = [](std::uint8_t storage) { return "/B/Metadata/" + Guid(storage).ToAStr() + ".7"; };
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(client_);
    SCheckpointCreationParams params;
    params.unchangedStorages = {Storage(Guid(9), 1, 1), Storage(Guid(8), 1, 1)};
    params.changedStorages = {{Storage(Guid(3), 7, 8), {{0, Part("head")}, {4, Part("bank")}}},
                              {Storage(Guid(2), 7, 4), {{0, Part("head")}}}};
    const auto created = Backup(counting)->CreateCheckpoint(params);
    EXPECT_THAT(Calls(),
                ElementsAre("UploadFile " + item(3), "UploadFile " + item(3) + "_metaparts/4", "UploadFile " + item(2),
                            "IsFileExist /B/Metadata/Checkpoint/1", "UploadFile /B/Metadata/Checkpoint/1"));
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 2U);
    std::vector<guid::guid_t> ids;
    for (const auto& storage : created->GetStorages()) {
        ids.push_back(storage.GetStorageId());
    }
    EXPECT_THAT(ids, ElementsAre(Guid(9), Guid(8), Guid(3), Guid(2)));
    EXPECT_EQ(sink_.GetScopes().front(),
              "> Creating cloud backup checkpoint. Backup id: 'B', previous checkpoint: '0', changed storage: '2', "
              "unchanged storages: '2'");
    EXPECT_EQ(sink_.GetEntries().front().section, "library");
}

TEST_F(BackupCommit, WithoutChangesTheDescriptorsAreTakenOver) {
    SCheckpointCreationParams params;
    params.dxrContent = "content";
    params.dxrContentLongTerm = "keep";
    params.unchangedStorages = {Storage(Guid(2), 3, 10)};
    const auto created = backup_->CreateCheckpoint(params);
    EXPECT_EQ(created->GetId(), 1U);
    EXPECT_EQ(created->GetStorages().at(0).GetMetaVersion(), 3U);
    EXPECT_EQ(created->GetDxrLongTerm().GetContent(), "keep");
    EXPECT_EQ(Calls().size(), 4U);
    EXPECT_TRUE(Exists(LongTermPath(1)));
    EXPECT_EQ(backup_->CreateCheckpoint(params)->GetId(), 2U);
}

TEST_F(BackupCommit, PartsNotUploadedAgainKeepTheirPlace) {
    const auto created = backup_->CreateCheckpoint(
        {"", "", {}, {Changed(7, 12, {{0, Part("head")}, {8, Part("bank")}}, {{4, {"/B/Metadata/old", 4, 4}}})}});
    const cloud_parts_map_t expected = {{4, {"/B/Metadata/old", 4, 4}}, {8, {header7 + "_metaparts/8", 8, 4}}};
    EXPECT_EQ(created->GetStorages().at(0).GetCloudMetadataPartDescriptionsMap(), expected);
    EXPECT_THAT(sink_.GetTexts(level_t::warn), IsEmpty());
}

TEST_F(BackupCommit, WarnsOfMetadataThatCannotBeRestored) {
    const std::string warning = "Metadata of storage '" + storageText +
                                "' cannot be restored as it stands: header and parts of version '7' do not cover its ";
    struct SCase {
        unsigned long size;
        parts_map_t parts;
        cloud_parts_map_t kept;
        bool covered;
    };
    constexpr unsigned long huge = std::numeric_limits<unsigned long>::max();
    const std::vector<SCase> cases = {
        {4, {{0, Part("head")}}, {}, true},
        {5, {{0, Part("head")}}, {}, false},
        {3, {{0, Part("head")}}, {}, false},
        {8, {{0, Part("head")}, {4, Part("bank")}}, {}, true},
        {9, {{0, Part("head")}, {5, Part("bank")}}, {}, false},
        {8, {{0, Part("head")}, {5, Part("bank")}}, {}, false},  // as many bytes, but not where they belong
        {8, {{0, Part("head")}, {3, Part("banks")}}, {}, false},
        {8, {{0, Part("head")}}, {{4, {"/x", 4, 4}}}, true},
        {3, {{0, Part("head")}}, {{4, {"/x", 4, huge}}}, false},  // the sum wraps around to the size
    };
    for (const auto& one : cases) {
        const RecordingSink sink;
        (void)backup_->CreateCheckpoint({"", "", {}, {Changed(7, one.size, one.parts, one.kept)}});
        if (one.covered) {
            EXPECT_THAT(sink.GetTexts(level_t::warn), IsEmpty()) << one.size;
        } else {
            const std::string text = warning + "'" + std::to_string(one.size) + "' bytes exactly";
            EXPECT_THAT(sink.GetTexts(level_t::warn), ElementsAre(text));
            EXPECT_THAT(sink.GetEntries(), Contains(SEntry{"library", level_t::warn, logging::kind_t::line, text}));
        }
    }
}

TEST_F(BackupCommit, SingleFileMetadataIsTheHeaderAlone) {
    options_t::GetInst().EnableSingleFileCloudMetadata(true);
    const auto created = backup_->CreateCheckpoint({"", "", {}, {Changed(7, 8, {{0, Part("headbank")}})}});
    EXPECT_EQ(created->GetFormatVersion(), 1);
    EXPECT_THAT(sink_.GetTexts(level_t::warn), IsEmpty());
    // A part that no document will name does not count.
    (void)backup_->CreateCheckpoint({"", "", {}, {Changed(7, 8, {{0, Part("head")}}, {{4, {"/x", 4, 4}}})}});
    EXPECT_EQ(sink_.GetTexts(level_t::warn).size(), 1U);
}

TEST_F(BackupCommit, OneIncompleteStorageStopsTheCommitBeforeAnyUpload) {
    const auto params = [](const parts_map_t& second) {
        return SCheckpointCreationParams{
            "", "", {}, {{Storage(Guid(2), 7, 4), {{0, Part("head")}}}, {Storage(Guid(1), 7, 4), second}}};
    };
    EXPECT_EQ(FailureOf([&] { (void)backup_->CreateCheckpoint(params({})); }),
              uploadFailed + "No header info in metadata parts");
    SMetaLocationDescr unread;
    unread.Size = 4;
    EXPECT_EQ(FailureOf([&] {
                  (void)backup_->CreateCheckpoint(params({{0, unread}}));
              }),
              uploadFailed + "Metadata part at offset '0' of storage '" + storageText + "' has no data");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_EQ(backup_->GetLastCheckpointId(), 0U);
}

TEST_F(BackupCommit, AFailureLeavesTheLastCheckpointAsItWas) {
    for (const unsigned call : {1U, 2U, 3U}) {
        const auto faults = std::make_shared<CFaultClient>(client_);
        const auto backup = Backup(faults, 4);
        faults->Arm({.call = call});
        EXPECT_THAT(
            FailureOf([&] {
                (void)backup->CreateCheckpoint({"", "", {}, {Changed(7, 4, {{0, Part("head")}})}});
            }),
            AnyOf(StartsWith(uploadFailed), StartsWith("Failed to save checkpoint '5' for cloud backup 'B': ")));
        EXPECT_EQ(backup->GetLastCheckpointId(), 4U);
        EXPECT_FALSE(Exists(RegularPath(5)));
    }
    EXPECT_THAT(sink_.GetScopes(), Contains("< failed"));
}

TEST_F(BackupCommit, ACommitSavedButReportedFailedIsNotOverwrittenByARetry) {
    const auto faults = std::make_shared<CFaultClient>(client_);
    const auto backup = Backup(faults, 4);
    faults->Arm({.call = 3, .mode = cloudclientlib::EFaultMode::doneButFailed});
    const auto commit = [&](const std::string& content) {
        return FailureOf([&] {
            (void)backup->CreateCheckpoint({content, "", {}, {Changed(7, 4, {{0, Part("head")}})}});
        });
    };
    EXPECT_THAT(commit("first"), StartsWith("Failed to save checkpoint '5' for cloud backup 'B': UploadFile "));
    EXPECT_EQ(commit("second"), "Failed to save checkpoint '5' for cloud backup 'B': Checkpoint already exists");
    EXPECT_EQ(backup_->LoadCheckpoint(5)->GetDxr().GetContent(), "first");
}

TEST_F(BackupCommit, IdsDoNotWrapAround) {
    const auto backup = Backup(client_, std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(FailureOf([&] {
                  (void)backup->CreateCheckpoint({"", "", {}, {Changed(7, 4, {{0, Part("head")}})}});
              }),
              "Cannot create a checkpoint in cloud backup 'B': no id follows '18446744073709551615'");
    EXPECT_THAT(Calls(), IsEmpty());
    const auto last = Backup(client_, std::numeric_limits<unsigned long>::max() - 1);
    EXPECT_EQ(last->CreateCheckpoint({})->GetId(), std::numeric_limits<unsigned long>::max());
}

}  // namespace
