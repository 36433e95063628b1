#include "cloudbackuplib/OwnerDescriptor.h"

#include <gtest/gtest.h>

#include "common/exc.h"
#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup::checkpoint {
namespace {

const guid::guid_t ownerId = guid::guid_t::FromStr("0123abcd-4567-89ab-cdef-0123456789ab");
const std::string ownerText =
    "<Owner Id=\"0123abcd-4567-89ab-cdef-0123456789ab\" Type=\"machine\" Description=\"Anna&apos;s &lt;box&gt;\" />\n";

COwnerDescriptor ReadOwner(const std::string& text) {
    return COwnerDescriptor::Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), "Owner"));
}

std::string OwnerFailure(const std::string& text) {
    return test::FailureOf([](const std::string& t) { static_cast<void>(ReadOwner(t)); }, text).value_or("");
}

TEST(OwnerDescriptor, IsUnsetAtFirst) {
    const COwnerDescriptor owner;
    EXPECT_FALSE(owner.IsSet());
    EXPECT_TRUE(owner.GetId().IsEmpty());
    EXPECT_EQ(owner.GetType(), "");
    EXPECT_EQ(owner.GetDescription(), "");
}

TEST(OwnerDescriptor, KeepsWhatItIsMadeOf) {
    const COwnerDescriptor owner(ownerId, "type", "description");
    EXPECT_TRUE(owner.IsSet());
    EXPECT_EQ(owner.GetId(), ownerId);
    EXPECT_EQ(owner.GetType(), "type");
    EXPECT_EQ(owner.GetDescription(), "description");
}

TEST(OwnerDescriptor, WithoutAnIdIsUnsetWhateverItSays) {
    EXPECT_FALSE(COwnerDescriptor(guid::guid_t(), "type", "description").IsSet());
    EXPECT_TRUE(COwnerDescriptor(ownerId, "", "").IsSet());
}

TEST(OwnerDescriptor, IsWrittenInItsOrder) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t node = xml::TiXmlCreateChild(document, "Owner");
    COwnerDescriptor(ownerId, "machine", "Anna's <box>").Serialize(node);
    EXPECT_EQ(xml::TiXmlToStr(document), ownerText);
}

TEST(OwnerDescriptor, IsReadBack) {
    const COwnerDescriptor owner = ReadOwner(ownerText);
    EXPECT_EQ(owner.GetId(), ownerId);
    EXPECT_EQ(owner.GetType(), "machine");
    EXPECT_EQ(owner.GetDescription(), "Anna's <box>");
}

TEST(OwnerDescriptor, IsRefusedWithoutAnAttribute) {
    for (const auto& place : test::FindAttributes(ownerText)) {
        EXPECT_EQ(OwnerFailure(test::Without(ownerText, place)),
                  "Cannot find required attribute '" + place.name + "' of node 'Owner'");
    }
    EXPECT_EQ(test::FindAttributes(ownerText).size(), 3U);
}

TEST(OwnerDescriptor, IsRefusedWithABadId) {
    EXPECT_EQ(OwnerFailure("<Owner Id=\"me\" Type=\"\" Description=\"\"/>"),
              "Attribute 'Id' of node 'Owner' is not a GUID: 'me'");
    EXPECT_EQ(OwnerFailure("<Owner Id=\"\" Type=\"\" Description=\"\"/>"),
              "Attribute 'Id' of node 'Owner' is not a GUID: ''");
}

TEST(OwnerDescriptor, ReadsItsAttributesInAFixedOrder) {
    EXPECT_EQ(OwnerFailure("<Owner/>"), "Cannot find required attribute 'Id' of node 'Owner'");
    EXPECT_EQ(OwnerFailure("<Owner Description=\"\"/>"), "Cannot find required attribute 'Id' of node 'Owner'");
    EXPECT_EQ(OwnerFailure("<Owner Id=\"me\"/>"), "Cannot find required attribute 'Type' of node 'Owner'");
    EXPECT_EQ(OwnerFailure("<Owner Id=\"me\" Type=\"\"/>"),
              "Cannot find required attribute 'Description' of node 'Owner'");
}

TEST(OwnerDescriptor, StandsAnyDamage) {
    const auto read = [](const std::string& text) { static_cast<void>(ReadOwner(text)); };
    EXPECT_EQ(test::ExpectReaderStands(
                  ownerText, read,
                  [](const auto& place) { return place.name == "Id" ? test::GuidRule() : test::TextRule(); }),
              3U);
}

TEST(OwnerDescriptor, OfANullIdIsReadAsUnset) {
    EXPECT_FALSE(ReadOwner("<Owner Id=\"00000000-0000-0000-0000-000000000000\" Type=\"t\" Description=\"\"/>").IsSet());
}

TEST(OwnerDescriptor, MayHaveEmptyTexts) {
    const COwnerDescriptor owner =
        ReadOwner("<Owner Id=\"0123abcd-4567-89ab-cdef-0123456789ab\" Type=\"\" Description=\"\"/>");
    EXPECT_EQ(owner.GetType(), "");
    EXPECT_EQ(owner.GetDescription(), "");
}

TEST(OwnerDescriptor, RefusesToWriteWhatNoDocumentCarries) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t node = xml::TiXmlCreateChild(document, "Owner");
    EXPECT_THROW(COwnerDescriptor(ownerId, "\xC3", "").Serialize(node), exc::CRuntimeExc);
    EXPECT_THROW(COwnerDescriptor(ownerId, "", std::string(1, '\0')).Serialize(node), exc::CRuntimeExc);
}

}  // namespace
}  // namespace cloudbackuplib::backup::checkpoint
