// Looking across the clients of a repository, and removing them.

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "tests/library/RepositoryFixture.h"

namespace {

using namespace test;
using cloudclientlib::CFaultClient;
using cloudclientlib::EFaultMode;
using logging::level_t;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class RepositoryDeletion : public RepositoryTest {
protected:
    void MakeBoth() {
        MakeBackup(*Create(), "of A");
        MakeBackup(*Open(InfoB()), "of B");
        client_->ClearCalls();
        ClearLog();
    }
};

const std::string folderA = ClientFolder(clientAText);
const std::string folderB = ClientFolder(clientBText);

std::string UnreadableWarning(const std::string& name) {
    return "Failed to retrieve client information from client data folder '" + name + "'";
}

TEST_F(RepositoryDeletion, ClientsAreEnumerated) {
    MakeBoth();
    EXPECT_THAT(Open()->EnumClients(), ElementsAre(SCloudRepoIdentity{Guid(10), "host", "Anna"},
                                                   SCloudRepoIdentity{Guid(11), "server", "Ben"}));
    EXPECT_THAT(sink_.GetTexts(level_t::warn), IsEmpty());
}

TEST_F(RepositoryDeletion, ClientsAreEnumeratedWithOneListing) {
    MakeBoth();
    const auto repository = Open();
    client_->ClearCalls();
    ClearLog();
    static_cast<void>(repository->EnumClients());
    EXPECT_THAT(Calls(), ElementsAre("QueryFolder " + repositoryRoot + "/Clients",
                                     "IsFileExist " + folderA + "/Config/ClientInfo.xml",
                                     "DownloadFile " + folderA + "/Config/ClientInfo.xml",
                                     "IsFileExist " + folderB + "/Config/ClientInfo.xml",
                                     "DownloadFile " + folderB + "/Config/ClientInfo.xml"));
    EXPECT_THAT(NewScopes(), ElementsAre("> Enumerating clients in external cloud repository", "< "));
}

TEST_F(RepositoryDeletion, ANewRepositoryHasNoClients) { EXPECT_THAT(Create()->EnumClients(), IsEmpty()); }

TEST_F(RepositoryDeletion, AClientWithoutInformationIsEnumerated) {
    const auto repository = Create();
    Write(folderB + "/B/x", "");
    EXPECT_THAT(repository->EnumClients(), ElementsAre(SCloudRepoIdentity{Guid(11), "", ""}));
}

TEST_F(RepositoryDeletion, FoldersThatAreNoClientsAreSkipped) {
    const auto repository = Create();
    const std::vector<std::string> names{"00000000-0000-0000-0000-00000000000B", "name",
                                         "{00000000-0000-0000-0000-00000000000b}"};
    for (const auto& name : names) {
        Write(ClientFolder(name) + "/x", "");
    }
    Write(folderA + "/x", "");
    EXPECT_THAT(repository->EnumClients(), ElementsAre(SCloudRepoIdentity{Guid(10), "", ""}));
    EXPECT_THAT(sink_.GetTexts(level_t::warn),
                ElementsAre(UnreadableWarning(names[0]), UnreadableWarning(names[1]), UnreadableWarning(names[2])));
    EXPECT_THAT(sink_.GetTexts(level_t::dbg),
                ElementsAre("Invalid client identifier", "Invalid client identifier", "Invalid client identifier"));
}

TEST_F(RepositoryDeletion, ClientsWithBadInformationAreSkipped) {
    MakeBoth();
    const auto repository = Open();
    for (const std::string& text :
         {std::string("damaged"), "<ClientInfo Id=\"" + clientAText + "\" Type=\"\" Description=\"\"/>"}) {
        Write(folderB + "/Config/ClientInfo.xml", text);
        EXPECT_THAT(repository->EnumClients(), ElementsAre(SCloudRepoIdentity{Guid(10), "host", "Anna"}));
    }
    EXPECT_THAT(sink_.GetTexts(level_t::warn),
                ElementsAre(UnreadableWarning(clientBText), UnreadableWarning(clientBText)));
    EXPECT_TRUE(sink_.Has("Client information has invalid client id: '" + clientAText + "'"));
}

TEST_F(RepositoryDeletion, ClientsAreNotEnumeratedWithoutAListing) {
    static_cast<void>(Create());
    const auto faults = std::make_shared<CFaultClient>(client_);
    const auto repository = CCloudExternalRepository::OpenExisting(faults, InfoA());
    faults->Arm({.call = 1});
    EXPECT_THROW(static_cast<void>(repository->EnumClients()), cloudclientlib::CCloudExc);
    EXPECT_EQ(sink_.GetScopes().back(), "< failed");
}

TEST_F(RepositoryDeletion, AllBackupsOfAClientAreDeleted) {
    MakeBoth();
    const auto repository = Open();
    MakeBackup(*repository, "second");
    Write(folderA + "/damaged/x", "");
    client_->ClearCalls();
    ClearLog();
    repository->DeleteBackups(Guid(10), repository->GetBackupClient(Guid(10)));
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist " + folderA, "QueryFolder " + folderA,
                                     "DeleteFolder " + folderA + "/damaged", "DeleteFolder " + folderA + "/of A",
                                     "DeleteFolder " + folderA + "/second"));
    EXPECT_THAT(NewScopes(),
                ElementsAre("> Deleting backups for client '" + clientAText + "'", "> Enumerating cloud backups",
                            "< ok", "> Deleting cloud backup 'damaged'", "< ", "> Deleting cloud backup 'of A'", "< ",
                            "> Deleting cloud backup 'second'", "< ", "< ok"));
    EXPECT_TRUE(Exists(folderA + "/Config/ClientInfo.xml"));
    EXPECT_TRUE(Exists(folderB + "/of B/Metadata/Checkpoint/1"));
}

