#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cloudclientlib/CloudRecords.h"
#include "common/cnt.h"
#include "common/digest.h"

namespace clients {

/// A caller's path in both of its forms.
struct SMemoryPath {
    SMemoryPath(const char* operationName, const std::string& path);

    std::string operation;
    /// As the caller gave it, for failures.
    std::string given;
    /// Its plain form, empty for the root.
    std::string plain;
};

/// The objects and folders of a memory client, by plain path.
///
/// Safe from any thread: one mutex, taken by every operation. Contents are immutable and shared, so that a reader keeps
/// what it read when the object is replaced. A refused operation leaves everything as it was.
class CMemoryStore {
public:
    using content_t = cnt::array_t<char>;
    using content_ptr = std::shared_ptr<const content_t>;
    using clock_t = std::function<std::chrono::system_clock::time_point()>;

    CMemoryStore(std::uint64_t quota, clock_t clock);
    CMemoryStore(const CMemoryStore& other);
    CMemoryStore& operator=(const CMemoryStore& other);
    ~CMemoryStore() = default;

    void Put(const SMemoryPath& path, content_ptr content);
    [[nodiscard]] content_ptr Read(const SMemoryPath& path) const;
    void Copy(const SMemoryPath& source, const SMemoryPath& target);
    void DeleteObject(const SMemoryPath& path);
    [[nodiscard]] std::uint64_t GetSize(const SMemoryPath& path) const;
    [[nodiscard]] bool HasObject(const SMemoryPath& path) const;

    void CreateFolder(const SMemoryPath& path);
    /// Returns how many objects were deleted.
    std::uint64_t DeleteFolder(const SMemoryPath& path);
    [[nodiscard]] bool HasFolder(const SMemoryPath& path) const;
    [[nodiscard]] std::vector<cloudclientlib::SCloudObjectInfo> List(const SMemoryPath& path) const;
    /// The number of all objects under a folder and their size.
    struct STotals {
        std::uint64_t objects = 0;
        std::uint64_t bytes = 0;
    };
    [[nodiscard]] STotals GetTotals(const SMemoryPath& path) const;

    [[nodiscard]] cloudclientlib::SStorageQuota GetQuota() const;
    void SetQuota(std::uint64_t total);

    void SetTier(const SMemoryPath& path, cloudclientlib::EStorageTier tier);
    void Retrieve(const SMemoryPath& path);
    [[nodiscard]] cloudclientlib::EArchiveRetrievalStatus GetStatus(const SMemoryPath& path) const;
    /// Every archived object in the one state goes to the other.
    void MoveRetrievals(cloudclientlib::EArchiveRetrievalStatus from, cloudclientlib::EArchiveRetrievalStatus to);

private:
    struct SEntry {
        /// Null for a folder.
        content_ptr content;
        digest::md5_digest_t md5;
        std::chrono::system_clock::time_point modified;
        cloudclientlib::EStorageTier tier = cloudclientlib::EStorageTier::standard;
        cloudclientlib::EArchiveRetrievalStatus status = cloudclientlib::EArchiveRetrievalStatus::online;
    };
    using entries_t = std::map<std::string, SEntry>;
    struct SState {
        entries_t entries;
        std::uint64_t quota = 0;
        std::uint64_t used = 0;
        std::int64_t writes = 0;
    };

    [[nodiscard]] SState CopyOfState() const;
    // With the mutex held:
    [[nodiscard]] const SEntry* FindObject(const std::string& plain) const;
    [[nodiscard]] const SEntry& GetObject(const SMemoryPath& path) const;
    [[nodiscard]] const SEntry& GetReadable(const SMemoryPath& path) const;
    void CheckPlaceForObject(const SMemoryPath& path) const;
    void CheckParents(const SMemoryPath& path) const;
    void CheckQuota(const SMemoryPath& path, std::uint64_t oldSize, std::uint64_t newSize) const;
    void CreateParents(const std::string& plain);
    void Store(const SMemoryPath& path, content_ptr content, const digest::md5_digest_t& md5);
    [[nodiscard]] std::chrono::system_clock::time_point Now();

    const clock_t clock_;
    mutable std::mutex mutex_;
    SState state_;  // guarded by mutex_
};

}  // namespace clients
