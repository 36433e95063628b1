#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudClientKeyHistory.h"
#include "cloudbackuplib/CloudClientKeyInfo.h"
#include "cloudbackuplib/ICloudRepository.h"
#include "cloudbackuplib/RestrictedCloudClient.h"
#include "common/export.h"

namespace cloudbackuplib::backup {

/// A repository in a folder of a bucket, shared by backup clients that each keep their backups in a folder of their
/// own.
///
/// Opened or made on the host's cloud clients: the primary one, through which everything is reached, and the one for
/// archived blocks. Exists only opened: description and owner are read by then. No lock: the caller serialises calls.
/// Reading another client's backups is allowed, writing only as the client that the repository was opened for.
class CB_EXPORT CCloudExternalRepository : public ICloudRepository {
public:
    using client_ptr = std::shared_ptr<cloudclientlib::ICloudClient>;
    using restricted_ptr = std::shared_ptr<cloudclientlib::CRestrictedCloudClient>;

    [[nodiscard]] static std::shared_ptr<ICloudRepository> OpenExisting(client_ptr primaryClient,
                                                                        client_ptr archiveBlobsClient,
                                                                        const SCloudRepositoryInfo& info);
    [[nodiscard]] static std::shared_ptr<ICloudRepository> OpenExisting(client_ptr client,
                                                                        const SCloudRepositoryInfo& info);
    [[nodiscard]] static std::shared_ptr<ICloudRepository> CreateNew(client_ptr primaryClient,
                                                                     client_ptr archiveBlobsClient,
                                                                     const SCloudRepositoryInfo& info);
    [[nodiscard]] static std::shared_ptr<ICloudRepository> CreateNew(client_ptr client,
                                                                     const SCloudRepositoryInfo& info);
    /// The folder names of all repositories that the client reaches. `info` is for the log.
    [[nodiscard]] static std::vector<std::string> Enumerate(client_ptr client, const SCloudRepositoryInfo& info);

    /// Both clients are restricted to the repository's folder already. Reads the owner and the description.
    CCloudExternalRepository(restricted_ptr primaryClient, restricted_ptr archiveBlobsClient,
                             const SCloudRepositoryInfo& info);

    [[nodiscard]] static std::string GetConfigFolder();
    [[nodiscard]] static std::string GetClientDataFolder();
    [[nodiscard]] static std::string GetRepoOwnerPath();
    [[nodiscard]] static std::string GetRepoDescPath();
    [[nodiscard]] static bool HasValidDescription(const std::string& folder, client_ptr client);
    [[nodiscard]] static SCloudRepositoryDescription LoadDescriptionImpl(const std::string& folder, client_ptr client);

    [[nodiscard]] guid::guid_t GetId() const override;
    [[nodiscard]] SCloudRepoIdentity GetOwner() const override;
    void SetOwner(const SCloudRepoIdentity& owner) override;
    [[nodiscard]] std::vector<SCloudRepoIdentity> EnumClients() override;
    void AddHistoricalKey(const guid::guid_t& clientId, std::shared_ptr<crypto::CKeySet> keySet) override;
    [[nodiscard]] std::vector<std::shared_ptr<crypto::CKeySet>> EnumHistoricalKeys(
        const guid::guid_t& clientId) override;
    void SetEncryptionKey(const guid::guid_t& clientId, std::shared_ptr<crypto::CKeySet> keySet,
                          std::shared_ptr<crypto::sec_bytes_t> salt) override;
    [[nodiscard]] COptionalParameter<SCloudRepoEncryptionKeyInfo> GetEncryptionKeyInfo(
        const guid::guid_t& clientId) override;
    [[nodiscard]] std::vector<CCloudBackupCollectionItem> EnumBackups(const guid::guid_t& clientId) override;
    [[nodiscard]] std::shared_ptr<CCloudBackup> LoadBackup(const guid::guid_t& clientId, const std::string& backupId,
                                                           bool readOnly) override;
    [[nodiscard]] std::shared_ptr<CCloudBackup> CreateBackup(const guid::guid_t& clientId,
                                                             const std::string& backupId) override;
    void DeleteBackup(const guid::guid_t& clientId, const std::string& backupId,
                      std::shared_ptr<progress::progress_base_t> progress) override;
    [[nodiscard]] cloudclientlib::SStorageQuota GetStorageQuota() const override;
    [[nodiscard]] std::string Info4Log() const override;
    void Delete() override;
    [[nodiscard]] unsigned long GetBackupObjectCount(const guid::guid_t& clientId,
                                                     const std::string& backupId) const override;
    [[nodiscard]] ErrorHandling GetErrorHandling() const override;

    [[nodiscard]] SCloudRepositoryDescription LoadDescription() const;
    /// Reads the owner anew; after a failure it is the one known before.
    void LoadOwner();
    [[nodiscard]] checkpoint::COwnerDescriptor GetBackupOwner() const;
    /// The explicit id, else the one of the client that the repository was opened for; throws when there is neither.
    [[nodiscard]] guid::guid_t GetEffectiveClientId(const guid::guid_t& explicitId) const;
    /// The client confined to a backup client's folder.
    [[nodiscard]] restricted_ptr GetBackupClient(const guid::guid_t& clientId) const;
    [[nodiscard]] restricted_ptr GetArchiveBlobsClient(const guid::guid_t& clientId) const;

    [[nodiscard]] SCloudRepoIdentity LoadClientInfo(const guid::guid_t& clientId) const;
    void UpdateClientInfo();
    void EnsureClientInfo(const guid::guid_t& clientId);
    [[nodiscard]] std::shared_ptr<CCloudClientKeyInfo> LoadClientKeyInfo(const guid::guid_t& clientId) const;
    void UpdateClientKeyInfo(const guid::guid_t& clientId, const CCloudClientKeyInfo& keyInfo);
    [[nodiscard]] std::shared_ptr<CCloudClientKeyHistory> LoadClientKeyHistory(const guid::guid_t& clientId) const;
    void UpdateClientKeyHistory(const guid::guid_t& clientId, const CCloudClientKeyHistory& history);
    void DeleteBackups(const guid::guid_t& clientId, client_ptr backupClient);

private:
    /// What is found in the folder of client data.
    struct SClients {
        std::vector<SCloudRepoIdentity> readable;
        std::size_t unreadableFolders = 0;
    };

    /// Empty when the repository was opened for no client.
    [[nodiscard]] guid::guid_t GetOwnClientId() const;
    [[nodiscard]] SClients ListClients() const;
    [[nodiscard]] std::size_t CountOtherClients(const guid::guid_t& clientId) const;

    const restricted_ptr primaryClient_;
    const restricted_ptr archiveBlobsClient_;
    const SCloudRepositoryInfo info_;
    SCloudRepoIdentity owner_;
    guid::guid_t id_;
};

}  // namespace cloudbackuplib::backup
