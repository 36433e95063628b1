// The backups of a repository: whose they are, who may read them, who may write them.

#include "tests/library/RepositoryFixture.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

class RepositoryBackups : public RepositoryTest {};

const std::string cannotDeduce =
    "Cannot deduce backup client ID: neither client information nor explicit value is provided";

std::vector<std::string> IdsOf(const std::vector<CCloudBackupCollectionItem>& items) {
    std::vector<std::string> ids;
    for (const auto& item : items) {
        ids.push_back(item.GetId());
    }
    return ids;
}

TEST_F(RepositoryBackups, AnExplicitClientIdWins) {
    EXPECT_EQ(Create()->GetEffectiveClientId(Guid(99)), Guid(99));
    EXPECT_EQ(Open(InfoOfNobody())->GetEffectiveClientId(Guid(99)), Guid(99));
}

TEST_F(RepositoryBackups, WithoutOneTheRecordsClientCounts) { EXPECT_EQ(Create()->GetEffectiveClientId({}), Guid(10)); }

TEST_F(RepositoryBackups, WithNeitherNothingIsDone) {
    static_cast<void>(Create());
    const SCloudRepositoryInfo clientWithoutId{"Team", SCloudRepositoryClientInfo{{}, "host", "Anna"}};
    for (const auto& info : {InfoOfNobody(), clientWithoutId}) {
        const auto repository = Open(info);
        client_->ClearCalls();
        EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->EnumBackups({})); }), cannotDeduce);
        EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->LoadBackup({}, "B", true)); }), cannotDeduce);
        EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->LoadBackup({}, "B", false)); }), cannotDeduce);
        EXPECT_EQ(FailureOf([&] { repository->DeleteBackup({}, "B", nullptr); }), cannotDeduce);
        EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->GetBackupObjectCount({}, "B")); }), cannotDeduce);
        EXPECT_EQ(FailureOf([&] { repository->Delete(); }), cannotDeduce);
        EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->GetEncryptionKeyInfo({})); }), cannotDeduce);
        EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->EnumHistoricalKeys({})); }), cannotDeduce);
        EXPECT_THAT(Calls(), IsEmpty());
    }
    EXPECT_EQ(FailureOf([&] { static_cast<void>(Open(clientWithoutId)->CreateBackup({}, "B")); }), cannotDeduce);
}

TEST_F(RepositoryBackups, ClientsAreConfinedToTheirFolders) {
    const auto repository = Create();
    Put(*repository->GetBackupClient(Guid(11)), "x", "primary");
    Put(*repository->GetArchiveBlobsClient(Guid(11)), "x", "archive");
    EXPECT_EQ(Text(ClientFolder(clientBText) + "/x"), "primary");
    EXPECT_EQ(Get(*archive_, ClientFolder(clientBText) + "/x"), "archive");
    EXPECT_EQ(repository->GetBackupClient(Guid(11))->ToRealPath("/B"), "Clients/" + clientBText + "/B");
    EXPECT_EQ(repository->GetArchiveBlobsClient(Guid(11))->ToRealPath("/B"), "Clients/" + clientBText + "/B");
}

TEST_F(RepositoryBackups, BelongToTheRepositorysOwnerFirst) {
    const auto repository = Create();
    repository->SetOwner({Guid(5), "team", "The team"});
    EXPECT_EQ(repository->GetBackupOwner().GetId(), Guid(5));
    EXPECT_EQ(repository->GetBackupOwner().GetType(), "team");
    EXPECT_EQ(repository->GetBackupOwner().GetDescription(), "The team");
}

TEST_F(RepositoryBackups, BelongToTheClientElse) {
    const auto owner = Create()->GetBackupOwner();
    EXPECT_EQ(owner.GetId(), Guid(10));
    EXPECT_EQ(owner.GetType(), "host");
    EXPECT_EQ(owner.GetDescription(), "Anna");
}

TEST_F(RepositoryBackups, BelongToNobodyElse) {
    static_cast<void>(Create());
    for (const auto& info :
         {InfoOfNobody(), SCloudRepositoryInfo{"Team", SCloudRepositoryClientInfo{{}, "host", "Anna"}}}) {
        const auto owner = Open(info)->GetBackupOwner();
        EXPECT_FALSE(owner.IsSet());
        EXPECT_EQ(owner.GetType(), "");
        EXPECT_EQ(owner.GetDescription(), "");
    }
}

