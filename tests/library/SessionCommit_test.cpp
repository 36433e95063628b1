#include <filesystem>

#include "tests/library/SessionFixture.h"
#include "tests/support/SizedPart.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::string MetaItem(const guid::guid_t& storage, const std::string& rest) {
    return paths::GetBackupMetaItemPath("B", storage.ToAStr() + "." + rest);
}

class SessionCommit : public SessionTest {
protected:
    std::vector<std::string> Uploads() {
        std::vector<std::string> paths;
        for (const auto& call : client_->GetCalls()) {
            if (call.operation == "UploadFile") {
                paths.push_back(call.path);
            }
        }
        client_->ClearCalls();
        return paths;
    }
};

TEST_F(SessionCommit, ANewStorageIsUploadedWithHeaderAndParts) {
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {"first", "second"});
    writer.Attach(*session);
    writer.FlushAll();
    const RecordingSink log;
    const auto checkpoint = session->CreateCheckpoint("the content", "");
    EXPECT_THAT(Uploads(), ElementsAre(MetaItem(Guid(1), "1"), MetaItem(Guid(1), "1_metaparts/4"),
                                       MetaItem(Guid(1), "1_metaparts/9"), RegularPath(1)));
    EXPECT_EQ(log.GetScopes().front(), "> Creating cloud backup session checkpoint. Cloud backup id: 'B'");
    EXPECT_EQ(log.GetScopes().back(), "< ok");
    EXPECT_THAT(log.GetTexts(logging::level_t::warn), IsEmpty());

    EXPECT_EQ(checkpoint->GetId(), 1U);
    EXPECT_EQ(checkpoint->GetFormatVersion(), 2);
    EXPECT_EQ(checkpoint->GetDxr().GetContent(), "the content");
    const auto& descriptor = checkpoint->GetStorageById(Guid(1));
    EXPECT_EQ(descriptor.GetFileName(), Guid(1).ToAStr() + ".1");
    EXPECT_EQ(descriptor.GetMetaVersion(), 1U);
    EXPECT_EQ(descriptor.GetMetaSize(), 15U);
    EXPECT_EQ(descriptor.GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy);
    using checkpoint::SCloudMetadataPartDescription;
    EXPECT_THAT(descriptor.GetCloudMetadataPartDescriptionsMap(),
                ElementsAre(Pair(4UL, SCloudMetadataPartDescription{MetaItem(Guid(1), "1_metaparts/4"), 4, 5}),
                            Pair(9UL, SCloudMetadataPartDescription{MetaItem(Guid(1), "1_metaparts/9"), 9, 6})));
    EXPECT_EQ(Restore(client_, 1, Guid(1)), "headfirstsecond");
}

TEST_F(SessionCommit, TheSessionStandsOnTheNewCheckpoint) {
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {});
    writer.Attach(*session);
    writer.FlushAll();
    const auto checkpoint = session->CreateCheckpoint("", "");
    EXPECT_EQ(session->GetCheckpoint(), checkpoint);
    EXPECT_EQ(backup_->GetLastCheckpointId(), 1U);
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetMetaVersion(), 1U);
    EXPECT_THAT(session->EnumChangedStorages(), IsEmpty());
    EXPECT_THAT(session->EnumerateStorages(), ElementsAre(Guid(1)));
    EXPECT_NO_THROW(Start()) << "another writable session may begin";
}

