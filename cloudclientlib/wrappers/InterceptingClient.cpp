#include "cloudclientlib/wrappers/InterceptingClient.h"

#include <optional>
#include <utility>

namespace cloudclientlib {

CInterceptingClient::CInterceptingClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<IInterceptor> interceptor)
    : CForwardingClient(std::move(inner)), interceptor_(std::move(interceptor)) {}

template <class Get>
auto CInterceptingClient::Ask(EOperation operation, const std::string& path, const Get& get) {
    std::optional<decltype(get(*Inner()))> result;
    interceptor_->OnCall({.operation = operation, .path = path}, [&] { result = get(*Inner()); });
    return std::move(result).value();
}

task::task_ptr CInterceptingClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer) {
    return interceptor_->OnTask({.operation = EOperation::downloadFile, .path = path, .buffer = buffer},
                                [inner = Inner(), path, buffer] { return inner->DownloadFileAsync(path, buffer); });
}

task::task_ptr CInterceptingClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                                      unsigned long size) {
    return interceptor_->OnTask(
        {.operation = EOperation::downloadFileRange, .path = path, .buffer = buffer, .size = size},
        [inner = Inner(), path, buffer, offset, size] { return inner->DownloadFileAsync(path, buffer, offset, size); });
}

task::task_ptr CInterceptingClient::UploadFileAsync(const std::string& path, buffer_ptr data) {
    return interceptor_->OnTask({.operation = EOperation::uploadFile, .path = path, .buffer = data},
                                [inner = Inner(), path, data] { return inner->UploadFileAsync(path, data); });
}

task::task_ptr CInterceptingClient::CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) {
    return interceptor_->OnTask(
        {.operation = EOperation::copyFile, .path = sourcePath, .target = targetPath},
        [inner = Inner(), sourcePath, targetPath] { return inner->CopyFileAsync(sourcePath, targetPath); });
}

task::task_ptr CInterceptingClient::DeleteFileAsync(const std::string& path) {
    return interceptor_->OnTask({.operation = EOperation::deleteFile, .path = path},
                                [inner = Inner(), path] { return inner->DeleteFileAsync(path); });
}

std::uint64_t CInterceptingClient::GetFileSize(const std::string& path) {
    return Ask(EOperation::getFileSize, path, [&](ICloudClient& inner) { return inner.GetFileSize(path); });
}

bool CInterceptingClient::IsFileExist(const std::string& path) {
    return Ask(EOperation::isFileExist, path, [&](ICloudClient& inner) { return inner.IsFileExist(path); });
}

task::task_ptr CInterceptingClient::CreateFolderAsync(const std::string& path) {
    return interceptor_->OnTask({.operation = EOperation::createFolder, .path = path},
                                [inner = Inner(), path] { return inner->CreateFolderAsync(path); });
}

task::task_ptr CInterceptingClient::DeleteFolderAsync(const std::string& path,
                                                      std::shared_ptr<progress::progress_base_t> progress) {
    return interceptor_->OnTask({.operation = EOperation::deleteFolder, .path = path, .progress = progress},
                                [inner = Inner(), path, progress] { return inner->DeleteFolderAsync(path, progress); });
}

std::uint64_t CInterceptingClient::GetFolderSize(const std::string& path) {
    return Ask(EOperation::getFolderSize, path, [&](ICloudClient& inner) { return inner.GetFolderSize(path); });
}

bool CInterceptingClient::IsFolderExist(const std::string& path) {
    return Ask(EOperation::isFolderExist, path, [&](ICloudClient& inner) { return inner.IsFolderExist(path); });
}

std::vector<SCloudObjectInfo> CInterceptingClient::QueryFolder(const std::string& path) {
    return Ask(EOperation::queryFolder, path, [&](ICloudClient& inner) { return inner.QueryFolder(path); });
}

std::uint64_t CInterceptingClient::GetObjectCount(const std::string& path) {
    return Ask(EOperation::getObjectCount, path, [&](ICloudClient& inner) { return inner.GetObjectCount(path); });
}

SStorageQuota CInterceptingClient::GetStorageQuota() {
    return Ask(EOperation::getStorageQuota, {}, [](ICloudClient& inner) { return inner.GetStorageQuota(); });
}

std::size_t CInterceptingClient::GetConcurrentTaskLimit() {
    return Ask(EOperation::getConcurrentTaskLimit, {},
               [](ICloudClient& inner) { return inner.GetConcurrentTaskLimit(); });
}

std::shared_ptr<task::IAsyncTaskUtils> CInterceptingClient::CreateAsyncTaskUtils() {
    return Ask(EOperation::createAsyncTaskUtils, {}, [](ICloudClient& inner) { return inner.CreateAsyncTaskUtils(); });
}

std::shared_ptr<IDownloadStream> CInterceptingClient::StartDownload(const std::string& path) {
    return interceptor_->WrapDownload(
        path, Ask(EOperation::startDownload, path, [&](ICloudClient& inner) { return inner.StartDownload(path); }));
}

std::shared_ptr<IUploadStream> CInterceptingClient::StartUpload(const std::string& path, unsigned long size) {
    return interceptor_->WrapUpload(
        path, Ask(EOperation::startUpload, path, [&](ICloudClient& inner) { return inner.StartUpload(path, size); }));
}

void CInterceptingClient::RetrieveArchive(const std::string& path, const SRetrieveArchiveOptions& options) {
    interceptor_->OnCall({.operation = EOperation::retrieveArchive, .path = path},
                         [&] { Inner()->RetrieveArchive(path, options); });
}

EArchiveRetrievalStatus CInterceptingClient::GetArchiveRetrievalStatus(const std::string& path) {
    return Ask(EOperation::getArchiveRetrievalStatus, path,
               [&](ICloudClient& inner) { return inner.GetArchiveRetrievalStatus(path); });
}

}  // namespace cloudclientlib
