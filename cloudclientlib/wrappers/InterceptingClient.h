#pragma once

#include <functional>

#include "cloudclientlib/wrappers/ForwardingClient.h"
#include "cloudclientlib/wrappers/Operation.h"

namespace cloudclientlib {

/// One call on its way to the client inside.
struct SInterceptedCall {
    EOperation operation;
    /// Empty for an operation without one.
    std::string path = {};
    /// Of a copy.
    std::string target = {};
    /// Of a download or an upload.
    ICloudClient::buffer_ptr buffer = nullptr;
    /// Of a deleted folder; may be empty there too.
    std::shared_ptr<progress::progress_base_t> progress = nullptr;
    /// Asked for by a ranged download, in bytes.
    unsigned long size = 0;
};

/// Decides what becomes of the calls of a CInterceptingClient. Called from any thread.
class IInterceptor {
public:
    using start_t = std::function<task::task_ptr()>;
    using run_t = std::function<void()>;

    virtual ~IInterceptor() = default;
    /// An asynchronous operation; `start` begins it, now or later, and needs nothing of the caller's.
    virtual task::task_ptr OnTask(const SInterceptedCall& call, start_t start) = 0;
    /// A synchronous operation; `run` does it and is good until the return only.
    virtual void OnCall(const SInterceptedCall& call, const run_t& run) = 0;
    virtual std::shared_ptr<IDownloadStream> WrapDownload(const std::string& path,
                                                          std::shared_ptr<IDownloadStream> inner) = 0;
    virtual std::shared_ptr<IUploadStream> WrapUpload(const std::string& path,
                                                      std::shared_ptr<IUploadStream> inner) = 0;
};

/// A client that asks an interceptor about every operation before it hands it on: the base of wrappers that treat all
/// operations alike. The interceptor is shared with tasks and streams, which may outlive the client.
class CInterceptingClient : public CForwardingClient {
public:
    CInterceptingClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<IInterceptor> interceptor);

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
    /// What `get` returns, once the interceptor has let it run.
    template <class Get>
    auto Ask(EOperation operation, const std::string& path, const Get& get);

    const std::shared_ptr<IInterceptor> interceptor_;
};

}  // namespace cloudclientlib
