// Sessions that delete, clear, open and list while the store fails.

#include "tests/faults/SessionFaultsFixture.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

class SessionStoreFaults : public SessionFaults {
protected:
    /// The second checkpoint, as OpenChanged leaves it to be made.
    void CommitSecond() {
        const auto host = OpenChanged(base_);
        CommitOf(host)();
        model_.SetCheckpoint(2, Snapshot(*host));
        model_.Check(base_, {1, 2});
    }

    static std::set<unsigned long> Checkpoints(const store_ptr& store) {
        return OpenBackup(store)->EnumCheckpointsImpl(CheckpointFilter::all);
    }

    /// Runs a deletion of checkpoints; after a failure the session must stand where it stood, and be able to go on.
    SSweepResult SweepDeletion(const std::function<void(CCloudBackupSession&)>& remove) {
        const auto prepare = [remove](const faults_ptr& faults) -> std::function<void()> {
            const auto host = Open(faults);
            return [host, faults, remove] {
                try {
                    remove(*host->session);
                } catch (const std::exception&) {
                    EXPECT_THAT(host->session->EnumChangedStorages(), IsEmpty());
                    EXPECT_EQ(host->session->GetCheckpoint()->GetId(), 2U);
                    EXPECT_EQ(host->session->EnumerateStorages().size(), 4U) << "the cache is resumed";
                    throw;
                }
            };
        };
        const auto again = [remove](const store_ptr& store) {
            if (Checkpoints(store).contains(1)) {
                remove(*Open(store)->session);
            }
        };
        const auto deleted = [](const store_ptr& store) { EXPECT_THAT(Checkpoints(store), ElementsAre(2)); };
        return RunSweep(base_, {.prepare = prepare,
                                .check = [this](const store_ptr& store) { model_.Check(store, {2}); },
                                .retry = again,
                                .checkDone = deleted});
    }
};

TEST_F(SessionStoreFaults, DeleteCheckpoint) {
    CommitSecond();
    const auto result = SweepDeletion([](CCloudBackupSession& session) { session.DeleteCheckpoint(1); });
    EXPECT_GT(result.calls, 5U);
    EXPECT_GT(result.reported, 0U);
}

TEST_F(SessionStoreFaults, DeleteCheckpoints) {
    CommitSecond();
    const auto result = SweepDeletion([](CCloudBackupSession& session) { session.DeleteCheckpoints({1}); });
    EXPECT_GT(result.calls, 5U);
    EXPECT_GT(result.reported, 0U);
}

TEST_F(SessionStoreFaults, ClearReleasedBlocks) {
    const digest::md5_digest_t first = digest::Md5(std::string("released"));
    const digest::md5_digest_t second = digest::Md5(std::string("released too"));
    const auto path = [](const digest::md5_digest_t& digest) {
        return paths::GetBackupBlockPath("B", Guid(1), paths::DigestToBlockName(digest));
    };
    Put(*base_, path(first), "released");
    Put(*base_, path(second), "released too");
    const auto calls = SweepSession(base_, [&](const store_ptr& store, const faults_ptr& faults) -> SAttempt {
        const auto host = OpenChanged(faults);
        const auto clear = [host, first, second] { host->session->ClearReleasedBlocks(Guid(1), {first, second}); };
        const auto afterFailure = [this, host, store, clear, path, first, second] {
            ExpectUncommitted(*host);
            clear();
            EXPECT_FALSE(store->IsFileExist(path(first)));
            EXPECT_FALSE(store->IsFileExist(path(second)));
            EXPECT_TRUE(store->IsFileExist(BlockPath(1)));
            model_.Check(store->Reopen(), {1});
        };
        return {clear, afterFailure};
    });
    EXPECT_EQ(calls, 2U);
}

