#include "cloudbackuplib/CloudClientKeyHistory.h"

#include <gtest/gtest.h>

#include <rapidcheck/gtest.h>

#include "common/exc.h"
#include "common/util.h"
#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup {
namespace {

using key_ptr = CCloudClientKeyHistory::key_ptr;

crypto::SRawKeySetId RawId(std::uint8_t number) {
    crypto::SRawKeySetId raw;
    raw.bytes[15] = number;
    return raw;
}

crypto::sec_bytes_t Secret(std::string_view bytes) { return {bytes.begin(), bytes.end()}; }

/// A key; with material of its own when `material` is given, wrapped under each of the masters.
key_ptr Key(std::uint8_t number, std::string_view material, const std::vector<std::uint8_t>& masters = {}) {
    std::vector<crypto::CRestoreKeyRepairRec> records;
    for (const auto master : masters) {
        records.push_back({RawId(master), Secret("wrapped")});
    }
    return std::make_shared<crypto::CKeySet>(crypto::CKeySetId(RawId(number)), L"hint " + std::to_wstring(number),
                                             Secret(material), records);
}

std::string Text(const CCloudClientKeyHistory& history) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t node = xml::TiXmlCreateChild(document, "ClientKeyHistory");
    history.Serialize(node);
    return xml::TiXmlToStr(document);
}

std::vector<key_ptr> ReadKeys(const std::string& text) {
    return CCloudClientKeyHistory::Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), "ClientKeyHistory"))
        ->GetKeys();
}

std::string KeysFailure(const std::string& text) {
    return test::FailureOf([](const std::string& t) { static_cast<void>(ReadKeys(t)); }, text).value_or("");
}

std::string PushFailure(CCloudClientKeyHistory& history, const key_ptr& key) {
    return test::FailureOf([&](const std::string&) { history.PushKey(key); }, "").value_or("");
}

CCloudClientKeyHistory HistoryOf(const std::vector<key_ptr>& oldestFirst) {
    CCloudClientKeyHistory history;
    for (const auto& key : oldestFirst) {
        history.PushKey(key);
    }
    return history;
}

/// "CBKS", version 1, id ...01, hint "hint 1", key "k", no repair record.
const std::string firstValue("CBKS\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x01\x06\0\0\0hint 1\x01\0\0\0k\0\0\0\0", 43);
/// The same with id ...02 and hint "hint 2", no key, and one repair record: master ...03, "wrapped".
const std::string secondValue(
    "CBKS\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x02\x06\0\0\0hint 2\0\0\0\0\x01\0\0\0"
    "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x03\x07\0\0\0wrapped",
    69);

std::string Element(const std::string& hint, const std::string& value) {
    return "    <HistoricalKey Hint=\"" + hint + "\" Value=\"" + util::toBase64(value) + "\" />\n";
}

std::string TwoKeysText() {
    return "<ClientKeyHistory>\n" + Element("hint 2", secondValue) + Element("hint 1", firstValue) +
           "</ClientKeyHistory>\n";
}

TEST(CloudClientKeyHistory, IsEmptyAtFirst) {
    EXPECT_TRUE(CCloudClientKeyHistory::CreateEmpty()->GetKeys().empty());
    EXPECT_EQ(Text(CCloudClientKeyHistory()), "<ClientKeyHistory />\n");
    EXPECT_TRUE(ReadKeys("<ClientKeyHistory />").empty());
}

TEST(CloudClientKeyHistory, AcceptsAnyFirstKey) {
    for (const auto& key : {Key(1, "k"), Key(1, ""), Key(1, "", {7})}) {
        CCloudClientKeyHistory history;
        EXPECT_EQ(PushFailure(history, key), "");
        ASSERT_EQ(history.GetKeys().size(), 1U);
        EXPECT_EQ(history.GetKeys()[0], key);
    }
}

TEST(CloudClientKeyHistory, GoesOnAfterAKeyWithMaterial) {
    CCloudClientKeyHistory history = HistoryOf({Key(1, "k", {9})});
    const auto next = Key(2, "");
    EXPECT_EQ(PushFailure(history, next), "");
    ASSERT_EQ(history.GetKeys().size(), 2U);
    EXPECT_EQ(history.GetKeys()[0], next);
}

