#include <functional>

#include "common/exc.h"
#include "tests/library/SessionFixture.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string readOnlyRefusal = "Cloud backup is read-only";

class SessionChanges : public SessionTest {
protected:
    static CCloudBackupSession::SCachedStorageRecord Cached(CCloudBackupSession& session, const guid::guid_t& id) {
        CCloudBackupSession::SCachedStorageRecord record;
        EXPECT_TRUE(session.FindCachedStorage(id, record));
        return record;
    }
};

TEST_F(SessionChanges, AReadOnlySessionRefusesWhatChanges) {
    CommitNew(1);
    const auto session = Start(true);
    session->PrepareStorageForAccess(Guid(1), Local(Guid(1)), 1);
    const auto extent = std::make_shared<MemoryExtent>();
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { session->CheckNotReadOnly(); }), readOnlyRefusal);
    EXPECT_EQ(FailureOf([&] { (void)session->GetStorageUpdateSink(Guid(1), extent); }), readOnlyRefusal);
    EXPECT_EQ(FailureOf([&] { session->StorageUseLongTermBlobs(Guid(1)); }), readOnlyRefusal);
    EXPECT_EQ(FailureOf([&] { session->DeleteStorage(Guid(1)); }), readOnlyRefusal);
    EXPECT_EQ(FailureOf([&] { session->ClearReleasedBlocks(Guid(1), {}); }), readOnlyRefusal);
    EXPECT_EQ(FailureOf([&] { session->ClearOrphanedBlocks(Guid(1), {}); }), readOnlyRefusal);
    EXPECT_EQ(FailureOf([&] { session->CreateCheckpoint("", ""); }), readOnlyRefusal);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_TRUE(std::filesystem::exists(Local(Guid(1))));
    EXPECT_TRUE(session->IsStorageExist(Guid(1)));
}

TEST_F(SessionChanges, ARefusedChangeIsLoggedAsFailed) {
    CommitNew(1);
    const auto session = Start(true);
    const auto scopesOf = [](const std::function<void()>& operation) {
        const RecordingSink log;
        EXPECT_EQ(FailureOf(operation), readOnlyRefusal);
        EXPECT_EQ(log.GetEntries().size(), log.GetScopes().size()) << "no other line";
        return log.GetScopes();
    };
    const std::string id = Guid(1).ToAStr();
    EXPECT_THAT(scopesOf([&] { session->DeleteStorage(Guid(1)); }),
                ElementsAre("> Deleting storage '" + id + "' from backup session. Backup id: 'B'", "< failed"));
    EXPECT_THAT(scopesOf([&] { session->StorageUseLongTermBlobs(Guid(1)); }),
                ElementsAre("> Marking storage as using long-term blobs store storage '" + id +
                                "' from backup session. Backup id: 'B'",
                            "< failed"));
    EXPECT_THAT(scopesOf([&] { session->CreateCheckpoint("", ""); }),
                ElementsAre("> Creating cloud backup session checkpoint. Cloud backup id: 'B'", "< failed"));
}

TEST_F(SessionChanges, AReadOnlySessionMayMarkAndRename) {
    const auto session = Start(true);
    session->PrepareStorageForAccess(Guid(1), "/local/one", 4);
    session->MarkStorageUpdated(Guid(1), "/local/two");
    EXPECT_EQ(Cached(*session, Guid(1)).localPath, "/local/two");
    session->RenameStorage(Guid(1), "/local/two", "/local/three");
    EXPECT_EQ(Cached(*session, Guid(1)).localPath, "/local/three");
}

TEST_F(SessionChanges, ASinkOfAnUnknownStorageIsRefusedWithItsCause) {
    const auto session = Start();
    try {
        (void)session->GetStorageUpdateSink(Guid(1), nullptr);
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(failure.GetMessage(), "Failed to create metadata update sink for storage [" + Guid(1).ToAStr() + "]");
        EXPECT_EQ(std::string(failure.what()), failure.GetMessage() + ": Storage not found in cache");
    }
}

TEST_F(SessionChanges, ASinkMakesTheStorageChangedOnlyByItsVersion) {
    StorageWriter writer = CommitNew(1);
    const auto session = Start();
    writer.Attach(*session);
    const RecordingSink log;
    EXPECT_THAT(session->EnumChangedStorages(), IsEmpty());
    EXPECT_THAT(log.GetTexts(logging::level_t::tr),
                ElementsAre("Local storage metadata version '1' matches the cloud version. Storage id: '" +
                            Guid(1).ToAStr() + "'"));
    writer.FlushAll();
    const RecordingSink log2;
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
    EXPECT_THAT(log2.GetTexts(logging::level_t::tr),
                ElementsAre("Local storage metadata version '2' differs from cloud version '1'. Storage id: '" +
                            Guid(1).ToAStr() + "'"));
}