TEST_F(RepositoryBackups, AreMadeAfterTheClientsInformation) {
    const auto repository = Create();
    client_->ClearCalls();
    const auto backup = repository->CreateBackup({}, "B");
    const std::string folder = ClientFolder(clientAText);
    const auto calls = Calls();
    ASSERT_GT(calls.size(), 4U);
    EXPECT_EQ(calls[0], "IsFolderExist " + folder.substr(0) + "/Config");
    EXPECT_EQ(calls[1], "CreateFolder " + folder + "/Config");
    EXPECT_EQ(calls[2], "UploadFile " + folder + "/Config/ClientInfo.xml");
    EXPECT_EQ(calls[3], "IsFolderExist " + folder + "/B/Metadata/Checkpoint");
    EXPECT_EQ(backup->GetBackupId(), "B");
    EXPECT_EQ(backup->GetGuid(), Guid(10));
    EXPECT_EQ(backup->GetCurrentOwner().GetId(), Guid(10));
    EXPECT_EQ(backup->GetLastCheckpointId(), 0U);
    EXPECT_TRUE(client_->IsFolderExist(folder + "/B/BlockStore"));
}

TEST_F(RepositoryBackups, ReachBothStoresThroughTheirClients) {
    const auto repository = Create();
    const auto created = repository->CreateBackup(Guid(10), "B");
    const auto loaded = repository->LoadBackup({}, "B", true);
    for (const auto& backup : {created, loaded}) {
        Put(*backup->GetBackupClient(), "x", "primary");
        Put(*backup->GetArchiveBlobsClient(), "x", "archive");
        EXPECT_EQ(Text(ClientFolder(clientAText) + "/x"), "primary");
        EXPECT_EQ(Get(*archive_, ClientFolder(clientAText) + "/x"), "archive");
    }
}

TEST_F(RepositoryBackups, AreNotMadeWithoutAClient) {
    static_cast<void>(Create());
    const auto repository = Open(InfoOfNobody());
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->CreateBackup({}, "B")); }),
              "Cannot create backup 'B': client information is not set");
    EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->CreateBackup(Guid(10), "B")); }),
              "Cannot create backup 'B': client information is not set");
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(RepositoryBackups, AreNotMadeForAnotherClient) {
    const auto repository = Create();
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->CreateBackup(Guid(11), "%2")); }),
              "Cannot create backup '%2': backup client id '" + clientBText + "' doesn't match current client id '" +
                  clientAText + "'");
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(RepositoryBackups, AreNotMadeTwice) {
    const auto repository = Create();
    MakeBackup(*repository, "B");
    EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->CreateBackup({}, "B")); }),
              "Cloud backup 'B' already exists. Checkpoint number: '1', last checkpoint id: '1'");
}

TEST_F(RepositoryBackups, AreLoadedForWriteAfterTheClientsInformation) {
    const auto repository = Create();
    MakeBackup(*repository, "B");
    client_->ClearCalls();
    const auto backup = repository->LoadBackup({}, "B", false);
    EXPECT_EQ(Calls()[0], "IsFolderExist " + ClientFolder(clientAText) + "/Config");
    EXPECT_EQ(Calls()[1], "UploadFile " + ClientFolder(clientAText) + "/Config/ClientInfo.xml");
    EXPECT_EQ(backup->GetLastCheckpointId(), 1U);
    EXPECT_EQ(backup->GetGuid(), Guid(10));
    EXPECT_EQ(backup->GetCurrentOwner().GetId(), Guid(10));
    EXPECT_EQ(backup->GetRepositoryErrorHandling(), ErrorHandling::fail);
}

TEST_F(RepositoryBackups, AreLoadedForReadingWithoutWritingAnything) {
    const auto repository = Create();
    MakeBackup(*repository, "B");
    repository->SetOwner({Guid(5), "", ""});
    client_->ClearCalls();
    const auto backup = repository->LoadBackup({}, "B", true);
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist " + ClientFolder(clientAText) + "/B/Metadata/Checkpoint",
                                     "QueryFolder " + ClientFolder(clientAText) + "/B/Metadata/Checkpoint"));
    EXPECT_EQ(backup->GetRepositoryErrorHandling(), ErrorHandling::skip);
    EXPECT_EQ(backup->GetCurrentOwner().GetId(), Guid(5));
}

TEST_F(RepositoryBackups, OfAnotherClientAreReadAndNotWritten) {
    MakeBackup(*Create(), "B");
    const auto repository = Open(InfoB());
    const auto backup = repository->LoadBackup(Guid(10), "B", true);
    EXPECT_EQ(backup->GetLastCheckpointId(), 1U);
    EXPECT_EQ(backup->GetGuid(), Guid(11));
    client_->ClearCalls();
    EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->LoadBackup(Guid(10), "B", false)); }),
              "Cannot open backup 'B' for write: backup client id '" + clientAText +
                  "' doesn't match current client id '" + clientBText + "'");
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(RepositoryBackups, AreReadAndNotWrittenWithoutAClient) {
    MakeBackup(*Create(), "B");
    const auto repository = Open(InfoOfNobody());
    const auto backup = repository->LoadBackup(Guid(10), "B", true);
    EXPECT_TRUE(backup->GetGuid().IsEmpty());
    EXPECT_EQ(FailureOf([&] { static_cast<void>(repository->LoadBackup(Guid(10), "B", false)); }),
              "Cannot open backup 'B' for write: client information is not set");
}

