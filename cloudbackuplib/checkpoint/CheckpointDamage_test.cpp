// What the readers of a checkpoint document say of one that is damaged.

#include <gtest/gtest.h>

#include <set>

#include "cloudbackuplib/checkpoint/CheckpointTexts.h"
#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup::checkpoint {
namespace {

using test_texts::fullCompatible;
using test_texts::fullLongTerm;

enum class EKind { text, number, version, id };

EKind KindOf(const test::SAttributePlace& place) {
    if (place.name == "FormatVersion") {
        return EKind::version;
    }
    if (place.name == "StorageId" || (place.name == "Id" && place.element == "Owner")) {
        return EKind::id;
    }
    static const std::set<std::string> numbers{"Id", "MetaVersion", "MetaFileSize", "Offset", "Size"};
    return numbers.count(place.name) != 0 ? EKind::number : EKind::text;
}

bool IsOptional(const test::SAttributePlace& place) {
    static const std::set<std::string> optional{"HasLongTerm", "IsLongTerm", "InlineContent", "BlockStoreSchema"};
    return optional.count(place.name) != 0;
}

const char* KindText(EKind kind) {
    return kind == EKind::number ? "an unsigned number" : kind == EKind::version ? "a number" : "a GUID";
}

/// Every test runs over each attribute of both documents.
class CheckpointDamage : public testing::TestWithParam<std::tuple<std::string, DxrContentFeature>> {
protected:
    [[nodiscard]] const std::string& Text() const { return std::get<0>(GetParam()); }

    [[nodiscard]] std::string Failure(const std::string& text) const {
        return test::FailureOf(
                   [&](const std::string& t) { static_cast<void>(test_texts::Read(t, std::get<1>(GetParam()))); }, text)
            .value_or("");
    }

    void ExpectMalformed(const std::string& value, const std::set<EKind>& kinds) const {
        for (const auto& place : test::FindAttributes(Text())) {
            const bool refused = kinds.count(KindOf(place)) != 0;
            const std::string expected = "Attribute '" + place.name + "' of node '" + place.element + "' is not " +
                                         KindText(KindOf(place)) + ": '" + value.substr(0, 64) + "'";
            EXPECT_EQ(Failure(test::WithValue(Text(), place, value)), refused ? expected : "")
                << place.element << " " << place.name;
        }
    }
};

TEST_P(CheckpointDamage, IsFoundInEveryCut) {
    const std::size_t end = Text().rfind('>');
    for (std::size_t size = 0; size <= end; ++size) {
        EXPECT_EQ(Failure(Text().substr(0, size)).find("Invalid XML document: "), 0U) << size;
    }
    EXPECT_EQ(Failure(Text().substr(0, end + 1)), "");
}

TEST_P(CheckpointDamage, NamesAMissingAttribute) {
    std::size_t seen = 0;
    for (const auto& place : test::FindAttributes(Text())) {
        std::string expected = "Cannot find required attribute '" + place.name + "' of node '" + place.element + "'";
        if (place.name == "FormatVersion") {
            expected = "Unsupported cloud backup version: [0]";
        }
        EXPECT_EQ(Failure(test::Without(Text(), place)), IsOptional(place) ? "" : expected);
        ++seen;
    }
    EXPECT_EQ(seen, 20U);
}

TEST_P(CheckpointDamage, RefusesADoubledAttribute) {
    for (const auto& place : test::FindAttributes(Text())) {
        EXPECT_EQ(Failure(test::Doubled(Text(), place)).find("Invalid XML document: "), 0U) << place.name;
    }
}

TEST_P(CheckpointDamage, NamesAnEmptiedAttribute) { ExpectMalformed("", {EKind::number, EKind::version, EKind::id}); }

TEST_P(CheckpointDamage, NamesAHugeNumber) {
    ExpectMalformed("18446744073709551616", {EKind::number, EKind::version, EKind::id});
    ExpectMalformed(std::string(100000, '9'), {EKind::number, EKind::version, EKind::id});
}

TEST_P(CheckpointDamage, NamesANegativeNumber) { ExpectMalformed("-1", {EKind::number, EKind::id}); }

TEST_P(CheckpointDamage, NamesWhatIsNoNumber) {
    for (const char* value : {"x", "1x", " 1", "1 ", "+1", "0x10", "1.0", "1,0"}) {
        ExpectMalformed(value, {EKind::number, EKind::version, EKind::id});
    }
}

TEST_P(CheckpointDamage, RefusesBytesThatAreNoText) {
    for (const auto& place : test::FindAttributes(Text())) {
        for (const std::string& value : {std::string("\xC3"), std::string("\xFF\xFE"), std::string("a\0", 2)}) {
            EXPECT_EQ(Failure(test::WithValue(Text(), place, value)).find("Invalid XML document: "), 0U) << place.name;
        }
        EXPECT_EQ(Failure(test::WithValue(Text(), place, "&#0;")).find("Invalid XML document: "), 0U) << place.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Documents, CheckpointDamage,
                         testing::Combine(testing::Values(fullCompatible, fullLongTerm),
                                          testing::Values(DxrContentFeature::compatible, DxrContentFeature::longTerm)));

TEST(CheckpointDamage, FarTooManyStoragesAreStillRead) {
    std::string text = "<Checkpoint FormatVersion=\"2\" Id=\"1\"><Dxr/>";
    for (int i = 0; i < 20000; ++i) {
        text +=
            "<Stg FileName=\"f\" MetaVersion=\"1\" MetaFileSize=\"1\" "
            "StorageId=\"0000000b-0000-0000-0000-000000000002\"/>";
    }
    EXPECT_EQ(test_texts::Read(text + "</Checkpoint>", DxrContentFeature::compatible)->GetStorages().size(), 20000U);
}

}  // namespace
}  // namespace cloudbackuplib::backup::checkpoint