TEST_F(SessionChanges, ALowerLocalVersionCountsAsChanged) {
    StorageWriter writer = CommitNew(1);
    writer.version = 5;
    auto session = Start();
    writer.Attach(*session);
    writer.version = 6;
    writer.FlushAll();
    session->CreateCheckpoint("", "");
    writer.version = 2;
    writer.FlushAll();
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
}

TEST_F(SessionChanges, AStorageNeverUploadedIsChanged) {
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {});
    writer.version = 3;
    writer.Attach(*session);
    const RecordingSink log;
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
    EXPECT_THAT(log.GetTexts(logging::level_t::tr),
                ElementsAre("Storage metadata is not found in cloud. Local metadata version: '3', storage id: '" +
                            Guid(1).ToAStr() + "'"));
}

TEST_F(SessionChanges, ChangesAreToldInTheOrderOfTheIds) {
    StorageWriter same = CommitNew(1);
    StorageWriter newer = CommitNew(3);
    const auto session = Start();
    StorageWriter fresh = Writer(2, "head", {});
    fresh.Attach(*session);
    newer.Attach(*session);
    newer.FlushAll();
    same.Attach(*session);
    const RecordingSink log;
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(2), Guid(3)));
    EXPECT_THAT(log.GetTexts(logging::level_t::tr),
                ElementsAre("Local storage metadata version '1' matches the cloud version. Storage id: '" +
                                Guid(1).ToAStr() + "'",
                            "Storage metadata is not found in cloud. Local metadata version: '0', storage id: '" +
                                Guid(2).ToAStr() + "'",
                            "Local storage metadata version '2' differs from cloud version '1'. Storage id: '" +
                                Guid(3).ToAStr() + "'"));
}

TEST_F(SessionChanges, MarkingAnUnknownStorageDoesNothing) {
    const auto session = Start();
    const RecordingSink log;
    session->MarkStorageUpdated(Guid(1), "/local/one");
    EXPECT_THAT(log.GetEntries(), IsEmpty());
    EXPECT_FALSE(session->IsStorageExist(Guid(1)));
}

TEST_F(SessionChanges, MarkingANewStorageMakesItChanged) {
    const auto session = Start();
    session->PrepareStorageForAccess(Guid(1), "/local/one", 4);
    EXPECT_THAT(session->EnumChangedStorages(), IsEmpty());
    const RecordingSink log;
    session->MarkStorageUpdated(Guid(1), "/local/two");
    EXPECT_THAT(log.GetTexts(logging::level_t::info),
                ElementsAre("Marking storage updated: id: " + Guid(1).ToAStr() + ", meta version: 4"));
    EXPECT_EQ(Cached(*session, Guid(1)).localPath, "/local/two");
    EXPECT_EQ(Cached(*session, Guid(1)).version, 4U);
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
}

TEST_F(SessionChanges, MarkingAStorageOfTheCloudsVersionTakesItOutOfTheChangeSet) {
    StorageWriter writer = CommitNew(1);
    const auto session = Start();
    writer.Attach(*session);
    EXPECT_THAT(session->EnumerateStorages(), ElementsAre(Guid(1)));
    session->MarkStorageUpdated(Guid(1), Local(Guid(1)));
    const RecordingSink log;
    EXPECT_THAT(session->EnumChangedStorages(), IsEmpty());
    EXPECT_THAT(log.GetEntries(), IsEmpty()) << "the cache does not list it any more";
}

TEST_F(SessionChanges, MarkingKeepsReportedPartsAndTheNewPathIsRead) {
    StorageWriter writer = Writer(1, "head", {"bank"});
    const auto session = Start();
    writer.Attach(*session);
    writer.FlushAll();
    const std::string moved = folder_ / "moved";
    WriteFile(moved, "HEADBANK");
    session->MarkStorageUpdated(Guid(1), moved);
    const auto checkpoint = session->CreateCheckpoint("", "");
    EXPECT_EQ(Restore(client_, 1, Guid(1)), "HEADBANK") << "read from the file, no more from the extent";
    EXPECT_EQ(checkpoint->GetStorageById(Guid(1)).GetCloudMetadataPartDescriptionsMap().size(), 1U);
}

TEST_F(SessionChanges, RenamingLogsAndMarks) {
    const auto session = Start();
    session->PrepareStorageForAccess(Guid(1), "/local/one", 4);
    const RecordingSink log;
    session->RenameStorage(Guid(1), "/not/used", "/local/two");
    EXPECT_THAT(log.GetTexts(logging::level_t::info),
                ElementsAre("Renaming storage: id: " + Guid(1).ToAStr(),
                            "Marking storage updated: id: " + Guid(1).ToAStr() + ", meta version: 4"));
    EXPECT_EQ(Cached(*session, Guid(1)).localPath, "/local/two");
}

