#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/CloudRepositoryInfo.h"
#include "cloudclientlib/CloudRecords.h"
#include "common/crypto/key_set.h"
#include "common/export.h"
#include "common/guid.h"
#include "common/progress.h"

namespace cloudbackuplib::backup {

/// A repository: the backups, records and keys of the backup clients that share it.
///
/// An empty client id means the client that the repository was opened for. Not safe for several threads at once: the
/// caller serialises calls. Held by shared pointer; shares its cloud clients. Failures are exceptions; what was
/// committed stays.
class CB_EXPORT ICloudRepository {
public:
    virtual ~ICloudRepository() = default;

    [[nodiscard]] virtual guid::guid_t GetId() const = 0;
    [[nodiscard]] virtual SCloudRepoIdentity GetOwner() const = 0;
    virtual void SetOwner(const SCloudRepoIdentity& owner) = 0;
    [[nodiscard]] virtual std::vector<SCloudRepoIdentity> EnumClients() = 0;
    virtual void AddHistoricalKey(const guid::guid_t& clientId, std::shared_ptr<crypto::CKeySet> keySet) = 0;
    /// Newest first.
    [[nodiscard]] virtual std::vector<std::shared_ptr<crypto::CKeySet>> EnumHistoricalKeys(
        const guid::guid_t& clientId) = 0;
    virtual void SetEncryptionKey(const guid::guid_t& clientId, std::shared_ptr<crypto::CKeySet> keySet,
                                  std::shared_ptr<crypto::sec_bytes_t> salt) = 0;
    [[nodiscard]] virtual COptionalParameter<SCloudRepoEncryptionKeyInfo> GetEncryptionKeyInfo(
        const guid::guid_t& clientId) = 0;
    [[nodiscard]] virtual std::vector<CCloudBackupCollectionItem> EnumBackups(const guid::guid_t& clientId) = 0;
    [[nodiscard]] virtual std::shared_ptr<CCloudBackup> LoadBackup(const guid::guid_t& clientId,
                                                                   const std::string& backupId, bool readOnly) = 0;
    [[nodiscard]] virtual std::shared_ptr<CCloudBackup> CreateBackup(const guid::guid_t& clientId,
                                                                     const std::string& backupId) = 0;
    virtual void DeleteBackup(const guid::guid_t& clientId, const std::string& backupId,
                              std::shared_ptr<progress::progress_base_t> progress) = 0;
    [[nodiscard]] virtual cloudclientlib::SStorageQuota GetStorageQuota() const = 0;
    [[nodiscard]] virtual std::string Info4Log() const = 0;
    /// Removes the current client's data and, when no other client remains, the repository.
    virtual void Delete() = 0;
    [[nodiscard]] virtual unsigned long GetBackupObjectCount(const guid::guid_t& clientId,
                                                             const std::string& backupId) const = 0;
    [[nodiscard]] virtual ErrorHandling GetErrorHandling() const = 0;
};

}  // namespace cloudbackuplib::backup
