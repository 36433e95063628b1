// Looking across the clients of a repository, and removing them.

#include <algorithm>

#include "cloudbackuplib/CloudExternalRepository.h"
#include "common/exc.h"
#include "common/logging.h"

namespace cloudbackuplib::backup {

namespace {

guid::guid_t ParseClientFolderName(const std::string& name) {
    try {
        const auto id = guid::guid_t::FromStr(name);
        if (id.ToAStr() == name) {
            return id;
        }
    } catch (const exc::CRuntimeExc&) {  // no id in any form
    }
    throw exc::CRuntimeExc("Invalid client identifier");
}

}  // namespace

CCloudExternalRepository::SClients CCloudExternalRepository::ListClients() const {
    logging::trace_t trace(logging::Library(), "Enumerating clients in external cloud repository");
    SClients clients;
    for (const auto& entry : primaryClient_->QueryFolder(GetClientDataFolder())) {
        try {
            clients.readable.push_back(LoadClientInfo(ParseClientFolderName(entry.name)));
        } catch (const std::exception& e) {
            clients.unreadableFolders += entry.isFolder ? 1U : 0U;
            logging::Library().Warn("Failed to retrieve client information from client data folder '%1'", entry.name);
            logging::Library().Dbg("%1", exc::ChainText(e));
        }
    }
    trace.Close();
    return clients;
}

std::vector<SCloudRepoIdentity> CCloudExternalRepository::EnumClients() { return ListClients().readable; }

void CCloudExternalRepository::DeleteBackups(const guid::guid_t& clientId, client_ptr backupClient) {
    logging::trace_t trace(logging::Library(), "Deleting backups for client '%1'", clientId);
    // The names are enough: a backup that cannot be loaded is deleted as well.
    const auto backups = CCloudBackup::EnumBackups(backupClient, GetBackupOwner(), GetOwnClientId(),
                                                   EnumBackupsStyle::idsOnly, GetErrorHandling());
    for (const auto& backup : backups) {
        CCloudBackup::DeleteBackup(backup.GetId(), backupClient);
    }
    trace.Ok();
}

std::size_t CCloudExternalRepository::CountOtherClients(const guid::guid_t& clientId) const {
    const SClients clients = ListClients();
    // A folder that cannot be read, for this moment's bad connection perhaps, still holds someone's backups.
    const auto others = std::count_if(clients.readable.begin(), clients.readable.end(),
                                      [&](const SCloudRepoIdentity& client) { return !(client.id == clientId); });
    return clients.unreadableFolders + static_cast<std::size_t>(others);
}

void CCloudExternalRepository::Delete() {
    const guid::guid_t id = GetEffectiveClientId({});
    logging::trace_t trace(logging::Library(), "Deleting repository for client '%1'", id);
    const restricted_ptr backupClient = GetBackupClient(id);
    DeleteBackups(id, backupClient);
    if (backupClient->IsFolderExist("")) {
        logging::Library().Info("Deleting client folder");
        backupClient->DeleteFolderAsync("", nullptr)->Wait();
    }
    const std::size_t others = CountOtherClients(id);
    logging::Library().Info("%1 repository folder: Other clients in the repository: %2",
                            others == 0 ? "Deleting" : "Not deleting", others);
    if (others == 0) {
        primaryClient_->DeleteFolderAsync("", nullptr)->Wait();
    }
    trace.Ok();
}

}  // namespace cloudbackuplib::backup
