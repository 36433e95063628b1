#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/IMetaUpdateSink.h"
#include "cloudbackuplib/StgMetaCache.h"
#include "common/export.h"
#include "common/guid.h"
#include "common/stg_extent.h"

namespace cloudbackuplib::backup {

/// One working session over one checkpoint of a backup: read-only, or writable on the last checkpoint.
///
/// The host registers its storages' local metadata (PrepareStorageForAccess), takes an update sink for each storage it
/// writes (GetStorageUpdateSink), and commits (CreateCheckpoint). No lock of its own: the caller serialises calls on
/// one session, while update sinks may be called from any thread. Shares the backup, the checkpoint and the cache; what
/// is not committed when it is destroyed is lost, with a warning for each storage. Failures are exc::CRuntimeExc and
/// leave the session as it was; errors of the backup and of the cache pass through.
class CB_EXPORT CCloudBackupSession {
public:
    /// A storage's local metadata: path and version.
    struct SCachedStorageRecord {
        std::string localPath;
        unsigned long version = 0;
    };

    [[nodiscard]] static std::shared_ptr<CCloudBackupSession> StartSession(std::shared_ptr<CCloudBackup> backup,
                                                                           unsigned long checkpointId, bool readOnly);
    CCloudBackupSession(std::shared_ptr<checkpoint::CCloudCheckpoint> checkpoint, std::shared_ptr<CCloudBackup> backup,
                        bool readOnly);
    CCloudBackupSession(const CCloudBackupSession&) = delete;
    CCloudBackupSession& operator=(const CCloudBackupSession&) = delete;
    ~CCloudBackupSession();

    // Queries.

    bool FindCachedStorage(const guid::guid_t& storageId, SCachedStorageRecord& record) const;
    bool FindCloudStorage(const guid::guid_t& storageId, checkpoint::CCloudStorageDescriptor& descriptor) const;
    [[nodiscard]] const checkpoint::CCloudStorageDescriptor& GetStorageDescriptor(const guid::guid_t& storageId) const;
    [[nodiscard]] bool IsStorageExist(const guid::guid_t& storageId);
    /// In bytes.
    [[nodiscard]] unsigned long GetStorageBlockStoreSize(const guid::guid_t& storageId);
    /// Storages with changes, then the checkpoint's others, each in the order of their ids.
    [[nodiscard]] std::vector<guid::guid_t> EnumerateStorages();
    /// All checkpoints of the backup, loaded. One that cannot be read is skipped with a warning, or ends the call, as
    /// the repository's error handling says.
    [[nodiscard]] std::vector<std::shared_ptr<checkpoint::CCloudCheckpoint>> EnumCheckpoints() const;
    [[nodiscard]] std::shared_ptr<cloudclientlib::ICloudClient> GetBackupClient() const;
    [[nodiscard]] std::shared_ptr<cloudclientlib::ICloudClient> GetArchiveBlobsClient() const;
    /// The checkpoint that the session stands on.
    [[nodiscard]] std::shared_ptr<checkpoint::CCloudCheckpoint> GetCheckpoint() const { return checkpoint_; }
    [[nodiscard]] bool IsReadOnly() const { return readOnly_; }

    // Changes.

    void CheckNotReadOnly() const;
    /// The storage counts as changed from now on, and its metadata is read through the extent as long as the sink
    /// lives.
    [[nodiscard]] std::shared_ptr<IMetaUpdateSink> GetStorageUpdateSink(const guid::guid_t& storageId,
                                                                        std::shared_ptr<io::stg::IStgExtent> extent);
    void MarkStorageUpdated(const guid::guid_t& storageId, const std::string& localPath);
    void RenameStorage(const guid::guid_t& storageId, const std::string& oldPath, const std::string& newPath);
    /// From its next descriptor on the storage keeps its blocks by the "blobs" schema.
    void StorageUseLongTermBlobs(const guid::guid_t& storageId);
    /// Deletes the storage with its block store and its local metadata file; earlier checkpoints lose its blocks too.
    void DeleteStorage(const guid::guid_t& storageId);
    void DeleteCheckpoint(unsigned long checkpointId);
    void DeleteCheckpoints(std::vector<unsigned long> ids);
    /// Not supported; always throws.
    void ImportStorageMetadata(const guid::guid_t& storageId, const std::string& path);
    void ClearReleasedBlocks(const guid::guid_t& storageId, const std::vector<digest::md5_digest_t>& digests);
    void ClearOrphanedBlocks(const guid::guid_t& storageId, const std::vector<digest::md5_digest_t>& digestsInUse);

    // Commit.

    /// The storages whose local metadata differs in version from the checkpoint's.
    [[nodiscard]] std::set<guid::guid_t> EnumChangedStorages();
    /// Commits the changes as the next checkpoint, on which the session stands from then on. After a failure the
    /// session is as before and may try again. Where the checkpoint was saved and only the answer was lost, trying
    /// again fails with "Checkpoint already exists": a checkpoint is never overwritten, and the backup has to be opened
    /// anew.
    std::shared_ptr<checkpoint::CCloudCheckpoint> CreateCheckpoint(const std::string& dxrContent,
                                                                   const std::string& dxrContentLongTerm);
    /// The parts of a storage that a commit uploads: what was updated, what never skips, and always the header.
    [[nodiscard]] parts_map_t getMetapartsMapForUpload(const cache::CStgMetaCache::SMetaDataDescriptor& descriptor);
    /// Makes the local metadata file match the cloud, downloading it when version or size differ.
    void SyncLocalStorage(const guid::guid_t& storageId, std::string localPath, unsigned long localVersion);
    /// Makes a storage ready to be opened: its local metadata in line with the cloud and registered. `localVersion` is
    /// the version that the local file holds, 0 for none.
    void PrepareStorageForAccess(const guid::guid_t& storageId, const std::string& localPath,
                                 unsigned long localVersion);

private:
    /// With the cache suspended.
    [[nodiscard]] SCheckpointCreationParams CollectChanges(const std::string& dxrContent,
                                                           const std::string& dxrContentLongTerm);
    [[nodiscard]] SChangedStorage LoadChangedStorage(const guid::guid_t& storageId) const;

    std::map<guid::guid_t, checkpoint::CCloudStorageDescriptor> storages_;
    std::map<guid::guid_t, bool> longTermBlobs_;
    std::shared_ptr<checkpoint::CCloudCheckpoint> checkpoint_;
    const std::shared_ptr<CCloudBackup> backup_;
    const std::shared_ptr<cache::CStgMetaCache> cache_;
    const bool readOnly_;
};

}  // namespace cloudbackuplib::backup
