#include <utility>

#include "cloudbackuplib/CloudBackupSession.h"
#include "cloudbackuplib/session/MetadataUpload.h"
#include "cloudbackuplib/session/SessionStorages.h"
#include "common/exc.h"
#include "common/logging.h"
#include "common/options.h"

namespace cloudbackuplib::backup {

namespace {

/// One changed storage while its next descriptor is made.
struct SChange {
    guid::guid_t storageId;
    unsigned long version = 0;
    /// Of the session's checkpoint; null for a storage that it does not have.
    const checkpoint::CCloudStorageDescriptor* previous = nullptr;
    CloudStorageBlockStoreSchema schema = CloudStorageBlockStoreSchema::legacy;
};

SChangedStorage MakeChanged(const SChange& change, SMetadataUpload upload, unsigned long totalSize) {
    const std::string fileName = exc::Format("%1.%2", change.storageId, change.version);
    return {checkpoint::CCloudStorageDescriptor(change.storageId, fileName, change.version, totalSize, change.schema,
                                                upload.kept),
            std::move(upload.parts)};
}

SChangedStorage LoadAsSingleFile(const SChange& change, const cache::CStgMetaCache& cache) {
    const auto data = cache.Load(change.storageId);
    SMetadataUpload upload;
    upload.parts[0].Size = data->size();
    upload.parts[0].Data.Set(data);
    return MakeChanged(change, std::move(upload), data->size());
}

/// A part that was written but has no place in the layout.
void WarnOfStrayParts(const SChange& change, const cache::CStgMetaCache::SMetaDataDescriptor& descriptor) {
    for (const auto& [offset, part] : descriptor.UpdatedParts) {
        if (offset != 0 && !descriptor.MetaParts.contains(offset)) {
            logging::Library().Warn(
                "Updated metadata part at offset '%1' of storage '%2' is not in the layout that was reported, it is "
                "not uploaded",
                offset, change.storageId);
        }
    }
}

SChangedStorage LoadAsParts(const SChange& change, const cache::CStgMetaCache& cache) {
    const auto descriptor = cache.GetMetadataDescriptor(change.storageId);
    WarnOfStrayParts(change, descriptor);
    parts_map_t none;
    const unsigned long sizeNow = cache.LoadParts(change.storageId, none);
    SMetadataUpload upload =
        PlanUpload(descriptor, cache.GetReportedLayout(change.storageId), change.previous, sizeNow);
    const unsigned long totalSize = cache.LoadParts(change.storageId, upload.parts);
    return MakeChanged(change, std::move(upload), totalSize);
}

}  // namespace

std::set<guid::guid_t> CCloudBackupSession::EnumChangedStorages() {
    std::set<guid::guid_t> changed;
    for (const auto& [storageId, version] : cache_->EnumUpdates()) {
        const auto cloud = storages_.find(storageId);
        if (cloud == storages_.end()) {
            logging::Library().Tr(
                "Storage metadata is not found in cloud. Local metadata version: '%1', storage id: '%2'", version,
                storageId);
            changed.insert(storageId);
        } else if (cloud->second.GetMetaVersion() != version) {
            logging::Library().Tr(
                "Local storage metadata version '%1' differs from cloud version '%2'. Storage id: '%3'", version,
                cloud->second.GetMetaVersion(), storageId);
            changed.insert(storageId);
        } else {
            logging::Library().Tr("Local storage metadata version '%1' matches the cloud version. Storage id: '%2'",
                                  version, storageId);
        }
    }
    return changed;
}

parts_map_t CCloudBackupSession::getMetapartsMapForUpload(const cache::CStgMetaCache::SMetaDataDescriptor& descriptor) {
    return SelectPartsForUpload(descriptor);
}

std::shared_ptr<checkpoint::CCloudCheckpoint> CCloudBackupSession::CreateCheckpoint(
    const std::string& dxrContent, const std::string& dxrContentLongTerm) {
    logging::trace_t scope(logging::Library(), "Creating cloud backup session checkpoint. Cloud backup id: '%1'",
                           backup_->GetBackupId());
    CheckNotReadOnly();
    const cache::CCacheLock lock(cache_);
    auto checkpoint = backup_->CreateCheckpoint(CollectChanges(dxrContent, dxrContentLongTerm));
    storages_ = StoragesById(*checkpoint);
    checkpoint_ = checkpoint;
    scope.Ok();
    return checkpoint;
}

SCheckpointCreationParams CCloudBackupSession::CollectChanges(const std::string& dxrContent,
                                                              const std::string& dxrContentLongTerm) {
    SCheckpointCreationParams params{dxrContent, dxrContentLongTerm, {}, {}};
    const std::set<guid::guid_t> changed = EnumChangedStorages();
    for (const auto& storageId : changed) {
        params.changedStorages.push_back(LoadChangedStorage(storageId));
    }
    for (const auto& [storageId, descriptor] : storages_) {
        if (!changed.contains(storageId)) {
            params.unchangedStorages.push_back(descriptor);
        }
    }
    return params;
}

SChangedStorage CCloudBackupSession::LoadChangedStorage(const guid::guid_t& storageId) const {
    SCachedStorageRecord record;
    if (!FindCachedStorage(storageId, record)) {
        throw exc::CRuntimeExc("Changed storage not found in cache");
    }
    SChange change{storageId, record.version, nullptr, CloudStorageBlockStoreSchema::legacy};
    if (const auto cloud = storages_.find(storageId); cloud != storages_.end()) {
        change.previous = &cloud->second;
        change.schema = cloud->second.GetBlockStoreSchema();
    }
    if (const auto mark = longTermBlobs_.find(storageId); mark != longTermBlobs_.end() && mark->second) {
        change.schema = CloudStorageBlockStoreSchema::blobs;
    }
    return options_t::GetInst().IsSingleFileCloudMetadataEnabled() ? LoadAsSingleFile(change, *cache_)
                                                                   : LoadAsParts(change, *cache_);
}

}  // namespace cloudbackuplib::backup
