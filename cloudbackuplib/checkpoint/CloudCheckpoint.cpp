#include "cloudbackuplib/CloudCheckpoint.h"

#include <algorithm>
#include <optional>

#include "common/exc.h"
#include "common/options.h"

namespace cloudbackuplib::backup::checkpoint {

namespace {

constexpr int singleFileVersion = 1;
constexpr int partsVersion = 2;

// A reader that knows only "Stg" must not see a storage whose blocks it could not find.
constexpr const char* storageNode = "Stg";
constexpr const char* hiddenStorageNode = "StgLongTerm";

int FormatVersionFromOptions() {
    return options_t::GetInst().IsSingleFileCloudMetadataEnabled() ? singleFileVersion : partsVersion;
}

auto FindStorage(const std::vector<CCloudStorageDescriptor>& storages, const guid::guid_t& id) {
    return std::find_if(storages.begin(), storages.end(),
                        [&](const CCloudStorageDescriptor& storage) { return storage.GetStorageId() == id; });
}

const char* StorageNodeName(const CCloudStorageDescriptor& storage, DxrContentFeature feature) {
    const bool visible =
        feature == DxrContentFeature::longTerm || storage.GetBlockStoreSchema() == CloudStorageBlockStoreSchema::legacy;
    return visible ? storageNode : hiddenStorageNode;
}

int DeserializeFormatVersion(const xml::xml_holder_t& root) {
    const int version = xml::TiXmlGetIntAttrSafe(root, "FormatVersion", 0);
    if (version == 0 || version > partsVersion) {
        throw exc::CRuntimeExc("Unsupported cloud backup version: [%1]", version);
    }
    return version;
}

COwnerDescriptor DeserializeOwner(const xml::xml_holder_t& root) {
    const auto node = xml::TiXmlGetChildSafe(root, "Owner");
    return node ? COwnerDescriptor::Deserialize(*node) : COwnerDescriptor();
}

CCloudDxrDescriptor DeserializeDxr(const xml::xml_holder_t& node) {
    CCloudDxrDescriptor dxr;
    dxr.Deserialize(node);
    return dxr;
}

CCloudDxrDescriptor DeserializeDxrLongTerm(const xml::xml_holder_t& root, DxrContentFeature feature) {
    if (feature == DxrContentFeature::longTerm) {
        return DeserializeDxr(xml::TiXmlGetChildExc(root, "DxrLongTerm"));
    }
    const auto node = xml::TiXmlGetChildSafe(root, "DxrLongTerm");
    return node ? DeserializeDxr(*node) : CCloudDxrDescriptor();
}

std::vector<CCloudStorageDescriptor> DeserializeStorages(const xml::xml_holder_t& root) {
    std::vector<CCloudStorageDescriptor> storages;
    for (const auto& child : xml::TiXmlGetChildren(root)) {
        const std::string name = xml::TiXmlGetNodeName(child);
        if (name == storageNode || name == hiddenStorageNode) {
            storages.push_back(CCloudStorageDescriptor::Deserialize(child));
        }
    }
    return storages;
}

}  // namespace

std::string ToString(DxrContentFeature feature) {
    switch (feature) {
        case DxrContentFeature::compatible:
            return "compatible";
        case DxrContentFeature::longTerm:
            return "longTerm";
    }
    throw exc::CRuntimeExc("Unkown DxrContentFeature value: %1", static_cast<int>(feature));
}

CCloudCheckpoint::CCloudCheckpoint(const std::vector<CCloudStorageDescriptor>& storages, const CCloudDxrDescriptor& dxr,
                                   const CCloudDxrDescriptor& dxrLongTerm, const COwnerDescriptor& owner,
                                   unsigned long id, int formatVersion)
    : storages_(storages),
      dxr_(dxr),
      dxrLongTerm_(dxrLongTerm),
      owner_(owner),
      id_(id),
      formatVersion_(formatVersion) {}

CCloudCheckpoint::CCloudCheckpoint(const std::vector<CCloudStorageDescriptor>& storages, const CCloudDxrDescriptor& dxr,
                                   const CCloudDxrDescriptor& dxrLongTerm, const COwnerDescriptor& owner,
                                   unsigned long id)
    : CCloudCheckpoint(storages, dxr, dxrLongTerm, owner, id, FormatVersionFromOptions()) {}

std::shared_ptr<CCloudCheckpoint> CCloudCheckpoint::CreateEmpty() {
    return std::make_shared<CCloudCheckpoint>(std::vector<CCloudStorageDescriptor>(), CCloudDxrDescriptor(),
                                              CCloudDxrDescriptor(), COwnerDescriptor(), 0);
}

const CCloudStorageDescriptor& CCloudCheckpoint::GetStorageById(const guid::guid_t& id) const {
    const auto found = FindStorage(storages_, id);
    if (found == storages_.end()) {
        throw exc::CRuntimeExc("Storage with id '%1' not found", id);
    }
    return *found;
}

bool CCloudCheckpoint::FindStorageById(const guid::guid_t& id, CCloudStorageDescriptor& out) const {
    const auto found = FindStorage(storages_, id);
    if (found == storages_.end()) {
        return false;
    }
    out = *found;
    return true;
}

void CCloudCheckpoint::Serialize(xml::xml_holder_t& root, DxrContentFeature feature) const {
    xml::TiXmlSetIntAttr(root, "FormatVersion", formatVersion_);
    xml::TiXmlSetUInt64Attr(root, "Id", id_);
    if (owner_.IsSet()) {
        xml::xml_holder_t owner = xml::TiXmlCreateChild(root, "Owner");
        owner_.Serialize(owner);
    }
    xml::xml_holder_t dxr = xml::TiXmlCreateChild(root, "Dxr");
    dxr_.Serialize(dxr);
    if (!dxrLongTerm_.IsEmpty()) {
        xml::xml_holder_t dxrLongTerm = xml::TiXmlCreateChild(root, "DxrLongTerm");
        dxrLongTerm_.Serialize(dxrLongTerm);
        xml::TiXmlSetIntAttr(root, feature == DxrContentFeature::longTerm ? "IsLongTerm" : "HasLongTerm", 1);
    }
    for (const auto& storage : storages_) {
        xml::xml_holder_t node = xml::TiXmlCreateChild(root, StorageNodeName(storage, feature));
        storage.Serialize(node);
    }
}

std::shared_ptr<CCloudCheckpoint> CCloudCheckpoint::Deserialize(const xml::xml_holder_t& root,
                                                                DxrContentFeature feature) {
    const int formatVersion = DeserializeFormatVersion(root);
    const unsigned long id = xml::TiXmlGetUInt64AttrExc(root, "Id");
    const COwnerDescriptor owner = DeserializeOwner(root);
    const CCloudDxrDescriptor dxr = DeserializeDxr(xml::TiXmlGetChildExc(root, "Dxr"));
    const CCloudDxrDescriptor dxrLongTerm = DeserializeDxrLongTerm(root, feature);
    return std::make_shared<CCloudCheckpoint>(DeserializeStorages(root), dxr, dxrLongTerm, owner, id, formatVersion);
}

}  // namespace cloudbackuplib::backup::checkpoint
