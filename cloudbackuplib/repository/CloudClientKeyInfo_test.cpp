#include "cloudbackuplib/CloudClientKeyInfo.h"

#include <gtest/gtest.h>

#include <rapidcheck/gtest.h>

#include "common/exc.h"
#include "common/util.h"
#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup {
namespace {

const crypto::SRawKeySetId rawId = crypto::SRawKeySetId::FromStr("000102030405060708090a0b0c0d0e0f");
const std::string text =
    "<EncryptionKey Id=\"000102030405060708090a0b0c0d0e0f\" Hint=\"m\xC3\xA4"
    "dchen\" Salt=\"c2FsdA==\" />\n";

std::shared_ptr<crypto::sec_bytes_t> Salt(std::string_view bytes) {
    return std::make_shared<crypto::sec_bytes_t>(bytes.begin(), bytes.end());
}

SCloudRepoEncryptionKeyInfo Key() {
    return {std::make_shared<crypto::CKeySetId>(rawId), L"m\u00e4dchen", Salt("salt")};
}

std::string Text(const CCloudClientKeyInfo& info) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    info.Serialize(document);
    return xml::TiXmlToStr(document);
}

std::string Text(const SCloudRepoEncryptionKeyInfo& key) {
    CCloudClientKeyInfo info;
    info.SetEncryptionKey(key);
    return Text(info);
}

COptionalParameter<SCloudRepoEncryptionKeyInfo> ReadKey(const std::string& document) {
    return CCloudClientKeyInfo::Deserialize(xml::TiXmlParseExc(document))->GetKeyInfo();
}

std::string KeyFailure(const std::string& document) {
    return test::FailureOf([](const std::string& t) { static_cast<void>(ReadKey(t)); }, document).value_or("");
}

TEST(CloudClientKeyInfo, HasNoKeyAtFirst) {
    const auto info = CCloudClientKeyInfo::CreateEmpty();
    EXPECT_FALSE(info->GetKeyInfo().IsSet());
    EXPECT_EQ(Text(*info), "");
}

TEST(CloudClientKeyInfo, KeepsTheKeySetLast) {
    const auto info = CCloudClientKeyInfo::CreateEmpty();
    info->SetEncryptionKey({nullptr, L"first", Salt("1")});
    info->SetEncryptionKey(Key());
    EXPECT_EQ(info->GetKeyInfo().Get().hint, L"m\u00e4dchen");
    EXPECT_EQ(Text(*info), text);
}

TEST(CloudClientKeyInfo, IsReadBack) {
    const auto key = ReadKey(text).Get();
    EXPECT_EQ(key.keySetId->GetRaw(), rawId);
    EXPECT_EQ(key.hint, L"m\u00e4dchen");
    EXPECT_EQ(*key.salt, *Salt("salt"));
    EXPECT_EQ(Text(key), text);
}

TEST(CloudClientKeyInfo, WithoutTheElementHasNoKey) {
    EXPECT_FALSE(ReadKey("<Other/>").IsSet());
    EXPECT_FALSE(ReadKey("<encryptionKey Salt=\"\" Hint=\"\"/>").IsSet());
    EXPECT_FALSE(ReadKey("<Other><EncryptionKey Salt=\"\" Hint=\"\"/></Other>").IsSet());
}

TEST(CloudClientKeyInfo, MayHaveAKeyWithoutId) {
    const std::string withoutId = "<EncryptionKey Hint=\"h\" Salt=\"c2FsdA==\" />\n";
    const auto key = ReadKey(withoutId).Get();
    EXPECT_EQ(key.keySetId, nullptr);
    EXPECT_EQ(key.hint, L"h");
    EXPECT_EQ(*key.salt, *Salt("salt"));
    EXPECT_EQ(Text(key), withoutId);
    EXPECT_EQ(ReadKey("<EncryptionKey Id=\"\" Hint=\"h\" Salt=\"c2FsdA==\"/>").Get().keySetId, nullptr);
}

