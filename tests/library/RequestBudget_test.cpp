// What each operation asks of the store, exactly: requests are what a cloud bills and what a slow line waits for.
// The table in docs/performance.md says the same.

#include <map>

#include "cloudclientlib/wrappers/CountingClient.h"
#include "tests/library/RepositoryFixture.h"
#include "tests/library/SessionFixture.h"

namespace test {
namespace {

using cloudclientlib::CCountingClient;
using cloudclientlib::EOperation;
using budget_t = std::map<std::string, std::uint64_t>;

class RequestBudget : public testing::Test {
protected:
    /// The store's calls that `operation` makes, by name.
    template <class F>
    budget_t Of(const F& operation) {
        counting_->ResetCounts();
        operation();
        const auto counts = counting_->GetCounts();
        budget_t budget;
        for (const EOperation kind : cloudclientlib::StoreOperations()) {
            if (counts.Of(kind) != 0) {
                budget[std::string(ToStr(kind))] = counts.Of(kind);
            }
        }
        return budget;
    }

    std::shared_ptr<ICloudRepository> CreateRepository() {
        return CCloudExternalRepository::CreateNew(counting_, InfoA());
    }

    /// Commits the first `changed` storages, each with a header and `parts` parts, over what is there.
    budget_t Commit(std::uint8_t changed, std::size_t parts) {
        const auto session = CCloudBackupSession::StartSession(backup_, backup_->GetLastCheckpointId(), false);
        for (std::uint8_t i = 0; i < changed; ++i) {
            if (i == writers_.size()) {
                writers_.emplace_back(Guid(i), folder_ / Guid(i).ToAStr());
                writers_[i].header = "head";
                writers_[i].WriteFile();
            }
            writers_[i].banks.assign(parts, "bank");
            writers_[i].Attach(*session);
            writers_[i].FlushAll();
        }
        budget_t budget = Of([&] { session->CreateCheckpoint("content", longTerm_); });
        for (StorageWriter& writer : writers_) {
            writer.Detach();
        }
        return budget;
    }

