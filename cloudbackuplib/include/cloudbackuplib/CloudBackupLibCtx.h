#pragma once

#include <boost/thread/mutex.hpp>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/CloudBackupSession.h"
#include "cloudbackuplib/ICloudRepository.h"
#include "cloudclientlib/CloudRecords.h"
#include "common/export.h"
#include "common/guid.h"
#include "common/progress.h"
#include "common/throttling.h"

namespace cloudbackuplib {

/// The library's entry: named cloud connections, the repository behind each, and the backup sessions open on it.
///
/// One per process. Safe from any thread: one mutex serialises every operation, forwarded repository calls included, so
/// that a slow one blocks the others. Only creation and reset of the instance are not synchronised: create it before
/// several threads use it, and reset it when none does. Repositories and sessions are shared with those who took them
/// and outlive their registration. Failures are exceptions (exc::CRuntimeExc, those of the repository unchanged,
/// Boost's when the mutex cannot be had) and leave the registries as they were.
class CB_EXPORT CCloudBackupLibCtx {
public:
    using repository_ptr = std::shared_ptr<backup::ICloudRepository>;
    using backup_ptr = std::shared_ptr<backup::CCloudBackup>;
    using session_ptr = std::shared_ptr<backup::CCloudBackupSession>;

    /// A connection: its repository, and its sessions by backup id.
    struct SCloudRepoConnection {
        repository_ptr repository;
        std::map<std::string, session_ptr> sessions;
    };

    /// The process's context, made at the first call.
    [[nodiscard]] static std::shared_ptr<CCloudBackupLibCtx> Instance();
    /// Lets the context go; it lives on as long as somebody holds it. The next Instance() makes a fresh one.
    static void ResetInstance();

    /// Opens the repository and registers it. `throttling` is not used.
    void AddConnection(const std::string& name, const std::string& serviceString, const std::string& connectionSpec,
                       std::shared_ptr<io::CNetworkTrottlingCtx> throttling);
    /// Takes no lock: for callers that know that nobody else uses the context.
    [[nodiscard]] const SCloudRepoConnection& GetConnection(const std::string& name) const;
    [[nodiscard]] SCloudRepoConnection& GetConnection(const std::string& name);

    [[nodiscard]] cloudclientlib::SStorageQuota GetStorageQuota(const std::string& name) const;
    [[nodiscard]] repository_ptr GetRepository(const std::string& name);
    [[nodiscard]] std::vector<backup::CCloudBackupCollectionItem> EnumBackups(const std::string& name,
                                                                              const guid::guid_t& clientId);
    [[nodiscard]] backup_ptr LoadBackup(const std::string& name, const guid::guid_t& clientId,
                                        const std::string& backupId, bool readOnly);
    void DeleteBackup(const std::string& name, const guid::guid_t& clientId, const std::string& backupId,
                      std::shared_ptr<progress::progress_base_t> progress);

    /// Opens a session on a checkpoint of a backup; checkpoint 0 makes the backup. One session per connection and
    /// backup.
    session_ptr StartBackupSession(const std::string& name, const guid::guid_t& clientId, const std::string& backupId,
                                   unsigned long checkpointId, bool readOnly);
    [[nodiscard]] session_ptr GetBackupSession(const std::string& name, const std::string& backupId);
    /// Lets the session go, and does nothing else to it.
    void CloseBackupSession(const std::string& name, const std::string& backupId);

private:
    CCloudBackupLibCtx() = default;

    mutable boost::mutex mutex_;
    std::map<std::string, SCloudRepoConnection> connections_;
};

}  // namespace cloudbackuplib
