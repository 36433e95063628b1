#include "cloudbackuplib/CloudBackupSession.h"
#include "common/exc.h"
#include "common/logging.h"
#include "common/util.h"

namespace cloudbackuplib::backup {

namespace {

/// Whether the local file has to be downloaded; says why in the log.
bool IsLocalMetadataStale(const checkpoint::CCloudStorageDescriptor& cloud, const std::string& localPath,
                          unsigned long localVersion) {
    if (localVersion == 0) {
        logging::Library().Tr("Local storage metadata not found and will be downloaded from cloud");
        return true;
    }
    if (localVersion != cloud.GetMetaVersion()) {
        logging::Library().Tr("Local storage metadata version '%1' differs from the cloud version '%2'", localVersion,
                              cloud.GetMetaVersion());
        return true;
    }
    if (util::fs_file_size(localPath) != cloud.GetMetaSize()) {
        logging::Library().Warn("Local metadata %1 has wrong size, must be re-downloaded", localPath);
        return true;
    }
    return false;
}

void CheckCachedRecord(const CCloudBackupSession::SCachedStorageRecord& record, const std::string& localPath,
                       unsigned long localVersion) {
    if (record.localPath != localPath) {
        throw exc::CRuntimeExc("Local metadata path is already set to '%1'", record.localPath);
    }
    if (record.version != localVersion) {
        throw exc::CRuntimeExc("Local storage metadata is desynchronized (cached version: '%1', actual version: '%2')",
                               record.version, localVersion);
    }
}

}  // namespace

void CCloudBackupSession::SyncLocalStorage(const guid::guid_t& storageId, std::string localPath,
                                           unsigned long localVersion) {
    logging::trace_t scope(
        logging::Library(),
        "Synchronizing local storage metadata with cloud. Storage id: '%1, local path: '%2', version: '%3'", storageId,
        localPath, localVersion);
    const auto& cloud = GetStorageDescriptor(storageId);
    if (!IsLocalMetadataStale(cloud, localPath, localVersion)) {
        scope.Close("Local storage metadata is up-to-date");
        return;
    }
    backup_->DonwloadStorageMeta(cloud, localPath);
    scope.Ok();
}

void CCloudBackupSession::PrepareStorageForAccess(const guid::guid_t& storageId, const std::string& localPath,
                                                  unsigned long localVersion) {
    logging::trace_t scope(logging::Library(),
                           "Preparing local storage metadata for access. Storage id: %1, local path: %2", storageId,
                           localPath);
    try {
        SCachedStorageRecord record;
        if (FindCachedStorage(storageId, record)) {
            CheckCachedRecord(record, localPath, localVersion);
            scope.Close("Local metadata is already cached");
            return;
        }
        unsigned long version = localVersion;
        const auto cloud = storages_.find(storageId);
        if (cloud != storages_.end() && cloud->second.GetMetaVersion() != localVersion) {
            SyncLocalStorage(storageId, localPath, localVersion);
            version = cloud->second.GetMetaVersion();
        }
        cache_->Put(storageId, localPath, version);
    } catch (const std::exception& e) {
        exc::RegenTraceExc(
            e, "Cannot prepare local storage metadata for write. Storage id: %1, local path: %2, local version: %3",
            storageId, localPath, localVersion);
    }
    scope.Ok();
}

}  // namespace cloudbackuplib::backup
