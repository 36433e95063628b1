#pragma once

#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "cloudbackuplib/MetaLocationDescr.h"
#include "common/cnt.h"
#include "common/export.h"
#include "common/guid.h"
#include "common/optional.h"
#include "common/stg_extent.h"

namespace cloudbackuplib::backup::cache {

/// The register of storages whose metadata a session holds locally: where it lies, which version it is, the extent of
/// a writer that has it open, and which parts were written since the last checkpoint.
///
/// Normal, or suspended for a checkpoint: then nothing can change and the metadata can be read. Safe to call from any
/// thread: one mutex, taken by every operation, also while metadata is read. Never keeps a writer's extent alive (held
/// weakly). Throws exc::CRuntimeExc and is unchanged when an operation is refused; file and extent errors pass through.
class CB_EXPORT CStgMetaCache {
public:
    /// The layout as the writer's last report gave it. `MetaParts` of the record keeps the first report of each part;
    /// where a writer has moved or resized parts since, this one says how the metadata lies now.
    struct SReportedLayout {
        parts_map_t MetaParts;
        unsigned long HeaderSize = 0;
        /// A part was reported with another size than at first.
        bool Resized = false;
    };

    struct SCachedStorageRec {
        std::string LocalPath;
        unsigned long Version = 0;
        COptionalParameter<std::weak_ptr<io::stg::IStgExtent>> Extent;
        parts_map_t UpdatedParts;
        parts_map_t MetaParts;
        unsigned long HeaderSize = 0;
        SReportedLayout Reported;
    };

    /// What is known of a storage's parts, at one moment.
    struct SMetaDataDescriptor {
        parts_map_t UpdatedParts;
        parts_map_t MetaParts;
        unsigned long HeaderSize = 0;
    };

    CStgMetaCache();

    /// Registers a storage, or replaces its record wholesale.
    void Put(const guid::guid_t& storageId, const std::string& localPath, unsigned long version);
    /// Removes a record; one that is absent is no error.
    void Pop(const guid::guid_t& storageId);
    /// True and the two outputs filled when there is a record; else they are left alone.
    bool Find(const guid::guid_t& storageId, std::string& localPath, unsigned long& version) const;
    /// A writer's report. Of a part reported several times since the last checkpoint the first report is kept; version,
    /// extent and header size follow the last.
    void Update(const guid::guid_t& storageId, unsigned long version, std::shared_ptr<io::stg::IStgExtent> extent,
                const parts_map_t& updatedParts, const parts_map_t& metaParts, unsigned long headerSize);
    /// The storages changed since the last checkpoint, with their versions.
    [[nodiscard]] std::map<guid::guid_t, unsigned long> EnumUpdates() const;
    [[nodiscard]] SMetaDataDescriptor GetMetadataDescriptor(const guid::guid_t& storageId) const;
    [[nodiscard]] SReportedLayout GetReportedLayout(const guid::guid_t& storageId) const;
    /// Registers a storage anew under another path, in one step: no report of a writer can fall in between. With
    /// `keepUpdates` it stays changed, with its parts, and is read from the file until the writer's next report. False,
    /// and nothing done, when the storage is not registered with that version (any more).
    bool Relocate(const guid::guid_t& storageId, unsigned long version, const std::string& localPath, bool keepUpdates);

    /// The whole metadata, through the writer's extent while it lives, else from the local file. Suspended only.
    [[nodiscard]] std::shared_ptr<cnt::array_t<char>> Load(const guid::guid_t& storageId) const;
    /// Reads the bytes of every given part; returns the size of the whole metadata. Suspended only. A part that is not
    /// wholly there is refused before memory is taken for it.
    unsigned long LoadParts(const guid::guid_t& storageId, parts_map_t& parts) const;

    void SuspendForCheckpoint();
    /// `clearUpdates` starts a fresh change set.
    void Resume(bool clearUpdates);
    void CheckSuspended() const;
    void CheckNotSuspended() const;

    /// The size as 32 bits; throws when it is larger than whole metadata may be (4,294,962,176 bytes).
    static std::uint32_t CastMetadataSizeExc(unsigned long size);

private:
    [[nodiscard]] std::shared_ptr<cnt::array_t<char>> LoadFromFile(const std::string& path) const;
    [[nodiscard]] std::shared_ptr<cnt::array_t<char>> LoadFromExtent(std::shared_ptr<io::stg::IStgExtent> extent) const;
    unsigned long LoadPartsFromFile(const std::string& path, parts_map_t& parts) const;
    unsigned long LoadPartsFromExtent(std::shared_ptr<io::stg::IStgExtent> extent, parts_map_t& parts) const;

    /// Throws exc::CRuntimeExc with `notFound`, filled with the id, when there is no record.
    [[nodiscard]] const SCachedStorageRec& GetRecordLocked(const guid::guid_t& storageId,
                                                           std::string_view notFound) const;
    void CheckSuspendedLocked() const;
    void CheckNotSuspendedLocked() const;

    mutable boost::mutex Mutex;
    std::map<guid::guid_t, SCachedStorageRec> Records;  // guarded by Mutex
    bool Suspended = false;                             // guarded by Mutex
};

/// Holds a cache suspended: suspends it when made, resumes it, with the change set kept, on every way out.
class CB_EXPORT CCacheLock {
public:
    explicit CCacheLock(std::shared_ptr<CStgMetaCache> cache);
    CCacheLock(const CCacheLock&) = delete;
    CCacheLock& operator=(const CCacheLock&) = delete;
    ~CCacheLock();

private:
    std::shared_ptr<CStgMetaCache> cache_;
    bool owned_ = false;
};

}  // namespace cloudbackuplib::backup::cache
