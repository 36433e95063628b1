#pragma once

#include <functional>
#include <memory>
#include <string>

#include "cloudclientlib/ICloudClient.h"

namespace task {
class CWorkerPool;
}

namespace clients {

namespace directory {
class CStore;
struct SOperation;
}  // namespace directory

/// Whether a client's root folder must be there already.
enum class ERoot { existing, createMissing };

/// A cloud client on a folder of a file system: the embedded default. Objects are files under one root folder, folders
/// are folders.
///
/// Writes. An object is written to a temp file, synced, renamed into place, and its folder synced; so are the folders
/// made for it. Whenever the process dies or the power goes, the old object or the new one is there, whole, and the new
/// one from the moment its task has succeeded. A deletion is not synced: after a loss of power the object may be back.
///
/// Confinement. Every path is resolved beneath the root by the kernel, and a symbolic link anywhere in it is refused;
/// only the root's own path may run through links. Files and folders are made for their owner alone (0600, 0700).
/// What is neither a file nor a folder does not show, and is not read, replaced or deleted as an object.
///
/// Temp files. They lie in ".cloudbackup-tmp" in the root, a name no object path may begin with and no listing shows.
/// What a crash left there is deleted when the next client opens the root; files of living clients, also in other
/// processes, are left alone. Nothing is written before the first upload: a read-only root can be opened and read.
///
/// Threads. Asynchronous operations run on the client's own threads, and GetConcurrentTaskLimit is their number; the
/// others run in the caller's thread. The destructor waits for the tasks in flight; it must not run in a task's
/// progress callback. Streams may outlive the client.
///
/// Failures are CCloudExc, translated from the system's error numbers; the system's own text stands behind the message.
class CDirectoryClient : public cloudclientlib::ICloudClient {
public:
    static constexpr std::size_t defaultThreads = 8;

    /// Throws CCloudExc when the root is missing (kind not found), is no folder, or cannot be reached, and on a system
    /// without openat2. A created root is on the device when this returns.
    explicit CDirectoryClient(const std::string& root, ERoot mode = ERoot::existing,
                              std::size_t threads = defaultThreads);
    CDirectoryClient(const CDirectoryClient&) = delete;
    CDirectoryClient& operator=(const CDirectoryClient&) = delete;
    ~CDirectoryClient() override;

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
    /// Sorted by name, bytewise.
    std::vector<cloudclientlib::SCloudObjectInfo> QueryFolder(const std::string& path) override;
    std::uint64_t GetObjectCount(const std::string& path) override;
    /// Of the file system that holds the root. What cannot be had (reserved for others) counts as used.
    cloudclientlib::SStorageQuota GetStorageQuota() override;
    std::size_t GetConcurrentTaskLimit() override;
    std::shared_ptr<task::IAsyncTaskUtils> CreateAsyncTaskUtils() override;
    std::shared_ptr<cloudclientlib::IDownloadStream> StartDownload(const std::string& path) override;
    std::shared_ptr<cloudclientlib::IUploadStream> StartUpload(const std::string& path, unsigned long size) override;
    void RetrieveArchive(const std::string& path, const cloudclientlib::SRetrieveArchiveOptions& options) override;
    /// Always online.
    cloudclientlib::EArchiveRetrievalStatus GetArchiveRetrievalStatus(const std::string& path) override;

private:
    task::task_ptr Submit(directory::SOperation operation, std::function<void(directory::CStore&)> work);

    const std::shared_ptr<directory::CStore> store_;
    const std::unique_ptr<task::CWorkerPool> pool_;  // after the store: drained before the store is let go
};

}  // namespace clients
