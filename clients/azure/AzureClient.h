#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "clients/azure/Account.h"
#include "clients/azure/AzureBlocks.h"
#include "clients/azure/AzureConnection.h"
#include "clients/azure/AzureStreams.h"
#include "clients/http/HttpEngine.h"
#include "cloudclientlib/ICloudClient.h"
#include "cloudclientlib/WorkerPool.h"

namespace clients {

struct SAzureClientOptions {
    std::string container;
    /// All names lie below this, without "/" at its ends; empty for the whole container.
    std::string prefix = {};
    http::SHttpOptions http = {};
    azure::SBlockSizes sizes = {};
    /// Says of an object's path whether it goes to the cool tier; empty for none.
    std::function<bool(const std::string& path)> isInfrequentlyAccessed = {};
    azure::CAzureConnection::clock_t clock = [] { return std::chrono::system_clock::now(); };
    /// Between questions of how far a copy is, and before a range of a stream is tried again.
    azure::wait_t wait = [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); };
};

/// A client of a container of Azure Blob Storage, for block blobs in accounts with a flat namespace.
///
/// A flat store: an object "a" and an object "a/b" can both be there; a created folder is an empty object "folder/",
/// which no listing shows. Nothing is retried in here (see CRetryClient) but the ranges of a streaming download. Bodies
/// carry their MD5, the object's own is recorded with it, and reading a whole object compares it. Large objects travel
/// in blocks. An archived object is brought back by moving it to the tier it would be written to, and stays there. A
/// store of this protocol has no quota: none is told, nor how much is used. Safe from any thread.
///
/// Copies within an account are made by the service at once, as a rule. Where it takes its time it lets the target's
/// old object go first: reading the target fails, with a failure that passes, until the copy is done.
class CAzureClient : public cloudclientlib::ICloudClient {
public:
    /// Throws cloudclientlib::CCloudExc for a container's name that is none. Nothing is sent.
    CAzureClient(SAzureClientOptions options, azure::SAccount account);
    ~CAzureClient() override;

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
    [[nodiscard]] azure::SPlace Place(const char* operation, const std::string& path) const;
    /// A place where an object can be written: the root is refused.
    [[nodiscard]] azure::SPlace TargetPlace(const char* operation, const std::string& path) const;
    [[nodiscard]] bool IsCool(const std::string& path) const;
    [[nodiscard]] azure::headers_t UploadHeaders(const std::string& path) const;

    const std::shared_ptr<const SAzureClientOptions> options_;
    const std::shared_ptr<azure::CAzureConnection> connection_;
    const std::shared_ptr<task::CWorkerPool> workers_;  // after the connection: drained before it is let go
};

}  // namespace clients
