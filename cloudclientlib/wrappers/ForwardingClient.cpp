#include "cloudclientlib/wrappers/ForwardingClient.h"

#include <utility>

namespace cloudclientlib {

CForwardingClient::CForwardingClient(std::shared_ptr<ICloudClient> inner) : inner_(std::move(inner)) {}

task::task_ptr CForwardingClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer) {
    return inner_->DownloadFileAsync(path, std::move(buffer));
}

task::task_ptr CForwardingClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                                    unsigned long size) {
    return inner_->DownloadFileAsync(path, std::move(buffer), offset, size);
}

task::task_ptr CForwardingClient::UploadFileAsync(const std::string& path, buffer_ptr data) {
    return inner_->UploadFileAsync(path, std::move(data));
}

task::task_ptr CForwardingClient::CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) {
    return inner_->CopyFileAsync(sourcePath, targetPath);
}

task::task_ptr CForwardingClient::DeleteFileAsync(const std::string& path) { return inner_->DeleteFileAsync(path); }

std::uint64_t CForwardingClient::GetFileSize(const std::string& path) { return inner_->GetFileSize(path); }

bool CForwardingClient::IsFileExist(const std::string& path) { return inner_->IsFileExist(path); }

task::task_ptr CForwardingClient::CreateFolderAsync(const std::string& path) { return inner_->CreateFolderAsync(path); }

task::task_ptr CForwardingClient::DeleteFolderAsync(const std::string& path,
                                                    std::shared_ptr<progress::progress_base_t> progress) {
    return inner_->DeleteFolderAsync(path, std::move(progress));
}

std::uint64_t CForwardingClient::GetFolderSize(const std::string& path) { return inner_->GetFolderSize(path); }

bool CForwardingClient::IsFolderExist(const std::string& path) { return inner_->IsFolderExist(path); }

std::vector<SCloudObjectInfo> CForwardingClient::QueryFolder(const std::string& path) {
    return inner_->QueryFolder(path);
}

std::uint64_t CForwardingClient::GetObjectCount(const std::string& path) { return inner_->GetObjectCount(path); }

SStorageQuota CForwardingClient::GetStorageQuota() { return inner_->GetStorageQuota(); }

std::size_t CForwardingClient::GetConcurrentTaskLimit() { return inner_->GetConcurrentTaskLimit(); }

std::shared_ptr<task::IAsyncTaskUtils> CForwardingClient::CreateAsyncTaskUtils() {
    return inner_->CreateAsyncTaskUtils();
}

std::shared_ptr<IDownloadStream> CForwardingClient::StartDownload(const std::string& path) {
    return inner_->StartDownload(path);
}

std::shared_ptr<IUploadStream> CForwardingClient::StartUpload(const std::string& path, unsigned long size) {
    return inner_->StartUpload(path, size);
}

void CForwardingClient::RetrieveArchive(const std::string& path, const SRetrieveArchiveOptions& options) {
    inner_->RetrieveArchive(path, options);
}

EArchiveRetrievalStatus CForwardingClient::GetArchiveRetrievalStatus(const std::string& path) {
    return inner_->GetArchiveRetrievalStatus(path);
}

}  // namespace cloudclientlib
