#include <limits>

#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/backup/MetadataParts.h"
#include "common/logging.h"
#include "common/options.h"

namespace cloudbackuplib::backup {

namespace {

unsigned long NextCheckpointId(const CCloudBackup& backup) {
    if (backup.GetLastCheckpointId() == std::numeric_limits<unsigned long>::max()) {
        throw exc::CRuntimeExc("Cannot create a checkpoint in cloud backup '%1': no id follows '%2'",
                               backup.GetBackupId(), backup.GetLastCheckpointId());
    }
    return backup.GetLastCheckpointId() + 1;
}

/// Before the first upload, so that a part that lacks its bytes costs no traffic and leaves nothing behind.
void CheckComplete(const CCloudBackup& backup, const SChangedStorage& changed) {
    const guid::guid_t storageId = changed.descriptor.GetStorageId();
    try {
        metadata::CheckComplete(storageId, changed.parts);
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to upload storage metadata to cloud. Cloud path: '%1'",
                           metadata::HeaderPath(backup.GetBackupId(), storageId, changed.descriptor.GetMetaVersion()));
    }
}

void WarnIfNotRestorable(const checkpoint::CCloudStorageDescriptor& storage, unsigned long headerSize) {
    // Single-file metadata is the header alone; its document names no parts.
    const bool singleFile = options_t::GetInst().IsSingleFileCloudMetadataEnabled();
    const checkpoint::cloud_parts_map_t noParts;
    const auto& parts = singleFile ? noParts : storage.GetCloudMetadataPartDescriptionsMap();
    if (!metadata::CoverExactly(headerSize, parts, storage.GetMetaSize())) {
        logging::Library().Warn(
            "Metadata of storage '%1' cannot be restored as it stands: header and parts of version '%2' do not cover "
            "its '%3' bytes exactly",
            storage.GetStorageId(), storage.GetMetaVersion(), storage.GetMetaSize());
    }
}

checkpoint::CCloudStorageDescriptor Upload(const CCloudBackup& backup, const SChangedStorage& changed) {
    checkpoint::CCloudStorageDescriptor storage = changed.descriptor;
    backup.UploadMetadata(storage.GetStorageId(), storage.GetMetaVersion(), changed.parts);
    checkpoint::cloud_parts_map_t cloudParts = storage.GetCloudMetadataPartDescriptionsMap();
    backup.UpdateMetaLocationMapForCheckpoint(changed, cloudParts);
    storage.SetCloudMetadataPartDescriptionsMap(cloudParts);
    WarnIfNotRestorable(storage, changed.parts.begin()->second.Size);
    return storage;
}

}  // namespace

CCloudBackup::checkpoint_ptr CCloudBackup::CreateCheckpoint(const SCheckpointCreationParams& params) {
    logging::trace_t scope(logging::Library(),
                           "Creating cloud backup checkpoint. Backup id: '%1', previous checkpoint: '%2', changed "
                           "storage: '%3', unchanged storages: '%4'",
                           backupId_, lastCheckpointId_, params.changedStorages.size(),
                           params.unchangedStorages.size());
    const unsigned long id = NextCheckpointId(*this);
    for (const auto& changed : params.changedStorages) {
        CheckComplete(*this, changed);
    }
    std::vector<checkpoint::CCloudStorageDescriptor> storages = params.unchangedStorages;
    for (const auto& changed : params.changedStorages) {
        storages.push_back(Upload(*this, changed));
    }
    auto created = std::make_shared<checkpoint::CCloudCheckpoint>(
        storages, checkpoint::CCloudDxrDescriptor(params.dxrContent),
        checkpoint::CCloudDxrDescriptor(params.dxrContentLongTerm), owner_, id);
    SaveCheckpoint(created);
    lastCheckpointId_ = id;
    scope.Ok();
    return created;
}

}  // namespace cloudbackuplib::backup
