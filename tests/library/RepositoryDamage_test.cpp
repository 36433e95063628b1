// The documents of a repository and of its clients, damaged in every place: what is refused names the element and the
// attribute, and nothing that was known before is lost.

#include "common/util.h"
#include "tests/library/RepositoryFixture.h"
#include "tests/support/XmlDamage.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

std::shared_ptr<crypto::CKeySet> DamagedKey(std::uint8_t number, bool hasMaterial = true) {
    crypto::SRawKeySetId raw;
    raw.bytes[15] = number;
    return std::make_shared<crypto::CKeySet>(
        crypto::CKeySetId(raw), L"hint <" + std::to_wstring(number) + L">",
        hasMaterial ? crypto::sec_bytes_t{'k', 'e', 'y'} : crypto::sec_bytes_t{},
        std::vector<crypto::CRestoreKeyRepairRec>{{raw, crypto::sec_bytes_t{'w'}}});
}

bool IsBase64(const std::string& value) { return value.empty() || !util::fromBase64(value).empty(); }

/// What is said of a value that is told by its attribute alone, never quoted.
std::string Unquoted(const SAttributePlace& place, const std::string& kind) {
    return "Attribute '" + place.name + "' of node '" + place.element + "' is not " + kind;
}

SAttributeRule IdentityRule(const SAttributePlace& place) { return place.name == "Id" ? GuidRule() : TextRule(); }

SAttributeRule KeySetIdRule() {
    return {true,
            [](const auto& place, const auto& value) {
                return value.empty() ? std::string() : Unquoted(place, "a key set id");
            },
            {}};
}

SAttributeRule SaltRule() {
    return {false,
            [](const auto& place, const auto& value) {
                return IsBase64(value) ? std::string() : Unquoted(place, "base64");
            },
            {}};
}

std::string KeySetRefusal(const SAttributePlace& place, const std::string& value) {
    if (!IsBase64(value)) {
        return Unquoted(place, "base64");
    }
    const std::size_t size = util::fromBase64(value).size();
    const std::string reason = size < 4 ? "Failed to retrieve value from the binary stream: received less bytes (" +
                                              std::to_string(size) + ") than expected (4)."
                                        : "Not a key set";
    return Unquoted(place, "a key set: ") + reason;
}

class RepositoryDamage : public RepositoryTest {
protected:
    void SetUp() override {
        repository_ = Create();
        repository_->SetOwner({Guid(5), "team", "The <team>"});
        repository_->SetEncryptionKey({}, DamagedKey(1), std::make_shared<crypto::sec_bytes_t>(7, 's'));
        repository_->AddHistoricalKey({}, DamagedKey(1));
        repository_->AddHistoricalKey({}, DamagedKey(2));
        Open(InfoB())->UpdateClientInfo();
    }

    /// Writes the document's text, then reads it by the operation.
    [[nodiscard]] std::function<void(const std::string&)> Reader(const std::string& path,
                                                                 const std::function<void()>& operation) const {
        return [this, path, operation](const std::string& text) {
            Write(path, text);
            operation();
        };
    }

    /// What an opened repository knows.
    [[nodiscard]] std::string State() const {
        const auto owner = repository_->GetOwner();
        return repository_->Info4Log() + owner.id.ToAStr() + owner.type + owner.description;
    }

    repository_ptr repository_;
};

TEST_F(RepositoryDamage, OfTheDescription) {
    const std::string text = Text(descriptionPath);
    const auto read = Reader(descriptionPath, [&] { (void)repository_->LoadDescription(); });
    EXPECT_EQ(ExpectReaderStands(text, read, IdentityRule), 2U);
    EXPECT_GT(ExpectKeepsItsState(text, read, [&] { return State(); }), 100U);
}