TEST(CloudClientKeyInfo, MayHaveAnEmptySaltAndHint) {
    const std::string empty = "<EncryptionKey Hint=\"\" Salt=\"\" />\n";
    const auto key = ReadKey(empty).Get();
    EXPECT_EQ(key.hint, L"");
    ASSERT_NE(key.salt, nullptr);
    EXPECT_TRUE(key.salt->empty());
    EXPECT_EQ(Text(key), empty);
    EXPECT_EQ(Text({nullptr, L"", nullptr}), empty);
}

TEST(CloudClientKeyInfo, NamesAMissingAttribute) {
    for (const auto& place : test::FindAttributes(text)) {
        EXPECT_EQ(
            KeyFailure(test::Without(text, place)),
            place.name == "Id" ? "" : "Cannot find required attribute '" + place.name + "' of node 'EncryptionKey'");
    }
    EXPECT_EQ(KeyFailure("<EncryptionKey/>"), "Cannot find required attribute 'Salt' of node 'EncryptionKey'");
    EXPECT_EQ(KeyFailure("<EncryptionKey Id=\"x\"/>"), "Attribute 'Id' of node 'EncryptionKey' is not a key set id");
}

TEST(CloudClientKeyInfo, NamesABadIdWithoutQuotingIt) {
    const auto place = test::FindAttributes(text)[0];
    for (const std::string& value :
         {std::string("-1"), std::string("x"), std::string(31, 'a'), std::string(33, 'a'), std::string(1000, '9')}) {
        EXPECT_EQ(KeyFailure(test::WithValue(text, place, value)),
                  "Attribute 'Id' of node 'EncryptionKey' is not a key set id");
    }
}

TEST(CloudClientKeyInfo, NamesABadSaltWithoutQuotingIt) {
    const auto place = test::FindAttributes(text)[2];
    for (const std::string value : {"c2FsdA=", "c2FsdA", "secret!!", "-1", "====", " c2FsdA==", "c2FsdA==\n"}) {
        EXPECT_EQ(KeyFailure(test::WithValue(text, place, value)),
                  "Attribute 'Salt' of node 'EncryptionKey' is not base64")
            << value;
    }
}

TEST(CloudClientKeyInfo, RefusesADamagedDocument) {
    for (std::size_t size = 0; size + 1 < text.size(); ++size) {
        EXPECT_EQ(KeyFailure(text.substr(0, size)).find("Invalid XML document: "), 0U) << size;
    }
    for (const auto& place : test::FindAttributes(text)) {
        EXPECT_EQ(KeyFailure(test::Doubled(text, place)).find("Invalid XML document: "), 0U);
        EXPECT_EQ(KeyFailure(test::WithValue(text, place, "\xFF")).find("Invalid XML document: "), 0U);
    }
}

TEST(CloudClientKeyInfo, RefusesToWriteAHintThatIsNoText) {
    EXPECT_THROW(static_cast<void>(Text({nullptr, std::wstring(1, L'\0'), Salt("")})), exc::CRuntimeExc);
    EXPECT_THROW(static_cast<void>(Text({nullptr, std::wstring(1, static_cast<wchar_t>(0xD800)), Salt("")})),
                 exc::CRuntimeExc);
}

RC_GTEST_PROP(CloudClientKeyInfo, AnyKeyIsReadBack, ()) {
    crypto::SRawKeySetId raw;
    raw.bytes = *rc::gen::arbitrary<std::array<std::uint8_t, 16>>();
    const auto salt = *rc::gen::arbitrary<std::vector<char>>();
    const auto hint = *rc::gen::container<std::vector<wchar_t>>(
        rc::gen::element(L'a', L'"', L'\'', L'<', L'&', L'\n', L'\u00fc', L'\u20ac', L'\U0001F511'));
    const SCloudRepoEncryptionKeyInfo key{std::make_shared<crypto::CKeySetId>(raw),
                                          std::wstring(hint.begin(), hint.end()), Salt({salt.data(), salt.size()})};
    const auto read = ReadKey(Text(key)).Get();
    RC_ASSERT(read.keySetId->GetRaw() == raw);
    RC_ASSERT(read.hint == key.hint);
    RC_ASSERT(*read.salt == *key.salt);
}

}  // namespace
}  // namespace cloudbackuplib::backup
