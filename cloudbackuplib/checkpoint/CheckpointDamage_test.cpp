// What the readers of a checkpoint document say of one that is damaged.

#include <gtest/gtest.h>

#include <set>

#include "cloudbackuplib/checkpoint/CheckpointTexts.h"
#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup::checkpoint {
namespace {

using test_texts::fullCompatible;
using test_texts::fullLongTerm;

/// A negative version is taken, "-0" is none.
test::SAttributeRule VersionRule() {
    test::SAttributeRule rule = test::FormRule("a number", [](const auto& value) { return value == "-1"; });
    rule.refusal = [form = rule.refusal](const auto& place, const auto& value) {
        return value == "-0" ? std::string("Unsupported cloud backup version: [0]") : form(place, value);
    };
    rule.missing = "Unsupported cloud backup version: [0]";
    return rule;
}

test::SAttributeRule RuleOf(const test::SAttributePlace& place) {
    static const std::set<std::string> numbers{"Id", "MetaVersion", "MetaFileSize", "Offset", "Size"};
    static const std::set<std::string> optional{"HasLongTerm", "IsLongTerm", "InlineContent", "BlockStoreSchema"};
    if (place.name == "FormatVersion") {
        return VersionRule();
    }
    if (place.name == "StorageId" || (place.name == "Id" && place.element == "Owner")) {
        return test::GuidRule();
    }
    if (optional.count(place.name) != 0) {
        return test::Optional(test::TextRule());
    }
    return numbers.count(place.name) != 0 ? test::UnsignedRule() : test::TextRule();
}

using damage_param_t = std::tuple<std::string, DxrContentFeature>;

class CheckpointDamage : public testing::TestWithParam<damage_param_t> {
protected:
    [[nodiscard]] const std::string& Text() const { return std::get<0>(GetParam()); }
    [[nodiscard]] auto Reader() const {
        return [feature = std::get<1>(GetParam())](const std::string& text) {
            static_cast<void>(test_texts::Read(text, feature));
        };
    }
};

TEST_P(CheckpointDamage, IsNamedByElementAndAttribute) {
    EXPECT_EQ(test::ExpectReaderStands(Text(), Reader(), RuleOf), 20U);
}

INSTANTIATE_TEST_SUITE_P(Documents, CheckpointDamage,
                         testing::Combine(testing::Values(fullCompatible, fullLongTerm),
                                          testing::Values(DxrContentFeature::compatible, DxrContentFeature::longTerm)));

// What holds a checkpoint goes on holding it when the next document cannot be read.
TEST(CheckpointDocument, LeavesTheCheckpointThatWasReadBefore) {
    constexpr auto feature = DxrContentFeature::compatible;
    auto checkpoint = std::make_shared<CCloudCheckpoint>(test_texts::FullCheckpoint());
    const auto load = [&](const std::string& text) { checkpoint = test_texts::Read(text, feature); };
    const auto state = [&] { return test_texts::Text(*checkpoint, feature); };
    EXPECT_GT(test::ExpectKeepsItsState(fullCompatible, load, state), fullCompatible.size());
}

// The only part of a checkpoint that is loaded into an object that there was before.
TEST(DxrDocument, LeavesTheContentThatWasThereBefore) {
    const std::string text = "<Dxr InlineContent=\"eNpzqSgCAAIxAS8=\" />";
    CCloudDxrDescriptor dxr("before");
    const auto load = [&](const std::string& t) {
        dxr.Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(t), "Dxr"));
    };
    const auto state = [&] {
        xml::xml_holder_t document = xml::TiXmlCreateDocument();
        xml::xml_holder_t node = xml::TiXmlCreateChild(document, "Dxr");
        dxr.Serialize(node);
        return xml::TiXmlToStr(document);
    };
    EXPECT_EQ(test::ExpectReaderStands(text, load, [](const auto&) { return test::Optional(test::TextRule()); }), 1U);
    EXPECT_EQ(test::ExpectKeepsItsState(text, load, state), text.size() + 1 + test::ImpossibleValues().size());
}

/// Nothing that stands in an attribute is lost on the way, however long it is.
TEST(CheckpointDocument, HugeTextsAreReadWhole) {
    const std::string huge(std::size_t{1} << 20U, 'x');
    const auto place = [](const std::string& element, const std::string& name) {
        for (const auto& found : test::FindAttributes(fullCompatible)) {
            if (found.element == element && found.name == name) {
                return found;
            }
        }
        return test::SAttributePlace();
    };
    const auto read = [&](const std::string& element, const std::string& name) {
        return test_texts::Read(test::WithValue(fullCompatible, place(element, name), huge),
                                DxrContentFeature::compatible);
    };
    EXPECT_TRUE(read("Owner", "Type")->GetOwner().GetType() == huge);
    EXPECT_TRUE(read("Owner", "Description")->GetOwner().GetDescription() == huge);
    EXPECT_TRUE(read("Stg", "FileName")->GetStorages()[1].GetFileName() == huge);
    const auto parts = read("MetaPart", "FilePath")->GetStorages()[1].GetCloudMetadataPartDescriptionsMap();
    EXPECT_TRUE(parts.at(64).filePath == huge);
    EXPECT_EQ(read("StgLongTerm", "BlockStoreSchema")->GetStorages()[0].GetBlockStoreSchema(),
              CloudStorageBlockStoreSchema::legacy);
    EXPECT_THROW(static_cast<void>(read("Dxr", "InlineContent")->GetDxr().GetContent()), exc::CRuntimeExc);
}

TEST(CheckpointDocument, FarTooManyStoragesAreStillRead) {
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
