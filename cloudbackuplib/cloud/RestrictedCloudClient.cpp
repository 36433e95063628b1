#include "cloudbackuplib/RestrictedCloudClient.h"

#include <utility>

namespace cloudclientlib {

CRestrictedCloudClient::CRestrictedCloudClient(std::shared_ptr<ICloudClient> client, std::string root)
    : client_(std::move(client)), root_(std::move(root)) {}

std::string CRestrictedCloudClient::ToRealPath(const std::string& path) const {
    if (root_.empty()) {
        return path;
    }
    if (path.empty()) {
        return root_;
    }
    return path.front() == '/' ? root_ + path : root_ + "/" + path;
}

task::task_ptr CRestrictedCloudClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer) {
    return client_->DownloadFileAsync(ToRealPath(path), std::move(buffer));
}

task::task_ptr CRestrictedCloudClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer,
                                                         unsigned long offset, unsigned long size) {
    return client_->DownloadFileAsync(ToRealPath(path), std::move(buffer), offset, size);
}

task::task_ptr CRestrictedCloudClient::UploadFileAsync(const std::string& path, buffer_ptr data) {
    return client_->UploadFileAsync(ToRealPath(path), std::move(data));
}

task::task_ptr CRestrictedCloudClient::CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) {
    return client_->CopyFileAsync(ToRealPath(sourcePath), ToRealPath(targetPath));
}

task::task_ptr CRestrictedCloudClient::DeleteFileAsync(const std::string& path) {
    return client_->DeleteFileAsync(ToRealPath(path));
}

std::uint64_t CRestrictedCloudClient::GetFileSize(const std::string& path) {
    return client_->GetFileSize(ToRealPath(path));
}

bool CRestrictedCloudClient::IsFileExist(const std::string& path) { return client_->IsFileExist(ToRealPath(path)); }

task::task_ptr CRestrictedCloudClient::CreateFolderAsync(const std::string& path) {
    return client_->CreateFolderAsync(ToRealPath(path));
}

task::task_ptr CRestrictedCloudClient::DeleteFolderAsync(const std::string& path,
                                                         std::shared_ptr<progress::progress_base_t> progress) {
    return client_->DeleteFolderAsync(ToRealPath(path), std::move(progress));
}

std::uint64_t CRestrictedCloudClient::GetFolderSize(const std::string& path) {
    return client_->GetFolderSize(ToRealPath(path));
}

bool CRestrictedCloudClient::IsFolderExist(const std::string& path) { return client_->IsFolderExist(ToRealPath(path)); }

std::vector<SCloudObjectInfo> CRestrictedCloudClient::QueryFolder(const std::string& path) {
    return client_->QueryFolder(ToRealPath(path));
}

std::uint64_t CRestrictedCloudClient::GetObjectCount(const std::string& path) { return client_->GetObjectCount(path); }

SStorageQuota CRestrictedCloudClient::GetStorageQuota() { return client_->GetStorageQuota(); }

std::size_t CRestrictedCloudClient::GetConcurrentTaskLimit() { return client_->GetConcurrentTaskLimit(); }

std::shared_ptr<task::IAsyncTaskUtils> CRestrictedCloudClient::CreateAsyncTaskUtils() {
    return client_->CreateAsyncTaskUtils();
}

std::shared_ptr<IDownloadStream> CRestrictedCloudClient::StartDownload(const std::string& path) {
    return client_->StartDownload(ToRealPath(path));
}

std::shared_ptr<IUploadStream> CRestrictedCloudClient::StartUpload(const std::string& path, unsigned long size) {
    return client_->StartUpload(ToRealPath(path), size);
}

void CRestrictedCloudClient::RetrieveArchive(const std::string& path, const SRetrieveArchiveOptions& options) {
    client_->RetrieveArchive(ToRealPath(path), options);
}

EArchiveRetrievalStatus CRestrictedCloudClient::GetArchiveRetrievalStatus(const std::string& path) {
    return client_->GetArchiveRetrievalStatus(ToRealPath(path));
}

}  // namespace cloudclientlib
