#include "cloudbackuplib/CloudStorageDescriptor.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/SingleFileOption.h"
#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup::checkpoint {
namespace {

const guid::guid_t storageId = guid::guid_t::FromStr("0123abcd-4567-89ab-cdef-0123456789ab");

const cloud_parts_map_t parts{{4096, {"meta/4096", 4096, 10}}, {64, {"meta/64", 64, 20}}, {128, {"meta/128", 128, 0}}};

const std::string bareText =
    "<Stg FileName=\"name.7\" MetaVersion=\"7\" MetaFileSize=\"9000\" "
    "StorageId=\"0123abcd-4567-89ab-cdef-0123456789ab\" />\n";

const std::string fullText =
    "<Stg FileName=\"name.7\" MetaVersion=\"7\" MetaFileSize=\"9000\" "
    "StorageId=\"0123abcd-4567-89ab-cdef-0123456789ab\" BlockStoreSchema=\"blobs\">\n"
    "    <MetaPart FilePath=\"meta/64\" Offset=\"64\" Size=\"20\" />\n"
    "    <MetaPart FilePath=\"meta/128\" Offset=\"128\" Size=\"0\" />\n"
    "    <MetaPart FilePath=\"meta/4096\" Offset=\"4096\" Size=\"10\" />\n"
    "</Stg>\n";

CCloudStorageDescriptor Bare() {
    return {storageId, "name.7", 7, 9000, CloudStorageBlockStoreSchema::legacy, cloud_parts_map_t()};
}

CCloudStorageDescriptor Full() { return {storageId, "name.7", 7, 9000, CloudStorageBlockStoreSchema::blobs, parts}; }

std::string Text(const CCloudStorageDescriptor& storage) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t node = xml::TiXmlCreateChild(document, "Stg");
    storage.Serialize(node);
    return xml::TiXmlToStr(document);
}

CCloudStorageDescriptor ReadStorage(const std::string& text) {
    return CCloudStorageDescriptor::Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), "Stg"));
}

std::string StorageFailure(const std::string& text) {
    return test::FailureOf([](const std::string& t) { static_cast<void>(ReadStorage(t)); }, text).value_or("");
}

TEST(CloudStorageDescriptor, KeepsWhatItIsMadeOf) {
    const CCloudStorageDescriptor storage = Full();
    EXPECT_EQ(storage.GetStorageId(), storageId);
    EXPECT_EQ(storage.GetFileName(), "name.7");
    EXPECT_EQ(storage.GetMetaVersion(), 7U);
    EXPECT_EQ(storage.GetMetaSize(), 9000U);
    EXPECT_EQ(storage.GetBlockStoreSchema(), CloudStorageBlockStoreSchema::blobs);
    EXPECT_EQ(storage.GetCloudMetadataPartDescriptionsMap(), parts);
}

TEST(CloudStorageDescriptor, IsEmptyAtFirst) {
    const CCloudStorageDescriptor storage;
    EXPECT_TRUE(storage.GetStorageId().IsEmpty());
    EXPECT_EQ(storage.GetFileName(), "");
    EXPECT_EQ(storage.GetMetaVersion(), 0U);
    EXPECT_EQ(storage.GetMetaSize(), 0U);
    EXPECT_EQ(storage.GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy);
    EXPECT_TRUE(storage.GetCloudMetadataPartDescriptionsMap().empty());
}

TEST(CloudStorageDescriptor, LetsItsPartsBeReplaced) {
    CCloudStorageDescriptor storage = Bare();
    storage.SetCloudMetadataPartDescriptionsMap(parts);
    EXPECT_EQ(storage.GetCloudMetadataPartDescriptionsMap(), parts);
    storage.SetCloudMetadataPartDescriptionsMap(storage.GetCloudMetadataPartDescriptionsMap());
    EXPECT_EQ(storage.GetCloudMetadataPartDescriptionsMap(), parts);
    storage.SetCloudMetadataPartDescriptionsMap({});
    EXPECT_TRUE(storage.GetCloudMetadataPartDescriptionsMap().empty());
}

TEST(CloudStorageDescriptor, IsWrittenWithoutSchemaWhenLegacy) { EXPECT_EQ(Text(Bare()), bareText); }

TEST(CloudStorageDescriptor, IsWrittenWithPartsByAscendingOffset) { EXPECT_EQ(Text(Full()), fullText); }

TEST(CloudStorageDescriptor, WritesThePartsOwnOffsetNotTheKey) {
    const cloud_parts_map_t mismatched{{1, {"p", 99, 5}}};
    const CCloudStorageDescriptor made(storageId, "f", 1, 1, CloudStorageBlockStoreSchema::legacy, mismatched);
    EXPECT_EQ(made.GetCloudMetadataPartDescriptionsMap(), mismatched) << "unchecked";
    CCloudStorageDescriptor storage = Bare();
    storage.SetCloudMetadataPartDescriptionsMap(mismatched);
    EXPECT_EQ(ReadStorage(Text(made)).GetCloudMetadataPartDescriptionsMap(), (cloud_parts_map_t{{99, {"p", 99, 5}}}));
    EXPECT_NE(Text(storage).find("<MetaPart FilePath=\"p\" Offset=\"99\" Size=\"5\" />"), std::string::npos);
}