TEST_F(SessionCommit, OnlyChangedPartsAreUploadedAndEveryCheckpointIsRestored) {
    StorageWriter writer = Writer(1, "head-1", {"aaaa-1", "bbbb-1", "cccc-1"});
    std::vector<std::string> expected;
    const auto commit = [&](const std::set<std::size_t>& banks) {
        const auto session = Reopen();
        writer.Attach(*session);
        writer.Flush(banks);
        client_->ClearCalls();
        session->CreateCheckpoint("", "");
        writer.Detach();
        expected.push_back(writer.GetBytes());
    };
    commit({0, 1, 2});
    writer.header = "head-2";
    writer.banks[1] = "bbbb-2";
    commit({1});
    EXPECT_THAT(Uploads(), ElementsAre(MetaItem(Guid(1), "2"), MetaItem(Guid(1), "2_metaparts/12"), RegularPath(2)));
    writer.header = "head-3";
    writer.banks[2] = "cccc-3";
    writer.banks.emplace_back("appended");
    commit({2, 3});
    EXPECT_THAT(Uploads(), ElementsAre(MetaItem(Guid(1), "3"), MetaItem(Guid(1), "3_metaparts/18"),
                                       MetaItem(Guid(1), "3_metaparts/24"), RegularPath(3)));
    ASSERT_EQ(expected.size(), 3U);
    for (unsigned long id = 1; id <= 3; ++id) {
        EXPECT_EQ(Restore(client_, id, Guid(1)), expected[id - 1]) << "checkpoint " << id;
    }
    const auto parts = Start()->GetStorageDescriptor(Guid(1)).GetCloudMetadataPartDescriptionsMap();
    EXPECT_EQ(parts.at(6).filePath, MetaItem(Guid(1), "1_metaparts/6"));
    EXPECT_EQ(parts.at(12).filePath, MetaItem(Guid(1), "2_metaparts/12"));
    EXPECT_EQ(parts.at(18).filePath, MetaItem(Guid(1), "3_metaparts/18"));
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(SessionCommit, PartsThatOnlyOlderCheckpointsUseGoWithThem) {
    StorageWriter writer = CommitNew(1, "head", {"aaaa", "bbbb"});
    const auto session = Start();
    writer.Attach(*session);
    writer.banks[0] = "AAAA";
    writer.Flush({0});
    session->CreateCheckpoint("", "");
    session->DeleteCheckpoint(1);
    EXPECT_THAT(PartsInCloud(Guid(1), 1), ElementsAre("8")) << "the new checkpoint still has it";
    EXPECT_EQ(Restore(client_, 2, Guid(1)), "headAAAAbbbb");
}

TEST_F(SessionCommit, UnchangedStoragesKeepTheirDescriptors) {
    CommitNew(1, "one", {"1"});
    StorageWriter opened = CommitNew(2, "two", {"2"});
    const auto before = Start()->GetCheckpoint();
    const auto session = Start();
    opened.Attach(*session);
    StorageWriter fresh = Writer(3, "three", {});
    fresh.Attach(*session);
    fresh.FlushAll();
    client_->ClearCalls();
    const auto checkpoint = session->CreateCheckpoint("", "");
    EXPECT_THAT(Uploads(), ElementsAre(MetaItem(Guid(3), "1"), RegularPath(3)))
        << "a sink without a new version changes nothing";
    EXPECT_EQ(checkpoint->GetStorages().size(), 3U);
    for (const std::uint8_t id : {std::uint8_t{1}, std::uint8_t{2}}) {
        EXPECT_EQ(checkpoint->GetStorageById(Guid(id)).GetFileName(), before->GetStorageById(Guid(id)).GetFileName());
        EXPECT_EQ(checkpoint->GetStorageById(Guid(id)).GetCloudMetadataPartDescriptionsMap(),
                  before->GetStorageById(Guid(id)).GetCloudMetadataPartDescriptionsMap());
    }
    EXPECT_EQ(Restore(client_, 3, Guid(1)), "one1");
    EXPECT_EQ(Restore(client_, 3, Guid(2)), "two2");
    EXPECT_EQ(Restore(client_, 3, Guid(3)), "three");
}

TEST_F(SessionCommit, ACommitWithoutChangesIsACheckpointOfItsOwn) {
    CommitNew(1);
    const auto session = Start();
    client_->ClearCalls();
    const auto checkpoint = session->CreateCheckpoint("new content", "for the long term");
    EXPECT_THAT(Uploads(), ElementsAre(RegularPath(2), LongTermPath(2)));
    EXPECT_EQ(checkpoint->GetDxr().GetContent(), "new content");
    EXPECT_EQ(checkpoint->GetDxrLongTerm().GetContent(), "for the long term");
    EXPECT_EQ(Restore(client_, 2, Guid(1)), "head");
}

TEST_F(SessionCommit, ASecondCommitInOneSessionWorks) {
    const auto session = Start();
    StorageWriter writer = Writer(1, "head-1", {"aaaa-1", "bbbb-1"});
    writer.Attach(*session);
    writer.FlushAll();
    session->CreateCheckpoint("", "");
    const std::string first = writer.GetBytes();
    writer.banks[1] = "bbbb-2";
    writer.Flush({1});
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
    session->CreateCheckpoint("", "");
    EXPECT_EQ(Restore(client_, 1, Guid(1)), first);
    EXPECT_EQ(Restore(client_, 2, Guid(1)), writer.GetBytes());
    EXPECT_THAT(PartsInCloud(Guid(1), 2), ElementsAre("", "12", "6"))
        << "the cache goes on listing what was once updated";
}

TEST_F(SessionCommit, APartUpdatedBeforeAndAfterACommitIsUploadedWithItsLatestBytes) {
    StorageWriter writer = CommitNew(1, "head", {"aaaa-1", "bbbb-1"});
    const auto session = Start();
    writer.Attach(*session);
    for (const char* bytes : {"bbbb-2", "bbbb-3", "bbbb-4"}) {
        writer.banks[1] = bytes;
        writer.Flush({1});
        const auto id = session->CreateCheckpoint("", "")->GetId();
        EXPECT_EQ(Restore(client_, id, Guid(1)), writer.GetBytes());
        EXPECT_THAT(PartsInCloud(Guid(1), writer.version), ElementsAre("", "10"));
    }
}

TEST_F(SessionCommit, TheBytesComeFromTheFileOnceTheWriterIsGone) {
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {"bank"});
    writer.Attach(*session);
    writer.FlushAll();
    writer.Detach();
    WriteFile(Local(Guid(1)), "HEADBANK");
    session->CreateCheckpoint("", "");
    EXPECT_EQ(Restore(client_, 1, Guid(1)), "HEADBANK");
}

