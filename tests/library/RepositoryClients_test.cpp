// What a repository keeps of its clients: who they are, their keys.

#include "cloudclientlib/wrappers/FaultClient.h"
#include "common/util.h"
#include "tests/library/RepositoryFixture.h"

namespace {

using namespace test;
using logging::level_t;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string infoText = "<ClientInfo Id=\"" + clientAText + "\" Type=\"host\" Description=\"Anna\" />\n";

using key_ptr = std::shared_ptr<crypto::CKeySet>;

crypto::sec_bytes_t Secret(std::string_view bytes) { return {bytes.begin(), bytes.end()}; }

std::shared_ptr<crypto::sec_bytes_t> Salt(std::string_view bytes) {
    return std::make_shared<crypto::sec_bytes_t>(Secret(bytes));
}

/// Material and wrapped keys that no log and no failure may show.
key_ptr Key(std::uint8_t number, bool hasMaterial = true, std::uint8_t master = 0) {
    std::vector<crypto::CRestoreKeyRepairRec> records;
    if (master != 0) {
        records.push_back({RawId(master), Secret("SECRETwrapped")});
    }
    return std::make_shared<crypto::CKeySet>(crypto::CKeySetId(RawId(number)), L"hint " + std::to_wstring(number),
                                             Secret(hasMaterial ? "SECRETmaterial" : ""), records);
}

std::vector<std::string> HintsOf(const std::vector<key_ptr>& keys) {
    std::vector<std::string> hints;
    for (const auto& key : keys) {
        hints.push_back(util::WideToUtf8(key->GetHint()));
    }
    return hints;
}

class RepositoryClients : public RepositoryTest {
protected:
    void SetUp() override {
        repository_ = Create();
        client_->ClearCalls();
        ClearLog();
    }

    /// No secret, as it is or in base64, in anything logged.
    void TearDown() override {
        for (const auto& entry : sink_.GetEntries()) {
            ExpectNoSecret(entry.text);
        }
        RepositoryTest::TearDown();
    }

    static void ExpectNoSecret(const std::string& text) {
        for (const std::string secret : {"SECRET", "U0VDUkVU", "NFQ1JFV", "TRUNSRV"}) {
            EXPECT_EQ(text.find(secret), std::string::npos) << text;
        }
    }

