// Whatever a repository does with keys, and however it fails: no log and no exception shows a secret.

#include <exception>
#include <functional>
#include <set>

#include "cloudclientlib/wrappers/FaultClient.h"
#include "tests/library/RepositoryFixture.h"
#include "tests/support/SecretSearch.h"

namespace {

using namespace test;

using key_ptr = std::shared_ptr<crypto::CKeySet>;

const std::string infoPath = ClientFolder(clientAText) + "/Config/ClientInfo.xml";
const std::string keyPath = ClientFolder(clientAText) + "/Config/ClientKeyInfo.xml";
const std::string historyPath = ClientFolder(clientAText) + "/Config/ClientKeyHistory.xml";

/// Bytes as a secret has them: most are no text.
std::string MakeSecret(unsigned seed) {
    std::string bytes;
    for (unsigned i = 0; i < 48; ++i) {
        seed = seed * 1664525U + 1013904223U;
        bytes += static_cast<char>(seed >> 24U);
    }
    return bytes;
}

const std::string material = MakeSecret(1);
const std::string wrapped = MakeSecret(2);
const std::string salt = MakeSecret(3);
const std::string printableMaterial = "correct horse battery staple";
const std::vector<std::string> secrets{material, wrapped, salt, printableMaterial};

crypto::sec_bytes_t Bytes(const std::string& text) { return {text.begin(), text.end()}; }

key_ptr SecretKey(std::uint8_t number, const std::string& keys, std::uint8_t master = 99) {
    return std::make_shared<crypto::CKeySet>(
        crypto::CKeySetId(RawId(number)), L"hint " + std::to_wstring(number), Bytes(keys),
        std::vector<crypto::CRestoreKeyRepairRec>{{RawId(master), Bytes(wrapped)}});
}

std::shared_ptr<crypto::sec_bytes_t> Salt() { return std::make_shared<crypto::sec_bytes_t>(Bytes(salt)); }

class RepositorySecrets : public RepositoryTest {
protected:
    void TearDown() override {
        const auto entries = sink_.GetEntries();
        EXPECT_FALSE(entries.empty());
        for (const auto& entry : entries) {
            ExpectHidden(entry.text);
        }
        RepositoryTest::TearDown();
    }

    void ExpectHidden(const std::string& text) {
        if (seen_.insert(text).second) {
            EXPECT_EQ(search_.Find(text), "") << text.substr(0, 1000);
        }
    }

    /// Runs what may fail; looks at every exception of the chain, by itself and as one text.
    void Try(const std::function<void()>& operation) {
        try {
            operation();
        } catch (const std::exception& failure) {
            ++failures_;
            ExpectHidden(exc::ChainText(failure));
            LookAtChain(failure);
        }
    }
    void LookAtChain(const std::exception& failure) {
        ExpectHidden(failure.what());
        if (const auto* own = dynamic_cast<const exc::CExc*>(&failure)) {
            ExpectHidden(own->GetMessage());
        }
        try {
            exc::RethrowCause(failure);
        } catch (const std::exception& cause) {
            LookAtChain(cause);
        }
    }

    /// Everything that touches keys or reads one of the client's documents.
    void TryAll(ICloudRepository& repository) {
        auto& external = dynamic_cast<CCloudExternalRepository&>(repository);
        Try([&] { (void)external.LoadClientInfo(Guid(10)); });
        Try([&] { (void)external.EnumClients(); });
        Try([&] { (void)external.LoadClientKeyInfo(Guid(10)); });
        Try([&] { (void)external.GetEncryptionKeyInfo({}); });
        Try([&] { (void)external.LoadClientKeyHistory(Guid(10)); });
        Try([&] { (void)external.EnumHistoricalKeys({}); });
    }
    void ChangeAll(ICloudRepository& repository) {
        auto& external = dynamic_cast<CCloudExternalRepository&>(repository);
        Try([&] { external.UpdateClientInfo(); });
        Try([&] { external.EnsureClientInfo(Guid(10)); });
        Try([&] { external.SetEncryptionKey({}, SecretKey(1, material), Salt()); });
        Try([&] { external.AddHistoricalKey({}, SecretKey(1, material)); });
        Try([&] { external.AddHistoricalKey({}, SecretKey(2, "", 3)); });
        Try([&] { external.AddHistoricalKey({}, SecretKey(4, printableMaterial)); });  // breaks the chain
        Try([&] { external.AddHistoricalKey({}, SecretKey(3, printableMaterial)); });
        Try([&] { external.UpdateClientKeyInfo(Guid(10), CCloudClientKeyInfo()); });
        Try([&] { external.UpdateClientKeyHistory(Guid(10), *external.LoadClientKeyHistory(Guid(10))); });
        Try([&] { external.SetEncryptionKey({}, SecretKey(1, material), nullptr); });
        Try([&] { external.SetEncryptionKey({}, SecretKey(3, printableMaterial), Salt()); });
    }