    const std::shared_ptr<clients::CMemoryClient> store_ = std::make_shared<clients::CMemoryClient>();
    const std::shared_ptr<CCountingClient> counting_ = std::make_shared<CCountingClient>(store_);
    std::shared_ptr<CCloudBackup> backup_;
    std::string longTerm_;
    std::vector<StorageWriter> writers_;
    TempDir folder_;
};

std::shared_ptr<crypto::CKeySet> NewKey() {
    return std::make_shared<crypto::CKeySet>(crypto::CKeySetId::CreateNew(), L"", crypto::sec_bytes_t(1, 'k'),
                                             std::vector<crypto::CRestoreKeyRepairRec>());
}

TEST_F(RequestBudget, Repositories) {
    std::shared_ptr<ICloudRepository> repository;
    EXPECT_EQ(
        Of([&] { repository = CreateRepository(); }),
        (budget_t{
            {"IsFolderExist", 4}, {"CreateFolder", 4}, {"IsFileExist", 3}, {"UploadFile", 1}, {"DownloadFile", 1}}));
    EXPECT_EQ(Of([&] { repository = CCloudExternalRepository::OpenExisting(counting_, InfoA()); }),
              (budget_t{{"IsFileExist", 2}, {"DownloadFile", 1}}));
    EXPECT_EQ(Of([&] { (void)CCloudExternalRepository::Enumerate(counting_, InfoA()); }),
              (budget_t{{"IsFolderExist", 1}, {"QueryFolder", 1}}));
}

TEST_F(RequestBudget, Backups) {
    const auto repository = CreateRepository();
    EXPECT_EQ(Of([&] { (void)repository->CreateBackup({}, "B"); }),
              (budget_t{{"IsFolderExist", 8}, {"CreateFolder", 5}, {"UploadFile", 1}}));
    EXPECT_EQ(Of([&] { (void)repository->LoadBackup({}, "B", true); }),
              (budget_t{{"IsFolderExist", 1}, {"QueryFolder", 1}}));
    EXPECT_EQ(Of([&] { (void)repository->LoadBackup({}, "B", false); }),
              (budget_t{{"IsFolderExist", 2}, {"QueryFolder", 1}, {"UploadFile", 1}}));
    EXPECT_EQ(Of([&] { (void)repository->EnumBackups({}); }), (budget_t{{"IsFolderExist", 2}, {"QueryFolder", 2}}));
    EXPECT_EQ(Of([&] { (void)repository->GetBackupObjectCount({}, "B"); }), (budget_t{{"GetObjectCount", 1}}));
    EXPECT_EQ(Of([&] { repository->DeleteBackup({}, "B", nullptr); }), (budget_t{{"DeleteFolder", 1}}));
}

TEST_F(RequestBudget, Keys) {
    const auto repository = CreateRepository();
    (void)repository->CreateBackup({}, "B");
    const budget_t writing = {{"IsFileExist", 1}, {"IsFolderExist", 1}, {"UploadFile", 1}};
    const budget_t reading = {{"IsFileExist", 1}, {"DownloadFile", 1}};
    const auto salt = std::make_shared<crypto::sec_bytes_t>(1, 's');
    EXPECT_EQ(Of([&] { repository->SetEncryptionKey({}, NewKey(), salt); }), writing);
    EXPECT_EQ(Of([&] { (void)repository->GetEncryptionKeyInfo({}); }), reading);
    EXPECT_EQ(Of([&] { repository->AddHistoricalKey({}, NewKey()); }), writing);
    EXPECT_EQ(Of([&] { (void)repository->EnumHistoricalKeys({}); }), reading);
}

TEST_F(RequestBudget, ACommitUploadsTheChangedPartsAndTheDocument) {
    backup_ = CreateRepository()->CreateBackup({}, "B");
    for (const std::size_t parts : {0U, 1U, 7U}) {
        for (const std::uint8_t changed :
             std::initializer_list<std::uint8_t>{5, 2, 1, 0}) {  // of the five that are there after the first
            const std::uint64_t uploads = changed * (1 + parts) + 1;
            EXPECT_EQ(Commit(changed, parts), (budget_t{{"IsFileExist", 1}, {"UploadFile", uploads}}));
        }
    }
    longTerm_ = "to be kept";
    EXPECT_EQ(Commit(1, 1), (budget_t{{"IsFileExist", 2}, {"UploadFile", 4}}));
}

TEST_F(RequestBudget, Reading) {
    backup_ = CreateRepository()->CreateBackup({}, "B");
    Commit(2, 3);
    Commit(1, 3);
    EXPECT_EQ(Of([&] { (void)backup_->LoadCheckpoint(1); }), (budget_t{{"DownloadFile", 1}}));
    EXPECT_EQ(Of([&] { (void)backup_->EnumCheckpoints(); }), (budget_t{{"QueryFolder", 2}}));
    EXPECT_EQ(Of([&] { (void)CCloudBackupSession::StartSession(backup_, 1, true); }), (budget_t{{"DownloadFile", 1}}));
    const auto session = CCloudBackupSession::StartSession(backup_, 1, true);
    EXPECT_EQ(Of([&] { (void)session->EnumCheckpoints(); }), (budget_t{{"QueryFolder", 2}, {"DownloadFile", 2}}));
    EXPECT_EQ(Of([&] { session->PrepareStorageForAccess(Guid(0), folder_ / "x", 0); }),
              (budget_t{{"DownloadFile", 1 + 3}}));
    const auto last = CCloudBackupSession::StartSession(backup_, 2, true);
    EXPECT_EQ(Of([&] { last->PrepareStorageForAccess(Guid(0), writers_[0].GetPath(), writers_[0].version); }),
              budget_t{})
        << "what is here already is not fetched";
}

TEST_F(RequestBudget, ADeletionReadsEveryCheckpointOnceAndDeletesWhatOnlyTheDeletedNamed) {
    backup_ = CreateRepository()->CreateBackup({}, "B");
    for (int i = 0; i != 6; ++i) {
        Commit(2, 3);
    }
    const std::uint64_t documents = 2 * 2;  // a long-term copy is deleted without asking whether there is one
    const std::uint64_t metadata = 2 * 2 * (1 + 3);
    EXPECT_EQ(Of([&] {
                  backup_->DeleteCheckpoints({1, 2});
              }),
              (budget_t{{"QueryFolder", 2}, {"DownloadFile", 6}, {"DeleteFile", documents + metadata}}));
}

TEST_F(RequestBudget, Pruning) {
    backup_ = CreateRepository()->CreateBackup({}, "B");
    std::vector<digest::md5_digest_t> blocks;
    for (const std::string_view content : {"a", "b", "c", "d"}) {
        blocks.push_back(digest::Md5(content));
        Put(*backup_->GetBackupClient(),
            paths::GetBackupBlockPath("B", Guid(1), paths::DigestToBlockName(blocks.back())), content);
    }
    EXPECT_EQ(Of([&] { backup_->ClearReleasedBlocks(Guid(1), {blocks[0]}); }), (budget_t{{"DeleteFile", 1}}));
    EXPECT_EQ(Of([&] { backup_->ClearOrphanedBlocks(Guid(1), {blocks[1]}); }),
              (budget_t{{"QueryFolder", 256}, {"DeleteFile", 2}}));
    EXPECT_EQ(Of([&] { (void)backup_->GetBlockStoreSize(Guid(1)); }), (budget_t{{"GetFolderSize", 1}}));
    EXPECT_EQ(Of([&] { backup_->DeleteBlockStore(Guid(1)); }), (budget_t{{"IsFolderExist", 1}, {"DeleteFolder", 1}}));
}

}  // namespace
}  // namespace test