TEST_F(SessionStoreFaults, ClearOrphanedBlocks) {
    const std::string orphan =
        paths::GetBackupBlockPath("B", Guid(3), paths::DigestToBlockName(digest::Md5(std::string("orphan"))));
    Put(*base_, orphan, "orphan");
    const auto calls = SweepSession(base_, [&](const store_ptr& store, const faults_ptr& faults) -> SAttempt {
        const auto host = Open(faults);
        const auto clear = [host] { host->session->ClearOrphanedBlocks(Guid(3), {digest::Md5(std::string("block"))}); };
        const auto afterFailure = [this, store, clear, orphan] {
            EXPECT_TRUE(store->IsFileExist(BlockPath(3)));
            clear();
            EXPECT_FALSE(store->IsFileExist(orphan));
            EXPECT_TRUE(store->IsFileExist(BlockPath(3)));
            EXPECT_TRUE(store->IsFileExist(BlockPath(1)));
        };
        return {clear, afterFailure};
    });
    EXPECT_EQ(calls, 256U + 1U);
}

TEST_F(SessionStoreFaults, ACommitOfSingleFiles) {
    const SingleFileMode mode;
    const auto store = std::make_shared<clients::CMemoryClient>();
    (void)CCloudBackup::CreateNew("B", store, store, {}, {});
    const auto calls = SweepSession(store, [&](const store_ptr& copy, const faults_ptr& faults) -> SAttempt {
        const auto host = Open(faults);
        for (std::uint8_t storage = 1; storage <= 2; ++storage) {
            auto& writer = AddWriter(*host, storage);
            writer.header = "whole " + std::to_string(storage);
            writer.WriteFile();
            writer.Attach(*host->session);
            writer.FlushAll();
        }
        const auto afterFailure = [host, copy] {
            EXPECT_EQ(host->session->GetCheckpoint()->GetId(), 0U);
            EXPECT_THAT(host->session->EnumChangedStorages(), ElementsAre(Guid(1), Guid(2)));
            const std::string failure = FailureOf(CommitOf(host));
            if (failure != "no failure") {  // it was saved, only the answer was lost
                EXPECT_THAT(failure, testing::EndsWith("Checkpoint already exists"));
            }
            EXPECT_EQ(Restore(copy->Reopen(), 1, Guid(1)), "whole 1");
            EXPECT_EQ(Restore(copy->Reopen(), 1, Guid(2)), "whole 2");
        };
        return {CommitOf(host), afterFailure};
    });
    // Two objects, and both copies of the document, each looked for and written.
    EXPECT_EQ(calls, 6U);
}

TEST_F(SessionStoreFaults, StartSession) {
    CommitSecond();
    for (const bool readOnly : {false, true}) {
        const auto calls = SweepSession(base_, [&](const store_ptr& store, const faults_ptr& faults) -> SAttempt {
            const auto backup = OpenBackup(faults);
            const auto start = [backup, readOnly] {
                EXPECT_EQ(CCloudBackupSession::StartSession(backup, 2, readOnly)->EnumerateStorages().size(), 4U);
            };
            const auto afterFailure = [this, store, start] {
                model_.Check(store->Reopen(), {1, 2});
                start();
            };
            return {start, afterFailure};
        });
        EXPECT_GT(calls, 0U);
    }
}

TEST_F(SessionStoreFaults, EnumCheckpoints) {
    CommitSecond();
    const auto calls = SweepSession(base_, [&](const store_ptr& store, const faults_ptr& faults) -> SAttempt {
        const auto host = Open(faults);
        const auto list = [host] { EXPECT_EQ(host->session->EnumCheckpoints().size(), 2U); };
        const auto afterFailure = [this, store, list] {
            model_.Check(store->Reopen(), {1, 2});
            list();
        };
        return {list, afterFailure};
    });
    EXPECT_GT(calls, 3U);
}

TEST_F(SessionStoreFaults, GetStorageBlockStoreSize) {
    const auto calls = SweepSession(base_, [&](const store_ptr&, const faults_ptr& faults) -> SAttempt {
        const auto host = Open(faults);
        const auto measure = [host] { EXPECT_EQ(host->session->GetStorageBlockStoreSize(Guid(1)), 5U); };
        return {measure, measure};
    });
    EXPECT_EQ(calls, 1U);
}

}  // namespace
