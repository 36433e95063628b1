#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cloudbackuplib/CheckpointParams.h"
#include "cloudbackuplib/CloudCheckpoint.h"
#include "cloudbackuplib/OwnerDescriptor.h"
#include "cloudclientlib/ICloudClient.h"
#include "common/digest.h"
#include "common/exc.h"
#include "common/export.h"
#include "common/guid.h"
#include "common/progress.h"

namespace cloudbackuplib::backup {

/// A backup that is not there.
class CB_EXPORT CBackupNotFoundExc : public exc::CExc {
public:
    explicit CBackupNotFoundExc(const std::string& backupId);

    [[nodiscard]] std::unique_ptr<exc::CExc> Clone() const override;
    [[noreturn]] void Generate() const override;
};

/// How a repository treats what it cannot read: fail, or skip it with a warning.
enum class ErrorHandling { fail = 0, skip = 1 };

/// Load every backup of a listing, or name them only.
enum class EnumBackupsStyle { load = 0, idsOnly = 1 };

/// Which checkpoints to list; a set of bits.
enum class CheckpointFilter : unsigned { none = 0, regular = 1, longTerm = 2, all = 3 };

class CCloudBackupCollectionItem;

/// One backup in the cloud: a folder with its checkpoints, its storages' metadata and their block stores.
///
/// No lock of its own: calls on one object are serialised by the caller. Shares its clients; several objects may stand
/// for one backup. Failures are exc::CRuntimeExc or what the cloud client throws, each with its chain of causes; an
/// operation that fails leaves every committed checkpoint as it was.
class CB_EXPORT CCloudBackup {
public:
    using client_ptr = std::shared_ptr<cloudclientlib::ICloudClient>;
    using checkpoint_ptr = std::shared_ptr<checkpoint::CCloudCheckpoint>;
    /// Takes one checkpoint of several: itself, or the failure that kept it from being read.
    using load_handler_t =
        std::function<void(unsigned long id, const checkpoint_ptr& checkpoint, const std::exception_ptr& failure)>;

    CCloudBackup(const std::string& backupId, const checkpoint::COwnerDescriptor& owner, const guid::guid_t& guid,
                 client_ptr backupClient, client_ptr archiveBlobsClient, unsigned long lastCheckpointId,
                 ErrorHandling errorHandling);

    [[nodiscard]] const std::string& GetBackupId() const { return backupId_; }
    [[nodiscard]] const checkpoint::COwnerDescriptor& GetCurrentOwner() const { return owner_; }
    [[nodiscard]] const guid::guid_t& GetGuid() const { return guid_; }
    [[nodiscard]] client_ptr GetBackupClient() const { return client_; }
    [[nodiscard]] client_ptr GetArchiveBlobsClient() const { return archiveBlobsClient_; }
    /// The largest checkpoint id known; 0 when the backup has none.
    [[nodiscard]] unsigned long GetLastCheckpointId() const { return lastCheckpointId_; }
    [[nodiscard]] ErrorHandling GetRepositoryErrorHandling() const { return errorHandling_; }

    // Lifecycle. `client` is confined to the folder that holds the backups; its empty path names that folder.

    /// Makes a new backup. One that has folders but no checkpoint was never finished and is made anew; one with a
    /// checkpoint is refused.
    [[nodiscard]] static std::shared_ptr<CCloudBackup> CreateNew(const std::string& backupId, client_ptr client,
                                                                 client_ptr archiveBlobsClient,
                                                                 const checkpoint::COwnerDescriptor& owner,
                                                                 const guid::guid_t& guid);
    /// Throws CBackupNotFoundExc when there is no such backup.
    [[nodiscard]] static std::shared_ptr<CCloudBackup> LoadExisting(const std::string& backupId, client_ptr client,
                                                                    client_ptr archiveBlobsClient,
                                                                    const checkpoint::COwnerDescriptor& owner,
                                                                    const guid::guid_t& guid,
                                                                    ErrorHandling errorHandling);
    /// All backups, in the order the client lists them. One that cannot be loaded is listed as corrupted.
    [[nodiscard]] static std::vector<CCloudBackupCollectionItem> EnumBackups(client_ptr client,
                                                                             const checkpoint::COwnerDescriptor& owner,
                                                                             const guid::guid_t& guid,
                                                                             EnumBackupsStyle style,
                                                                             ErrorHandling errorHandling);
    static void DeleteBackup(const std::string& backupId, client_ptr client,
                             std::shared_ptr<progress::progress_base_t> progress = nullptr);
    static void InitBackupFolders(const std::string& backupId, client_ptr client);
    static void PrepareBackupRootFolder(std::string& rootPath, bool& created, client_ptr client);
    /// Creates the folder if it is missing; true when it did. `kind` names the folder in the log.
    static bool CreateCloudFolder(const std::string& path, const std::string& kind, client_ptr client);

