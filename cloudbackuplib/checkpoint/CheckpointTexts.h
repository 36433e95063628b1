#pragma once

#include <memory>
#include <string>

#include "cloudbackuplib/CloudCheckpoint.h"

/// Checkpoints and their texts, for the tests of checkpoint documents.
namespace cloudbackuplib::backup::checkpoint::test_texts {

inline const guid::guid_t ownerId = guid::guid_t::FromStr("0000000a-0000-0000-0000-000000000001");
inline const guid::guid_t firstId = guid::guid_t::FromStr("0000000b-0000-0000-0000-000000000001");
inline const guid::guid_t secondId = guid::guid_t::FromStr("0000000b-0000-0000-0000-000000000002");

inline CCloudStorageDescriptor LegacyStorage() {
    return {firstId, "one.3", 3, 100, CloudStorageBlockStoreSchema::legacy, {{64, {"one.3_metaparts/64", 64, 36}}}};
}

inline CCloudStorageDescriptor BlobsStorage() {
    return {secondId, "two.5", 5, 200, CloudStorageBlockStoreSchema::blobs, {}};
}

/// Everything that a checkpoint may hold; a storage that older readers must not see stands first.
inline CCloudCheckpoint FullCheckpoint() {
    return {{BlobsStorage(), LegacyStorage()},
            CCloudDxrDescriptor("Dxr"),
            CCloudDxrDescriptor("long-term"),
            COwnerDescriptor(ownerId, "machine", "box"),
            42,
            2};
}

inline const std::string fullCompatible =
    "<Checkpoint FormatVersion=\"2\" Id=\"42\" HasLongTerm=\"1\">\n"
    "    <Owner Id=\"0000000a-0000-0000-0000-000000000001\" Type=\"machine\" Description=\"box\" />\n"
    "    <Dxr InlineContent=\"eNpzqSgCAAIxAS8=\" />\n"
    "    <DxrLongTerm InlineContent=\"eNrLyc9L1y1JLcoFABHqA5Y=\" />\n"
    "    <StgLongTerm FileName=\"two.5\" MetaVersion=\"5\" MetaFileSize=\"200\" "
    "StorageId=\"0000000b-0000-0000-0000-000000000002\" BlockStoreSchema=\"blobs\" />\n"
    "    <Stg FileName=\"one.3\" MetaVersion=\"3\" MetaFileSize=\"100\" "
    "StorageId=\"0000000b-0000-0000-0000-000000000001\">\n"
    "        <MetaPart FilePath=\"one.3_metaparts/64\" Offset=\"64\" Size=\"36\" />\n"
    "    </Stg>\n"
    "</Checkpoint>\n";

inline const std::string fullLongTerm =
    "<Checkpoint FormatVersion=\"2\" Id=\"42\" IsLongTerm=\"1\">\n"
    "    <Owner Id=\"0000000a-0000-0000-0000-000000000001\" Type=\"machine\" Description=\"box\" />\n"
    "    <Dxr InlineContent=\"eNpzqSgCAAIxAS8=\" />\n"
    "    <DxrLongTerm InlineContent=\"eNrLyc9L1y1JLcoFABHqA5Y=\" />\n"
    "    <Stg FileName=\"two.5\" MetaVersion=\"5\" MetaFileSize=\"200\" "
    "StorageId=\"0000000b-0000-0000-0000-000000000002\" BlockStoreSchema=\"blobs\" />\n"
    "    <Stg FileName=\"one.3\" MetaVersion=\"3\" MetaFileSize=\"100\" "
    "StorageId=\"0000000b-0000-0000-0000-000000000001\">\n"
    "        <MetaPart FilePath=\"one.3_metaparts/64\" Offset=\"64\" Size=\"36\" />\n"
    "    </Stg>\n"
    "</Checkpoint>\n";

inline std::string Text(const CCloudCheckpoint& checkpoint, DxrContentFeature feature) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, "Checkpoint");
    checkpoint.Serialize(root, feature);
    return xml::TiXmlToStr(document);
}

inline std::shared_ptr<CCloudCheckpoint> Read(const std::string& text, DxrContentFeature feature) {
    return CCloudCheckpoint::Deserialize(xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), "Checkpoint"), feature);
}

}  // namespace cloudbackuplib::backup::checkpoint::test_texts
