#include <algorithm>
#include <map>

#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/CloudPaths.h"
#include "cloudbackuplib/backup/TaskGroup.h"
#include "common/logging.h"

namespace cloudbackuplib::backup {

namespace {

/// What checkpoints refer to in the cloud.
struct SReferences {
    std::set<std::string> metaFiles;
    std::set<std::string> metaParts;
    std::set<guid::guid_t> storageFolders;
};

void Add(SReferences& references, const checkpoint::CCloudCheckpoint& checkpoint) {
    for (const auto& storage : checkpoint.GetStorages()) {
        references.metaFiles.insert(storage.GetFileName());
        for (const auto& [offset, part] : storage.GetCloudMetadataPartDescriptionsMap()) {
            references.metaParts.insert(part.filePath);
        }
        references.storageFolders.insert(storage.GetStorageId());
    }
}

/// Takes out what a storage of a checkpoint that stays still uses.
void Keep(SReferences& references, unsigned long checkpointId, const checkpoint::CCloudStorageDescriptor& storage) {
    const bool switchedToBlobs = CCloudBackup::BlockStoreSwitchedToArchiveBlobsStore(storage);
    if (switchedToBlobs) {
        logging::Library().Info("checkpoint: %1, storageDesc: %2, version: %3, schema: [%4], switchedToBlobs: %5",
                                checkpointId, storage.GetStorageId(), storage.GetMetaVersion(),
                                ToString(storage.GetBlockStoreSchema()), switchedToBlobs);
    } else {
        references.storageFolders.erase(storage.GetStorageId());
    }
    references.metaFiles.erase(storage.GetFileName());
    for (const auto& [offset, part] : storage.GetCloudMetadataPartDescriptionsMap()) {
        references.metaParts.erase(part.filePath);
    }
}

void Keep(SReferences& references, const checkpoint::CCloudCheckpoint& checkpoint) {
    for (const auto& storage : checkpoint.GetStorages()) {
        Keep(references, checkpoint.GetId(), storage);
    }
}

void WarnIgnoring(const std::string& message, const std::exception& failure) {
    logging::Library().Warn("%1", message);
    logging::Library().Warn("Ignoring: %1", exc::ChainText(failure));
}

/// One deletion of checkpoints with all that only they use.
///
/// What can fail without harm comes first: reading. Then the documents go, then what they named, so that a deletion cut
/// off anywhere leaves no checkpoint that points at nothing. For one thread; lives as long as the call.
class CCheckpointDeletion {
public:
    CCheckpointDeletion(CCloudBackup& backup, const std::vector<unsigned long>& ids)
        : backup_(backup), client_(backup.GetBackupClient()), ids_(ids) {}

    void Run() {
        CheckIds();
        LoadDeleted();
        KeepWhatRemainingUse();
        for (const unsigned long id : ids_) {
            DeleteDocuments(id);
        }
        logging::Library().Info("%1 metadata versions and %2 storage folders will be deleted",
                                references_.metaFiles.size(), references_.storageFolders.size());
        DeleteMetaFiles();
        DeleteMetaParts();
        for (const auto& storageId : references_.storageFolders) {
            backup_.DeleteBlockStore(storageId);
        }
    }

private:
    void CheckIds() {
        remaining_ = backup_.EnumCheckpointsImpl(CheckpointFilter::all);
        for (const unsigned long id : ids_) {
            if (!remaining_.contains(id)) {
                throw exc::CRuntimeExc("Checkpoint '%1' not found in cloud backup '%2'", id, backup_.GetBackupId());
            }
            if (remaining_.size() <= 1) {
                throw exc::CRuntimeExc("Cannot delete last checkpoint in cloud backup '%1'", backup_.GetBackupId());
            }
            remaining_.erase(id);
        }
    }

    void LoadDeleted() {
        backup_.LoadCheckpoints(ids_, [this](unsigned long id, const auto& checkpoint, const auto& failure) {
            deleted_[id] = checkpoint;
            if (!failure) {
                Add(references_, *checkpoint);
                return;
            }
            Ignore("Failed to load information to delete checkpoint '%1' for cloud backup '%2'", id, failure);
        });
    }

    void KeepWhatRemainingUse() {
        const std::vector<unsigned long> ids(remaining_.begin(), remaining_.end());
        backup_.LoadCheckpoints(ids, [this](unsigned long id, const auto& checkpoint, const auto& failure) {
            if (failure) {
                FailOnRemaining(id, failure);
            }
            Keep(references_, *checkpoint);
        });
    }