    // Checkpoints.

    /// Writes the regular copy and, when there is long-term content, the long-term one. Never overwrites.
    void SaveCheckpoint(checkpoint_ptr checkpoint);
    void SaveCheckpointImpl(checkpoint_ptr checkpoint, checkpoint::DxrContentFeature feature);
    /// Reads a checkpoint, from its long-term copy when the regular one is gone. Id 0 is the empty checkpoint.
    [[nodiscard]] checkpoint_ptr LoadCheckpoint(unsigned long id) const;
    [[nodiscard]] checkpoint_ptr LoadCheckpointImpl(unsigned long id, checkpoint::DxrContentFeature feature) const;
    /// Loads several as LoadCheckpoint does, with as many downloads in flight as the client allows, and hands each on
    /// in the order given. A failure of `take` ends the call and passes through.
    void LoadCheckpoints(const std::vector<unsigned long>& ids, const load_handler_t& take) const;
    [[nodiscard]] static std::set<unsigned long> EnumCheckpoints(const std::string& backupId, client_ptr client,
                                                                 CheckpointFilter filter);
    [[nodiscard]] std::set<unsigned long> EnumCheckpointsImpl(CheckpointFilter filter) const;
    /// The regular checkpoints; long-term copies without a regular one are removed on the way.
    [[nodiscard]] std::set<unsigned long> EnumCheckpoints();
    /// Deletes checkpoints with all that no remaining one refers to. Refuses to delete the last.
    void DeleteCheckpoints(std::vector<unsigned long> ids);
    void ClearOrphanedLongTermCheckpoints(const std::set<unsigned long>& regular,
                                          const std::set<unsigned long>& longTerm);

    // Storage metadata.

    /// Uploads the header and the other parts of one metadata version, all in flight at once.
    void UploadMetadata(const guid::guid_t& storageId, unsigned long version, const parts_map_t& parts) const;
    /// Rebuilds a local metadata file from its header and banks. After a failure the local file is empty.
    void DonwloadStorageMeta(const checkpoint::CCloudStorageDescriptor& storage, const std::string& localPath) const;
    void UpdateMetaLocationMapForCheckpoint(const SChangedStorage& changed,
                                            checkpoint::cloud_parts_map_t& cloudParts) const;
    /// Uploads the changed metadata, then saves the next checkpoint and returns it. Until its document is saved
    /// nothing refers to what was uploaded.
    checkpoint_ptr CreateCheckpoint(const SCheckpointCreationParams& params);

    // Block stores.

    [[nodiscard]] static bool BlockStoreSwitchedToArchiveBlobsStore(const checkpoint::CCloudStorageDescriptor& storage);
    /// Does nothing: callers treat archive blob stores like the others.
    void DeleteArchiveBlobStore(const guid::guid_t& storageId);
    /// In bytes.
    [[nodiscard]] unsigned long GetBlockStoreSize(const guid::guid_t& storageId) const;
    void DeleteBlockStore(const guid::guid_t& storageId);
    /// Deletes the blocks of these digests, in order; how many at once is the host's option.
    void ClearReleasedBlocks(const guid::guid_t& storageId, const std::vector<digest::md5_digest_t>& digests);
    /// Deletes every block that none of these digests names.
    void ClearOrphanedBlocks(const guid::guid_t& storageId, const std::vector<digest::md5_digest_t>& digestsInUse);

private:
    const std::string backupId_;
    const checkpoint::COwnerDescriptor owner_;
    const guid::guid_t guid_;
    const client_ptr client_;
    const client_ptr archiveBlobsClient_;
    unsigned long lastCheckpointId_;
    const ErrorHandling errorHandling_;
};

/// One entry of a listing of backups: a loaded backup, or the id of one that is not.
class CB_EXPORT CCloudBackupCollectionItem {
public:
    explicit CCloudBackupCollectionItem(const std::string& id);
    explicit CCloudBackupCollectionItem(std::shared_ptr<CCloudBackup> backup);

    [[nodiscard]] bool IsCorrupted() const { return backup_ == nullptr; }
    [[nodiscard]] const std::string& GetId() const { return id_; }
    /// Throws exc::CRuntimeExc when there is none.
    [[nodiscard]] std::shared_ptr<CCloudBackup> GetBackup() const;

private:
    std::string id_;
    std::shared_ptr<CCloudBackup> backup_;
};

/// Logs a checkpoint with its storages; `prefix` says what was done to it.
CB_EXPORT void LogCheckpoint(const std::string& prefix, std::shared_ptr<checkpoint::CCloudCheckpoint> checkpoint,
                             const std::string& backupId);

}  // namespace cloudbackuplib::backup