TEST_F(RepositoryDeletion, TheOnlyClientTakesTheRepositoryAlong) {
    const auto repository = Create();
    MakeBackup(*repository, "B");
    Write("/Draxo/Backup/Team2/x", "");
    client_->ClearCalls();
    ClearLog();
    repository->Delete();
    EXPECT_THAT(Calls(),
                ElementsAre("IsFolderExist " + folderA, "QueryFolder " + folderA, "DeleteFolder " + folderA + "/B",
                            "IsFolderExist " + folderA, "DeleteFolder " + folderA,
                            "QueryFolder " + repositoryRoot + "/Clients", "DeleteFolder " + repositoryRoot));
    EXPECT_THAT(
        sink_.GetTexts(level_t::info),
        ElementsAre("Deleting client folder", "Deleting repository folder: Other clients in the repository: 0"));
    EXPECT_EQ(NewScopes().front(), "> Deleting repository for client '" + clientAText + "'");
    EXPECT_EQ(NewScopes().back(), "< ok");
    EXPECT_FALSE(client_->IsFolderExist(repositoryRoot));
    EXPECT_TRUE(Exists("/Draxo/Backup/Team2/x"));
}

TEST_F(RepositoryDeletion, OneOfTwoClientsTakesItsFolderAlone) {
    MakeBoth();
    Open()->Delete();
    EXPECT_THAT(sink_.GetTexts(level_t::info),
                Contains("Not deleting repository folder: Other clients in the repository: 1"));
    EXPECT_FALSE(client_->IsFolderExist(folderA));
    EXPECT_TRUE(Exists(folderB + "/of B/Metadata/Checkpoint/1"));
    const auto repository = Open(InfoB());
    EXPECT_EQ(repository->LoadBackup({}, "of B", true)->GetLastCheckpointId(), 1U);
    repository->Delete();
    EXPECT_FALSE(client_->IsFolderExist(repositoryRoot));
}

TEST_F(RepositoryDeletion, GoesOnWhenTheClientsFolderIsGone) {
    MakeBoth();
    const auto repository = Open();
    repository->Delete();
    client_->DeleteFolderAsync(folderB, nullptr)->Wait();
    client_->ClearCalls();
    repository->Delete();
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist " + folderA, "IsFolderExist " + folderA,
                                     "QueryFolder " + repositoryRoot + "/Clients", "DeleteFolder " + repositoryRoot));
    EXPECT_FALSE(client_->IsFolderExist(repositoryRoot));
}

// A client that cannot be read is still someone with backups.
TEST_F(RepositoryDeletion, AClientThatCannotBeReadKeepsTheRepository) {
    MakeBoth();
    Write(folderB + "/Config/ClientInfo.xml", "damaged");
    Open()->Delete();
    EXPECT_THAT(sink_.GetTexts(level_t::info),
                Contains("Not deleting repository folder: Other clients in the repository: 1"));
    EXPECT_TRUE(Exists(folderB + "/of B/Metadata/Checkpoint/1"));
}

TEST_F(RepositoryDeletion, AStrayObjectDoesNotKeepTheRepository) {
    const auto repository = Create();
    Write(repositoryRoot + "/Clients/stray", "");
    repository->Delete();
    EXPECT_FALSE(client_->IsFolderExist(repositoryRoot));
}

// Fail the n-th call, for every n, in each way: the other client keeps everything, and a second try ends it.
TEST_F(RepositoryDeletion, NeverTakesTheOtherClientAlong) {
    MakeBoth();
    for (const auto mode : {EFaultMode::notDone, EFaultMode::doneButFailed, EFaultMode::doneInPart}) {
        bool reached = true;
        for (std::uint64_t call = 1; reached; ++call) {
            const auto store = client_->Clone();
            const auto faults = std::make_shared<CFaultClient>(store);
            const auto repository = CCloudExternalRepository::OpenExisting(faults, InfoA());
            faults->Arm({.call = call, .mode = mode});
            const auto failure = FailureOf([&] { repository->Delete(); });
            reached = faults->IsReached();
            faults->Disarm();
            const auto ofB = CCloudExternalRepository::OpenExisting(store, InfoB());
            EXPECT_EQ(ofB->LoadBackup({}, "of B", true)->LoadCheckpoint(1)->GetId(), 1U) << call << ": " << failure;
            repository->Delete();
            EXPECT_FALSE(store->IsFolderExist(folderA));
            EXPECT_EQ(ofB->LoadBackup({}, "of B", true)->LoadCheckpoint(1)->GetId(), 1U);
        }
    }
}

// The same for the last client: a second try removes all that is left.
TEST_F(RepositoryDeletion, GoesOnWhereItStopped) {
    MakeBackup(*Create(), "B");
    for (const auto mode : {EFaultMode::notDone, EFaultMode::doneButFailed, EFaultMode::doneInPart}) {
        bool reached = true;
        for (std::uint64_t call = 1; reached; ++call) {
            const auto store = client_->Clone();
            const auto faults = std::make_shared<CFaultClient>(store);
            const auto repository = CCloudExternalRepository::OpenExisting(faults, InfoA());
            faults->Arm({.call = call, .mode = mode});
            const bool failed = FailureOf([&] { repository->Delete(); }) != "no failure";
            reached = faults->IsReached();
            EXPECT_EQ(failed, reached) << call;
            faults->Disarm();
            repository->Delete();
            EXPECT_FALSE(store->IsFolderExist(repositoryRoot)) << call;
        }
    }
}

}  // namespace
