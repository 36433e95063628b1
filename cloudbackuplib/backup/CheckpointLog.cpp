#include "cloudbackuplib/CloudBackup.h"
#include "common/logging.h"

namespace cloudbackuplib::backup {

namespace {

std::string ContentWord(const checkpoint::CCloudCheckpoint& checkpoint) {
    using enum checkpoint::DxrContentFeature;
    return ToString(checkpoint.GetDxrLongTerm().IsEmpty() ? compatible : longTerm);
}

}  // namespace

void LogCheckpoint(const std::string& prefix, std::shared_ptr<checkpoint::CCloudCheckpoint> checkpoint,
                   const std::string& backupId) {
    logging::trace_t scope(logging::Storage(),
                           "%1 cloud backup checkpoint. Backup id: '%2', Checkpoint: '%3', Storages: '%4', Content: %5",
                           prefix, backupId, checkpoint->GetId(), checkpoint->GetStorages().size(),
                           ContentWord(*checkpoint));
    for (const auto& storage : checkpoint->GetStorages()) {
        logging::Storage().Info("Storage: %1, meta version: %2, schema: [%3]", storage.GetStorageId(),
                                storage.GetMetaVersion(), ToString(storage.GetBlockStoreSchema()));
    }
    scope.Close();
}

}  // namespace cloudbackuplib::backup
