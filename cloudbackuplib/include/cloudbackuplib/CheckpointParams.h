#pragma once

#include <string>
#include <vector>

#include "cloudbackuplib/CloudStorageDescriptor.h"
#include "cloudbackuplib/MetaLocationDescr.h"
#include "common/export.h"

namespace cloudbackuplib::backup {

/// A storage whose metadata a checkpoint uploads.
struct CB_EXPORT SChangedStorage {
    /// The storage's new descriptor; its part map names the parts that keep their place in the cloud.
    checkpoint::CCloudStorageDescriptor descriptor;
    /// The parts to upload, with their bytes; the one at offset 0 is the header.
    parts_map_t parts;
};

/// What a new checkpoint is made of.
struct CB_EXPORT SCheckpointCreationParams {
    /// The backup-level content, and the long-term one (empty for none), as plain text.
    std::string dxrContent;
    std::string dxrContentLongTerm;
    /// Taken over as they stand.
    std::vector<checkpoint::CCloudStorageDescriptor> unchangedStorages;
    std::vector<SChangedStorage> changedStorages;
};

}  // namespace cloudbackuplib::backup