    repository_ptr repository_;
};

TEST_F(RepositoryClients, InformationIsWritten) {
    repository_->UpdateClientInfo();
    EXPECT_EQ(Text(infoPath), infoText);
    EXPECT_THAT(Calls(),
                ElementsAre("IsFolderExist " + ClientFolder(clientAText) + "/Config",
                            "CreateFolder " + ClientFolder(clientAText) + "/Config", "UploadFile " + infoPath));
    EXPECT_THAT(NewScopes(), ElementsAre("> Updating client information for external cloud repository", "< ok"));
    client_->ClearCalls();
    repository_->UpdateClientInfo();
    EXPECT_THAT(Calls(),
                ElementsAre("IsFolderExist " + ClientFolder(clientAText) + "/Config", "UploadFile " + infoPath));
}

TEST_F(RepositoryClients, InformationOfNobodyIsNotWritten) {
    const auto repository = Open(InfoOfNobody());
    EXPECT_EQ(FailureOf([&] { repository->UpdateClientInfo(); }), "Parameter is not available.");
    EXPECT_EQ(NewScopes().back(), "< failed");
}

TEST_F(RepositoryClients, InformationIsRead) {
    repository_->UpdateClientInfo();
    EXPECT_EQ(repository_->LoadClientInfo(Guid(10)), (SCloudRepoIdentity{Guid(10), "host", "Anna"}));
    EXPECT_EQ(Open(InfoB())->LoadClientInfo(Guid(10)), (SCloudRepoIdentity{Guid(10), "host", "Anna"}));
}

TEST_F(RepositoryClients, WithoutInformationAreKnownById) {
    EXPECT_EQ(repository_->LoadClientInfo(Guid(99)), (SCloudRepoIdentity{Guid(99), "", ""}));
}

TEST_F(RepositoryClients, InformationOfAnotherIsRefused) {
    Write(infoPath, "<ClientInfo Id=\"" + clientBText + "\" Type=\"\" Description=\"\"/>");
    EXPECT_EQ(FailureOf([&] { static_cast<void>(repository_->LoadClientInfo(Guid(10))); }),
              "Client information has invalid client id: '" + clientBText + "'");
}

TEST_F(RepositoryClients, DamagedInformationIsRefused) {
    const auto failureWith = [&](const std::string& text) {
        Write(infoPath, text);
        return FailureOf([&] { static_cast<void>(repository_->LoadClientInfo(Guid(10))); });
    };
    EXPECT_EQ(failureWith("<Other/>"), "Cannot find required node: ClientInfo");
    EXPECT_EQ(failureWith("<ClientInfo/>"), "Cannot find required attribute 'Id' of node 'ClientInfo'");
    EXPECT_EQ(failureWith("<ClientInfo"), "Invalid XML document: cut off at byte 11");
}

TEST_F(RepositoryClients, InformationIsEnsuredOnce) {
    repository_->EnsureClientInfo(Guid(10));
    EXPECT_EQ(Text(infoPath), infoText);
    Write(infoPath, "kept as it is");
    client_->ClearCalls();
    repository_->EnsureClientInfo(Guid(10));
    EXPECT_THAT(Calls(), ElementsAre("IsFileExist " + infoPath));
    EXPECT_EQ(Text(infoPath), "kept as it is");
}

TEST_F(RepositoryClients, InformationOfAnotherIsNotEnsured) {
    repository_->EnsureClientInfo(Guid(11));
    Open(InfoOfNobody())->EnsureClientInfo(Guid(10));
    EXPECT_FALSE(Exists(infoPath));
    EXPECT_FALSE(client_->IsFolderExist(ClientFolder(clientAText)));
    EXPECT_FALSE(client_->IsFolderExist(ClientFolder(clientBText)));
}

TEST_F(RepositoryClients, KeyIsSet) {
    repository_->SetEncryptionKey({}, Key(1), Salt("SECRETsalt"));
    EXPECT_EQ(Text(keyPath),
              "<EncryptionKey Id=\"00000000000000000000000000000001\" Hint=\"hint 1\" Salt=\"U0VDUkVUc2FsdA==\" />\n");
    EXPECT_EQ(Text(infoPath), infoText);
    const std::string config = ClientFolder(clientAText) + "/Config";
    EXPECT_THAT(Calls(), ElementsAre("IsFileExist " + infoPath, "IsFolderExist " + config, "CreateFolder " + config,
                                     "UploadFile " + infoPath, "IsFolderExist " + config, "UploadFile " + keyPath));
    EXPECT_THAT(NewScopes(),
                ElementsAre("> Setting encryption key 'id: 00000000000000000000000000000001, hint: hint 1, keys: "
                            "present, repair records: 0' for client '" +
                                clientAText + "'",
                            "> Updating client information for external cloud repository", "< ok", "< ok"));
}

TEST_F(RepositoryClients, KeyIsReplacedWithoutReadingTheOld) {
    repository_->SetEncryptionKey({}, Key(1), Salt("1"));
    Write(keyPath, "damaged");
    client_->ClearCalls();
    repository_->SetEncryptionKey({}, Key(2), Salt("SECRETsalt"));
    EXPECT_EQ(Text(keyPath),
              "<EncryptionKey Id=\"00000000000000000000000000000002\" Hint=\"hint 2\" Salt=\"U0VDUkVUc2FsdA==\" />\n");
    EXPECT_THAT(Calls(), testing::Each(testing::Not(testing::HasSubstr("DownloadFile"))));
}

TEST_F(RepositoryClients, KeyOfAnotherIsSetWithoutInformation) {
    repository_->SetEncryptionKey(Guid(11), Key(1), Salt("s"));
    EXPECT_TRUE(Exists(ClientFolder(clientBText) + "/Config/ClientKeyInfo.xml"));
    EXPECT_FALSE(Exists(ClientFolder(clientBText) + "/Config/ClientInfo.xml"));
    EXPECT_FALSE(Exists(keyPath));
}

TEST_F(RepositoryClients, KeyIsTold) {
    repository_->SetEncryptionKey({}, Key(1), Salt("SECRETsalt"));
    client_->ClearCalls();
    ClearLog();
    const auto key = repository_->GetEncryptionKeyInfo({}).Get();
    EXPECT_EQ(key.keySetId->GetRaw(), RawId(1));
    EXPECT_EQ(key.hint, L"hint 1");
    EXPECT_EQ(*key.salt, Secret("SECRETsalt"));
    EXPECT_THAT(Calls(), ElementsAre("IsFileExist " + keyPath, "DownloadFile " + keyPath));
    EXPECT_THAT(NewScopes(), ElementsAre("> Getting encryption key info for client '" + clientAText + "'", "< ok"));
    EXPECT_TRUE(Open(InfoB())->GetEncryptionKeyInfo(Guid(10)).IsSet());
    EXPECT_FALSE(Open(InfoB())->GetEncryptionKeyInfo({}).IsSet());
}

TEST_F(RepositoryClients, WithoutAKeyHaveNone) {
    EXPECT_FALSE(repository_->GetEncryptionKeyInfo({}).IsSet());
    EXPECT_FALSE(repository_->LoadClientKeyInfo(Guid(10))->GetKeyInfo().IsSet());
    Write(keyPath, "<Other/>");
    EXPECT_FALSE(repository_->GetEncryptionKeyInfo({}).IsSet());
}

TEST_F(RepositoryClients, DamagedKeyIsRefusedAndNotShown) {
    const auto failureWith = [&](const std::string& text) {
        Write(keyPath, text);
        const auto failure = FailureOf([&] { static_cast<void>(repository_->GetEncryptionKeyInfo({})); });
        ExpectNoSecret(failure);
        return failure;
    };
    EXPECT_EQ(failureWith("<EncryptionKey Hint=\"\" Salt=\"U0VDUkVUc2FsdA\"/>"),
              "Attribute 'Salt' of node 'EncryptionKey' is not base64");
    EXPECT_EQ(failureWith("<EncryptionKey Salt=\"U0VDUkVUc2FsdA==\"/>"),
              "Cannot find required attribute 'Hint' of node 'EncryptionKey'");
    EXPECT_EQ(failureWith("<EncryptionKey Salt=\"U0VDUkVUc2FsdA=="),
              "Invalid XML document: cut off at byte 37, in attribute 'Salt' of node 'EncryptionKey'");
    EXPECT_EQ(failureWith(""), "Invalid XML document: no root element at byte 0");
    EXPECT_EQ(NewScopes().back(), "< failed");
}

// An empty document is the text of no key, but an empty object is also what damage leaves: it is neither written nor
// taken for "no key", which would invite a new key over the lost one.
TEST_F(RepositoryClients, NoKeyIsNotWrittenOverOne) {
    repository_->SetEncryptionKey({}, Key(1), Salt("s"));
    const std::string before = Text(keyPath);
    EXPECT_EQ(FailureOf([&] { repository_->UpdateClientKeyInfo(Guid(10), *CCloudClientKeyInfo::CreateEmpty()); }),
              "Document 'Config/ClientKeyInfo.xml' is not written: it could not be read back: Invalid XML document: "
              "no root element at byte 0");
    EXPECT_EQ(Text(keyPath), before);
}

TEST_F(RepositoryClients, HistoricalKeysAreAddedNewestFirst) {
    repository_->AddHistoricalKey({}, Key(1));
    repository_->AddHistoricalKey({}, Key(2, false, 3));
    repository_->AddHistoricalKey({}, Key(3));
    EXPECT_THAT(HintsOf(repository_->EnumHistoricalKeys({})), ElementsAre("hint 3", "hint 2", "hint 1"));
    EXPECT_THAT(HintsOf(Open(InfoB())->EnumHistoricalKeys(Guid(10))), ElementsAre("hint 3", "hint 2", "hint 1"));
    EXPECT_THAT(Open(InfoB())->EnumHistoricalKeys({}), IsEmpty());
    const std::string text = Text(historyPath);
    EXPECT_EQ(text.find("<ClientKeyHistory>\n    <HistoricalKey Hint=\"hint 3\" Value=\"Q0JLUw"), 0U);
    EXPECT_LT(text.find("hint 3"), text.find("hint 2"));
    EXPECT_LT(text.find("hint 2"), text.find("hint 1"));
}

TEST_F(RepositoryClients, HistoricalKeyIsAddedInOrder) {
    repository_->AddHistoricalKey({}, Key(1));
    const std::string config = ClientFolder(clientAText) + "/Config";
    EXPECT_THAT(Calls(), ElementsAre("IsFileExist " + historyPath, "IsFolderExist " + config, "CreateFolder " + config,
                                     "UploadFile " + historyPath));
    EXPECT_THAT(NewScopes(), ElementsAre("> Adding historical key 'id: 00000000000000000000000000000001, hint: hint "
                                         "1, keys: present, repair records: 0' for client '" +
                                             clientAText + "'",
                                         "< ok"));
}

TEST_F(RepositoryClients, HistoricalKeyThatBreaksTheChainIsNotWritten) {
    repository_->AddHistoricalKey({}, Key(1, false, 2));
    const std::string before = Text(historyPath);
    const auto failure = FailureOf([&] { repository_->AddHistoricalKey({}, Key(3)); });
    EXPECT_EQ(failure,
              "Invalid historical key chain (new key: id: 00000000000000000000000000000003, hint: hint 3, keys: "
              "present, repair records: 0, previous key: id: 00000000000000000000000000000001, hint: hint 1, keys: "
              "absent, repair records: 1)");
    EXPECT_EQ(Text(historyPath), before);
    EXPECT_EQ(NewScopes().back(), "< failed");
}

TEST_F(RepositoryClients, HistoricalKeysAreToldAndLogged) {
    repository_->AddHistoricalKey({}, Key(1));
    repository_->AddHistoricalKey({}, Key(2, false, 3));
    client_->ClearCalls();
    ClearLog();
    const auto keys = repository_->EnumHistoricalKeys({});
    ASSERT_EQ(keys.size(), 2U);
    EXPECT_EQ(keys[1]->GetKeys(), Secret("SECRETmaterial"));
    EXPECT_EQ(keys[0]->GetRepairRecords()[0].wrappedKey, Secret("SECRETwrapped"));
    EXPECT_THAT(NewScopes(), ElementsAre("> Enumerating historical keys for client '" + clientAText + "'", "< ok"));
    EXPECT_THAT(sink_.GetTexts(level_t::tr),
                ElementsAre("    id: 00000000000000000000000000000002, hint: hint 2, keys: absent, repair records: 1",
                            "    id: 00000000000000000000000000000001, hint: hint 1, keys: present, repair records: "
                            "0"));
    EXPECT_THAT(Calls(), ElementsAre("IsFileExist " + historyPath, "DownloadFile " + historyPath));
}

TEST_F(RepositoryClients, WithoutAHistoryHaveNone) {
    EXPECT_THAT(repository_->EnumHistoricalKeys({}), IsEmpty());
    EXPECT_THAT(repository_->LoadClientKeyHistory(Guid(10))->GetKeys(), IsEmpty());
}

TEST_F(RepositoryClients, DamagedHistoryIsRefusedAndKept) {
    const auto failureWith = [&](const std::string& text) {
        Write(historyPath, text);
        const auto failure = FailureOf([&] { static_cast<void>(repository_->EnumHistoricalKeys({})); });
        EXPECT_EQ(FailureOf([&] { repository_->AddHistoricalKey({}, Key(1)); }), failure);
        EXPECT_EQ(Text(historyPath), text);
        ExpectNoSecret(failure);
        return failure;
    };
    EXPECT_EQ(failureWith("<Other/>"), "Cannot find required node: ClientKeyHistory");
    EXPECT_EQ(failureWith("<ClientKeyHistory><HistoricalKey/></ClientKeyHistory>"),
              "Cannot find required attribute 'Value' of node 'HistoricalKey'");
    EXPECT_EQ(failureWith("<ClientKeyHistory><HistoricalKey Value=\"U0VDUkVU\"/></ClientKeyHistory>"),
              "Attribute 'Value' of node 'HistoricalKey' is not a key set: Not a key set");
    EXPECT_EQ(failureWith("<ClientKeyHistory><HistoricalKey Value=\"U0VDUkVU"),
              "Invalid XML document: cut off at byte 48, in attribute 'Value' of node 'HistoricalKey'");
}

// Whatever call fails, and however: the old document or the new one is there, and no failure shows a secret.
TEST_F(RepositoryClients, KeysSurviveAnyFailedCall) {
    using cloudclientlib::EFaultMode;
    for (const auto mode : {EFaultMode::notDone, EFaultMode::doneButFailed, EFaultMode::doneInPart}) {
        bool reached = true;
        for (std::uint64_t call = 1; reached; ++call) {
            const auto faults = std::make_shared<cloudclientlib::CFaultClient>(client_->Clone());
            const auto repository = CCloudExternalRepository::OpenExisting(faults, InfoA());
            repository->SetEncryptionKey({}, Key(1), Salt("SECRETold"));
            repository->AddHistoricalKey({}, Key(1));
            faults->Arm({.call = call, .mode = mode});
            const auto failure = FailureOf([&] {
                repository->AddHistoricalKey({}, Key(2));
                repository->SetEncryptionKey({}, Key(2), Salt("SECRETnew"));
            });
            reached = faults->IsReached();
            faults->Disarm();
            ExpectNoSecret(failure);
            EXPECT_EQ(failure == "no failure", !reached);
            const auto hints = HintsOf(repository->EnumHistoricalKeys({}));
            EXPECT_EQ(hints.back(), "hint 1");
            EXPECT_LE(hints.size(), 2U);
            const auto key = repository->GetEncryptionKeyInfo({}).Get();
            const bool isNew = key.keySetId->GetRaw() == RawId(2);
            EXPECT_EQ(*key.salt, Secret(isNew ? "SECRETnew" : "SECRETold"));
            EXPECT_TRUE(!isNew || hints.size() == 2U);
        }
    }
}

}  // namespace
