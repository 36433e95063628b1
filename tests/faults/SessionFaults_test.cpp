#include "tests/faults/SessionFaultsFixture.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

// Two headers, two parts, and both copies of the document, each looked for and written.
constexpr std::uint64_t callsOfACommit = 8;

TEST_F(SessionFaults, ACommitTriedAgainInTheSameSession) {
    unsigned saved = 0;
    const auto calls = SweepSession(base_, [&](const store_ptr& store, const faults_ptr& faults) -> SAttempt {
        const auto host = OpenChanged(faults);
        const auto afterFailure = [this, host, store, &saved] {
            ExpectUncommitted(*host);
            model_.SetCheckpoint(2, Snapshot(*host));
            model_.Check(store->Reopen(), {1});
            const std::string failure = FailureOf(CommitOf(host));
            if (failure != "no failure") {
                // The document was written and only the answer was lost: it is never written twice.
                EXPECT_THAT(failure, EndsWith("Checkpoint already exists"));
                ExpectUncommitted(*host);
                ++saved;
            } else {
                EXPECT_EQ(host->session->GetCheckpoint()->GetId(), 2U);
                EXPECT_THAT(host->session->EnumChangedStorages(), IsEmpty());
            }
            model_.Check(store->Reopen(), {1, 2});
            ExpectCommitFromScratch(store);
        };
        return {CommitOf(host), afterFailure};
    });
    EXPECT_EQ(calls, callsOfACommit);
    // The first copy's write done but reported failed, the look for the second one, and the second one's write not or
    // half or wholly done: 1 + 3 + 3, alone and with a crash.
    EXPECT_EQ(saved, 14U);
}

TEST_F(SessionFaults, ACommitTriedAgainFromScratch) {
    const auto calls = SweepSession(base_, [&](const store_ptr& store, const faults_ptr& faults) -> SAttempt {
        const auto host = OpenChanged(faults);
        const auto afterFailure = [this, host, store] {
            model_.SetCheckpoint(2, Snapshot(*host));
            host->session.reset();
            ExpectCommitFromScratch(store);
        };
        return {CommitOf(host), afterFailure};
    });
    EXPECT_EQ(calls, callsOfACommit);
}

// The writer goes on after the failure; what a lost answer has hidden is a checkpoint with the older bytes.
TEST_F(SessionFaults, ACommitTriedAgainWithNewerChanges) {
    SweepSession(base_, [&](const store_ptr& store, const faults_ptr& faults) -> SAttempt {
        const auto host = OpenChanged(faults);
        const auto afterFailure = [this, host, store] {
            model_.SetCheckpoint(2, Snapshot(*host));
            ChangeAgain(*host);
            if (FailureOf(CommitOf(host)) == "no failure") {
                model_.SetCheckpoint(2, Snapshot(*host));
            }
            model_.Check(store->Reopen(), {1, 2});
        };
        return {CommitOf(host), afterFailure};
    });
}

TEST_F(SessionFaults, SyncLocalStorage) {
    const auto calls = SweepSession(base_, [&](const store_ptr&, const faults_ptr& faults) -> SAttempt {
        const auto host = Open(faults);
        const std::string path = host->folder / "local";
        WriteFile(path, "an older version");
        const auto sync = [host, path] { host->session->SyncLocalStorage(Guid(1), path, 7); };
        const auto afterFailure = [host, path, sync] {
            EXPECT_EQ(ReadFile(path), "") << "nothing that could be taken for the metadata";
            sync();
            EXPECT_EQ(ReadFile(path), "head-1aaaa-1bbbb-1");
        };
        return {sync, afterFailure};
    });
    EXPECT_EQ(calls, 3U);
}

TEST_F(SessionFaults, PrepareStorageForAccess) {
    const auto calls = SweepSession(base_, [&](const store_ptr&, const faults_ptr& faults) -> SAttempt {
        const auto host = Open(faults);
        const std::string path = host->folder / "local";
        const auto prepare = [host, path] { host->session->PrepareStorageForAccess(Guid(1), path, 0); };
        const auto afterFailure = [host, path, prepare] {
            CCloudBackupSession::SCachedStorageRecord record;
            EXPECT_FALSE(host->session->FindCachedStorage(Guid(1), record));
            prepare();
            EXPECT_EQ(ReadFile(path), "head-1aaaa-1bbbb-1");
            ASSERT_TRUE(host->session->FindCachedStorage(Guid(1), record));
            EXPECT_EQ(record.version, 1U);
        };
        return {prepare, afterFailure};
    });
    EXPECT_EQ(calls, 3U);
}

TEST_F(SessionFaults, DeleteStorage) {
    const auto calls = SweepSession(base_, [&](const store_ptr& store, const faults_ptr& faults) -> SAttempt {
        const auto host = OpenChanged(faults);
        const auto remove = [host] { host->session->DeleteStorage(Guid(1)); };
        const auto afterFailure = [this, host, store, remove] {
            ExpectUncommitted(*host);
            EXPECT_TRUE(std::filesystem::exists(host->writers.at(1).GetPath()));
            remove();
            EXPECT_FALSE(host->session->IsStorageExist(Guid(1)));
            EXPECT_FALSE(std::filesystem::exists(host->writers.at(1).GetPath()));
            EXPECT_FALSE(store->IsFileExist(BlockPath(1)));
            EXPECT_TRUE(store->IsFileExist(BlockPath(2)));
            host->writers.erase(1);
            CommitOf(host)();
            model_.SetCheckpoint(2, Snapshot(*host));
            model_.Check(store->Reopen(), {1, 2});
        };
        return {remove, afterFailure};
    });
    EXPECT_EQ(calls, 2U);
}

}  // namespace
