// Making, opening and listing repositories; their description and owner.

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "tests/library/RepositoryFixture.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

class RepositoryOpen : public RepositoryTest {};

const std::string openFailed = "Failed to open external cloud repository '" + infoAText + "'";
const std::string createFailed = "Failed to create new external cloud repository '" + infoAText + "'";

SCloudRepoIdentity Identity() { return {Guid(5), "team", "The team"}; }

TEST_F(RepositoryOpen, NamesItsPaths) {
    EXPECT_EQ(CCloudExternalRepository::GetConfigFolder(), "Config");
    EXPECT_EQ(CCloudExternalRepository::GetClientDataFolder(), "Clients");
    EXPECT_EQ(CCloudExternalRepository::GetRepoOwnerPath(), "Config/Owner");
    EXPECT_EQ(CCloudExternalRepository::GetRepoDescPath(), "Config/Repository");
}

TEST_F(RepositoryOpen, ANewOneGetsItsFoldersAndDescriptionInOrder) {
    const auto repository = Create();
    EXPECT_THAT(
        Calls(),
        ElementsAre("IsFolderExist /Draxo/Backup", "CreateFolder /Draxo/Backup", "IsFolderExist /Draxo/Backup/Team",
                    "CreateFolder /Draxo/Backup/Team", "IsFolderExist /Draxo/Backup/Team/Config",
                    "CreateFolder /Draxo/Backup/Team/Config", "IsFileExist /Draxo/Backup/Team/Config/Repository",
                    "UploadFile /Draxo/Backup/Team/Config/Repository", "IsFolderExist /Draxo/Backup/Team/Clients",
                    "CreateFolder /Draxo/Backup/Team/Clients", "IsFileExist /Draxo/Backup/Team/Config/Owner",
                    "IsFileExist /Draxo/Backup/Team/Config/Repository",
                    "DownloadFile /Draxo/Backup/Team/Config/Repository"));
    EXPECT_EQ(Text(descriptionPath),
              "<Repository Id=\"" + repository->GetId().ToAStr() + "\" DisplayName=\"Team\" />\n");
    EXPECT_FALSE(repository->GetId().IsEmpty());
    EXPECT_THAT(archive_->GetCalls(), IsEmpty());
}

TEST_F(RepositoryOpen, ANewOneIsLogged) {
    static_cast<void>(Create());
    EXPECT_THAT(sink_.GetScopes(), ElementsAre("> Creating new external cloud repository '" + infoAText + "'", "< ",
                                               "> Opening external cloud repository '" + infoAText + "'", "< "));
}

TEST_F(RepositoryOpen, FoldersThatAreThereAreKept) {
    client_->CreateFolderAsync("/Draxo/Backup/Team/Config")->Wait();
    client_->CreateFolderAsync("/Draxo/Backup/Team/Clients")->Wait();
    client_->ClearCalls();
    static_cast<void>(Create());
    for (const auto& call : Calls()) {
        EXPECT_EQ(call.find("CreateFolder"), std::string::npos) << call;
    }
}

TEST_F(RepositoryOpen, EachNewOneHasAnIdOfItsOwn) {
    const auto first = Create();
    const auto second = Create({"Other", {}});
    EXPECT_FALSE(first->GetId() == second->GetId());
}

TEST_F(RepositoryOpen, OneClientServesBothRoles) {
    const auto created = AsExternal(CCloudExternalRepository::CreateNew(client_, InfoA()));
    const auto opened = AsExternal(CCloudExternalRepository::OpenExisting(client_, InfoA()));
    EXPECT_EQ(created->GetId(), opened->GetId());
    Put(*opened->GetArchiveBlobsClient(Guid(10)), "x", "1");
    EXPECT_EQ(Text(ClientFolder(clientAText) + "/x"), "1");
}

TEST_F(RepositoryOpen, IsNotMadeTwice) {
    static_cast<void>(Create());
    const std::string description = Text(descriptionPath);
    EXPECT_EQ(FailureOf([&] { static_cast<void>(Create()); }),
              createFailed + ": Repository already exists and is valid");
    EXPECT_EQ(Text(descriptionPath), description);
}

