#include "cloudbackuplib/CloudStorageDescriptor.h"

#include "common/options.h"

namespace cloudbackuplib::backup::checkpoint {

namespace {

void SerializePart(xml::xml_holder_t& parent, const SCloudMetadataPartDescription& part) {
    xml::xml_holder_t node = xml::TiXmlCreateChild(parent, "MetaPart");
    xml::TiXmlSetStrAttr(node, "FilePath", part.filePath);
    xml::TiXmlSetUInt64Attr(node, "Offset", part.offset);
    xml::TiXmlSetUInt64Attr(node, "Size", part.size);
}

SCloudMetadataPartDescription DeserializePart(const xml::xml_holder_t& node) {
    SCloudMetadataPartDescription part;
    part.filePath = xml::TiXmlGetStrAttrExc(node, "FilePath");
    part.offset = xml::TiXmlGetUInt64AttrExc(node, "Offset");
    part.size = xml::TiXmlGetUInt64AttrExc(node, "Size");
    return part;
}

cloud_parts_map_t DeserializeParts(const xml::xml_holder_t& node) {
    cloud_parts_map_t parts;
    for (const auto& child : xml::TiXmlGetChildren(node)) {
        if (xml::TiXmlGetNodeName(child) == "MetaPart") {
            const SCloudMetadataPartDescription part = DeserializePart(child);
            parts.insert_or_assign(part.offset, part);
        }
    }
    return parts;
}

}  // namespace

CCloudStorageDescriptor::CCloudStorageDescriptor(const guid::guid_t& storageId, const std::string& fileName,
                                                 unsigned long metaVersion, unsigned long metaSize,
                                                 CloudStorageBlockStoreSchema schema, const cloud_parts_map_t& parts)
    : storageId_(storageId),
      metaVersion_(metaVersion),
      metaSize_(metaSize),
      fileName_(fileName),
      schema_(schema),
      parts_(parts) {}

void CCloudStorageDescriptor::Serialize(xml::xml_holder_t& node) const {
    xml::TiXmlSetStrAttr(node, "FileName", fileName_);
    xml::TiXmlSetUInt64Attr(node, "MetaVersion", metaVersion_);
    xml::TiXmlSetUInt64Attr(node, "MetaFileSize", metaSize_);
    xml::TiXmlSetStrAttr(node, "StorageId", storageId_.ToAStr());
    if (const std::string schema = ToString(schema_); !schema.empty()) {
        xml::TiXmlSetStrAttr(node, "BlockStoreSchema", schema);
    }
    if (options_t::GetInst().IsSingleFileCloudMetadataEnabled()) {
        return;
    }
    for (const auto& [offset, part] : parts_) {
        SerializePart(node, part);
    }
}

CCloudStorageDescriptor CCloudStorageDescriptor::Deserialize(const xml::xml_holder_t& node) {
    CCloudStorageDescriptor storage;
    storage.storageId_ = xml::TiXmlGetGuidAttrExc(node, "StorageId");
    storage.metaVersion_ = xml::TiXmlGetUInt64AttrExc(node, "MetaVersion");
    storage.metaSize_ = xml::TiXmlGetUInt64AttrExc(node, "MetaFileSize");
    storage.fileName_ = xml::TiXmlGetStrAttrExc(node, "FileName");
    storage.schema_ = CloudStgBlockStoreSchemaFromString(xml::TiXmlGetStrAttrSafe(node, "BlockStoreSchema"));
    storage.parts_ = DeserializeParts(node);
    return storage;
}

}  // namespace cloudbackuplib::backup::checkpoint
