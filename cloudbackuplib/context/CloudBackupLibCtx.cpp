#include "cloudbackuplib/CloudBackupLibCtx.h"

#include <boost/thread/lock_guard.hpp>
#include <utility>

#include "cloudbackuplib/CloudRepositoryFactory.h"
#include "common/exc.h"

namespace cloudbackuplib {

namespace {

std::shared_ptr<CCloudBackupLibCtx> g_ptrCloudBackupLibCtx;

using lock_t = boost::lock_guard<boost::mutex>;

/// The one lookup for both kinds of connection.
template <class Connections>
auto& FindConnection(Connections& connections, const std::string& name) {
    const auto found = connections.find(name);
    if (found == connections.end()) {
        throw exc::CRuntimeExc("Cloud connection '%1' not found", name);
    }
    return found->second;
}

auto FindSession(CCloudBackupLibCtx::SCloudRepoConnection& connection, const std::string& backupId) {
    const auto found = connection.sessions.find(backupId);
    if (found == connection.sessions.end()) {
        throw exc::CRuntimeExc("Cloud backup session '%1' not found", backupId);
    }
    return found;
}

CCloudBackupLibCtx::backup_ptr LoadOrCreate(backup::ICloudRepository& repository, const guid::guid_t& clientId,
                                            const std::string& backupId, unsigned long checkpointId, bool readOnly) {
    if (checkpointId != 0) {
        return repository.LoadBackup(clientId, backupId, readOnly);
    }
    if (readOnly) {
        throw exc::CRuntimeExc("Cannot start readonly backup session for non-existent checkpoint of backup: %1",
                               backupId);
    }
    return repository.CreateBackup(clientId, backupId);
}

}  // namespace

std::shared_ptr<CCloudBackupLibCtx> CCloudBackupLibCtx::Instance() {
    if (!g_ptrCloudBackupLibCtx) {
        g_ptrCloudBackupLibCtx.reset(new CCloudBackupLibCtx);
    }
    return g_ptrCloudBackupLibCtx;
}

void CCloudBackupLibCtx::ResetInstance() { g_ptrCloudBackupLibCtx.reset(); }

void CCloudBackupLibCtx::AddConnection(const std::string& name, const std::string& serviceString,
                                       const std::string& connectionSpec,
                                       std::shared_ptr<io::CNetworkTrottlingCtx> /*throttling*/) {
    const lock_t lock(mutex_);
    if (connections_.contains(name)) {
        throw exc::CRuntimeExc("Cloud connection '%1' already exists", name);
    }
    const auto service = backup::ECloudService::FromStr(serviceString);
    repository_ptr repository = backup::CCloudRepositoryFactory::OpenRepository(service, connectionSpec);
    connections_[name].repository = std::move(repository);
}

const CCloudBackupLibCtx::SCloudRepoConnection& CCloudBackupLibCtx::GetConnection(const std::string& name) const {
    return FindConnection(connections_, name);
}

CCloudBackupLibCtx::SCloudRepoConnection& CCloudBackupLibCtx::GetConnection(const std::string& name) {
    return FindConnection(connections_, name);
}

cloudclientlib::SStorageQuota CCloudBackupLibCtx::GetStorageQuota(const std::string& name) const {
    const lock_t lock(mutex_);
    return GetConnection(name).repository->GetStorageQuota();
}

CCloudBackupLibCtx::repository_ptr CCloudBackupLibCtx::GetRepository(const std::string& name) {
    const lock_t lock(mutex_);
    return GetConnection(name).repository;
}

std::vector<backup::CCloudBackupCollectionItem> CCloudBackupLibCtx::EnumBackups(const std::string& name,
                                                                                const guid::guid_t& clientId) {
    const lock_t lock(mutex_);
    return GetConnection(name).repository->EnumBackups(clientId);
}

CCloudBackupLibCtx::backup_ptr CCloudBackupLibCtx::LoadBackup(const std::string& name, const guid::guid_t& clientId,
                                                              const std::string& backupId, bool readOnly) {
    const lock_t lock(mutex_);
    return GetConnection(name).repository->LoadBackup(clientId, backupId, readOnly);
}

void CCloudBackupLibCtx::DeleteBackup(const std::string& name, const guid::guid_t& clientId,
                                      const std::string& backupId,
                                      std::shared_ptr<progress::progress_base_t> progress) {
    const lock_t lock(mutex_);
    GetConnection(name).repository->DeleteBackup(clientId, backupId, std::move(progress));
}

CCloudBackupLibCtx::session_ptr CCloudBackupLibCtx::StartBackupSession(const std::string& name,
                                                                       const guid::guid_t& clientId,
                                                                       const std::string& backupId,
                                                                       unsigned long checkpointId, bool readOnly) {
    const lock_t lock(mutex_);
    SCloudRepoConnection& connection = GetConnection(name);
    if (connection.sessions.contains(backupId)) {
        throw exc::CRuntimeExc("Cloud backup session '%1' already exists", backupId);
    }
    session_ptr session = backup::CCloudBackupSession::StartSession(
        LoadOrCreate(*connection.repository, clientId, backupId, checkpointId, readOnly), checkpointId, readOnly);
    connection.sessions[backupId] = session;
    return session;
}

CCloudBackupLibCtx::session_ptr CCloudBackupLibCtx::GetBackupSession(const std::string& name,
                                                                     const std::string& backupId) {
    const lock_t lock(mutex_);
    return FindSession(GetConnection(name), backupId)->second;
}

void CCloudBackupLibCtx::CloseBackupSession(const std::string& name, const std::string& backupId) {
    session_ptr closed;  // let go after the lock: a session's last breath may log
    const lock_t lock(mutex_);
    SCloudRepoConnection& connection = GetConnection(name);
    const auto found = FindSession(connection, backupId);
    closed = std::move(found->second);
    connection.sessions.erase(found);
}

}  // namespace cloudbackuplib