TEST(CloudClientKeyHistory, GoesOnWithAKeyThatOneRepairRecordNames) {
    for (const std::uint8_t master : std::vector<std::uint8_t>{3, 4, 5}) {
        CCloudClientKeyHistory history = HistoryOf({Key(1, "", {3, 4, 5})});
        EXPECT_EQ(PushFailure(history, Key(master, "")), "");
        EXPECT_EQ(history.GetKeys().size(), 2U);
    }
}

TEST(CloudClientKeyHistory, RefusesAKeyThatBreaksTheChain) {
    CCloudClientKeyHistory history = HistoryOf({Key(1, "", {3, 4})});
    EXPECT_EQ(PushFailure(history, Key(5, "material")),
              "Invalid historical key chain (new key: id: 00000000000000000000000000000005, hint: hint 5, "
              "keys: present, repair records: 0, previous key: id: 00000000000000000000000000000001, hint: hint 1, "
              "keys: absent, repair records: 2)");
    ASSERT_EQ(history.GetKeys().size(), 1U);
    EXPECT_EQ(history.GetKeys()[0]->GetId().GetRaw(), RawId(1));
}

TEST(CloudClientKeyHistory, RefusesAnyKeyAfterOneWithoutMaterialAndRecords) {
    CCloudClientKeyHistory history = HistoryOf({Key(1, "")});
    EXPECT_NE(PushFailure(history, Key(1, "k")), "");
    EXPECT_EQ(history.GetKeys().size(), 1U);
}

TEST(CloudClientKeyHistory, LooksAtTheNewestKeyAlone) {
    // The oldest names 9, but the newest does not.
    CCloudClientKeyHistory history = HistoryOf({Key(1, "", {2, 9}), Key(2, "", {3})});
    EXPECT_NE(PushFailure(history, Key(9, "k")), "");
    EXPECT_EQ(PushFailure(history, Key(3, "k")), "");
    EXPECT_EQ(history.GetKeys().size(), 3U);
}

TEST(CloudClientKeyHistory, IsWrittenNewestFirst) {
    EXPECT_EQ(Text(HistoryOf({Key(1, "k"), Key(2, "", {3})})), TwoKeysText());
}

TEST(CloudClientKeyHistory, IsReadBack) {
    const auto keys = ReadKeys(TwoKeysText());
    ASSERT_EQ(keys.size(), 2U);
    EXPECT_EQ(keys[0]->GetId().GetRaw(), RawId(2));
    EXPECT_FALSE(keys[0]->HasKeys());
    ASSERT_EQ(keys[0]->GetRepairRecords().size(), 1U);
    EXPECT_EQ(keys[0]->GetRepairRecords()[0], (crypto::CRestoreKeyRepairRec{RawId(3), Secret("wrapped")}));
    EXPECT_EQ(keys[1]->GetId().GetRaw(), RawId(1));
    EXPECT_EQ(keys[1]->GetKeys(), Secret("k"));
    EXPECT_EQ(keys[1]->GetHint(), L"hint 1");
}

TEST(CloudClientKeyHistory, SkipsForeignChildren) {
    const auto keys =
        ReadKeys("<ClientKeyHistory><Other Value=\"\"/>" + Element("", secondValue) +
                 "<historicalKey/>text<HistoricalKeys/>" + Element("", firstValue) + "</ClientKeyHistory>");
    ASSERT_EQ(keys.size(), 2U);
    EXPECT_EQ(keys[0]->GetId().GetRaw(), RawId(2));
    EXPECT_EQ(keys[1]->GetId().GetRaw(), RawId(1));
}

TEST(CloudClientKeyHistory, TakesTheHintFromTheKeyItself) {
    EXPECT_EQ(ReadKeys("<ClientKeyHistory>" + Element("another", firstValue) + "</ClientKeyHistory>")[0]->GetHint(),
              L"hint 1");
    EXPECT_EQ(ReadKeys("<ClientKeyHistory><HistoricalKey Value=\"" + util::toBase64(firstValue) +
                       "\"/></ClientKeyHistory>")[0]
                  ->GetHint(),
              L"hint 1");
}

TEST(CloudClientKeyHistory, DoesNotJudgeTheChainItReads) {
    EXPECT_EQ(
        ReadKeys("<ClientKeyHistory>" + Element("", firstValue) + Element("", secondValue) + "</ClientKeyHistory>")
            .size(),
        2U);
}

