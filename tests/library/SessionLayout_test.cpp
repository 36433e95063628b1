#include "tests/library/SessionFixture.h"
#include "tests/support/SizedPart.h"

/// Commits of storages whose writers move, resize and drop parts within one session.
namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SessionLayout : public SessionTest {
protected:
    void Commit(CCloudBackupSession& session, const StorageWriter& writer) {
        const auto id = session.CreateCheckpoint("", "")->GetId();
        committed_.push_back(writer.GetBytes());
        ASSERT_EQ(committed_.size(), id);
    }

    void ExpectAllRestored() {
        for (unsigned long id = 1; id <= committed_.size(); ++id) {
            EXPECT_EQ(Restore(client_, id, Guid(1)), committed_[id - 1]) << "checkpoint " << id;
        }
        EXPECT_THAT(Warnings(), IsEmpty());
    }

    std::vector<std::string> committed_;
};

TEST_F(SessionLayout, ALastPartThatGrewSinceItsFirstReportIsUploadedWhole) {
    StorageWriter writer = Writer(1, "head", {"aaaa", "bb"});
    const auto session = Start();
    writer.Attach(*session);
    writer.FlushAll();
    Commit(*session, writer);
    writer.banks[1] = "bbbbbb";
    writer.Flush({1});
    Commit(*session, writer);
    writer.banks[0] = "AAAA";
    writer.Flush({0});
    Commit(*session, writer);
    ExpectAllRestored();
}

TEST_F(SessionLayout, APartThatGrewBeforeTheFirstCommitIsUploadedWhole) {
    StorageWriter writer = Writer(1, "head", {"aa"});
    const auto session = Start();
    writer.Attach(*session);
    writer.FlushAll();
    writer.banks[0] = "aaaaaa";
    writer.FlushAll();
    Commit(*session, writer);
    ExpectAllRestored();
}

TEST_F(SessionLayout, AHeaderThatGrewMovesEveryPart) {
    StorageWriter writer = Writer(1, "head", {"aaaa", "bbbb"});
    const auto session = Start();
    writer.Attach(*session);
    writer.FlushAll();
    Commit(*session, writer);
    writer.header = "longer header";
    writer.FlushAll();
    Commit(*session, writer);
    ExpectAllRestored();
}

TEST_F(SessionLayout, AHeaderThatSwallowsAllPartsStandsAlone) {
    StorageWriter writer = CommitNew(1, "head", {"aaaa", "bbbb"});
    committed_.push_back(writer.GetBytes());
    const auto session = Start();
    writer.Attach(*session);
    writer.header = writer.GetBytes();
    writer.banks.clear();
    writer.FlushAll();
    Commit(*session, writer);
    ExpectAllRestored();
    EXPECT_THAT(session->GetStorageDescriptor(Guid(1)).GetCloudMetadataPartDescriptionsMap(), IsEmpty());
}

TEST_F(SessionLayout, MetadataThatBecameShorterLosesItsLastParts) {
    StorageWriter writer = Writer(1, "head", {"aaaa", "bbbb", "cccc"});
    const auto session = Start();
    writer.Attach(*session);
    writer.FlushAll();
    Commit(*session, writer);
    writer.banks.pop_back();
    writer.header = "HEAD";
    writer.Flush({});
    Commit(*session, writer);
    ExpectAllRestored();
    EXPECT_EQ(session->GetStorageDescriptor(Guid(1)).GetCloudMetadataPartDescriptionsMap().size(), 2U);
}

TEST_F(SessionLayout, ShorterMetadataInANewSessionKeepsItsFirstPartsInPlace) {
    StorageWriter writer = CommitNew(1, "head", {"aaaa", "bbbb", "cccc"});
    committed_.push_back(writer.GetBytes());
    const auto session = Start();
    writer.Attach(*session);
    writer.banks.pop_back();
    writer.Flush({});
    Commit(*session, writer);
    ExpectAllRestored();
    EXPECT_THAT(PartsInCloud(Guid(1), 2), ElementsAre("")) << "the header alone is new";
}

// Were the part at 8 kept from the first version, its place would fit and its bytes would not.
TEST_F(SessionLayout, PartsThatWereJoinedAndCutAgainAreUploadedAfresh) {
    StorageWriter writer = CommitNew(1, "head", {"aaaa", "bbbb"});
    committed_.push_back(writer.GetBytes());
    const auto session = Start();
    writer.Attach(*session);
    writer.Flush({});
    writer.banks = {"AAAABBBB"};
    writer.Flush({0});
    writer.banks = {"AAAA", "BBBB"};
    writer.Flush({});
    Commit(*session, writer);
    ExpectAllRestored();
}

TEST_F(SessionLayout, ARewriteWithOtherBordersReplacesEverything) {
    StorageWriter writer = CommitNew(1, "head", {"aaaa", "bbbb", "cccc"});
    committed_.push_back(writer.GetBytes());
    const auto session = Start();
    writer.Attach(*session);
    writer.banks[1] = "BBBB";
    writer.Flush({1});
    Commit(*session, writer);
    writer.header = "header";
    writer.banks = {"xx", "yyyyyyyyyyyy"};
    writer.FlushAll();
    Commit(*session, writer);
    writer.banks = {"z"};
    writer.FlushAll();
    Commit(*session, writer);
    ExpectAllRestored();
}