TEST_F(RepositoryDamage, OfTheDescriptionDecidesWhetherItIsValid) {
    const std::string text = Text(descriptionPath);
    unsigned refused = 0;
    ForEachDamage(text, [&](const SDamage& damage, const std::string& damaged) {
        Write(descriptionPath, damaged);
        const std::string failure = FailureOf([&] { (void)repository_->LoadDescription(); });
        const bool isValid = failure == "no failure";
        const std::string inOpening =
            isValid ? failure : "Failed to open external cloud repository '" + infoAText + "': " + failure;
        EXPECT_EQ(FailureOf([&] { (void)Open(); }), inOpening) << damage.Describe(damaged.size());
        EXPECT_EQ(CCloudExternalRepository::HasValidDescription(repositoryRoot, client_), isValid);
        EXPECT_EQ(FailureOf([&] { (void)Create(); }),
                  "Failed to create new external cloud repository '" + infoAText +
                      "': " + (isValid ? "Repository already exists and is valid" : inOpening));
        EXPECT_EQ(Text(descriptionPath), damaged) << "it is kept as it is";
        refused += isValid ? 0U : 1U;
    });
    EXPECT_GT(refused, 100U);
}

TEST_F(RepositoryDamage, OfTheOwner) {
    const std::string text = Text(ownerPath);
    const auto read = Reader(ownerPath, [&] { repository_->LoadOwner(); });
    EXPECT_EQ(ExpectReaderStands(text, read, IdentityRule), 3U);
    read(text);
    EXPECT_EQ(repository_->GetOwner(), (SCloudRepoIdentity{Guid(5), "team", "The <team>"}));
    EXPECT_GT(ExpectKeepsItsState(text, read, [&] { return State(); }), 100U);
}

TEST_F(RepositoryDamage, OfTheOwnerKeepsTheRepositoryClosed) {
    const std::string text = Text(ownerPath);
    ForEachDamage(text, [&](const SDamage& damage, const std::string& damaged) {
        Write(ownerPath, damaged);
        const std::string failure = FailureOf([&] { repository_->LoadOwner(); });
        EXPECT_EQ(FailureOf([&] { (void)Open(); }),
                  failure == "no failure" ? failure
                                          : "Failed to open external cloud repository '" + infoAText + "': " + failure)
            << damage.Describe(damaged.size());
    });
    repository_->SetOwner({});
    EXPECT_EQ(FailureOf([&] { (void)Open(); }), "no failure") << "an owner can be set over a damaged one";
}

TEST_F(RepositoryDamage, OfAClientsInformation) {
    const std::string text = Text(infoPath);
    const auto read = Reader(infoPath, [&] { (void)repository_->LoadClientInfo(Guid(10)); });
    EXPECT_EQ(ExpectReaderStands(text, read, IdentityRule), 3U);
    EXPECT_GT(ExpectKeepsItsState(text, read, [&] { return State(); }), 100U);
}

TEST_F(RepositoryDamage, OfAClientsInformationLeavesOutThatClientAlone) {
    const std::string text = Text(infoPath);
    const SCloudRepoIdentity other{Guid(11), "server", "Ben"};
    ForEachDamage(text, [&](const SDamage& damage, const std::string& damaged) {
        Write(infoPath, damaged);
        const bool isReadable = FailureOf([&] { (void)repository_->LoadClientInfo(Guid(10)); }) == "no failure";
        const RecordingSink log;
        const auto clients = repository_->EnumClients();
        const auto warnings = log.GetTexts(logging::level_t::warn);
        ASSERT_EQ(clients.size(), isReadable ? 2U : 1U) << damage.Describe(damaged.size());
        EXPECT_EQ(clients.back(), other);
        if (isReadable) {
            EXPECT_THAT(warnings, IsEmpty());
        } else {
            EXPECT_THAT(warnings, ElementsAre("Failed to retrieve client information from client data folder '" +
                                              clientAText + "'"));
        }
    });
}

TEST_F(RepositoryDamage, OfAClientsKey) {
    const std::string text = Text(keyPath);
    const auto read = Reader(keyPath, [&] { (void)repository_->GetEncryptionKeyInfo({}); });
    const auto ruleOf = [](const SAttributePlace& place) {
        return place.name == "Id" ? KeySetIdRule() : place.name == "Salt" ? SaltRule() : TextRule();
    };
    EXPECT_EQ(ExpectReaderStands(text, read, ruleOf), 3U);
    EXPECT_GT(ExpectKeepsItsState(text, read, [&] { return State(); }), 100U);
}

