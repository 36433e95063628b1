#include "cloudbackuplib/CloudRepositoryInfo.h"

#include <gtest/gtest.h>

#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup {
namespace {

const guid::guid_t id = guid::guid_t::FromStr("0123abcd-4567-89ab-cdef-0123456789ab");
const std::string descriptionText =
    "<Repository Id=\"0123abcd-4567-89ab-cdef-0123456789ab\" DisplayName=\"Team &amp; Co\" />\n";

SCloudRepositoryDescription ReadDescription(const std::string& document) {
    return SCloudRepositoryDescription::Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(document), "Repository"));
}

std::string DescriptionFailure(const std::string& document) {
    return test::FailureOf([](const std::string& t) { static_cast<void>(ReadDescription(t)); }, document).value_or("");
}

TEST(CloudRepositoryInfo, IsToldByItsNameAlone) {
    EXPECT_EQ(SCloudRepositoryInfo{}.ToString(), "Name: ");
    EXPECT_EQ((SCloudRepositoryInfo{"folder", {}}.ToString()), "Name: folder");
    EXPECT_EQ((SCloudRepositoryInfo{"%1", {}}.ToString()), "Name: %1");
}

TEST(CloudRepositoryInfo, IsToldWithItsClient) {
    const SCloudRepositoryInfo info{"folder", SCloudRepositoryClientInfo{id, "host", "Anna %2"}};
    EXPECT_EQ(info.ToString(),
              "Name: folder, Cliend id: '0123abcd-4567-89ab-cdef-0123456789ab', Client type: 'host', "
              "Client description: 'Anna %2'");
}

TEST(CloudRepositoryInfo, TellsOfAClientWithoutIdToo) {
    const SCloudRepositoryInfo info{"", SCloudRepositoryClientInfo{}};
    EXPECT_EQ(info.ToString(),
              "Name: , Cliend id: '00000000-0000-0000-0000-000000000000', Client type: '', Client description: ''");
}

TEST(CloudRepositoryDescription, IsWrittenInItsOrder) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t node = xml::TiXmlCreateChild(document, "Repository");
    SCloudRepositoryDescription{id, "Team & Co"}.Serialize(node);
    EXPECT_EQ(xml::TiXmlToStr(document), descriptionText);
}

TEST(CloudRepositoryDescription, IsReadBack) {
    const SCloudRepositoryDescription description = ReadDescription(descriptionText);
    EXPECT_EQ(description.id, id);
    EXPECT_EQ(description.displayName, "Team & Co");
}

TEST(CloudRepositoryDescription, IsRefusedWithoutAnAttribute) {
    EXPECT_EQ(DescriptionFailure("<Repository/>"), "Cannot find required attribute 'Id' of node 'Repository'");
    for (const auto& place : test::FindAttributes(descriptionText)) {
        EXPECT_EQ(DescriptionFailure(test::Without(descriptionText, place)),
                  "Cannot find required attribute '" + place.name + "' of node 'Repository'");
        EXPECT_EQ(DescriptionFailure(test::Doubled(descriptionText, place)).find("Invalid XML document: "), 0U);
        EXPECT_EQ(DescriptionFailure(test::WithValue(descriptionText, place, "\xFF")).find("Invalid XML document: "),
                  0U);
    }
}

TEST(CloudRepositoryDescription, IsRefusedWithABadId) {
    for (const std::string value : {"", "x", "-1", "99999999999999999999"}) {
        EXPECT_EQ(DescriptionFailure(test::WithValue(descriptionText, test::FindAttributes(descriptionText)[0], value)),
                  "Attribute 'Id' of node 'Repository' is not a GUID: '" + value + "'");
    }
}

TEST(CloudRepositoryDescription, IsRefusedInEveryCut) {
    for (std::size_t size = 0; size + 1 < descriptionText.size(); ++size) {
        EXPECT_EQ(DescriptionFailure(descriptionText.substr(0, size)).find("Invalid XML document: "), 0U) << size;
    }
}

TEST(CloudRepositoryDescription, MayHaveAnEmptyDisplayName) {
    EXPECT_EQ(DescriptionFailure(test::WithValue(descriptionText, test::FindAttributes(descriptionText)[1], "")), "");
}

}  // namespace
}  // namespace cloudbackuplib::backup