TEST_F(RepositoryOpen, KeepsADamagedDescriptionAndFails) {
    Write(descriptionPath, "<Repository Id=\"");
    EXPECT_EQ(FailureOf([&] { static_cast<void>(Create()); }),
              createFailed + ": " + openFailed +
                  ": Invalid XML document: cut off at byte 16, in attribute 'Id' of node 'Repository'");
    EXPECT_EQ(Text(descriptionPath), "<Repository Id=\"");
    EXPECT_TRUE(client_->IsFolderExist(repositoryRoot + "/Clients"));
}

TEST_F(RepositoryOpen, ClosesItsScopesAsFailed) {
    EXPECT_THROW(static_cast<void>(Open()), exc::CRuntimeExc);
    EXPECT_THAT(sink_.GetScopes(), ElementsAre("> Opening external cloud repository '" + infoAText + "'", "< failed"));
    Write(descriptionPath, "<Repository/>");
    ClearLog();
    EXPECT_THROW(static_cast<void>(Create()), exc::CRuntimeExc);
    EXPECT_THAT(NewScopes(), ElementsAre("> Creating new external cloud repository '" + infoAText + "'", "< ",
                                         "> Opening external cloud repository '" + infoAText + "'", "< failed"));
}

TEST_F(RepositoryOpen, IsOpenedWithTheIdOfItsDescription) {
    Write(descriptionPath, "<Repository Id=\"" + Guid(77).ToAStr() + "\" DisplayName=\"Any\"/>");
    client_->ClearCalls();
    const auto repository = Open();
    EXPECT_EQ(repository->GetId(), Guid(77));
    EXPECT_EQ(repository->LoadDescription().displayName, "Any");
    EXPECT_THAT(sink_.GetScopes(), ElementsAre("> Opening external cloud repository '" + infoAText + "'", "< "));
    EXPECT_EQ(Calls().front(), "IsFileExist /Draxo/Backup/Team/Config/Owner");
}

TEST_F(RepositoryOpen, WithoutADescriptionIsNotOpened) {
    EXPECT_EQ(FailureOf([&] { static_cast<void>(Open()); }), openFailed + ": Repository description not found");
}

TEST_F(RepositoryOpen, WithABadDescriptionIsNotOpened) {
    const auto failureWith = [&](const std::string& text) {
        Write(descriptionPath, text);
        EXPECT_FALSE(CCloudExternalRepository::HasValidDescription(repositoryRoot, client_));
        return FailureOf([&] { static_cast<void>(Open()); });
    };
    EXPECT_EQ(failureWith("<Repo/>"), openFailed + ": Cannot find required node: Repository");
    EXPECT_EQ(failureWith("<Repository DisplayName=\"\"/>"),
              openFailed + ": Cannot find required attribute 'Id' of node 'Repository'");
    EXPECT_EQ(failureWith("<Repository Id=\"" + Guid(1).ToAStr() + "\"/>"),
              openFailed + ": Cannot find required attribute 'DisplayName' of node 'Repository'");
    EXPECT_EQ(failureWith(""), openFailed + ": Invalid XML document: no root element at byte 0");
}

TEST_F(RepositoryOpen, TellsWhetherADescriptionIsValid) {
    EXPECT_FALSE(CCloudExternalRepository::HasValidDescription(repositoryRoot, client_));
    static_cast<void>(Create());
    EXPECT_TRUE(CCloudExternalRepository::HasValidDescription(repositoryRoot, client_));
    const auto description = CCloudExternalRepository::LoadDescriptionImpl(repositoryRoot, client_);
    EXPECT_EQ(description.displayName, "Team");
    const auto faults = std::make_shared<cloudclientlib::CFaultClient>(client_);
    faults->Arm({.call = 1});
    EXPECT_FALSE(CCloudExternalRepository::HasValidDescription(repositoryRoot, faults));
}

TEST_F(RepositoryOpen, HasNoOwnerAtFirst) {
    const auto repository = Create();
    EXPECT_EQ(repository->GetOwner(), SCloudRepoIdentity());
    EXPECT_EQ(repository->GetErrorHandling(), ErrorHandling::fail);
}