TEST_F(RepositoryBackups, ThatAreNotThereAreNotLoaded) {
    const auto repository = Create();
    EXPECT_THROW(static_cast<void>(repository->LoadBackup({}, "B", true)), CBackupNotFoundExc);
    EXPECT_THROW(static_cast<void>(repository->LoadBackup({}, "B", false)), CBackupNotFoundExc);
}

TEST_F(RepositoryBackups, AreEnumeratedByClient) {
    const auto ofA = Create();
    MakeBackup(*ofA, "one");
    MakeBackup(*ofA, "two");
    const auto ofB = Open(InfoB());
    MakeBackup(*ofB, "three");
    EXPECT_THAT(IdsOf(ofA->EnumBackups({})), ElementsAre("one", "two"));
    EXPECT_THAT(IdsOf(ofA->EnumBackups(Guid(11))), ElementsAre("three"));
    EXPECT_THAT(ofA->EnumBackups(Guid(99)), IsEmpty());
    const auto items = ofB->EnumBackups(Guid(10));
    EXPECT_FALSE(items[0].IsCorrupted());
    EXPECT_EQ(items[0].GetBackup()->GetLastCheckpointId(), 1U);
    EXPECT_EQ(items[0].GetBackup()->GetGuid(), Guid(11));
    EXPECT_EQ(items[0].GetBackup()->GetCurrentOwner().GetId(), Guid(11));
    EXPECT_EQ(items[0].GetBackup()->GetRepositoryErrorHandling(), ErrorHandling::fail);
    ofB->SetOwner({Guid(5), "", ""});
    EXPECT_EQ(ofB->EnumBackups(Guid(10))[0].GetBackup()->GetRepositoryErrorHandling(), ErrorHandling::skip);
}

TEST_F(RepositoryBackups, ThatAreDamagedAreEnumeratedAsCorrupted) {
    const auto repository = Create();
    MakeBackup(*repository, "B");
    Write(ClientFolder(clientAText) + "/C/BlockStore/x", "");
    const auto items = repository->EnumBackups({});
    ASSERT_EQ(items.size(), 2U);
    EXPECT_FALSE(items[0].IsCorrupted());
    EXPECT_TRUE(items[1].IsCorrupted());
}

class CCountingProgress : public progress::progress_base_t {
public:
    void SetProgress(std::uint64_t done, std::uint64_t total) override { last_ = {done, total}; }
    std::pair<std::uint64_t, std::uint64_t> last_;
};

TEST_F(RepositoryBackups, AreDeletedWithProgress) {
    const auto repository = Create();
    MakeBackup(*repository, "B");
    MakeBackup(*repository, "C");
    const auto progress = std::make_shared<CCountingProgress>();
    repository->DeleteBackup({}, "B", progress);
    EXPECT_EQ(progress->last_, std::pair(std::uint64_t{1}, std::uint64_t{1}));
    EXPECT_THAT(IdsOf(repository->EnumBackups({})), ElementsAre("C"));
}

TEST_F(RepositoryBackups, OfAnotherClientAreDeletedToo) {
    MakeBackup(*Create(), "B");
    const auto repository = Open(InfoB());
    repository->DeleteBackup({}, "B", nullptr);
    EXPECT_THAT(IdsOf(repository->EnumBackups(Guid(10))), ElementsAre("B"));
    repository->DeleteBackup(Guid(10), "B", nullptr);
    EXPECT_THAT(repository->EnumBackups(Guid(10)), IsEmpty());
}

TEST_F(RepositoryBackups, HaveTheirObjectsCounted) {
    const auto ofA = Create();
    MakeBackup(*ofA, "B");
    MakeBackup(*ofA, "BB");
    Write(ClientFolder(clientAText) + "/B/BlockStore/x/00/y", "block");
    Write(ClientFolder(clientBText) + "/B/only", "one");
    Write("/B/not ours", "x");
    client_->ClearCalls();
    EXPECT_EQ(ofA->GetBackupObjectCount({}, "B"), 2U);
    EXPECT_THAT(Calls(), ElementsAre("GetObjectCount " + ClientFolder(clientAText) + "/B"));
    EXPECT_EQ(ofA->GetBackupObjectCount(Guid(11), "B"), 1U);
    EXPECT_EQ(ofA->GetBackupObjectCount({}, "none"), 0U);
}

}  // namespace