TEST_F(SessionCommit, WithoutAnyReportTheHeaderIsUploadedEmpty) {
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {});
    writer.Attach(*session);
    const RecordingSink log;
    const auto checkpoint = session->CreateCheckpoint("", "");
    EXPECT_THAT(PartsInCloud(Guid(1), 0), ElementsAre(""));
    EXPECT_EQ(client_->GetFileSize(MetaItem(Guid(1), "0")), 0U);
    EXPECT_EQ(checkpoint->GetStorageById(Guid(1)).GetMetaSize(), 4U);
    ASSERT_EQ(log.GetTexts(logging::level_t::warn).size(), 1U) << "it cannot be restored, and that is said";
    EXPECT_THAT(log.GetTexts(logging::level_t::warn).front(), testing::HasSubstr("cannot be restored as it stands"));
}

TEST_F(SessionCommit, TheUploadMapHasWhatWasUpdatedWhatNeverSkipsAndTheHeader) {
    const auto session = Start(true);
    cache::CStgMetaCache::SMetaDataDescriptor descriptor;
    descriptor.HeaderSize = 7;
    descriptor.UpdatedParts = {{20, SizedPart(99)}, {50, SizedPart(99)}};
    descriptor.MetaParts = {{10, SizedPart(1, true)}, {20, SizedPart(2, true)}, {30, SizedPart(3, false)}};
    EXPECT_THAT(session->getMetapartsMapForUpload(descriptor),
                ElementsAre(Pair(0UL, SizedPart(7)), Pair(20UL, SizedPart(2, true)), Pair(30UL, SizedPart(3))));
}

TEST_F(SessionCommit, TheHeaderInTheUploadMapHasTheReportedSizeAndNeverSkips) {
    const auto session = Start(true);
    cache::CStgMetaCache::SMetaDataDescriptor descriptor;
    EXPECT_THAT(session->getMetapartsMapForUpload(descriptor), ElementsAre(Pair(0UL, SizedPart(0))));
    descriptor.HeaderSize = 7;
    descriptor.MetaParts = {{0, SizedPart(99, true)}};
    EXPECT_THAT(session->getMetapartsMapForUpload(descriptor), ElementsAre(Pair(0UL, SizedPart(7))));
    descriptor.UpdatedParts = {{0, SizedPart(98)}};
    EXPECT_THAT(session->getMetapartsMapForUpload(descriptor), ElementsAre(Pair(0UL, SizedPart(7))));
    descriptor.MetaParts.clear();
    EXPECT_THAT(session->getMetapartsMapForUpload(descriptor), ElementsAre(Pair(0UL, SizedPart(7))));
}

