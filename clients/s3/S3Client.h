#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "clients/http/HttpEngine.h"
#include "clients/s3/Credentials.h"
#include "clients/s3/S3Connection.h"
#include "clients/s3/S3Multipart.h"
#include "cloudclientlib/ICloudClient.h"
#include "cloudclientlib/WorkerPool.h"

namespace clients {

struct SS3ClientOptions {
    s3::SBucket bucket;
    /// All keys lie below this, without "/" at its ends; empty for the whole bucket.
    std::string prefix = {};
    http::SHttpOptions http = {};
    s3::SMultipartSizes sizes = {};
    /// Says of an object's path whether it goes to the infrequent-access storage class; empty for none.
    std::function<bool(const std::string& path)> isInfrequentlyAccessed = {};
    s3::CS3Connection::clock_t clock = [] { return std::chrono::system_clock::now(); };
};

/// A client of an S3 bucket.
///
/// A flat store: an object "a" and an object "a/b" can both be there; a created folder is an empty object "folder/",
/// which no listing shows. Nothing is retried in here (see CRetryClient). Requests are signed with AWS Signature
/// Version 4, bodies carry their MD5 and SHA-256, and large objects travel in parts. The archive follows S3 Glacier. A
/// store of this protocol has no quota: none is told, nor how much is used. Safe from any thread.
class CS3Client : public cloudclientlib::ICloudClient {
public:
    CS3Client(SS3ClientOptions options, std::shared_ptr<s3::ICredentials> credentials);
    ~CS3Client() override;

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
    [[nodiscard]] s3::SPlace Place(const char* operation, const std::string& path) const;
    /// A place where an object can be: the root is refused.
    [[nodiscard]] s3::SPlace ObjectPlace(const char* operation, const std::string& path) const;
    [[nodiscard]] s3::CMultipartUpload::headers_t UploadHeaders(const std::string& path) const;

    const std::shared_ptr<const SS3ClientOptions> options_;
    const std::shared_ptr<s3::CS3Connection> connection_;
    const std::shared_ptr<task::CWorkerPool> workers_;  // after the connection: drained before it is let go
};

}  // namespace clients