    unsigned failures_ = 0;

private:
    const SecretSearch search_{secrets};
    std::set<std::string> seen_;
};

// The search itself can fail: each form of a secret is found, wherever it stands.
TEST_F(RepositorySecrets, AreFoundInEveryForm) {
    for (const std::string& secret : secrets) {
        const SecretSearch search({secret});
        for (const std::string before : {"", "a", "ab", "abc"}) {
            const std::string around = before + secret + "behind";
            EXPECT_TRUE(search.IsIn(around));
            EXPECT_TRUE(search.IsIn("x" + util::toBase64(std::span<const char>(around))));
            EXPECT_TRUE(search.IsIn(ToHex(around, "0123456789abcdef")));
            EXPECT_TRUE(search.IsIn(ToHex(around, "0123456789ABCDEF")));
        }
        EXPECT_TRUE(search.IsIn(secret.substr(20, shownLength))) << "a piece is enough";
        EXPECT_FALSE(search.IsIn(secret.substr(20, shownLength - 1)));
    }
    logging::Library().Dbg("%1", "the log is recorded at its finest level");
    EXPECT_EQ(sink_.GetTexts(logging::level_t::dbg).size(), 1U);
}

TEST_F(RepositorySecrets, AreKeptWhenAllGoesWell) {
    const auto repository = Create();
    ChangeAll(*repository);
    EXPECT_EQ(failures_, 2U) << "the broken chain, and the document without a key";
    TryAll(*repository);
    EXPECT_EQ(failures_, 2U);
    EXPECT_TRUE(SecretSearch({salt}).IsIn(Text(keyPath))) << "they are in the documents";
    EXPECT_TRUE(SecretSearch({material}).IsIn(Text(historyPath)));
    EXPECT_TRUE(SecretSearch({wrapped}).IsIn(Text(historyPath)));
    EXPECT_TRUE(SecretSearch({printableMaterial}).IsIn(Text(historyPath)));
    repository->Delete();
}

TEST_F(RepositorySecrets, AreKeptWhenTheStoreFails) {
    const auto repository = Create();
    ChangeAll(*repository);
    for (const auto mode : {cloudclientlib::EFaultMode::notDone, cloudclientlib::EFaultMode::doneInPart}) {
        bool reached = true;
        for (std::uint64_t call = 1; reached; ++call) {
            const auto faults = std::make_shared<cloudclientlib::CFaultClient>(client_->Clone());
            const auto faulty = CCloudExternalRepository::OpenExisting(faults, InfoA());
            faults->Arm({.call = call, .mode = mode});
            ChangeAll(*faulty);
            TryAll(*faulty);
            reached = faults->IsReached();
        }
    }
    EXPECT_GT(failures_, 50U);
}

TEST_F(RepositorySecrets, AreKeptWhenADocumentIsCutOff) {
    const auto repository = Create();
    ChangeAll(*repository);
    for (const std::string& path : {infoPath, keyPath, historyPath}) {
        const std::string whole = Text(path);
        for (std::size_t size = 0; size < whole.size(); ++size) {
            Write(path, whole.substr(0, size));
            TryAll(*repository);
        }
        Write(path, whole);
    }
    EXPECT_GT(failures_, 1000U);
}

TEST_F(RepositorySecrets, AreKeptWhenACharacterIsWrong) {
    const auto repository = Create();
    ChangeAll(*repository);
    const auto tryWith = [&](const std::string& path, std::string text, std::size_t at, char wrong) {
        text[at] = wrong;
        Write(path, text);
        Try([&] { (void)repository->GetEncryptionKeyInfo({}); });
        Try([&] { (void)repository->EnumHistoricalKeys({}); });
    };
    const auto tryEverywhere = [&](const std::string& path) {
        const std::string whole = Text(path);
        for (std::size_t at = 0; at < whole.size(); ++at) {
            for (const char wrong : {'"', ' ', '<', '>', '=', '&', '%', '\0', '\xFF', 'A'}) {
                tryWith(path, whole, at, wrong);
            }
        }
        Write(path, whole);
    };
    tryEverywhere(historyPath);
    // With every padding: behind a stray quote the rest of a value may look like an attribute.
    for (std::size_t size = salt.size() - 2; size <= salt.size(); ++size) {
        repository->SetEncryptionKey({}, SecretKey(1, material),
                                     std::make_shared<crypto::sec_bytes_t>(Bytes(salt.substr(0, size))));
        tryEverywhere(keyPath);
    }
    EXPECT_GT(failures_, 1000U);
}

// A document whose attributes have changed places, or that stands where another belongs.
TEST_F(RepositorySecrets, AreKeptWhenTheyStandInTheWrongPlace) {
    const auto repository = Create();
    ChangeAll(*repository);
    const std::vector<std::string> values{util::toBase64(std::span<const char>(salt)),
                                          util::toBase64(std::span<const char>(material)), printableMaterial,
                                          ToHex(material, "0123456789abcdef")};
    const auto attribute = [](const std::string& name, const std::string& value) {
        return " " + name + "=\"" + value + "\"";
    };
    for (const std::string& value : values) {
        for (const std::string& other : values) {
            Write(keyPath,
                  "<EncryptionKey" + attribute("Id", value) + attribute("Hint", "") + attribute("Salt", other) + " />");
            TryAll(*repository);
        }
        Write(historyPath, "<ClientKeyHistory><HistoricalKey" + attribute("Value", value) + " /></ClientKeyHistory>");
        TryAll(*repository);
        Write(historyPath, "<ClientKeyHistory><HistoricalKey" + attribute("Hint", value) + " /></ClientKeyHistory>");
        TryAll(*repository);
    }
    const std::string history = Text(historyPath);
    Write(historyPath, Text(keyPath));
    Write(keyPath, history);
    TryAll(*repository);
    EXPECT_GT(failures_, 20U);
}

}  // namespace
