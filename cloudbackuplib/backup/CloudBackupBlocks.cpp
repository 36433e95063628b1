#include <algorithm>
#include <functional>

#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/CloudPaths.h"
#include "cloudbackuplib/backup/BlockNames.h"
#include "common/logging.h"
#include "common/options.h"

namespace cloudbackuplib::backup {

namespace {

std::size_t DeletionLimit(cloudclientlib::ICloudClient& client) {
    const std::size_t wanted = options_t::GetInst().GetBlockDeletionConcurrency();
    return wanted <= 1 ? 1 : std::min(wanted, client.GetConcurrentTaskLimit());
}

/// Deletes `count` blocks; `nextName` gives their names one after the other.
void DeleteBlocks(const CCloudBackup& backup, const guid::guid_t& storageId, std::size_t count,
                  const std::function<std::string(std::size_t)>& nextName) {
    const auto client = backup.GetBackupClient();
    const auto start = [&](std::size_t index) {
        return client->DeleteFileAsync(paths::GetBackupBlockPath(backup.GetBackupId(), storageId, nextName(index)));
    };
    task::RunWindow(count, DeletionLimit(*client), start, [](std::size_t) {});
}

CBlockNames ListBlocks(const CCloudBackup& backup, const guid::guid_t& storageId) {
    CBlockNames names;
    for (const auto& subfolder : paths::EnumCloudBlockSubfolders(backup.GetBackupId(), storageId)) {
        for (const auto& entry : backup.GetBackupClient()->QueryFolder(subfolder)) {
            names.Add(entry.name);
        }
    }
    names.Sort();
    return names;
}

}  // namespace

bool CCloudBackup::BlockStoreSwitchedToArchiveBlobsStore(const checkpoint::CCloudStorageDescriptor& storage) {
    return storage.GetBlockStoreSchema() == CloudStorageBlockStoreSchema::blobs;
}

void CCloudBackup::DeleteArchiveBlobStore(const guid::guid_t&) {}

unsigned long CCloudBackup::GetBlockStoreSize(const guid::guid_t& storageId) const {
    logging::trace_t scope(logging::Storage(), "Calculating blockstore size for storage '%1'", storageId);
    const unsigned long size = client_->GetFolderSize(paths::GetBackupBlockFolder(backupId_, storageId.ToAStr()));
    scope.Ok();
    return size;
}

void CCloudBackup::DeleteBlockStore(const guid::guid_t& storageId) {
    logging::trace_t scope(logging::Storage(), "Deleting storage blockstore '%1'", storageId);
    const std::string folder = paths::GetBackupBlockFolder(backupId_, storageId.ToAStr());
    if (client_->IsFolderExist(folder)) {
        client_->DeleteFolderAsync(folder, nullptr)->Wait();
    }
    scope.Ok();
}

void CCloudBackup::ClearReleasedBlocks(const guid::guid_t& storageId,
                                       const std::vector<digest::md5_digest_t>& digests) {
    logging::trace_t scope(logging::Storage(), "Erasing released blocks from storage '%1'", storageId);
    DeleteBlocks(*this, storageId, digests.size(),
                 [&](std::size_t index) { return paths::DigestToBlockName(digests[index]); });
    scope.Ok();
}

void CCloudBackup::ClearOrphanedBlocks(const guid::guid_t& storageId,
                                       const std::vector<digest::md5_digest_t>& digestsInUse) {
    logging::trace_t scope(logging::Storage(), "Erasing orphaned blocks from storage '%1'", storageId);
    CBlockNames orphans = ListBlocks(*this, storageId);
    logging::Storage().Tr("Loaded %1 block digests from blockstore", orphans.GetCount());
    orphans.Remove(digestsInUse);
    logging::Storage().Tr("%1 orphaned blocks will be deleted", orphans.GetCount());
    DeleteBlocks(*this, storageId, orphans.GetCount(), [&](std::size_t) { return orphans.TakeFirst(); });
    scope.Ok();
}

}  // namespace cloudbackuplib::backup
