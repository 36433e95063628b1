#include "tests/library/SessionFixture.h"

namespace test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class SessionOpen : public SessionTest {};

TEST_F(SessionOpen, AnEmptyBackupGivesAnEmptyWritableSession) {
    const auto session = Start();
    EXPECT_THAT(
        sink_.GetScopes(),
        ElementsAre("> Initializing cloud backup session. Backup id: 'B', checkpoint: '0', read-only: '0'", "< ok"));
    EXPECT_FALSE(session->IsReadOnly());
    EXPECT_EQ(session->GetCheckpoint()->GetId(), 0U);
    EXPECT_THAT(session->EnumerateStorages(), IsEmpty());
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(SessionOpen, AReadOnlySessionMayStandOnAnyCheckpoint) {
    CommitNew(1);
    CommitNew(2);
    const RecordingSink log;
    const auto session = CCloudBackupSession::StartSession(backup_, 1, true);
    EXPECT_TRUE(session->IsReadOnly());
    EXPECT_EQ(session->GetCheckpoint()->GetId(), 1U);
    EXPECT_THAT(session->EnumerateStorages(), ElementsAre(Guid(1)));
    EXPECT_EQ(log.GetScopes().front(),
              "> Initializing cloud backup session. Backup id: 'B', checkpoint: '1', read-only: '1'");
    EXPECT_EQ(log.GetScopes().back(), "< ok");
}

TEST_F(SessionOpen, AWritableSessionOnAnEarlierCheckpointIsRefusedBeforeAnythingIsLoaded) {
    CommitNew(1);
    CommitNew(2);
    client_->ClearCalls();
    const RecordingSink log;
    EXPECT_EQ(FailureOf([&] { (void)CCloudBackupSession::StartSession(backup_, 1, false); }),
              "Cannot open cloud backup for write: session checkpoint '1' differs from the last backup checkpoint '2'");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(log.GetScopes(),
                ElementsAre("> Initializing cloud backup session. Backup id: 'B', checkpoint: '1', read-only: '0'",
                            "< failed"));
    EXPECT_EQ(FailureOf([&] { (void)CCloudBackupSession::StartSession(backup_, 3, false); }),
              "Cannot open cloud backup for write: session checkpoint '3' differs from the last backup checkpoint '2'");
}

TEST_F(SessionOpen, ACheckpointThatIsMissingIsTheBackupsFailure) {
    EXPECT_EQ(FailureOf([&] { (void)CCloudBackupSession::StartSession(backup_, 7, true); }),
              FailureOf([&] { (void)backup_->LoadCheckpoint(7); }));
}

TEST_F(SessionOpen, SingleFileModeRefusesTheNewFormatInBothModes) {
    CommitNew(1);
    const SingleFileMode mode;
    const std::string refusal =
        "Can't create backup session: chekpoint version in storage: '2'. Checkpoints versions greater than '1' are "
        "not supported in current mode";
    EXPECT_EQ(FailureOf([&] { (void)Start(false); }), refusal);
    EXPECT_EQ(FailureOf([&] { (void)Start(true); }), refusal);
}

TEST_F(SessionOpen, SingleFileModeOpensItsOwnFormatAndAnEmptyBackup) {
    const SingleFileMode mode;
    EXPECT_NO_THROW(Start());
    CommitNew(1);
    EXPECT_EQ(Start()->GetCheckpoint()->GetFormatVersion(), 1);
}

TEST_F(SessionOpen, PartsModeOpensBothFormats) {
    {
        const SingleFileMode mode;
        CommitNew(1);
    }
    EXPECT_EQ(Start()->GetCheckpoint()->GetFormatVersion(), 1);
    CommitNew(2);
    EXPECT_EQ(Start()->GetCheckpoint()->GetFormatVersion(), 2);
}

TEST_F(SessionOpen, OfTwoStoragesWithOneIdTheFirstCounts) {
    const auto session = std::make_shared<CCloudBackupSession>(
        Checkpoint(1, {Storage(Guid(1), 5, 50), Storage(Guid(1), 6, 60)}), backup_, true);
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetMetaVersion(), 5U);
}

TEST_F(SessionOpen, ClosingWarnsOfEveryChangedStorage) {
    StorageWriter unchanged = CommitNew(1);
    auto session = Start();
    StorageWriter second = Writer(2, "two", {});
    StorageWriter third = Writer(3, "three", {});
    unchanged.Attach(*session);
    third.Attach(*session);
    second.Attach(*session);
    client_->ClearCalls();
    const RecordingSink log;
    session.reset();
    EXPECT_THAT(
        log.GetTexts(logging::level_t::warn),
        ElementsAre(
            "Storage '" + Guid(2).ToAStr() + "' has been modified since last checkpoint, all changes will be lost",
            "Storage '" + Guid(3).ToAStr() + "' has been modified since last checkpoint, all changes will be lost"));
    EXPECT_THAT(log.GetScopes(), ElementsAre("> Closing cloud backup session. Backup id: 'B'", "< ok"));
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(SessionOpen, ClosingWithoutChangesWarnsOfNothing) {
    auto session = Start();
    session.reset();
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(SessionOpen, ALogThatThrowsDoesNotEscapeTheDestructor) {
    class ThrowingSink : public logging::ISink {
    public:
        bool IsEnabled(std::string_view, logging::level_t) const override { return true; }
        void Write(const logging::SRecord&) override { throw std::runtime_error("the log is full"); }
    };
    auto session = Start();
    logging::SetSink(std::make_shared<ThrowingSink>());
    EXPECT_NO_THROW(session.reset());
    logging::SetSink(nullptr);
}

TEST_F(SessionOpen, ASinkMayOutliveItsSession) {
    auto session = Start();
    StorageWriter writer = Writer(1, "head", {"bank"});
    writer.Attach(*session);
    session.reset();
    EXPECT_NO_THROW(writer.FlushAll());
}

}  // namespace
}  // namespace test
