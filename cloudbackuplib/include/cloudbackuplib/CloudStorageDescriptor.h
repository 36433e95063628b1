#pragma once

#include <map>
#include <string>

#include "cloudbackuplib/CloudStorageBlockStoreSchema.h"
#include "common/export.h"
#include "common/guid.h"
#include "common/xml.h"

namespace cloudbackuplib::backup::checkpoint {

/// One uploaded part of a storage's metadata file.
struct CB_EXPORT SCloudMetadataPartDescription {
    /// The cloud path of the object that holds the part.
    std::string filePath;
    /// Where the part begins in the metadata file, and its length, in bytes.
    unsigned long offset = 0;
    unsigned long size = 0;

    bool operator==(const SCloudMetadataPartDescription&) const = default;
};

/// The parts of a metadata file by their offsets; the header at offset 0 is not among them.
using cloud_parts_map_t = std::map<unsigned long, SCloudMetadataPartDescription>;

/// Which version of a storage's metadata a checkpoint uses, and where it lies in the cloud. A value; only its part map
/// can be replaced once it is built.
class CB_EXPORT CCloudStorageDescriptor {
public:
    /// An empty descriptor, to be assigned to (see CCloudCheckpoint::FindStorageById).
    CCloudStorageDescriptor() = default;
    CCloudStorageDescriptor(const guid::guid_t& storageId, const std::string& fileName, unsigned long metaVersion,
                            unsigned long metaSize, CloudStorageBlockStoreSchema schema,
                            const cloud_parts_map_t& parts);

    [[nodiscard]] guid::guid_t GetStorageId() const { return storageId_; }
    [[nodiscard]] unsigned long GetMetaVersion() const { return metaVersion_; }
    /// The size of the whole metadata file in bytes.
    [[nodiscard]] unsigned long GetMetaSize() const { return metaSize_; }
    /// The name of the header's object among the backup's metadata items.
    [[nodiscard]] std::string GetFileName() const { return fileName_; }
    [[nodiscard]] CloudStorageBlockStoreSchema GetBlockStoreSchema() const { return schema_; }
    [[nodiscard]] const cloud_parts_map_t& GetCloudMetadataPartDescriptionsMap() const { return parts_; }
    void SetCloudMetadataPartDescriptionsMap(const cloud_parts_map_t& parts) { parts_ = parts; }

    /// Writes no parts when the host keeps metadata in single files.
    void Serialize(xml::xml_holder_t& node) const;
    [[nodiscard]] static CCloudStorageDescriptor Deserialize(const xml::xml_holder_t& node);

private:
    guid::guid_t storageId_;
    unsigned long metaVersion_ = 0;
    unsigned long metaSize_ = 0;
    std::string fileName_;
    CloudStorageBlockStoreSchema schema_ = CloudStorageBlockStoreSchema::legacy;
    cloud_parts_map_t parts_;
};

}  // namespace cloudbackuplib::backup::checkpoint