std::string WithValue(const std::string& value) {
    return KeysFailure("<ClientKeyHistory><HistoricalKey Value=\"" + value + "\"/></ClientKeyHistory>");
}

TEST(CloudClientKeyHistory, NamesAMissingOrBadValue) {
    EXPECT_EQ(KeysFailure("<ClientKeyHistory><HistoricalKey Hint=\"\"/></ClientKeyHistory>"),
              "Cannot find required attribute 'Value' of node 'HistoricalKey'");
    for (const char* value : {"no base64", "-1", "Q0JLU", "99999999999999999999="}) {
        EXPECT_EQ(WithValue(value), "Attribute 'Value' of node 'HistoricalKey' is not base64") << value;
    }
    const std::string message = "Attribute 'Value' of node 'HistoricalKey' is not a key set: ";
    EXPECT_EQ(WithValue(""), message +
                                 "Failed to retrieve value from the binary stream: received less bytes (0) than "
                                 "expected (4).");
    EXPECT_EQ(WithValue(util::toBase64(std::string("ABCD"))), message + "Not a key set");
    EXPECT_EQ(WithValue(util::toBase64(firstValue + "x")),
              message + "Key set is followed by 1 bytes that are not its own");
}

TEST(CloudClientKeyHistory, RefusesEveryCutOfAValue) {
    for (const std::string& value : {firstValue, secondValue}) {
        for (std::size_t size = 0; size < value.size(); ++size) {
            EXPECT_EQ(WithValue(util::toBase64(value.substr(0, size)))
                          .find("Attribute 'Value' of node 'HistoricalKey' is not a key set: "),
                      0U)
                << size;
        }
        EXPECT_EQ(WithValue(util::toBase64(value)), "");
    }
}

TEST(CloudClientKeyHistory, RefusesADamagedDocument) {
    const std::string text = TwoKeysText();
    for (std::size_t size = 0; size + 1 < text.size(); ++size) {
        EXPECT_EQ(KeysFailure(text.substr(0, size)).find("Invalid XML document: "), 0U) << size;
    }
    for (const auto& place : test::FindAttributes(text)) {
        EXPECT_EQ(KeysFailure(test::Doubled(text, place)).find("Invalid XML document: "), 0U);
        EXPECT_EQ(KeysFailure(test::WithValue(text, place, "\xFF")).find("Invalid XML document: "), 0U);
    }
}

key_ptr ArbitraryKey() {
    const auto bytes = [] {
        const auto plain = *rc::gen::arbitrary<std::vector<char>>();
        return crypto::sec_bytes_t(plain.begin(), plain.end());
    };
    std::vector<crypto::CRestoreKeyRepairRec> records;
    for (auto left = *rc::gen::inRange(0, 4); left != 0; --left) {
        records.push_back({RawId(*rc::gen::arbitrary<std::uint8_t>()), bytes()});
    }
    const auto hint =
        *rc::gen::container<std::vector<wchar_t>>(rc::gen::element(L'a', L'"', L'<', L'\u00fc', L'\U0001F511'));
    return std::make_shared<crypto::CKeySet>(crypto::CKeySetId(RawId(*rc::gen::arbitrary<std::uint8_t>())),
                                             std::wstring(hint.begin(), hint.end()), bytes(), records);
}

RC_GTEST_PROP(CloudClientKeyHistory, AnyHistoryIsReadBack, ()) {
    CCloudClientKeyHistory history;
    for (auto left = *rc::gen::inRange(0, 6); left != 0; --left) {
        static_cast<void>(PushFailure(history, ArbitraryKey()));
    }
    const auto keys = ReadKeys(Text(history));
    RC_ASSERT(keys.size() == history.GetKeys().size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        RC_ASSERT(keys[i]->GetId() == history.GetKeys()[i]->GetId());
        RC_ASSERT(keys[i]->GetHint() == history.GetKeys()[i]->GetHint());
        RC_ASSERT(keys[i]->GetKeys() == history.GetKeys()[i]->GetKeys());
        RC_ASSERT(keys[i]->GetRepairRecords() == history.GetKeys()[i]->GetRepairRecords());
    }
}

}  // namespace
}  // namespace cloudbackuplib::backup
