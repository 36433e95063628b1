#include "cloudclientlib/wrappers/CountingClient.h"
#include "tests/library/SessionFixture.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SessionQueries : public SessionTest {
protected:
    static std::vector<unsigned long> IdsOf(const std::vector<std::shared_ptr<CCloudCheckpoint>>& checkpoints) {
        std::vector<unsigned long> ids;
        for (const auto& checkpoint : checkpoints) {
            ids.push_back(checkpoint->GetId());
        }
        return ids;
    }
};

TEST_F(SessionQueries, FindsCachedStorages) {
    const auto session = Start(true);
    session->PrepareStorageForAccess(Guid(1), "/local/one", 4);
    CCloudBackupSession::SCachedStorageRecord record{"before", 99};
    EXPECT_FALSE(session->FindCachedStorage(Guid(2), record));
    EXPECT_EQ(record.localPath, "before");
    EXPECT_EQ(record.version, 99U);
    EXPECT_TRUE(session->FindCachedStorage(Guid(1), record));
    EXPECT_EQ(record.localPath, "/local/one");
    EXPECT_EQ(record.version, 4U);
}

TEST_F(SessionQueries, FindsCloudStorages) {
    CommitNew(1, "head", {"bank"});
    const auto session = Start(true);
    CCloudStorageDescriptor descriptor;
    EXPECT_FALSE(session->FindCloudStorage(Guid(2), descriptor));
    EXPECT_TRUE(descriptor.GetStorageId().IsEmpty());
    EXPECT_TRUE(session->FindCloudStorage(Guid(1), descriptor));
    EXPECT_EQ(descriptor.GetStorageId(), Guid(1));
    EXPECT_EQ(descriptor.GetMetaSize(), 8U);
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetFileName(), Guid(1).ToAStr() + ".1");
    EXPECT_EQ(FailureOf([&] { (void)session->GetStorageDescriptor(Guid(2)); }),
              "There is no descriptor for storage '" + Guid(2).ToAStr() + "'");
}

TEST_F(SessionQueries, AStorageExistsLocallyOrInTheCloud) {
    CommitNew(1);
    const auto session = Start(true);
    session->PrepareStorageForAccess(Guid(2), "/local/two", 1);
    EXPECT_TRUE(session->IsStorageExist(Guid(1)));
    EXPECT_TRUE(session->IsStorageExist(Guid(2)));
    EXPECT_FALSE(session->IsStorageExist(Guid(3)));
}

TEST_F(SessionQueries, TellsTheSizeOfABlockStore) {
    CommitNew(1);
    const auto session = Start(true);
    session->PrepareStorageForAccess(Guid(2), "/local/two", 1);
    Put(*client_, paths::GetBackupBlockPath("B", Guid(1), "ab00"), "12345");
    Put(*client_, paths::GetBackupBlockPath("B", Guid(2), "cd00"), "123");
    EXPECT_EQ(session->GetStorageBlockStoreSize(Guid(1)), 5U);
    EXPECT_EQ(session->GetStorageBlockStoreSize(Guid(2)), 3U);
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { (void)session->GetStorageBlockStoreSize(Guid(3)); }),
              "Cannot retrieve blockstore size: storage '" + Guid(3).ToAStr() + "' doesn't exist");
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(SessionQueries, EnumeratesChangedStoragesFirst) {
    CommitNew(5);
    StorageWriter opened = CommitNew(3);
    CommitNew(1);
    const auto session = Start();
    StorageWriter fresh = Writer(4, "four", {});
    fresh.Attach(*session);
    opened.Attach(*session);
    session->PrepareStorageForAccess(Guid(9), "/local/nine", 1);
    EXPECT_THAT(session->EnumerateStorages(), ElementsAre(Guid(3), Guid(4), Guid(1), Guid(5)))
        << "a storage that is registered but has no writer is in neither list";
    EXPECT_NO_THROW(fresh.FlushAll()) << "the cache is resumed";
}

TEST_F(SessionQueries, HandsOutTheClients) {
    const auto session = Start(true);
    EXPECT_EQ(session->GetBackupClient(), client_);
    EXPECT_EQ(session->GetArchiveBlobsClient(), archive_);
}

TEST_F(SessionQueries, EnumeratesCheckpoints) {
    CommitNew(1);
    CommitNew(2);
    CommitNew(3);
    const auto session = Start(true);
    const RecordingSink log;
    EXPECT_THAT(IdsOf(session->EnumCheckpoints()), ElementsAre(1, 2, 3));
    EXPECT_TRUE(log.Has("Cloud session: enumarating checkpoints of backup [B]"));
    EXPECT_EQ(log.GetTexts(logging::level_t::tr).front(), "Cloud session: enumarating checkpoints of backup [B]");
}

TEST_F(SessionQueries, SeveralCheckpointsAreOnTheirWayAtOnce) {
    CommitNew(1);
    CommitNew(2);
    CommitNew(3);
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(client_);
    const auto session = CCloudBackupSession::StartSession(OpenBackup(counting), 3, true);
    counting->ResetCounts();
    EXPECT_THAT(IdsOf(session->EnumCheckpoints()), ElementsAre(1, 2, 3));
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 3U);
    EXPECT_EQ(counting->GetCounts().Of(cloudclientlib::EOperation::downloadFile), 3U);
}

TEST_F(SessionQueries, EnumeratesNoCheckpointsOfANewBackup) { EXPECT_THAT(Start()->EnumCheckpoints(), IsEmpty()); }

TEST_F(SessionQueries, AnObjectNamedZeroIsTheEmptyCheckpoint) {
    CommitNew(1);
    Put(*client_, RegularPath(0), "not a document");
    EXPECT_THAT(IdsOf(Start(true)->EnumCheckpoints()), ElementsAre(0, 1));
}

TEST_F(SessionQueries, AnUnreadableCheckpointEndsTheListing) {
    CommitNew(1);
    CommitNew(2);
    const auto session = Start(true);
    Put(*client_, RegularPath(1), "not a document");
    EXPECT_EQ(FailureOf([&] { (void)session->EnumCheckpoints(); }),
              FailureOf([&] { (void)backup_->LoadCheckpoint(1); }));
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(SessionQueries, AnUnreadableCheckpointIsSkippedWithAWarning) {
    CommitNew(1);
    CommitNew(2);
    CommitNew(3);
    const auto session = Reopen(ErrorHandling::skip);
    Put(*client_, RegularPath(2), "not a document");
    const std::string failure = FailureOf([&] { (void)backup_->LoadCheckpoint(2); });
    const RecordingSink log;
    EXPECT_THAT(IdsOf(session->EnumCheckpoints()), ElementsAre(1, 3));
    EXPECT_THAT(log.GetTexts(logging::level_t::warn),
                ElementsAre("Cannot load checkpoint '2' of cloud backup 'B', skipping it: " + failure));
}

TEST_F(SessionQueries, AFailureToListPassesEvenWhenSkipping) {
    CommitNew(1);
    const auto session = Reopen(ErrorHandling::skip);
    Put(*client_, paths::GetCheckpointFolder("B") + "/notanumber", "x");
    EXPECT_EQ(FailureOf([&] { (void)session->EnumCheckpoints(); }),
              FailureOf([&] { (void)backup_->EnumCheckpoints(); }));
    EXPECT_THAT(FailureOf([&] { (void)session->EnumCheckpoints(); }),
                testing::StartsWith("Failed to enumerate checkpoints for cloud backup 'B'"));
}

}  // namespace
}  // namespace test
