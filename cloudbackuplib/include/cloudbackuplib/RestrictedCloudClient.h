#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cloudclientlib/ICloudClient.h"
#include "common/export.h"

namespace cloudclientlib {

/// A client confined to one folder of another: every path gets the root folder in front.
///
/// It maps and never judges: no path is normalised or refused here, the wrapped client does that. The path of
/// GetObjectCount alone is handed on as it is; callers give it the full path (see ToRealPath). Results are the wrapped
/// client's own. No state beyond construction: safe from as many threads as the wrapped client. Shares ownership of
/// the wrapped client. Raises nothing of its own.
class CB_EXPORT CRestrictedCloudClient : public ICloudClient {
public:
    CRestrictedCloudClient(std::shared_ptr<ICloudClient> client, std::string root);

    /// The path as the wrapped client gets it: the root, then the path, with one "/" between unless the path brings it.
    [[nodiscard]] std::string ToRealPath(const std::string& path) const;

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

private:
    const std::shared_ptr<ICloudClient> client_;
    const std::string root_;
};

}  // namespace cloudclientlib