TEST_F(RepositoryOpen, WritesAndReadsItsOwner) {
    const auto repository = Create();
    client_->ClearCalls();
    ClearLog();
    repository->SetOwner(Identity());
    EXPECT_THAT(Calls(), ElementsAre("UploadFile /Draxo/Backup/Team/Config/Owner"));
    EXPECT_THAT(NewScopes(), ElementsAre("> Updating external cloud repository owner. New owner: The team, type: "
                                         "team, id: 00000000-0000-0000-0000-000000000005",
                                         "< ok"));
    EXPECT_EQ(Text(ownerPath),
              "<Owner Id=\"00000000-0000-0000-0000-000000000005\" Type=\"team\" Description=\"The team\" />\n");
    EXPECT_EQ(repository->GetOwner(), Identity());
    EXPECT_EQ(repository->GetErrorHandling(), ErrorHandling::skip);
    EXPECT_EQ(Open()->GetOwner(), Identity());
    EXPECT_EQ(Open()->GetErrorHandling(), ErrorHandling::skip);
}

TEST_F(RepositoryOpen, ReplacesItsOwner) {
    const auto repository = Create();
    repository->SetOwner(Identity());
    repository->SetOwner({Guid(6), "", ""});
    EXPECT_EQ(Open()->GetOwner(), (SCloudRepoIdentity{Guid(6), "", ""}));
}

TEST_F(RepositoryOpen, ForgetsItsOwner) {
    const auto repository = Create();
    repository->SetOwner(Identity());
    client_->ClearCalls();
    ClearLog();
    repository->SetOwner({});
    EXPECT_THAT(Calls(), ElementsAre("DeleteFile /Draxo/Backup/Team/Config/Owner"));
    EXPECT_THAT(NewScopes(), ElementsAre("> Updating external cloud repository owner. New owner: unset", "< ok"));
    EXPECT_FALSE(Exists(ownerPath));
    EXPECT_EQ(repository->GetErrorHandling(), ErrorHandling::fail);
    EXPECT_TRUE(Open()->GetOwner().id.IsEmpty());
}

TEST_F(RepositoryOpen, TellsOfNoOwnerByTheIdAlone) {
    const auto repository = Create();
    ClearLog();
    repository->SetOwner({{}, "type", "description"});
    EXPECT_EQ(NewScopes().front(), "> Updating external cloud repository owner. New owner: unset");
    EXPECT_EQ(repository->GetOwner(), (SCloudRepoIdentity{{}, "type", "description"}));
}

TEST_F(RepositoryOpen, KeepsItsOwnerWhenTheNewOneIsNotWritten) {
    static_cast<void>(Create());
    const auto faults = std::make_shared<cloudclientlib::CFaultClient>(client_);
    const auto repository = CCloudExternalRepository::OpenExisting(faults, InfoA());
    repository->SetOwner(Identity());
    ClearLog();
    for (const auto& next : {SCloudRepoIdentity{Guid(6), "x", "y"}, SCloudRepoIdentity()}) {
        faults->Arm({.call = 1});
        EXPECT_THROW(repository->SetOwner(next), cloudclientlib::CCloudExc);
        EXPECT_EQ(repository->GetOwner(), Identity());
    }
    EXPECT_EQ(NewScopes()[1], "< failed");
    EXPECT_EQ(Open()->GetOwner(), Identity());
}

TEST_F(RepositoryOpen, RefusesAnOwnerThatNoDocumentCarries) {
    const auto repository = Create();
    EXPECT_THROW(repository->SetOwner({Guid(6), "\xFF", ""}), exc::CRuntimeExc);
    EXPECT_FALSE(Exists(ownerPath));
}

TEST_F(RepositoryOpen, TakesAnOwnerWithoutIdForNone) {
    static_cast<void>(Create());
    Write(ownerPath, "<Owner Id=\"" + Guid(0).ToAStr() + "\" Type=\"t\" Description=\"d\"/>");
    EXPECT_EQ(Open()->GetOwner(), SCloudRepoIdentity());
}

