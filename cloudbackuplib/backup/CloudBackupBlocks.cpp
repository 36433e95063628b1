#include <algorithm>

#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/logging.h"
#include "common/options.h"

namespace cloudbackuplib::backup {

namespace {

std::size_t DeletionLimit(cloudclientlib::ICloudClient& client) {
    const std::size_t wanted = options_t::GetInst().GetBlockDeletionConcurrency();
    return wanted <= 1 ? 1 : std::min(wanted, client.GetConcurrentTaskLimit());
}

void DeleteBlocks(const CCloudBackup& backup, const guid::guid_t& storageId, const std::vector<std::string>& names) {
    const auto client = backup.GetBackupClient();
    const auto start = [&](std::size_t index) {
        return client->DeleteFileAsync(paths::GetBackupBlockPath(backup.GetBackupId(), storageId, names[index]));
    };
    task::RunWindow(names.size(), DeletionLimit(*client), start, [](std::size_t) {});
}

std::set<std::string> ListBlocks(const CCloudBackup& backup, const guid::guid_t& storageId) {
    std::set<std::string> names;
    for (const auto& subfolder : paths::EnumCloudBlockSubfolders(backup.GetBackupId(), storageId)) {
        for (const auto& entry : backup.GetBackupClient()->QueryFolder(subfolder)) {
            names.insert(entry.name);
        }
    }
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
    std::vector<std::string> names;
    names.reserve(digests.size());
    for (const auto& digest : digests) {
        names.push_back(paths::DigestToBlockName(digest));
    }
    DeleteBlocks(*this, storageId, names);
    scope.Ok();
}

void CCloudBackup::ClearOrphanedBlocks(const guid::guid_t& storageId,
                                       const std::vector<digest::md5_digest_t>& digestsInUse) {
    logging::trace_t scope(logging::Storage(), "Erasing orphaned blocks from storage '%1'", storageId);
    std::set<std::string> orphans = ListBlocks(*this, storageId);
    logging::Storage().Tr("Loaded %1 block digests from blockstore", orphans.size());
    for (const auto& digest : digestsInUse) {
        orphans.erase(paths::DigestToBlockName(digest));
    }
    logging::Storage().Tr("%1 orphaned blocks will be deleted", orphans.size());
    DeleteBlocks(*this, storageId, {orphans.begin(), orphans.end()});
    scope.Ok();
}

}  // namespace cloudbackuplib::backup
