#pragma once

#include "cloudclientlib/ICloudClient.h"

namespace cloudclientlib {

/// A client that hands every operation to another one: the base of wrappers, which override what they care for.
///
/// Adds nothing and fails with nothing of its own; as safe from many threads as the client inside. Shares that client
/// with its other users.
class CForwardingClient : public ICloudClient {
public:
    explicit CForwardingClient(std::shared_ptr<ICloudClient> inner);

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
    std::vector<SCloudObjectInfo> QueryFolder(const std::string& path) override;
    std::uint64_t GetObjectCount(const std::string& path) override;
    SStorageQuota GetStorageQuota() override;
    std::size_t GetConcurrentTaskLimit() override;
    std::shared_ptr<task::IAsyncTaskUtils> CreateAsyncTaskUtils() override;
    std::shared_ptr<IDownloadStream> StartDownload(const std::string& path) override;
    std::shared_ptr<IUploadStream> StartUpload(const std::string& path, unsigned long size) override;
    void RetrieveArchive(const std::string& path, const SRetrieveArchiveOptions& options) override;
    EArchiveRetrievalStatus GetArchiveRetrievalStatus(const std::string& path) override;

protected:
    [[nodiscard]] const std::shared_ptr<ICloudClient>& Inner() const { return inner_; }

private:
    const std::shared_ptr<ICloudClient> inner_;
};

}  // namespace cloudclientlib
