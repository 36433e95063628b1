#include "cloudbackuplib/session/MetadataUpload.h"

#include "cloudbackuplib/backup/MetadataParts.h"

namespace cloudbackuplib::backup {

namespace {

void SetHeader(parts_map_t& parts, unsigned long headerSize) {
    SMetaLocationDescr& header = parts[0];
    header.Size = headerSize;
    header.SkipUnlessUpdated = false;
}

/// Whether what is uploaded, with what keeps its place, makes up the whole metadata.
bool CoversExactly(const SMetadataUpload& upload, unsigned long totalSize) {
    checkpoint::cloud_parts_map_t parts = upload.kept;
    for (const auto& [offset, part] : upload.parts) {
        if (offset != 0) {
            parts.insert_or_assign(offset, checkpoint::SCloudMetadataPartDescription{{}, offset, part.Size});
        }
    }
    return metadata::CoverExactly(upload.parts.at(0).Size, parts, totalSize);
}

SMetadataUpload WholeLayout(const parts_map_t& layout, unsigned long headerSize) {
    SMetadataUpload upload;
    upload.parts = layout;
    SetHeader(upload.parts, headerSize);
    return upload;
}

}  // namespace

parts_map_t SelectPartsForUpload(const cache::CStgMetaCache::SMetaDataDescriptor& descriptor) {
    parts_map_t parts = descriptor.MetaParts;
    std::erase_if(parts, [&](const auto& entry) {
        return entry.second.SkipUnlessUpdated && !descriptor.UpdatedParts.contains(entry.first);
    });
    SetHeader(parts, descriptor.HeaderSize);
    return parts;
}

checkpoint::cloud_parts_map_t SelectKeptParts(const checkpoint::CCloudStorageDescriptor* previous,
                                              const cache::CStgMetaCache::SMetaDataDescriptor& descriptor,
                                              unsigned long totalSize) {
    if (previous == nullptr) {
        return {};
    }
    const parts_map_t& layout = descriptor.MetaParts;
    checkpoint::cloud_parts_map_t kept = previous->GetCloudMetadataPartDescriptionsMap();
    std::erase_if(kept, [&](const auto& entry) {
        const unsigned long offset = entry.first;
        return offset == 0 || offset < descriptor.HeaderSize || offset >= totalSize ||
               (!layout.empty() && !layout.contains(offset));
    });
    return kept;
}

SMetadataUpload PlanUpload(const cache::CStgMetaCache::SMetaDataDescriptor& descriptor,
                           const cache::CStgMetaCache::SReportedLayout& reported,
                           const checkpoint::CCloudStorageDescriptor* previous, unsigned long totalSize) {
    SMetadataUpload merged = WholeLayout(descriptor.MetaParts, descriptor.HeaderSize);
    const bool mergedFits = !reported.Resized && CoversExactly(merged, totalSize);
    if (!mergedFits) {
        SMetadataUpload last = WholeLayout(reported.MetaParts, reported.HeaderSize);
        if (CoversExactly(last, totalSize)) {
            return last;
        }
    }
    SMetadataUpload changed = {SelectPartsForUpload(descriptor), SelectKeptParts(previous, descriptor, totalSize)};
    if (mergedFits && !CoversExactly(changed, totalSize)) {
        return merged;  // the cloud lacks parts that were not updated: it had the metadata in one object, say
    }
    return changed;
}

}  // namespace cloudbackuplib::backup
