#pragma once

#include "cloudbackuplib/CloudStorageDescriptor.h"
#include "cloudbackuplib/MetaLocationDescr.h"
#include "cloudbackuplib/StgMetaCache.h"

namespace cloudbackuplib::backup {

/// How the next version of a storage's metadata comes to lie in the cloud: the parts to upload, the one at offset 0
/// being the header, and the parts of the previous version that keep their place.
struct SMetadataUpload {
    parts_map_t parts;
    checkpoint::cloud_parts_map_t kept;
};

/// The parts that were updated, those that never skip, and always the header, with its size.
[[nodiscard]] parts_map_t SelectPartsForUpload(const cache::CStgMetaCache::SMetaDataDescriptor& descriptor);

/// Of the previous version's parts (null for no previous version) those that the writer's layout still has, or all when
/// it has reported none, and that begin behind the header and inside metadata of `totalSize` bytes.
[[nodiscard]] checkpoint::cloud_parts_map_t SelectKeptParts(const checkpoint::CCloudStorageDescriptor* previous,
                                                            const cache::CStgMetaCache::SMetaDataDescriptor& descriptor,
                                                            unsigned long totalSize);

/// Chooses what to upload. The reported parts, merged over all reports, decide, unless a later report has moved or
/// resized parts: then the merged layout is one that the metadata never had, and everything is uploaded by the last
/// layout, provided that it fits. Where the parts that were not updated are not in the cloud, the whole merged layout
/// is uploaded.
[[nodiscard]] SMetadataUpload PlanUpload(const cache::CStgMetaCache::SMetaDataDescriptor& descriptor,
                                         const cache::CStgMetaCache::SReportedLayout& reported,
                                         const checkpoint::CCloudStorageDescriptor* previous, unsigned long totalSize);

}  // namespace cloudbackuplib::backup