TEST_F(RepositoryDamage, OfAClientsKeyIsMendedByANewKey) {
    const std::string text = Text(keyPath);
    ForEachDamage(text, [&](const SDamage&, const std::string& damaged) {
        Write(keyPath, damaged);
        repository_->SetEncryptionKey({}, DamagedKey(1), std::make_shared<crypto::sec_bytes_t>(7, 's'));
        EXPECT_EQ(Text(keyPath), text);
    });
}

TEST_F(RepositoryDamage, OfAKeyHistory) {
    const std::string text = Text(historyPath);
    const auto read = Reader(historyPath, [&] { (void)repository_->EnumHistoricalKeys({}); });
    const auto ruleOf = [](const SAttributePlace& place) {
        return place.name == "Value" ? SAttributeRule{false, KeySetRefusal, {}} : Optional(TextRule());
    };
    EXPECT_EQ(ExpectReaderStands(text, read, ruleOf), 4U);
    EXPECT_GT(ExpectKeepsItsState(text, read, [&] { return State(); }), 100U);
}

// The other keys of the chain may still be got out of it.
TEST_F(RepositoryDamage, OfAKeyHistoryIsNeverWrittenOver) {
    const std::string text = Text(historyPath);
    unsigned refused = 0;
    ForEachDamage(text, [&](const SDamage& damage, const std::string& damaged) {
        Write(historyPath, damaged);
        const std::string failure = FailureOf([&] { (void)repository_->EnumHistoricalKeys({}); });
        if (failure != "no failure") {
            ++refused;
            EXPECT_EQ(FailureOf([&] { repository_->AddHistoricalKey({}, DamagedKey(3)); }), failure);
            EXPECT_EQ(Text(historyPath) == damaged, true) << damage.Describe(damaged.size());
        }
    });
    EXPECT_GT(refused, 100U);
}

// Another document in its place, one with the wrong elements, none at all.
TEST_F(RepositoryDamage, OfAWholeDocument) {
    const auto failureWith = [&](const std::string& path, const std::string& text,
                                 const std::function<void()>& operation) {
        const std::string before = Text(path);
        Write(path, text);
        std::string failure = FailureOf(operation);
        Write(path, before);
        return failure;
    };
    const auto description = [&] { (void)repository_->LoadDescription(); };
    const auto owner = [&] { repository_->LoadOwner(); };
    const auto info = [&] { (void)repository_->LoadClientInfo(Guid(10)); };
    const auto key = [&] { EXPECT_FALSE(repository_->GetEncryptionKeyInfo({}).IsSet()); };
    const auto history = [&] { (void)repository_->EnumHistoricalKeys({}); };
    for (const std::string text : {"<Other />", "<repository /><owner />", "<x><Owner /></x>"}) {
        const bool isDocument = text != "<repository /><owner />";
        const auto expected = [&](const std::string& node) {
            return isDocument ? "Cannot find required node: " + node
                              : "Invalid XML document: text after the root element at byte 14";
        };
        EXPECT_EQ(failureWith(descriptionPath, text, description), expected("Repository"));
        EXPECT_EQ(failureWith(ownerPath, text, owner), expected("Owner"));
        EXPECT_EQ(failureWith(infoPath, text, info), expected("ClientInfo"));
        EXPECT_EQ(failureWith(historyPath, text, history), expected("ClientKeyHistory"));
        EXPECT_EQ(failureWith(keyPath, text, key), isDocument ? "no failure" : expected(""));
    }
    EXPECT_EQ(repository_->GetOwner().id, Guid(5)) << "the owner that could not be read anew is still known";
    const std::string nothing = "Invalid XML document: no root element at byte 0";
    EXPECT_EQ(failureWith(descriptionPath, "", description), nothing);
    EXPECT_EQ(failureWith(ownerPath, "", owner), nothing);
    EXPECT_EQ(failureWith(infoPath, "", info), nothing);
    EXPECT_EQ(failureWith(keyPath, "", key), nothing);
    EXPECT_EQ(failureWith(historyPath, "", history), nothing);
}

}  // namespace
