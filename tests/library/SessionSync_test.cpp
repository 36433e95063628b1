#include "common/exc.h"
#include "common/posix.h"
#include "tests/library/SessionFixture.h"

namespace test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class SessionSync : public SessionTest {
protected:
    SessionSync() {
        StorageWriter writer = CommitNew(1, "head", {"bank"});
        (void)writer;
        std::filesystem::remove(local_);
        session_ = Start(true);
        client_->ClearCalls();
    }

    [[nodiscard]] std::string SyncScope(unsigned long version) const {
        return "> Synchronizing local storage metadata with cloud. Storage id: '" + Guid(1).ToAStr() +
               ", local path: '" + local_ + "', version: '" + std::to_string(version) + "'";
    }
    [[nodiscard]] std::string PrepareScope() const {
        return "> Preparing local storage metadata for access. Storage id: " + Guid(1).ToAStr() +
               ", local path: " + local_;
    }
    [[nodiscard]] std::string Failed(unsigned long version, const std::string& cause) const {
        return "Cannot prepare local storage metadata for write. Storage id: " + Guid(1).ToAStr() +
               ", local path: " + local_ + ", local version: " + std::to_string(version) + ": " + cause;
    }
    unsigned long CachedVersion() {
        CCloudBackupSession::SCachedStorageRecord record;
        return session_->FindCachedStorage(Guid(1), record) ? record.version : 999;
    }

    const std::string local_ = Local(Guid(1));
    session_ptr session_;
};

TEST_F(SessionSync, VersionZeroDownloads) {
    const RecordingSink log;
    session_->SyncLocalStorage(Guid(1), local_, 0);
    EXPECT_EQ(ReadFile(local_), "headbank");
    EXPECT_THAT(log.GetScopes(), ElementsAre(SyncScope(0), "< ok"));
    EXPECT_EQ(log.GetTexts(logging::level_t::tr).front(),
              "Local storage metadata not found and will be downloaded from cloud");
}

TEST_F(SessionSync, AnotherVersionDownloads) {
    WriteFile(local_, "something longer than what is in the cloud");
    const RecordingSink log;
    session_->SyncLocalStorage(Guid(1), local_, 7);
    EXPECT_EQ(ReadFile(local_), "headbank");
    EXPECT_THAT(log.GetScopes(), ElementsAre(SyncScope(7), "< ok"));
    EXPECT_EQ(log.GetTexts(logging::level_t::tr).front(),
              "Local storage metadata version '7' differs from the cloud version '1'");
}

TEST_F(SessionSync, TheRightVersionWithAWrongSizeDownloads) {
    WriteFile(local_, "headban");
    const RecordingSink log;
    session_->SyncLocalStorage(Guid(1), local_, 1);
    EXPECT_EQ(ReadFile(local_), "headbank");
    EXPECT_THAT(log.GetTexts(logging::level_t::warn),
                ElementsAre("Local metadata " + local_ + " has wrong size, must be re-downloaded"));
    EXPECT_THAT(log.GetScopes(), ElementsAre(SyncScope(1), "< ok"));
}

TEST_F(SessionSync, TheRightVersionAndSizeIsLeftAlone) {
    WriteFile(local_, "HEADBANK");
    const RecordingSink log;
    session_->SyncLocalStorage(Guid(1), local_, 1);
    EXPECT_EQ(ReadFile(local_), "HEADBANK");
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(log.GetScopes(), ElementsAre(SyncScope(1), "< Local storage metadata is up-to-date"));
    EXPECT_EQ(log.GetEntries().size(), 2U);
}

TEST_F(SessionSync, AMissingFileOfTheRightVersionIsAFailure) {
    EXPECT_THROW(session_->SyncLocalStorage(Guid(1), local_, 1), posix::CPosixExc);
}

TEST_F(SessionSync, AStorageThatTheCheckpointDoesNotHaveCannotBeSynchronised) {
    EXPECT_EQ(FailureOf([&] { session_->SyncLocalStorage(Guid(2), local_, 0); }),
              "There is no descriptor for storage '" + Guid(2).ToAStr() + "'");
}