TEST_F(RepositoryOpen, IsNotOpenedWithABadOwner) {
    static_cast<void>(Create());
    const auto failureWith = [&](const std::string& text) {
        Write(ownerPath, text);
        return FailureOf([&] { static_cast<void>(Open()); });
    };
    EXPECT_EQ(failureWith("<Other/>"), openFailed + ": Cannot find required node: Owner");
    EXPECT_EQ(failureWith("<Owner Id=\"x\" Type=\"\" Description=\"\"/>"),
              openFailed + ": Attribute 'Id' of node 'Owner' is not a GUID: 'x'");
    EXPECT_EQ(failureWith("<Owner"), openFailed + ": Invalid XML document: cut off at byte 6");
}

TEST_F(RepositoryOpen, IsToldInTheLog) {
    const std::string id = Create()->GetId().ToAStr();
    EXPECT_EQ(Open()->Info4Log(),
              "Cloud external repository (name: Team, id: " + id + ", client id: " + clientAText + ")");
    EXPECT_EQ(Open(InfoOfNobody())->Info4Log(),
              "Cloud external repository (name: Team, id: " + id + ", client id: n/a)");
}

TEST_F(RepositoryOpen, TellsTheQuotaOfTheStore) {
    client_->SetQuota(1000000);
    const auto repository = Create();
    EXPECT_EQ(repository->GetStorageQuota(), client_->GetStorageQuota());
    EXPECT_EQ(repository->GetStorageQuota().total, 1000000U);
    EXPECT_GT(repository->GetStorageQuota().used, 0U);
}

TEST_F(RepositoryOpen, AreEnumeratedInTheOrderOfTheStore) {
    static_cast<void>(Create({"b", {}}));
    static_cast<void>(Create({"a", {}}));
    Write("/Draxo/Backup/c/something", "not a repository");
    Write("/Draxo/Backup/file", "not even a folder");
    client_->ClearCalls();
    ClearLog();
    EXPECT_THAT(CCloudExternalRepository::Enumerate(client_, InfoA()), ElementsAre("a", "b", "c", "file"));
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist /Draxo/Backup", "QueryFolder /Draxo/Backup"));
    EXPECT_THAT(NewScopes(), ElementsAre("> Enumerating external cloud repositories '" + infoAText + "'", "< ok"));
}

TEST_F(RepositoryOpen, AreNoneInAnEmptyStore) {
    EXPECT_THAT(CCloudExternalRepository::Enumerate(client_, InfoOfNobody()), IsEmpty());
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist /Draxo/Backup"));
    EXPECT_EQ(sink_.GetScopes().front(), "> Enumerating external cloud repositories 'Name: Team'");
    EXPECT_FALSE(client_->IsFolderExist("/Draxo"));
}

TEST_F(RepositoryOpen, AreEnumeratedThroughARestrictedClient) {
    Write("/bucket/Draxo/Backup/x/y", "z");
    const auto restricted = std::make_shared<cloudclientlib::CRestrictedCloudClient>(client_, "/bucket");
    EXPECT_THAT(CCloudExternalRepository::Enumerate(restricted, InfoA()), ElementsAre("x"));
}

TEST_F(RepositoryOpen, AreNotEnumeratedWhenTheStoreFails) {
    static_cast<void>(Create());
    const auto faults = std::make_shared<cloudclientlib::CFaultClient>(client_);
    for (const std::uint64_t call : {1U, 2U}) {
        faults->Arm({.call = call});
        try {
            static_cast<void>(CCloudExternalRepository::Enumerate(faults, InfoA()));
            FAIL() << call;
        } catch (const exc::CRuntimeExc& e) {
            EXPECT_EQ(e.GetMessage(), "Failed to enumerate external cloud repositories '" + infoAText + "'");
            EXPECT_TRUE(exc::FindCause<cloudclientlib::CCloudExc>(e).has_value());
        }
    }
    EXPECT_EQ(sink_.GetScopes().back(), "< failed");
}

}  // namespace
