#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cloudclientlib/ICloudClient.h"

namespace clients {

class CMemoryStore;

struct SMemoryOptions {
    std::size_t concurrentTaskLimit = 8;
    /// In bytes; a write that would take the store past it fails with kind quota and changes nothing.
    std::uint64_t quota = cloudclientlib::SStorageQuota::unlimited;
    /// Keeps a list of every call (GetCalls).
    bool recordCalls = false;
    /// When objects are written; empty for a clock that starts one second after its epoch and goes on by a second at
    /// each write.
    std::function<std::chrono::system_clock::time_point()> clock = {};
};

/// One call of a client, as the caller made it.
struct SCall {
    /// By the method's name without "Async".
    std::string operation;
    /// Empty for an operation without one.
    std::string path;
    /// The target of a copy.
    std::string target = {};

    bool operator==(const SCall&) const = default;
};

/// A client that keeps its store in memory: for tests and examples.
///
/// Deterministic: every operation runs in the caller's thread and is done when the call returns, and listings are in
/// the order of names. Folders stay until they are deleted. MD5 digests are recorded. Safe from any thread; the
/// progress of a deletion is told outside the lock. The store lives as long as one client or stream uses it. Fails as
/// the contract says, never by itself.
class CMemoryClient : public cloudclientlib::ICloudClient {
public:
    explicit CMemoryClient(SMemoryOptions options = {});

    /// Another client on the same store, with the same options; it records calls of its own.
    [[nodiscard]] std::shared_ptr<CMemoryClient> Reopen() const;
    /// A client on a copy of the whole store as it is now; afterwards the two are independent.
    [[nodiscard]] std::shared_ptr<CMemoryClient> Clone() const;
    /// Replaces the whole store (objects, folders, quota, tiers) by a copy of the other's.
    void CopyState(const CMemoryClient& source);

    void SetQuota(std::uint64_t total);
    /// Moves an object to a tier; one in the archive tier cannot be read until it is retrieved.
    void SetTier(const std::string& path, cloudclientlib::EStorageTier tier);
    /// Every retrieval in progress ends: the objects can be read.
    void FinishRetrievals();
    /// The retrieved copies are gone: the objects are archived again.
    void ExpireRetrievals();

    /// The calls so far, in order, while recordCalls is set.
    [[nodiscard]] std::vector<SCall> GetCalls() const;
    void ClearCalls();

    task::task_ptr DownloadFileAsync(const std::string& path, buffer_ptr buffer) override;
    task::task_ptr DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                     unsigned long size) override;
    task::task_ptr UploadFileAsync(const std::string& path, buffer_ptr data) override;
    task::task_ptr CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) override;
    task::task_ptr DeleteFileAsync(const std::string& path) override;
    std::uint64_t GetFileSize(const std::string& path) override;
    bool IsFileExist(const std::string& path) override;
    task::task_ptr CreateFolderAsync(const std::string& path) override;
    task::task_ptr DeleteFolderAsync(const std::string& path,
                                     std::shared_ptr<progress::progress_base_t> progress) override;
    std::uint64_t GetFolderSize(const std::string& path) override;
    bool IsFolderExist(const std::string& path) override;
    std::vector<cloudclientlib::SCloudObjectInfo> QueryFolder(const std::string& path) override;
    std::uint64_t GetObjectCount(const std::string& path) override;
    cloudclientlib::SStorageQuota GetStorageQuota() override;
    std::size_t GetConcurrentTaskLimit() override;
    std::shared_ptr<task::IAsyncTaskUtils> CreateAsyncTaskUtils() override;
    std::shared_ptr<cloudclientlib::IDownloadStream> StartDownload(const std::string& path) override;
    std::shared_ptr<cloudclientlib::IUploadStream> StartUpload(const std::string& path, unsigned long size) override;
    void RetrieveArchive(const std::string& path, const cloudclientlib::SRetrieveArchiveOptions& options) override;
    cloudclientlib::EArchiveRetrievalStatus GetArchiveRetrievalStatus(const std::string& path) override;

private:
    CMemoryClient(SMemoryOptions options, std::shared_ptr<CMemoryStore> store);
    void Record(const char* operation, const std::string& path = {}, const std::string& target = {});

    const SMemoryOptions options_;
    const std::shared_ptr<CMemoryStore> store_;
    mutable std::mutex mutex_;
    std::vector<SCall> calls_;  // guarded by mutex_
};

}  // namespace clients
