#include "cloudbackuplib/CacheUpdateSink.h"
#include "cloudbackuplib/CloudBackupSession.h"
#include "common/exc.h"
#include "common/logging.h"
#include "common/util.h"

namespace cloudbackuplib::backup {

void CCloudBackupSession::CheckNotReadOnly() const {
    if (readOnly_) {
        throw exc::CRuntimeExc("Cloud backup is read-only");
    }
}

std::shared_ptr<IMetaUpdateSink> CCloudBackupSession::GetStorageUpdateSink(
    const guid::guid_t& storageId, std::shared_ptr<io::stg::IStgExtent> extent) {
    CheckNotReadOnly();
    try {
        SCachedStorageRecord record;
        if (!FindCachedStorage(storageId, record)) {
            throw exc::CRuntimeExc("Storage not found in cache");
        }
        return std::make_shared<cache::CCacheUpdateSink>(storageId, cache_, std::move(extent), 0UL);
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to create metadata update sink for storage [%1]", storageId);
    }
}

void CCloudBackupSession::MarkStorageUpdated(const guid::guid_t& storageId, const std::string& localPath) {
    SCachedStorageRecord record;
    bool done = false;
    // A writer may report a newer version meanwhile: then that one is marked.
    while (!done && FindCachedStorage(storageId, record)) {
        logging::Library().Info("Marking storage updated: id: %1, meta version: %2", storageId, record.version);
        const auto cloud = storages_.find(storageId);
        const bool changed = cloud == storages_.end() || cloud->second.GetMetaVersion() != record.version;
        done = cache_->Relocate(storageId, record.version, localPath, changed);
    }
}

void CCloudBackupSession::RenameStorage(const guid::guid_t& storageId, const std::string& /*oldPath*/,
                                        const std::string& newPath) {
    logging::Library().Info("Renaming storage: id: %1", storageId);
    MarkStorageUpdated(storageId, newPath);
}

void CCloudBackupSession::StorageUseLongTermBlobs(const guid::guid_t& storageId) {
    logging::trace_t scope(
        logging::Library(),
        "Marking storage as using long-term blobs store storage '%1' from backup session. Backup id: '%2'", storageId,
        backup_->GetBackupId());
    CheckNotReadOnly();
    SCachedStorageRecord record;
    if (!FindCachedStorage(storageId, record)) {
        throw exc::CRuntimeExc("Cannot find storage in local cache");
    }
    MarkStorageUpdated(storageId, record.localPath);
    longTermBlobs_[storageId] = true;  // last, so that a failure leaves no mark behind
    scope.Ok();
}

void CCloudBackupSession::DeleteStorage(const guid::guid_t& storageId) {
    logging::trace_t scope(logging::Library(), "Deleting storage '%1' from backup session. Backup id: '%2'", storageId,
                           backup_->GetBackupId());
    CheckNotReadOnly();
    SCachedStorageRecord record;
    const bool cached = FindCachedStorage(storageId, record);
    const auto cloud = storages_.find(storageId);
    if (cloud == storages_.end()) {
        logging::Library().Warn("Storage '%1' was never uploaded to cloud", storageId);
    } else {
        backup_->DeleteBlockStore(storageId);
    }
    // What can fail comes before what forgets the storage: a deletion that failed can be tried again.
    if (cached) {
        logging::Library().Info("De-registering local metadata for '%1'", storageId);
        cache_->CheckNotSuspended();
        logging::Library().Info("Deleting cached metadata file '%1'", record.localPath);
        util::fs_file_delete(record.localPath);
        cache_->Pop(storageId);
    }
    if (cloud != storages_.end()) {
        storages_.erase(cloud);
    }
    scope.Ok();
}

void CCloudBackupSession::DeleteCheckpoint(unsigned long checkpointId) {
    logging::trace_t scope(logging::Library(),
                           "Deleting cloud backup session checkpoint. Cloud backup id: '%1', checkpoint id: '%2'",
                           backup_->GetBackupId(), checkpointId);
    if (!EnumChangedStorages().empty()) {
        throw exc::CRuntimeExc(
            "Cannot delete checkpoint '%1' from cloud backup '%2': current session has uncommitted changes",
            checkpointId, backup_->GetBackupId());
    }
    backup_->DeleteCheckpoints({checkpointId});
    scope.Ok();
}

void CCloudBackupSession::DeleteCheckpoints(std::vector<unsigned long> ids) {
    logging::trace_t scope(
        logging::Library(),
        "Deleting cloud backup session checkpoint. Cloud backup id: '%1', checkpoint ids count: '%2'",
        backup_->GetBackupId(), ids.size());
    if (!EnumChangedStorages().empty()) {
        throw exc::CRuntimeExc(
            "Cannot delete %1  checkpoints from cloud backup '%2': current session has uncommitted changes", ids.size(),
            backup_->GetBackupId());
    }
    backup_->DeleteCheckpoints(std::move(ids));
    scope.Ok();
}

void CCloudBackupSession::ImportStorageMetadata(const guid::guid_t& /*storageId*/, const std::string& /*path*/) {
    throw exc::CRuntimeExc("CCloudBackupSession::ImportStorageMetadata not implemented");
}

void CCloudBackupSession::ClearReleasedBlocks(const guid::guid_t& storageId,
                                              const std::vector<digest::md5_digest_t>& digests) {
    CheckNotReadOnly();
    backup_->ClearReleasedBlocks(storageId, digests);
}

void CCloudBackupSession::ClearOrphanedBlocks(const guid::guid_t& storageId,
                                              const std::vector<digest::md5_digest_t>& digestsInUse) {
    CheckNotReadOnly();
    if (EnumChangedStorages().contains(storageId)) {
        throw exc::CRuntimeExc(
            "Cannot delete orphaned blocks from storage '%1' in cloud backup '%2': current session has uncommitted "
            "changes",
            storageId, backup_->GetBackupId());
    }
    backup_->ClearOrphanedBlocks(storageId, digestsInUse);
}

}  // namespace cloudbackuplib::backup