TEST_F(SessionLayout, ANewSinkBeforeTheCommitDoesNotForgetTheReportedLayout) {
    StorageWriter writer = Writer(1, "head", {"aaaa", "bbbb"});
    const auto session = Start();
    writer.Attach(*session);
    writer.FlushAll();
    writer.Detach();
    writer.TakeSink(*session);  // registers with a header size of 0
    Commit(*session, writer);
    ExpectAllRestored();
}

TEST_F(SessionLayout, LayoutsReportedPieceByPieceAddUp) {
    const auto session = Start();
    session->PrepareStorageForAccess(Guid(1), Local(Guid(1)), 0);
    const auto sink = session->GetStorageUpdateSink(Guid(1), std::make_shared<MemoryExtent>("headaaaabbbb"));
    sink->Update(1, {{4, SizedPart(4, true)}}, {{4, SizedPart(4, true)}}, 4);
    sink->Update(2, {{8, SizedPart(4, true)}}, {{8, SizedPart(4, true)}}, 4);
    session->CreateCheckpoint("", "");
    committed_ = {"headaaaabbbb"};
    ExpectAllRestored();
}

TEST_F(SessionLayout, PartsThatNeverSkipAreUploadedEveryTime) {
    const auto session = Start();
    session->PrepareStorageForAccess(Guid(1), Local(Guid(1)), 0);
    const auto extent = std::make_shared<MemoryExtent>("headaaaabbbb");
    const auto sink = session->GetStorageUpdateSink(Guid(1), extent);
    sink->Update(1, {}, {{4, SizedPart(4, false)}, {8, SizedPart(4, false)}}, 4);
    session->CreateCheckpoint("", "");
    extent->SetBytes("headAAAAbbbb");
    sink->Update(2, {}, {}, 4);
    session->CreateCheckpoint("", "");
    EXPECT_THAT(PartsInCloud(Guid(1), 2), ElementsAre("", "4", "8"));
    committed_ = {"headaaaabbbb", "headAAAAbbbb"};
    ExpectAllRestored();
}

// A writer that reports no layout at all, only the header: parts stay where they are.
TEST_F(SessionLayout, WithoutAReportedLayoutAllPartsBehindTheHeaderAreKept) {
    StorageWriter writer = CommitNew(1, "head", {"aaaa", "bbbb"});
    const auto session = Start();
    session->PrepareStorageForAccess(Guid(1), Local(Guid(1)), 1);
    const auto sink = session->GetStorageUpdateSink(Guid(1), std::make_shared<MemoryExtent>("HEADaaaabbbb"));
    sink->Update(2, {}, {}, 4);
    session->CreateCheckpoint("", "");
    committed_ = {"headaaaabbbb", "HEADaaaabbbb"};
    ExpectAllRestored();
}

TEST_F(SessionLayout, PartsThatTheCloudHasOnlyInOneObjectAreUploadedThoughNotUpdated) {
    StorageWriter writer = Writer(1, "head", {"aaaa", "bbbb", "cccc"});
    {
        const SingleFileMode singleFile;
        const auto session = Start();
        writer.Attach(*session);
        writer.FlushAll();
        Commit(*session, writer);
        writer.Detach();
    }
    for (const std::size_t bank : {1U, 2U}) {
        const auto session = Reopen();
        writer.Attach(*session);
        writer.banks[bank] = "XXXX";
        writer.Flush({bank});
        Commit(*session, writer);
        writer.Detach();
    }
    EXPECT_THAT(PartsInCloud(Guid(1), 2), ElementsAre("", "12", "4", "8"));
    EXPECT_THAT(PartsInCloud(Guid(1), 3), ElementsAre("", "12")) << "from then on only what changed";
    ExpectAllRestored();
}

TEST_F(SessionLayout, AStaleLayoutThatNothingCanMendIsAWarning) {
    StorageWriter writer = CommitNew(1, "head", {"aaaa", "bbbb"});
    const auto session = Start();
    session->PrepareStorageForAccess(Guid(1), Local(Guid(1)), 1);
    const auto sink = session->GetStorageUpdateSink(Guid(1), std::make_shared<MemoryExtent>("headaaaabbbb"));
    sink->Update(2, {}, {{4, SizedPart(4, true)}}, 4);  // says nothing of the bytes from 8 on
    const RecordingSink log;
    session->CreateCheckpoint("", "");
    ASSERT_EQ(log.GetTexts(logging::level_t::warn).size(), 1U);
    EXPECT_THAT(log.GetTexts(logging::level_t::warn).front(), testing::HasSubstr("cannot be restored as it stands"));
    EXPECT_EQ(Restore(client_, 1, Guid(1)), "headaaaabbbb") << "earlier checkpoints are not touched";
}

}  // namespace
}  // namespace test
