#include "cloudbackuplib/CloudExternalRepository.h"

#include <utility>

#include "cloudbackuplib/cloud/CloudDocument.h"
#include "common/exc.h"
#include "common/logging.h"

namespace cloudbackuplib::backup {

namespace {

constexpr const char* repositoriesFolder = "/Draxo/Backup";
constexpr const char* descriptionNode = "Repository";
constexpr const char* ownerNode = "Owner";

using client_ptr = CCloudExternalRepository::client_ptr;

std::string JoinPath(const std::string& folder, const std::string& path) {
    return folder.empty() ? path : folder + "/" + path;
}

std::string RepositoryRoot(const SCloudRepositoryInfo& info) {
    return std::string(repositoriesFolder) + "/" + info.folderName;
}

checkpoint::COwnerDescriptor ToDescriptor(const SCloudRepoIdentity& identity) {
    return {identity.id, identity.type, identity.description};
}

/// A description that exists but is damaged stays as it is: who can repair it may want it.
void EnsureDescription(const std::string& root, const client_ptr& client, const std::string& displayName) {
    const std::string path = JoinPath(root, CCloudExternalRepository::GetRepoDescPath());
    if (!client->IsFileExist(path)) {
        const SCloudRepositoryDescription description{guid::guid_t::CreateNew(), displayName};
        document::Write(*client, path, document::Make(descriptionNode, description));
    } else if (CCloudExternalRepository::HasValidDescription(root, client)) {
        throw exc::CRuntimeExc("Repository already exists and is valid");
    }
}

void CreateRepository(const client_ptr& client, const SCloudRepositoryInfo& info) {
    const std::string root = RepositoryRoot(info);
    document::EnsureFolder(*client, repositoriesFolder);
    document::EnsureFolder(*client, root);
    document::EnsureFolder(*client, JoinPath(root, CCloudExternalRepository::GetConfigFolder()));
    EnsureDescription(root, client, info.folderName);
    document::EnsureFolder(*client, JoinPath(root, CCloudExternalRepository::GetClientDataFolder()));
}

std::vector<std::string> ListRepositories(const client_ptr& client) {
    std::vector<std::string> names;
    if (client->IsFolderExist(repositoriesFolder)) {
        for (const auto& entry : client->QueryFolder(repositoriesFolder)) {
            names.push_back(entry.name);
        }
    }
    return names;
}

std::string OwnerLogText(const SCloudRepoIdentity& owner) {
    return owner.id.IsEmpty() ? "unset" : exc::Format("%1, type: %2, id: %3", owner.description, owner.type, owner.id);
}

}  // namespace

std::string CCloudExternalRepository::GetConfigFolder() { return "Config"; }
std::string CCloudExternalRepository::GetClientDataFolder() { return "Clients"; }
std::string CCloudExternalRepository::GetRepoOwnerPath() { return GetConfigFolder() + "/Owner"; }
std::string CCloudExternalRepository::GetRepoDescPath() { return GetConfigFolder() + "/Repository"; }

std::shared_ptr<ICloudRepository> CCloudExternalRepository::OpenExisting(client_ptr primaryClient,
                                                                         client_ptr archiveBlobsClient,
                                                                         const SCloudRepositoryInfo& info) {
    logging::trace_t trace(logging::Library(), "Opening external cloud repository '%1'", info.ToString());
    try {
        const std::string root = RepositoryRoot(info);
        auto repository = std::make_shared<CCloudExternalRepository>(
            std::make_shared<cloudclientlib::CRestrictedCloudClient>(std::move(primaryClient), root),
            std::make_shared<cloudclientlib::CRestrictedCloudClient>(std::move(archiveBlobsClient), root), info);
        trace.Close();
        return repository;
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to open external cloud repository '%1'", info.ToString());
    }
}

std::shared_ptr<ICloudRepository> CCloudExternalRepository::OpenExisting(client_ptr client,
                                                                         const SCloudRepositoryInfo& info) {
    return OpenExisting(client, client, info);
}

std::shared_ptr<ICloudRepository> CCloudExternalRepository::CreateNew(client_ptr primaryClient,
                                                                      client_ptr archiveBlobsClient,
                                                                      const SCloudRepositoryInfo& info) {
    logging::trace_t trace(logging::Library(), "Creating new external cloud repository '%1'", info.ToString());
    try {
        CreateRepository(primaryClient, info);
        trace.Close();
        return OpenExisting(std::move(primaryClient), std::move(archiveBlobsClient), info);
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to create new external cloud repository '%1'", info.ToString());
    }
}

std::shared_ptr<ICloudRepository> CCloudExternalRepository::CreateNew(client_ptr client,
                                                                      const SCloudRepositoryInfo& info) {
    return CreateNew(client, client, info);
}

std::vector<std::string> CCloudExternalRepository::Enumerate(client_ptr client, const SCloudRepositoryInfo& info) {
    logging::trace_t trace(logging::Library(), "Enumerating external cloud repositories '%1'", info.ToString());
    try {
        auto names = ListRepositories(client);
        trace.Ok();
        return names;
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to enumerate external cloud repositories '%1'", info.ToString());
    }
}

CCloudExternalRepository::CCloudExternalRepository(restricted_ptr primaryClient, restricted_ptr archiveBlobsClient,
                                                   const SCloudRepositoryInfo& info)
    : primaryClient_(std::move(primaryClient)), archiveBlobsClient_(std::move(archiveBlobsClient)), info_(info) {
    LoadOwner();
    id_ = LoadDescription().id;
}

bool CCloudExternalRepository::HasValidDescription(const std::string& folder, client_ptr client) {
    try {
        static_cast<void>(LoadDescriptionImpl(folder, std::move(client)));
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

SCloudRepositoryDescription CCloudExternalRepository::LoadDescriptionImpl(const std::string& folder,
                                                                          client_ptr client) {
    const auto found = document::Read(*client, JoinPath(folder, GetRepoDescPath()));
    if (!found) {
        throw exc::CRuntimeExc("Repository description not found");
    }
    return SCloudRepositoryDescription::Deserialize(xml::TiXmlGetChildExc(*found, descriptionNode));
}

SCloudRepositoryDescription CCloudExternalRepository::LoadDescription() const {
    return LoadDescriptionImpl("", primaryClient_);
}

void CCloudExternalRepository::LoadOwner() {
    SCloudRepoIdentity loaded;
    if (const auto found = document::Read(*primaryClient_, GetRepoOwnerPath())) {
        const auto owner = checkpoint::COwnerDescriptor::Deserialize(xml::TiXmlGetChildExc(*found, ownerNode));
        if (owner.IsSet()) {
            loaded = {owner.GetId(), owner.GetType(), owner.GetDescription()};
        }
    }
    owner_ = std::move(loaded);
}

guid::guid_t CCloudExternalRepository::GetId() const { return id_; }

SCloudRepoIdentity CCloudExternalRepository::GetOwner() const { return owner_; }

void CCloudExternalRepository::SetOwner(const SCloudRepoIdentity& owner) {
    logging::trace_t trace(logging::Library(), "Updating external cloud repository owner. New owner: %1",
                           OwnerLogText(owner));
    if (owner.id.IsEmpty()) {
        primaryClient_->DeleteFileAsync(GetRepoOwnerPath())->Wait();
    } else {
        document::Write(*primaryClient_, GetRepoOwnerPath(), document::Make(ownerNode, ToDescriptor(owner)));
    }
    owner_ = owner;
    trace.Ok();
}

cloudclientlib::SStorageQuota CCloudExternalRepository::GetStorageQuota() const {
    return primaryClient_->GetStorageQuota();
}

std::string CCloudExternalRepository::Info4Log() const {
    return exc::Format("Cloud external repository (name: %1, id: %2, client id: %3)", info_.folderName, id_,
                       info_.client.IsSet() ? info_.client.Get().clientId.ToAStr() : "n/a");
}

ErrorHandling CCloudExternalRepository::GetErrorHandling() const {
    return owner_.id.IsEmpty() ? ErrorHandling::fail : ErrorHandling::skip;
}

checkpoint::COwnerDescriptor CCloudExternalRepository::GetBackupOwner() const {
    if (!owner_.id.IsEmpty()) {
        return ToDescriptor(owner_);
    }
    if (!info_.client.IsSet() || info_.client.Get().clientId.IsEmpty()) {
        return {};
    }
    const SCloudRepositoryClientInfo& client = info_.client.Get();
    return {client.clientId, client.clientType, client.clientName};
}

}  // namespace cloudbackuplib::backup
