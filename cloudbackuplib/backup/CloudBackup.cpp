#include "cloudbackuplib/CloudBackup.h"

#include "cloudbackuplib/CloudPaths.h"
#include "common/logging.h"

namespace cloudbackuplib::backup {

namespace {

constexpr const char* configurationFolder = "Config";

bool IsBackupPresent(const std::string& backupId, cloudclientlib::ICloudClient& client) {
    return client.IsFolderExist(paths::GetCheckpointFolder(backupId)) ||
           client.IsFolderExist(paths::GetCheckpointLongTermFolder(backupId));
}

unsigned long LastOf(const std::set<unsigned long>& ids) { return ids.empty() ? 0 : *ids.rbegin(); }

/// Deletes what an unfinished creation left; a backup with checkpoints is refused.
void RemoveIncomplete(const std::string& backupId, const CCloudBackup::client_ptr& client) {
    const auto ids = CCloudBackup::EnumCheckpoints(backupId, client, CheckpointFilter::regular);
    if (!ids.empty()) {
        throw exc::CRuntimeExc("Cloud backup '%1' already exists. Checkpoint number: '%2', last checkpoint id: '%3'",
                               backupId, ids.size(), LastOf(ids));
    }
    logging::Library().Warn("Re-creating incomplete cloud backup '%1'", backupId);
    CCloudBackup::DeleteBackup(backupId, client);
}

}  // namespace

CBackupNotFoundExc::CBackupNotFoundExc(const std::string& backupId)
    : CExc(exc::Format("Cloud backup '%1' not found", backupId)) {}

std::unique_ptr<exc::CExc> CBackupNotFoundExc::Clone() const { return std::make_unique<CBackupNotFoundExc>(*this); }
void CBackupNotFoundExc::Generate() const { throw CBackupNotFoundExc(*this); }

CCloudBackupCollectionItem::CCloudBackupCollectionItem(const std::string& id) : id_(id) {}
CCloudBackupCollectionItem::CCloudBackupCollectionItem(std::shared_ptr<CCloudBackup> backup)
    : id_(backup->GetBackupId()), backup_(std::move(backup)) {}

std::shared_ptr<CCloudBackup> CCloudBackupCollectionItem::GetBackup() const {
    if (!backup_) {
        throw exc::CRuntimeExc("Cloud backup '%1' is corrupted", id_);
    }
    return backup_;
}

CCloudBackup::CCloudBackup(const std::string& backupId, const checkpoint::COwnerDescriptor& owner,
                           const guid::guid_t& guid, client_ptr backupClient, client_ptr archiveBlobsClient,
                           unsigned long lastCheckpointId, ErrorHandling errorHandling)
    : backupId_(backupId),
      owner_(owner),
      guid_(guid),
      client_(std::move(backupClient)),
      archiveBlobsClient_(std::move(archiveBlobsClient)),
      lastCheckpointId_(lastCheckpointId),
      errorHandling_(errorHandling) {}

std::shared_ptr<CCloudBackup> CCloudBackup::CreateNew(const std::string& backupId, client_ptr client,
                                                      client_ptr archiveBlobsClient,
                                                      const checkpoint::COwnerDescriptor& owner,
                                                      const guid::guid_t& guid) {
    if (IsBackupPresent(backupId, *client)) {
        RemoveIncomplete(backupId, client);
    }
    InitBackupFolders(backupId, client);
    return std::make_shared<CCloudBackup>(backupId, owner, guid, std::move(client), std::move(archiveBlobsClient), 0,
                                          ErrorHandling::fail);
}

std::shared_ptr<CCloudBackup> CCloudBackup::LoadExisting(const std::string& backupId, client_ptr client,
                                                         client_ptr archiveBlobsClient,
                                                         const checkpoint::COwnerDescriptor& owner,
                                                         const guid::guid_t& guid, ErrorHandling errorHandling) {
    if (!IsBackupPresent(backupId, *client)) {
        throw CBackupNotFoundExc(backupId);
    }
    const unsigned long lastId = LastOf(EnumCheckpoints(backupId, client, CheckpointFilter::regular));
    return std::make_shared<CCloudBackup>(backupId, owner, guid, std::move(client), std::move(archiveBlobsClient),
                                          lastId, errorHandling);
}

std::vector<CCloudBackupCollectionItem> CCloudBackup::EnumBackups(client_ptr client,
                                                                  const checkpoint::COwnerDescriptor& owner,
                                                                  const guid::guid_t& guid, EnumBackupsStyle style,
                                                                  ErrorHandling errorHandling) {
    logging::trace_t scope(logging::Library(), "Enumerating cloud backups");
    if (!client->IsFolderExist("")) {
        scope.Close("Backup root directory not found");
        return {};
    }
    std::vector<CCloudBackupCollectionItem> items;
    const auto load = [&](const std::string& name) {
        try {
            return CCloudBackupCollectionItem(LoadExisting(name, client, client, owner, guid, errorHandling));
        } catch (const std::exception& e) {
            logging::Library().Warn("Cannot load cloud backup from directory '%1': %2", name, exc::ChainText(e));
            return CCloudBackupCollectionItem(name);
        }
    };
    for (const auto& entry : client->QueryFolder("")) {
        if (entry.name != configurationFolder) {
            items.push_back(style == EnumBackupsStyle::load ? load(entry.name)
                                                            : CCloudBackupCollectionItem(entry.name));
        }
    }
    scope.Ok();
    return items;
}

void CCloudBackup::DeleteBackup(const std::string& backupId, client_ptr client,
                                std::shared_ptr<progress::progress_base_t> progress) {
    logging::trace_t scope(logging::Library(), "Deleting cloud backup '%1'", backupId);
    const std::string folder = paths::GetBackupFolder(backupId);
    logging::Library().Tr("Deleting entire backup directory '%1'", folder);
    client->DeleteFolderAsync(folder, std::move(progress))->Wait();
    scope.Close();
}

bool CCloudBackup::CreateCloudFolder(const std::string& path, const std::string& kind, client_ptr client) {
    if (client->IsFolderExist(path)) {
        return false;
    }
    logging::Library().Tr("Creating cloud backup %1 directory", kind);
    client->CreateFolderAsync(path)->Wait();
    return true;
}

void CCloudBackup::PrepareBackupRootFolder(std::string& rootPath, bool& created, client_ptr client) {
    rootPath.clear();
    created = CreateCloudFolder(rootPath, "root", std::move(client));
}

void CCloudBackup::InitBackupFolders(const std::string& backupId, client_ptr client) {
    try {
        std::string rootPath;
        bool rootCreated = false;
        PrepareBackupRootFolder(rootPath, rootCreated, client);
        const std::string folder = paths::GetBackupFolder(backupId);
        CreateCloudFolder(folder, "session", client);
        CreateCloudFolder(folder + "/Metadata", "metadata", client);
        CreateCloudFolder(folder + "/BlockStore", "block store", client);
        // Last: a backup is there when its checkpoint folder is.
        CreateCloudFolder(paths::GetCheckpointFolder(backupId), "checkpoint", client);
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to create directories for cloud backup '%1'", backupId);
    }
}

}  // namespace cloudbackuplib::backup
