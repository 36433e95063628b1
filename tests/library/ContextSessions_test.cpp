#include "cloudbackuplib/CloudBackupLibCtx.h"
#include "tests/library/ContextFactory.h"
#include "tests/library/RepositoryFixture.h"

// The context behind a factory that returns a repository.
namespace test {
namespace {

using cloudbackuplib::CCloudBackupLibCtx;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

class ContextSessions : public RepositoryTest {
protected:
    ContextSessions() {
        CCloudBackupLibCtx::ResetInstance();
        context_ = CCloudBackupLibCtx::Instance();
        repository_ = Create();
        FactoryStandIn() = {repository_, {}};
    }
    ~ContextSessions() override {
        FactoryStandIn() = {};
        CCloudBackupLibCtx::ResetInstance();
    }

    void Connect(const std::string& name = "c") { context_->AddConnection(name, "AmazonS3", "the spec", nullptr); }
    auto Start(const std::string& backup, unsigned long checkpoint, bool readOnly, const std::string& name = "c") {
        return context_->StartBackupSession(name, {}, backup, checkpoint, readOnly);
    }

    std::shared_ptr<CCloudBackupLibCtx> context_;
    repository_ptr repository_;
};

TEST_F(ContextSessions, AConnectionHoldsTheRepositoryThatTheFactoryReturned) {
    Connect();
    EXPECT_THAT(FactoryStandIn().calls, ElementsAre(Pair(ECloudService::AmazonS3, "the spec")));
    EXPECT_EQ(context_->GetRepository("c"), repository_);
    EXPECT_EQ(context_->GetConnection("c").repository, repository_);
    EXPECT_THAT(context_->GetConnection("c").sessions, IsEmpty());
}

TEST_F(ContextSessions, ANameIsTakenOnceAndNothingIsOpenedForTheSecond) {
    Connect();
    EXPECT_EQ(FailureOf([&] { context_->AddConnection("c", "no service", "other", nullptr); }),
              "Cloud connection 'c' already exists");
    EXPECT_THAT(FactoryStandIn().calls, SizeIs(1));
    Connect("d");
    EXPECT_EQ(context_->GetRepository("d"), repository_);
}

TEST_F(ContextSessions, AFailedOpeningRegistersNothing) {
    FactoryStandIn().repository.reset();
    EXPECT_EQ(FailureOf([&] { Connect(); }), "no repository today");
    FactoryStandIn().repository = repository_;
    EXPECT_NO_THROW(Connect());
}

TEST_F(ContextSessions, ForwardsToTheRepository) {
    Connect();
    MakeBackup(*repository_, "B");
    EXPECT_EQ(context_->GetStorageQuota("c"), repository_->GetStorageQuota());
    EXPECT_THAT(context_->EnumBackups("c", {}), SizeIs(1));
    EXPECT_EQ(context_->LoadBackup("c", {}, "B", true)->GetLastCheckpointId(), 1UL);
    EXPECT_THROW((void)context_->LoadBackup("c", {}, "none", true), CBackupNotFoundExc);
    context_->DeleteBackup("c", {}, "B", nullptr);
    EXPECT_THAT(context_->EnumBackups("c", {}), IsEmpty());
}

TEST_F(ContextSessions, ASessionIsOpenedFoundAndClosed) {
    Connect();
    MakeBackup(*repository_, "B");
    auto session = Start("B", 1, false);
    EXPECT_FALSE(session->IsReadOnly());
    EXPECT_EQ(session->GetCheckpoint()->GetId(), 1UL);
    EXPECT_EQ(context_->GetBackupSession("c", "B"), session);
    context_->CloseBackupSession("c", "B");
    const std::string notFound = "Cloud backup session 'B' not found";
    EXPECT_EQ(FailureOf([&] { (void)context_->GetBackupSession("c", "B"); }), notFound);
    EXPECT_EQ(FailureOf([&] { context_->CloseBackupSession("c", "B"); }), notFound);
    EXPECT_EQ(session.use_count(), 1);
    EXPECT_EQ(session->CreateCheckpoint("more", "")->GetId(), 2UL) << "its holder goes on with it";
}

TEST_F(ContextSessions, OneSessionPerConnectionAndBackup) {
    Connect();
    Connect("d");
    MakeBackup(*repository_, "B");
    MakeBackup(*repository_, "C");
    const auto session = Start("B", 1, true);
    EXPECT_TRUE(session->IsReadOnly());
    EXPECT_EQ(FailureOf([&] { Start("B", 1, true); }), "Cloud backup session 'B' already exists");
    EXPECT_EQ(FailureOf([&] { Start("B", 0, true); }), "Cloud backup session 'B' already exists");
    EXPECT_NE(Start("C", 1, true), session);
    EXPECT_NE(Start("B", 1, true, "d"), session);
    EXPECT_EQ(context_->GetBackupSession("c", "B"), session);
    context_->CloseBackupSession("c", "B");
    EXPECT_NO_THROW(Start("B", 1, false));
}

TEST_F(ContextSessions, CheckpointZeroMakesTheBackup) {
    Connect();
    const auto session = Start("new", 0, false);
    EXPECT_FALSE(session->IsReadOnly());
    EXPECT_EQ(session->CreateCheckpoint("first", "")->GetId(), 1UL);
    EXPECT_EQ(context_->LoadBackup("c", {}, "new", true)->GetLastCheckpointId(), 1UL);
}

TEST_F(ContextSessions, CheckpointZeroCannotBeReadAndNothingIsAsked) {
    Connect();
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { Start("B", 0, true); }),
              "Cannot start readonly backup session for non-existent checkpoint of backup: B");
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ContextSessions, AFailureRegistersNoSession) {
    Connect();
    EXPECT_THROW(Start("B", 1, false), CBackupNotFoundExc);
    MakeBackup(*repository_, "B");
    EXPECT_NE(FailureOf([&] { Start("B", 7, true); }), "no failure");
    EXPECT_EQ(FailureOf([&] { (void)context_->GetBackupSession("c", "B"); }), "Cloud backup session 'B' not found");
    EXPECT_NO_THROW(Start("B", 1, false));
}

TEST_F(ContextSessions, AResetLeavesWhatWasHandedOut) {
    Connect();
    MakeBackup(*repository_, "B");
    const auto session = Start("B", 1, false);
    context_.reset();
    CCloudBackupLibCtx::ResetInstance();
    EXPECT_EQ(session.use_count(), 1);
    EXPECT_EQ(session->CreateCheckpoint("more", "")->GetId(), 2UL);
    EXPECT_EQ(FailureOf([] { (void)CCloudBackupLibCtx::Instance()->GetRepository("c"); }),
              "Cloud connection 'c' not found");
}

}  // namespace
}  // namespace test