    void FailOnRemaining(unsigned long id, const std::exception_ptr& failure) const {
        try {
            std::rethrow_exception(failure);
        } catch (const std::exception& e) {
            exc::RegenTraceExc(e, "Failed to load information about remaining checkpoint '%1' for cloud backup '%2'",
                               id, backup_.GetBackupId());
        }
    }

    void Ignore(std::string_view message, unsigned long id, const std::exception_ptr& failure) const {
        try {
            std::rethrow_exception(failure);
        } catch (const std::exception& e) {
            WarnIgnoring(exc::Format(message, id, backup_.GetBackupId()), e);
        }
    }

    void DeleteDocuments(unsigned long id) {
        logging::Library().Tr("Deleting checkpoint '%1' descriptor", id);
        try {
            CTaskGroup deletions(*client_);
            deletions.Add(client_->DeleteFileAsync(paths::GetCheckpointPath(backup_.GetBackupId(), id)));
            deletions.Add(client_->DeleteFileAsync(paths::GetCheckpointLongTermPath(backup_.GetBackupId(), id)));
            deletions.Wait();
        } catch (...) {
            Ignore("Failed to delete checkpoint '%1' descriptor for cloud backup '%2'", id, std::current_exception());
            KeepWhatUndeletedUses(id);
        }
    }

    /// A document that may still be there must not point at nothing; when it could not be read either, nobody knows
    /// what it points at.
    void KeepWhatUndeletedUses(unsigned long id) {
        if (const auto& checkpoint = deleted_.at(id)) {
            Keep(references_, *checkpoint);
            return;
        }
        logging::Library().Warn(
            "Checkpoint '%1' of cloud backup '%2' could be neither read nor deleted: all metadata and storage folders "
            "are kept",
            id, backup_.GetBackupId());
        references_ = {};
    }

    void DeleteMetaFiles() {
        const std::vector<std::string> names(references_.metaFiles.begin(), references_.metaFiles.end());
        Delete(names.size(), [&](std::size_t index) {
            logging::Library().Tr("Deleting storage metadata '%1'", names[index]);
            return client_->DeleteFileAsync(paths::GetBackupMetaItemPath(backup_.GetBackupId(), names[index]));
        });
    }

    void DeleteMetaParts() {
        const std::vector<std::string> parts(references_.metaParts.begin(), references_.metaParts.end());
        Delete(parts.size(), [&](std::size_t index) {
            logging::Library().Tr("Deleting metadata part '%1'", parts[index]);
            return client_->DeleteFileAsync(parts[index]);
        });
    }

    void Delete(std::size_t count, const std::function<task::task_ptr(std::size_t)>& start) const {
        task::RunWindow(count, client_->GetConcurrentTaskLimit(), start, [](std::size_t) {});
    }

    CCloudBackup& backup_;
    const CCloudBackup::client_ptr client_;
    const std::vector<unsigned long>& ids_;
    std::set<unsigned long> remaining_;
    /// Null for one that could not be read.
    std::map<unsigned long, CCloudBackup::checkpoint_ptr> deleted_;
    /// What only the deleted checkpoints refer to.
    SReferences references_;
};

}  // namespace

void CCloudBackup::DeleteCheckpoints(std::vector<unsigned long> ids) {
    try {
        CCheckpointDeletion(*this, ids).Run();
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to delete checkpoints for cloud backup '%1'", backupId_);
    }
}

void CCloudBackup::ClearOrphanedLongTermCheckpoints(const std::set<unsigned long>& regular,
                                                    const std::set<unsigned long>& longTerm) {
    std::vector<unsigned long> orphans;
    std::set_difference(longTerm.begin(), longTerm.end(), regular.begin(), regular.end(), std::back_inserter(orphans));
    if (orphans.empty()) {
        return;
    }
    try {
        logging::trace_t scope(logging::Library(),
                               "Clearing orphaned long-term checkpoints for cloud backup '%1', orphaned count: %2",
                               backupId_, orphans.size());
        DeleteCheckpoints(orphans);
        scope.Ok();
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e,
                           "Failed to clear orphaned long-term checkpoints for cloud backup '%1', orphaned count: %2",
                           backupId_, orphans.size());
    }
}

}  // namespace cloudbackuplib::backup
