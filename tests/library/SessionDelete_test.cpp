#include "tests/library/SessionFixture.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SessionDelete : public SessionTest {
protected:
    [[nodiscard]] static std::string Block(std::uint8_t storage, const std::string& name) {
        return paths::GetBackupBlockPath("B", Guid(storage), name);
    }
    static std::string ScopeOf(std::uint8_t storage) {
        return "> Deleting storage '" + Guid(storage).ToAStr() + "' from backup session. Backup id: 'B'";
    }
};

TEST_F(SessionDelete, DeletesBlocksRecordAndFile) {
    StorageWriter writer = CommitNew(1);
    CommitNew(2);
    Put(*client_, Block(1, "ab00"), "block");
    Put(*client_, Block(2, "ab00"), "block");
    const auto session = Start();
    writer.Attach(*session);
    const RecordingSink log;
    session->DeleteStorage(Guid(1));
    EXPECT_FALSE(Exists(Block(1, "ab00")));
    EXPECT_TRUE(Exists(Block(2, "ab00")));
    EXPECT_FALSE(std::filesystem::exists(Local(Guid(1))));
    EXPECT_FALSE(session->IsStorageExist(Guid(1)));
    EXPECT_THAT(session->EnumerateStorages(), ElementsAre(Guid(2)));
    EXPECT_THAT(log.GetScopes(),
                ElementsAre(ScopeOf(1), "> Deleting storage blockstore '" + Guid(1).ToAStr() + "'", "< ok", "< ok"));
    EXPECT_THAT(log.GetTexts(logging::level_t::info),
                ElementsAre("De-registering local metadata for '" + Guid(1).ToAStr() + "'",
                            "Deleting cached metadata file '" + Local(Guid(1)) + "'"));
    EXPECT_THAT(log.GetTexts(logging::level_t::warn), IsEmpty());
    session->CreateCheckpoint("", "");
    EXPECT_THAT(Start(true)->EnumerateStorages(), ElementsAre(Guid(2)));
}

TEST_F(SessionDelete, AStorageNeverUploadedLosesItsLocalFileWithAWarning) {
    StorageWriter writer = Writer(1, "head", {});
    const auto session = Start();
    writer.Attach(*session);
    client_->ClearCalls();
    const RecordingSink log;
    session->DeleteStorage(Guid(1));
    EXPECT_THAT(log.GetTexts(logging::level_t::warn),
                ElementsAre("Storage '" + Guid(1).ToAStr() + "' was never uploaded to cloud"));
    EXPECT_FALSE(std::filesystem::exists(Local(Guid(1))));
    EXPECT_FALSE(session->IsStorageExist(Guid(1)));
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(session->EnumChangedStorages(), IsEmpty());
}

TEST_F(SessionDelete, AStorageWithoutALocalRecordLosesItsBlocksOnly) {
    CommitNew(1);
    Put(*client_, Block(1, "ab00"), "block");
    const auto session = Start();
    const RecordingSink log;
    session->DeleteStorage(Guid(1));
    EXPECT_FALSE(Exists(Block(1, "ab00")));
    EXPECT_TRUE(std::filesystem::exists(Local(Guid(1)))) << "not registered, so not the session's to delete";
    EXPECT_FALSE(session->IsStorageExist(Guid(1)));
    EXPECT_THAT(log.GetTexts(logging::level_t::info), IsEmpty());
}

TEST_F(SessionDelete, AnUnknownStorageIsAWarning) {
    const auto session = Start();
    const RecordingSink log;
    session->DeleteStorage(Guid(1));
    EXPECT_THAT(log.GetScopes(), ElementsAre(ScopeOf(1), "< ok"));
    EXPECT_THAT(log.GetTexts(logging::level_t::warn),
                ElementsAre("Storage '" + Guid(1).ToAStr() + "' was never uploaded to cloud"));
}

TEST_F(SessionDelete, ALocalFileThatIsGoneIsNoFailure) {
    StorageWriter writer = CommitNew(1);
    const auto session = Start();
    writer.Attach(*session);
    std::filesystem::remove(Local(Guid(1)));
    EXPECT_NO_THROW(session->DeleteStorage(Guid(1)));
    EXPECT_FALSE(session->IsStorageExist(Guid(1)));
}

TEST_F(SessionDelete, AFileThatCannotBeDeletedLeavesTheStorageToTryAgain) {
    StorageWriter writer = CommitNew(1);
    const auto session = Start();
    writer.Attach(*session);
    writer.FlushAll();
    std::filesystem::remove(Local(Guid(1)));
    std::filesystem::create_directories(Local(Guid(1)) + "/in the way");
    EXPECT_NE(FailureOf([&] { session->DeleteStorage(Guid(1)); }), "no failure");
    EXPECT_TRUE(session->IsStorageExist(Guid(1)));
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetMetaVersion(), 1U);
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
    std::filesystem::remove_all(Local(Guid(1)));
    session->DeleteStorage(Guid(1));
    EXPECT_FALSE(session->IsStorageExist(Guid(1)));
}