TEST_F(SessionChanges, RenamingAnUnknownStorageOnlyLogs) {
    const auto session = Start();
    const RecordingSink log;
    session->RenameStorage(Guid(1), "/local/one", "/local/two");
    ASSERT_EQ(log.GetEntries().size(), 1U);
    EXPECT_EQ(log.GetEntries().front(), (SEntry{"library", logging::level_t::info, logging::kind_t::line,
                                                "Renaming storage: id: " + Guid(1).ToAStr()}));
    EXPECT_FALSE(session->IsStorageExist(Guid(1)));
}

TEST_F(SessionChanges, ALongTermMarkNeedsARecordAndLeavesNothingBehindWithout) {
    StorageWriter writer = CommitNew(1);
    const auto session = Start();
    const RecordingSink log;
    EXPECT_EQ(FailureOf([&] { session->StorageUseLongTermBlobs(Guid(1)); }), "Cannot find storage in local cache");
    EXPECT_THAT(log.GetScopes(), ElementsAre("> Marking storage as using long-term blobs store storage '" +
                                                 Guid(1).ToAStr() + "' from backup session. Backup id: 'B'",
                                             "< failed"));
    writer.Attach(*session);
    writer.FlushAll();
    session->CreateCheckpoint("", "");
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy);
}

TEST_F(SessionChanges, ALongTermMarkGivesTheNextDescriptorsTheBlobsSchema) {
    StorageWriter marked = CommitNew(1);
    StorageWriter other = CommitNew(2);
    auto session = Start();
    marked.Attach(*session);
    other.Attach(*session);
    marked.FlushAll();
    other.FlushAll();
    {
        const RecordingSink log;
        session->StorageUseLongTermBlobs(Guid(1));
        EXPECT_THAT(log.GetScopes(), ElementsAre("> Marking storage as using long-term blobs store storage '" +
                                                     Guid(1).ToAStr() + "' from backup session. Backup id: 'B'",
                                                 "< ok"));
        EXPECT_THAT(log.GetTexts(logging::level_t::info),
                    ElementsAre("Marking storage updated: id: " + Guid(1).ToAStr() + ", meta version: 2"));
    }
    session->CreateCheckpoint("", "");
    const auto schemaOf = [&](std::uint8_t storage) {
        return session->GetStorageDescriptor(Guid(storage)).GetBlockStoreSchema();
    };
    EXPECT_EQ(schemaOf(1), CloudStorageBlockStoreSchema::blobs);
    EXPECT_EQ(schemaOf(2), CloudStorageBlockStoreSchema::legacy);

    session = Reopen();
    StorageWriter again = marked;
    again.Attach(*session);
    again.FlushAll();
    session->CreateCheckpoint("", "");
    EXPECT_EQ(schemaOf(1), CloudStorageBlockStoreSchema::blobs) << "a storage keeps its schema";
    EXPECT_EQ(Restore(client_, 4, Guid(1)), "head");
}

TEST_F(SessionChanges, ALongTermMarkMayComeBeforeTheFirstCommit) {
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {});
    writer.Attach(*session);
    writer.FlushAll();
    session->StorageUseLongTermBlobs(Guid(1));
    EXPECT_EQ(Cached(*session, Guid(1)).localPath, Local(Guid(1))) << "the path stays";
    session->CreateCheckpoint("", "");
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetBlockStoreSchema(), CloudStorageBlockStoreSchema::blobs);
}

TEST_F(SessionChanges, ALongTermMarkStaysForTheSessionAndWaitsForAChange) {
    StorageWriter writer = CommitNew(1);
    const auto session = Start();
    writer.Attach(*session);
    session->StorageUseLongTermBlobs(Guid(1));
    session->CreateCheckpoint("", "");
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy)
        << "an unchanged storage keeps its descriptor";
    writer.TakeSink(*session);
    writer.FlushAll();
    session->CreateCheckpoint("", "");
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetBlockStoreSchema(), CloudStorageBlockStoreSchema::blobs);
}

TEST_F(SessionChanges, ImportIsNotSupported) {
    EXPECT_EQ(FailureOf([&] { Start()->ImportStorageMetadata(Guid(1), "/local"); }),
              "CCloudBackupSession::ImportStorageMetadata not implemented");
    EXPECT_EQ(FailureOf([&] { Start(true)->ImportStorageMetadata(Guid(1), "/local"); }),
              "CCloudBackupSession::ImportStorageMetadata not implemented");
}

}  // namespace
}  // namespace test
