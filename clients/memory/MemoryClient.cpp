#include "clients/memory/MemoryClient.h"

#include <algorithm>

#include "clients/memory/MemoryStore.h"
#include "clients/memory/MemoryStreams.h"

using cloudclientlib::EArchiveRetrievalStatus;

namespace clients {

namespace {

void ReadRange(const CMemoryStore::content_t& content, unsigned long offset, unsigned long size,
               cnt::array_t<char>& buffer) {
    const std::size_t begin = std::min<std::size_t>(offset, content.size());
    const std::size_t count = std::min<std::size_t>(size, content.size() - begin);
    const char* const first = content.data() + begin;
    buffer.assign(first, first + count);
}

}  // namespace

CMemoryClient::CMemoryClient(SMemoryOptions options)
    : options_(std::move(options)), store_(std::make_shared<CMemoryStore>(options_.quota, options_.clock)) {}

CMemoryClient::CMemoryClient(SMemoryOptions options, std::shared_ptr<CMemoryStore> store)
    : options_(std::move(options)), store_(std::move(store)) {}

std::shared_ptr<CMemoryClient> CMemoryClient::Reopen() const {
    return std::shared_ptr<CMemoryClient>(new CMemoryClient(options_, store_));
}

std::shared_ptr<CMemoryClient> CMemoryClient::Clone() const {
    return std::shared_ptr<CMemoryClient>(new CMemoryClient(options_, std::make_shared<CMemoryStore>(*store_)));
}

void CMemoryClient::CopyState(const CMemoryClient& source) { *store_ = *source.store_; }

void CMemoryClient::SetQuota(std::uint64_t total) { store_->SetQuota(total); }

void CMemoryClient::SetTier(const std::string& path, cloudclientlib::EStorageTier tier) {
    store_->SetTier({"SetTier", path}, tier);
}

void CMemoryClient::FinishRetrievals() {
    store_->MoveRetrievals(EArchiveRetrievalStatus::inProgress, EArchiveRetrievalStatus::retrieved);
}

void CMemoryClient::ExpireRetrievals() {
    store_->MoveRetrievals(EArchiveRetrievalStatus::retrieved, EArchiveRetrievalStatus::archived);
}

std::vector<SCall> CMemoryClient::GetCalls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

void CMemoryClient::ClearCalls() {
    const std::lock_guard lock(mutex_);
    calls_.clear();
}

void CMemoryClient::Record(const char* operation, const std::string& path, const std::string& target) {
    if (options_.recordCalls) {
        const std::lock_guard lock(mutex_);
        calls_.push_back({operation, path, target});
    }
}

task::task_ptr CMemoryClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer) {
    Record("DownloadFile", path);
    return task::RunNow([&] { *buffer = *store_->Read({"DownloadFile", path}); });
}

task::task_ptr CMemoryClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                                unsigned long size) {
    Record("DownloadFile", path);
    return task::RunNow([&] { ReadRange(*store_->Read({"DownloadFile", path}), offset, size, *buffer); });
}

task::task_ptr CMemoryClient::UploadFileAsync(const std::string& path, buffer_ptr data) {
    Record("UploadFile", path);
    return task::RunNow([&] {
        store_->Put({"UploadFile", path}, std::make_shared<const CMemoryStore::content_t>(*data));
    });
}

task::task_ptr CMemoryClient::CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) {
    Record("CopyFile", sourcePath, targetPath);
    return task::RunNow([&] { store_->Copy({"CopyFile", sourcePath}, {"CopyFile", targetPath}); });
}

task::task_ptr CMemoryClient::DeleteFileAsync(const std::string& path) {
    Record("DeleteFile", path);
    return task::RunNow([&] { store_->DeleteObject({"DeleteFile", path}); });
}

std::uint64_t CMemoryClient::GetFileSize(const std::string& path) {
    Record("GetFileSize", path);
    return store_->GetSize({"GetFileSize", path});
}

bool CMemoryClient::IsFileExist(const std::string& path) {
    Record("IsFileExist", path);
    return store_->HasObject({"IsFileExist", path});
}

task::task_ptr CMemoryClient::CreateFolderAsync(const std::string& path) {
    Record("CreateFolder", path);
    return task::RunNow([&] { store_->CreateFolder({"CreateFolder", path}); });
}

task::task_ptr CMemoryClient::DeleteFolderAsync(const std::string& path,
                                                std::shared_ptr<progress::progress_base_t> progress) {
    Record("DeleteFolder", path);
    return task::RunNow([&] {
        const std::uint64_t count = store_->DeleteFolder({"DeleteFolder", path});
        for (std::uint64_t done = 1; progress && done <= count; ++done) {
            progress->SetProgress(done, count);
        }
    });
}

std::uint64_t CMemoryClient::GetFolderSize(const std::string& path) {
    Record("GetFolderSize", path);
    return store_->GetTotals({"GetFolderSize", path}).bytes;
}

bool CMemoryClient::IsFolderExist(const std::string& path) {
    Record("IsFolderExist", path);
    return store_->HasFolder({"IsFolderExist", path});
}

std::vector<cloudclientlib::SCloudObjectInfo> CMemoryClient::QueryFolder(const std::string& path) {
    Record("QueryFolder", path);
    return store_->List({"QueryFolder", path});
}

std::uint64_t CMemoryClient::GetObjectCount(const std::string& path) {
    Record("GetObjectCount", path);
    return store_->GetTotals({"GetObjectCount", path}).objects;
}

cloudclientlib::SStorageQuota CMemoryClient::GetStorageQuota() {
    Record("GetStorageQuota");
    return store_->GetQuota();
}

std::size_t CMemoryClient::GetConcurrentTaskLimit() {
    Record("GetConcurrentTaskLimit");
    return std::max<std::size_t>(options_.concurrentTaskLimit, 1);
}

std::shared_ptr<task::IAsyncTaskUtils> CMemoryClient::CreateAsyncTaskUtils() {
    Record("CreateAsyncTaskUtils");
    return task::CreateTaskUtils();
}

std::shared_ptr<cloudclientlib::IDownloadStream> CMemoryClient::StartDownload(const std::string& path) {
    Record("StartDownload", path);
    return std::make_shared<CMemoryDownload>(store_->Read({"StartDownload", path}));
}

std::shared_ptr<cloudclientlib::IUploadStream> CMemoryClient::StartUpload(const std::string& path, unsigned long size) {
    Record("StartUpload", path);
    return std::make_shared<CMemoryUpload>(store_, SMemoryPath("StartUpload", path), size);
}

void CMemoryClient::RetrieveArchive(const std::string& path, const cloudclientlib::SRetrieveArchiveOptions&) {
    Record("RetrieveArchive", path);
    store_->Retrieve({"RetrieveArchive", path});
}

EArchiveRetrievalStatus CMemoryClient::GetArchiveRetrievalStatus(const std::string& path) {
    Record("GetArchiveRetrievalStatus", path);
    return store_->GetStatus({"GetArchiveRetrievalStatus", path});
}

}  // namespace clients