TEST_F(SessionDelete, WhatIsDeletedIsToldInOrder) {
    StorageWriter writer = Writer(1, "head", {});
    const auto session = Start();
    writer.Attach(*session);
    const RecordingSink log;
    session->DeleteStorage(Guid(1));
    std::vector<std::string> texts;
    for (const auto& entry : log.GetEntries()) {
        texts.push_back(entry.text);
    }
    EXPECT_THAT(texts,
                ElementsAre(ScopeOf(1).substr(2), "Storage '" + Guid(1).ToAStr() + "' was never uploaded to cloud",
                            "De-registering local metadata for '" + Guid(1).ToAStr() + "'",
                            "Deleting cached metadata file '" + Local(Guid(1)) + "'", "ok"));
}

TEST_F(SessionDelete, DeletesACheckpoint) {
    CommitNew(1);
    CommitNew(2);
    const auto session = Start();
    const RecordingSink log;
    session->DeleteCheckpoint(1);
    EXPECT_FALSE(Exists(RegularPath(1)));
    EXPECT_TRUE(Exists(RegularPath(2)));
    EXPECT_EQ(log.GetScopes().front(),
              "> Deleting cloud backup session checkpoint. Cloud backup id: 'B', checkpoint id: '1'");
    EXPECT_EQ(log.GetScopes().back(), "< ok");
    EXPECT_EQ(Restore(client_, 2, Guid(1)), "head") << "what the remaining checkpoint refers to stays";
}

TEST_F(SessionDelete, DeletesSeveralCheckpointsAlsoReadOnly) {
    CommitNew(1);
    CommitNew(2);
    CommitNew(3);
    const auto session = Start(true);
    const RecordingSink log;
    session->DeleteCheckpoints({1, 2});
    EXPECT_THAT(CCloudBackup::EnumCheckpoints("B", client_, CheckpointFilter::all), ElementsAre(3));
    EXPECT_EQ(log.GetScopes().front(),
              "> Deleting cloud backup session checkpoint. Cloud backup id: 'B', checkpoint ids count: '2'");
    EXPECT_EQ(log.GetScopes().back(), "< ok");
    const RecordingSink log2;
    EXPECT_THAT(FailureOf([&] { session->DeleteCheckpoint(3); }),
                testing::EndsWith("Cannot delete last checkpoint in cloud backup 'B'"));
    EXPECT_EQ(log2.GetScopes().back(), "< failed");
}

TEST_F(SessionDelete, UncommittedChangesRefuseTheDeletionOfCheckpoints) {
    CommitNew(1);
    CommitNew(2);
    const auto session = Start();
    StorageWriter writer = Writer(3, "head", {});
    writer.Attach(*session);
    client_->ClearCalls();
    const RecordingSink log;
    EXPECT_EQ(FailureOf([&] { session->DeleteCheckpoint(1); }),
              "Cannot delete checkpoint '1' from cloud backup 'B': current session has uncommitted changes");
    EXPECT_EQ(FailureOf([&] {
                  session->DeleteCheckpoints({1, 2, 3});
              }),
              "Cannot delete 3  checkpoints from cloud backup 'B': current session has uncommitted changes");
    EXPECT_THAT(
        log.GetScopes(),
        ElementsAre("> Deleting cloud backup session checkpoint. Cloud backup id: 'B', checkpoint id: '1'", "< failed",
                    "> Deleting cloud backup session checkpoint. Cloud backup id: 'B', checkpoint ids count: '3'",
                    "< failed"));
    EXPECT_THAT(Calls(), IsEmpty());
    session->CreateCheckpoint("", "");
    EXPECT_NO_THROW(session->DeleteCheckpoint(1)) << "committed by now, though the sink is still there";
}

TEST_F(SessionDelete, ClearsReleasedBlocksAlsoOfAChangedStorage) {
    StorageWriter writer = CommitNew(1);
    const auto session = Start();
    writer.Attach(*session);
    writer.FlushAll();
    digest::md5_digest_t digest{};
    Put(*client_, Block(1, paths::DigestToBlockName(digest)), "block");
    session->ClearReleasedBlocks(Guid(1), {digest});
    EXPECT_FALSE(Exists(Block(1, paths::DigestToBlockName(digest))));
}

TEST_F(SessionDelete, ClearsOrphanedBlocksOfAnUnchangedStorageOnly) {
    StorageWriter changed = CommitNew(1);
    StorageWriter opened = CommitNew(2);
    const auto session = Start();
    changed.Attach(*session);
    changed.FlushAll();
    opened.Attach(*session);
    Put(*client_, Block(1, "ab00"), "block");
    Put(*client_, Block(2, "ab00"), "block");
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { session->ClearOrphanedBlocks(Guid(1), {}); }),
              "Cannot delete orphaned blocks from storage '" + Guid(1).ToAStr() +
                  "' in cloud backup 'B': current session has uncommitted changes");
    EXPECT_THAT(Calls(), IsEmpty());
    session->ClearOrphanedBlocks(Guid(2), {});
    EXPECT_TRUE(Exists(Block(1, "ab00")));
    EXPECT_FALSE(Exists(Block(2, "ab00")));
}

}  // namespace
}  // namespace test