TEST_F(SessionSync, AFailedDownloadPasses) {
    client_->DeleteFileAsync(paths::GetBackupMetaItemPath("B", Guid(1).ToAStr() + ".1"))->Wait();
    const RecordingSink log;
    EXPECT_THAT(FailureOf([&] { session_->SyncLocalStorage(Guid(1), local_, 0); }),
                testing::StartsWith("Failed to download storage metadata '" + Guid(1).ToAStr() +
                                    ".1' from cloud. Local path: '" + local_ + "': "));
    EXPECT_THAT(log.GetScopes(), ElementsAre(SyncScope(0), "< failed"));
}

TEST_F(SessionSync, PreparingDownloadsWhatDiffersAndRegistersTheCloudsVersion) {
    const RecordingSink log;
    session_->PrepareStorageForAccess(Guid(1), local_, 0);
    EXPECT_EQ(ReadFile(local_), "headbank");
    EXPECT_EQ(CachedVersion(), 1U);
    EXPECT_THAT(log.GetScopes(), ElementsAre(PrepareScope(), SyncScope(0), "< ok", "< ok"));
}

TEST_F(SessionSync, PreparingANewerLocalVersionGoesBackToTheClouds) {
    WriteFile(local_, "not committed");
    session_->PrepareStorageForAccess(Guid(1), local_, 2);
    EXPECT_EQ(ReadFile(local_), "headbank");
    EXPECT_EQ(CachedVersion(), 1U);
}

TEST_F(SessionSync, PreparingTheCloudsVersionOnlyRegisters) {
    WriteFile(local_, "left as it is");
    const RecordingSink log;
    session_->PrepareStorageForAccess(Guid(1), local_, 1);
    EXPECT_EQ(ReadFile(local_), "left as it is");
    EXPECT_EQ(CachedVersion(), 1U);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(log.GetScopes(), ElementsAre(PrepareScope(), "< ok"));
}

TEST_F(SessionSync, PreparingAStorageThatTheCloudDoesNotHaveOnlyRegisters) {
    session_->PrepareStorageForAccess(Guid(2), "/local/two", 5);
    CCloudBackupSession::SCachedStorageRecord record;
    ASSERT_TRUE(session_->FindCachedStorage(Guid(2), record));
    EXPECT_EQ(record.localPath, "/local/two");
    EXPECT_EQ(record.version, 5U);
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(SessionSync, PreparingTwiceIsFineWithTheSamePathAndVersion) {
    session_->PrepareStorageForAccess(Guid(1), local_, 0);
    client_->ClearCalls();
    const RecordingSink log;
    session_->PrepareStorageForAccess(Guid(1), local_, 1);
    EXPECT_THAT(log.GetScopes(), ElementsAre(PrepareScope(), "< Local metadata is already cached"));
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(SessionSync, PreparingTwiceWithAnotherPathIsRefused) {
    session_->PrepareStorageForAccess(Guid(1), "/elsewhere", 1);
    const RecordingSink log;
    EXPECT_EQ(FailureOf([&] { session_->PrepareStorageForAccess(Guid(1), local_, 1); }),
              Failed(1, "Local metadata path is already set to '/elsewhere'"));
    EXPECT_THAT(log.GetScopes(), ElementsAre(PrepareScope(), "< failed"));
}

TEST_F(SessionSync, PreparingTwiceWithAnotherVersionIsRefused) {
    session_->PrepareStorageForAccess(Guid(1), local_, 1);
    EXPECT_EQ(FailureOf([&] { session_->PrepareStorageForAccess(Guid(1), local_, 3); }),
              Failed(3, "Local storage metadata is desynchronized (cached version: '1', actual version: '3')"));
    EXPECT_EQ(CachedVersion(), 1U);
}

TEST_F(SessionSync, AFailedPreparationRegistersNothingAndCanBeTriedAgain) {
    const std::string header = paths::GetBackupMetaItemPath("B", Guid(1).ToAStr() + ".1");
    client_->DeleteFileAsync(header)->Wait();
    try {
        session_->PrepareStorageForAccess(Guid(1), local_, 0);
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(failure.GetMessage() + ": ", Failed(0, ""));
        EXPECT_THAT(failure.what(), testing::HasSubstr("Failed to download storage metadata"));
    }
    EXPECT_EQ(CachedVersion(), 999U);
    Put(*client_, header, "head");
    session_->PrepareStorageForAccess(Guid(1), local_, 0);
    EXPECT_EQ(ReadFile(local_), "headbank");
    EXPECT_EQ(CachedVersion(), 1U);
}

}  // namespace
}  // namespace test
