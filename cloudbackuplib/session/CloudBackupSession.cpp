#include "cloudbackuplib/CloudBackupSession.h"

#include <exception>
#include <utility>

#include "cloudbackuplib/session/SessionStorages.h"
#include "common/exc.h"
#include "common/logging.h"
#include "common/options.h"

namespace cloudbackuplib::backup {

namespace {

constexpr int singleFileFormatVersion = 1;

void CheckFormatVersion(const checkpoint::CCloudCheckpoint& checkpoint) {
    if (options_t::GetInst().IsSingleFileCloudMetadataEnabled() &&
        checkpoint.GetFormatVersion() > singleFileFormatVersion) {
        throw exc::CRuntimeExc(
            "Can't create backup session: chekpoint version in storage: '%1'. Checkpoints versions greater than '1' "
            "are not supported in current mode",
            checkpoint.GetFormatVersion());
    }
}

std::string TextOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& known) {
        return exc::ChainText(known);
    } catch (...) {
        return "unknown error";
    }
}

}  // namespace

std::shared_ptr<CCloudBackupSession> CCloudBackupSession::StartSession(std::shared_ptr<CCloudBackup> backup,
                                                                       unsigned long checkpointId, bool readOnly) {
    logging::trace_t scope(logging::Library(),
                           "Initializing cloud backup session. Backup id: '%1', checkpoint: '%2', read-only: '%3'",
                           backup->GetBackupId(), checkpointId, readOnly);
    if (!readOnly && checkpointId != backup->GetLastCheckpointId()) {
        throw exc::CRuntimeExc(
            "Cannot open cloud backup for write: session checkpoint '%1' differs from the last backup checkpoint '%2'",
            checkpointId, backup->GetLastCheckpointId());
    }
    const auto checkpoint = backup->LoadCheckpoint(checkpointId);
    CheckFormatVersion(*checkpoint);
    auto session = std::make_shared<CCloudBackupSession>(checkpoint, std::move(backup), readOnly);
    scope.Ok();
    return session;
}

CCloudBackupSession::CCloudBackupSession(std::shared_ptr<checkpoint::CCloudCheckpoint> checkpoint,
                                         std::shared_ptr<CCloudBackup> backup, bool readOnly)
    : storages_(StoragesById(*checkpoint)),
      checkpoint_(std::move(checkpoint)),
      backup_(std::move(backup)),
      cache_(std::make_shared<cache::CStgMetaCache>()),
      readOnly_(readOnly) {}

CCloudBackupSession::~CCloudBackupSession() {
    try {
        logging::trace_t scope(logging::Library(), "Closing cloud backup session. Backup id: '%1'",
                               backup_->GetBackupId());
        for (const auto& storageId : EnumChangedStorages()) {
            logging::Library().Warn("Storage '%1' has been modified since last checkpoint, all changes will be lost",
                                    storageId);
        }
        scope.Ok();
    } catch (...) {  // a destructor has nobody to tell, and what could not be logged is lost anyway
    }
}

bool CCloudBackupSession::FindCachedStorage(const guid::guid_t& storageId, SCachedStorageRecord& record) const {
    return cache_->Find(storageId, record.localPath, record.version);
}

bool CCloudBackupSession::FindCloudStorage(const guid::guid_t& storageId,
                                           checkpoint::CCloudStorageDescriptor& descriptor) const {
    const auto found = storages_.find(storageId);
    if (found == storages_.end()) {
        return false;
    }
    descriptor = found->second;
    return true;
}

const checkpoint::CCloudStorageDescriptor& CCloudBackupSession::GetStorageDescriptor(
    const guid::guid_t& storageId) const {
    const auto found = storages_.find(storageId);
    if (found == storages_.end()) {
        throw exc::CRuntimeExc("There is no descriptor for storage '%1'", storageId);
    }
    return found->second;
}

bool CCloudBackupSession::IsStorageExist(const guid::guid_t& storageId) {
    SCachedStorageRecord record;
    return FindCachedStorage(storageId, record) || storages_.contains(storageId);
}

unsigned long CCloudBackupSession::GetStorageBlockStoreSize(const guid::guid_t& storageId) {
    if (!IsStorageExist(storageId)) {
        throw exc::CRuntimeExc("Cannot retrieve blockstore size: storage '%1' doesn't exist", storageId);
    }
    return backup_->GetBlockStoreSize(storageId);
}

std::vector<guid::guid_t> CCloudBackupSession::EnumerateStorages() {
    const cache::CCacheLock lock(cache_);
    const auto updates = cache_->EnumUpdates();
    std::vector<guid::guid_t> ids;
    ids.reserve(updates.size() + storages_.size());
    for (const auto& [storageId, version] : updates) {
        ids.push_back(storageId);
    }
    for (const auto& [storageId, descriptor] : storages_) {
        if (!updates.contains(storageId)) {
            ids.push_back(storageId);
        }
    }
    return ids;
}

std::vector<std::shared_ptr<checkpoint::CCloudCheckpoint>> CCloudBackupSession::EnumCheckpoints() const {
    logging::Library().Tr("Cloud session: enumarating checkpoints of backup [%1]", backup_->GetBackupId());
    std::set<unsigned long> ids = backup_->EnumCheckpoints();
    std::vector<std::shared_ptr<checkpoint::CCloudCheckpoint>> checkpoints;
    checkpoints.reserve(ids.size());
    if (ids.erase(0) > 0) {
        checkpoints.push_back(backup_->LoadCheckpoint(0));  // the empty checkpoint, not one to be downloaded
    }
    backup_->LoadCheckpoints({ids.begin(), ids.end()}, [&](unsigned long id, const auto& loaded, const auto& failure) {
        if (!failure) {
            checkpoints.push_back(loaded);
        } else if (backup_->GetRepositoryErrorHandling() == ErrorHandling::fail) {
            std::rethrow_exception(failure);
        } else {
            logging::Library().Warn("Cannot load checkpoint '%1' of cloud backup '%2', skipping it: %3", id,
                                    backup_->GetBackupId(), TextOf(failure));
        }
    });
    return checkpoints;
}

std::shared_ptr<cloudclientlib::ICloudClient> CCloudBackupSession::GetBackupClient() const {
    return backup_->GetBackupClient();
}

std::shared_ptr<cloudclientlib::ICloudClient> CCloudBackupSession::GetArchiveBlobsClient() const {
    return backup_->GetArchiveBlobsClient();
}

}  // namespace cloudbackuplib::backup
