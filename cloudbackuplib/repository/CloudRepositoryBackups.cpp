// The backups of a repository: reached through a client confined to their backup client's folder, written only as the
// client that the repository was opened for.

#include <utility>

#include "cloudbackuplib/CloudExternalRepository.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"

namespace cloudbackuplib::backup {

guid::guid_t CCloudExternalRepository::GetEffectiveClientId(const guid::guid_t& explicitId) const {
    if (!explicitId.IsEmpty()) {
        return explicitId;
    }
    if (info_.client.IsSet() && !info_.client.Get().clientId.IsEmpty()) {
        return info_.client.Get().clientId;
    }
    throw exc::CRuntimeExc("Cannot deduce backup client ID: neither client information nor explicit value is provided");
}

guid::guid_t CCloudExternalRepository::GetOwnClientId() const {
    return info_.client.IsSet() ? info_.client.Get().clientId : guid::guid_t();
}

CCloudExternalRepository::restricted_ptr CCloudExternalRepository::GetBackupClient(const guid::guid_t& clientId) const {
    return std::make_shared<cloudclientlib::CRestrictedCloudClient>(primaryClient_,
                                                                    GetClientDataFolder() + "/" + clientId.ToAStr());
}

CCloudExternalRepository::restricted_ptr CCloudExternalRepository::GetArchiveBlobsClient(
    const guid::guid_t& clientId) const {
    return std::make_shared<cloudclientlib::CRestrictedCloudClient>(archiveBlobsClient_,
                                                                    GetClientDataFolder() + "/" + clientId.ToAStr());
}

std::vector<CCloudBackupCollectionItem> CCloudExternalRepository::EnumBackups(const guid::guid_t& clientId) {
    return CCloudBackup::EnumBackups(GetBackupClient(GetEffectiveClientId(clientId)), GetBackupOwner(),
                                     GetOwnClientId(), EnumBackupsStyle::load, GetErrorHandling());
}

std::shared_ptr<CCloudBackup> CCloudExternalRepository::LoadBackup(const guid::guid_t& clientId,
                                                                   const std::string& backupId, bool readOnly) {
    const guid::guid_t id = GetEffectiveClientId(clientId);
    if (!readOnly) {
        if (!info_.client.IsSet()) {
            throw exc::CRuntimeExc("Cannot open backup '%1' for write: client information is not set", backupId);
        }
        if (!(id == GetOwnClientId())) {
            throw exc::CRuntimeExc(
                "Cannot open backup '%1' for write: backup client id '%2' doesn't match current client id '%3'",
                backupId, id, GetOwnClientId());
        }
        UpdateClientInfo();
    }
    return CCloudBackup::LoadExisting(backupId, GetBackupClient(id), GetArchiveBlobsClient(id), GetBackupOwner(),
                                      GetOwnClientId(), GetErrorHandling());
}

std::shared_ptr<CCloudBackup> CCloudExternalRepository::CreateBackup(const guid::guid_t& clientId,
                                                                     const std::string& backupId) {
    if (!info_.client.IsSet()) {
        throw exc::CRuntimeExc("Cannot create backup '%1': client information is not set", backupId);
    }
    const guid::guid_t id = GetEffectiveClientId(clientId);
    if (!(id == GetOwnClientId())) {
        throw exc::CRuntimeExc("Cannot create backup '%1': backup client id '%2' doesn't match current client id '%3'",
                               backupId, id, GetOwnClientId());
    }
    UpdateClientInfo();  // whoever finds the backup shall find out whose it is
    return CCloudBackup::CreateNew(backupId, GetBackupClient(id), GetArchiveBlobsClient(id), GetBackupOwner(),
                                   GetOwnClientId());
}

void CCloudExternalRepository::DeleteBackup(const guid::guid_t& clientId, const std::string& backupId,
                                            std::shared_ptr<progress::progress_base_t> progress) {
    CCloudBackup::DeleteBackup(backupId, GetBackupClient(GetEffectiveClientId(clientId)), std::move(progress));
}

unsigned long CCloudExternalRepository::GetBackupObjectCount(const guid::guid_t& clientId,
                                                             const std::string& backupId) const {
    const restricted_ptr client = GetBackupClient(GetEffectiveClientId(clientId));
    // A restricted client hands this path on unmapped, so both of them are told apart here.
    return client->GetObjectCount(primaryClient_->ToRealPath(client->ToRealPath(paths::GetBackupFolder(backupId))));
}

}  // namespace cloudbackuplib::backup