TEST_F(SessionCommit, APartBehindTheEndOfTheMetadataFailsBeforeAnythingIsUploaded) {
    StorageWriter writer = CommitNew(1);
    const auto session = Start();
    writer.Attach(*session);
    const auto extent = std::make_shared<MemoryExtent>("0123456789");
    const auto sink = session->GetStorageUpdateSink(Guid(1), extent);
    sink->Update(2, {}, {{4, SizedPart(6)}, {10, SizedPart(1UL << 60U)}}, 4);
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { session->CreateCheckpoint("", ""); }),
              "Cannot load metadata for storage '" + Guid(1).ToAStr() +
                  "': '1152921504606846976' bytes wanted at offset '10' of the writer's extent, '0' there");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetMetaVersion(), 1U);
    EXPECT_NO_THROW(sink->Update(3, {}, {}, 4)) << "the cache is resumed";
}

TEST_F(SessionCommit, AnUpdatedPartOutsideTheLayoutIsAWarning) {
    StorageWriter writer = CommitNew(1, "head", {"aaaa"});
    const auto session = Start();
    const auto extent = std::make_shared<MemoryExtent>("headaaaa");
    session->PrepareStorageForAccess(Guid(1), Local(Guid(1)), 1);
    const auto sink = session->GetStorageUpdateSink(Guid(1), extent);
    sink->Update(2, {{0, SizedPart(4)}, {6, SizedPart(2)}}, {{4, SizedPart(4, true)}}, 4);
    const RecordingSink log;
    session->CreateCheckpoint("", "");
    EXPECT_THAT(log.GetTexts(logging::level_t::warn),
                ElementsAre("Updated metadata part at offset '6' of storage '" + Guid(1).ToAStr() +
                            "' is not in the layout that was reported, it is not uploaded"));
}

TEST_F(SessionCommit, SingleFileModeUploadsTheWholeAsOneObject) {
    const SingleFileMode mode;
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {"aaaa", "bbbb"});
    writer.Attach(*session);
    writer.FlushAll();
    client_->ClearCalls();
    const auto checkpoint = session->CreateCheckpoint("", "");
    EXPECT_THAT(Uploads(), ElementsAre(MetaItem(Guid(1), "1"), RegularPath(1)));
    EXPECT_EQ(checkpoint->GetFormatVersion(), 1);
    EXPECT_THAT(checkpoint->GetStorageById(Guid(1)).GetCloudMetadataPartDescriptionsMap(), IsEmpty());
    EXPECT_EQ(checkpoint->GetStorageById(Guid(1)).GetMetaSize(), 12U);
    writer.banks[0] = "AAAA";
    writer.Flush({0});
    session->CreateCheckpoint("", "");
    EXPECT_EQ(Restore(client_, 1, Guid(1)), "headaaaabbbb");
    EXPECT_EQ(Restore(client_, 2, Guid(1)), "headAAAAbbbb");
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(SessionCommit, PartsModeGoesOnFromASingleFile) {
    StorageWriter writer = Writer(1, "head", {"aaaa", "bbbb"});
    {
        const SingleFileMode mode;
        const auto session = Start();
        writer.Attach(*session);
        writer.FlushAll();
        session->CreateCheckpoint("", "");
    }
    const auto session = Reopen();
    writer.Attach(*session);
    writer.banks[0] = "AAAA";
    writer.FlushAll();
    session->CreateCheckpoint("", "");
    EXPECT_EQ(Restore(client_, 1, Guid(1)), "headaaaabbbb");
    EXPECT_EQ(Restore(client_, 2, Guid(1)), "headAAAAbbbb");
}

TEST_F(SessionCommit, SingleFileModeRefusesMetadataThatIsTooLarge) {
    const SingleFileMode mode;
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {});
    writer.Attach(*session);
    writer.FlushAll();
    writer.Detach();
    std::filesystem::resize_file(Local(Guid(1)), 4'294'962'177UL);  // sparse
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { session->CreateCheckpoint("", ""); }), "Storage metadata size '4294962177' is too large");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
}

TEST_F(SessionCommit, ACheckpointThatIsThereAlreadyIsNeverOverwritten) {
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {});
    writer.Attach(*session);
    writer.FlushAll();
    Put(*client_, RegularPath(1), "another host's");
    const RecordingSink log;
    EXPECT_THAT(FailureOf([&] { session->CreateCheckpoint("", ""); }), testing::EndsWith("Checkpoint already exists"));
    EXPECT_EQ(log.GetScopes().back(), "< failed");
    EXPECT_EQ(Get(*client_, RegularPath(1)), "another host's");
    EXPECT_EQ(session->GetCheckpoint()->GetId(), 0U);
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
}

}  // namespace
}  // namespace test