TEST(CloudStorageDescriptor, IsWrittenWithoutPartsInSingleFileMode) {
    const test::SingleFileOption singleFile(true);
    std::string expected = bareText;
    expected.replace(expected.find(" />"), 3, " BlockStoreSchema=\"blobs\" />");
    EXPECT_EQ(Text(Full()), expected);
}

TEST(CloudStorageDescriptor, IsReadWithItsPartsInSingleFileModeToo) {
    const test::SingleFileOption singleFile(true);
    EXPECT_EQ(ReadStorage(fullText).GetCloudMetadataPartDescriptionsMap(), parts);
}

TEST(CloudStorageDescriptor, IsReadBack) {
    const CCloudStorageDescriptor storage = ReadStorage(fullText);
    EXPECT_EQ(storage.GetStorageId(), storageId);
    EXPECT_EQ(storage.GetFileName(), "name.7");
    EXPECT_EQ(storage.GetMetaVersion(), 7U);
    EXPECT_EQ(storage.GetMetaSize(), 9000U);
    EXPECT_EQ(storage.GetBlockStoreSchema(), CloudStorageBlockStoreSchema::blobs);
    EXPECT_EQ(storage.GetCloudMetadataPartDescriptionsMap(), parts);
    EXPECT_EQ(Text(storage), fullText);
}

TEST(CloudStorageDescriptor, WithoutPartsAndSchemaReadsAsLegacy) {
    const CCloudStorageDescriptor storage = ReadStorage(bareText);
    EXPECT_EQ(storage.GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy);
    EXPECT_TRUE(storage.GetCloudMetadataPartDescriptionsMap().empty());
}

TEST(CloudStorageDescriptor, TakesAnUnknownSchemaForLegacy) {
    for (const char* schema : {"Blobs", "BLOBS", "blobs ", "", "1"}) {
        std::string text = fullText;
        text.replace(text.find("\"blobs\""), 7, "\"" + std::string(schema) + "\"");
        EXPECT_EQ(ReadStorage(text).GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy) << schema;
    }
}

TEST(CloudStorageDescriptor, OfTwoPartsAtOneOffsetTheLaterCounts) {
    std::string text = fullText;
    text.replace(text.find("</Stg>"), 0, "<MetaPart FilePath=\"later\" Offset=\"64\" Size=\"21\"/>");
    const auto read = ReadStorage(text).GetCloudMetadataPartDescriptionsMap();
    ASSERT_EQ(read.size(), 3U);
    EXPECT_EQ(read.at(64), (SCloudMetadataPartDescription{"later", 64, 21}));
}

TEST(CloudStorageDescriptor, SkipsChildrenOfOtherNames) {
    std::string text = fullText;
    text.replace(text.find("</Stg>"), 0, "<metapart/><MetaPartX Offset=\"no\"/>text<!-- c --><Stg/>");
    EXPECT_EQ(ReadStorage(text).GetCloudMetadataPartDescriptionsMap(), parts);
}

TEST(CloudStorageDescriptor, CarriesTheLargestNumbers) {
    constexpr unsigned long most = std::numeric_limits<unsigned long>::max();
    const CCloudStorageDescriptor storage(storageId, "f", most, most, CloudStorageBlockStoreSchema::legacy,
                                          {{most, {"p", most, most}}});
    const CCloudStorageDescriptor read = ReadStorage(Text(storage));
    EXPECT_EQ(read.GetMetaVersion(), most);
    EXPECT_EQ(read.GetMetaSize(), most);
    EXPECT_EQ(read.GetCloudMetadataPartDescriptionsMap(), storage.GetCloudMetadataPartDescriptionsMap());
}

TEST(CloudStorageDescriptor, ReadsTheAttributesOfAPartInAFixedOrder) {
    const auto failure = [](const std::string& attributes) {
        std::string text = fullText;
        return StorageFailure(text.replace(text.find("</Stg>"), 0, "<MetaPart" + attributes + "/>"));
    };
    EXPECT_EQ(failure(""), "Cannot find required attribute 'FilePath' of node 'MetaPart'");
    EXPECT_EQ(failure(" FilePath=\"\""), "Cannot find required attribute 'Offset' of node 'MetaPart'");
    EXPECT_EQ(failure(" FilePath=\"\" Offset=\"0\""), "Cannot find required attribute 'Size' of node 'MetaPart'");
    EXPECT_EQ(failure(" FilePath=\"\" Offset=\"0\" Size=\"0\""), "");
}

TEST(CloudStorageDescriptor, ReadsItsAttributesInAFixedOrder) {
    EXPECT_EQ(StorageFailure("<Stg/>"), "Cannot find required attribute 'StorageId' of node 'Stg'");
    const std::string withId = "<Stg StorageId=\"0123abcd-4567-89ab-cdef-0123456789ab\"";
    EXPECT_EQ(StorageFailure(withId + "/>"), "Cannot find required attribute 'MetaVersion' of node 'Stg'");
    EXPECT_EQ(StorageFailure(withId + " MetaVersion=\"1\"/>"),
              "Cannot find required attribute 'MetaFileSize' of node 'Stg'");
    EXPECT_EQ(StorageFailure(withId + " MetaVersion=\"1\" MetaFileSize=\"1\"/>"),
              "Cannot find required attribute 'FileName' of node 'Stg'");
    EXPECT_EQ(StorageFailure(withId + " MetaVersion=\"1\" MetaFileSize=\"1\" FileName=\"\"/>"), "");
}

}  // namespace
}  // namespace cloudbackuplib::backup::checkpoint
