#include "tests/conformance/HookedClient.h"

#include <utility>

#include "clients/memory/MemoryClient.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/ObjectPath.h"

namespace cloudclientlib::conformance {

CHookedClient::CHookedClient(client_ptr inner, std::shared_ptr<const SHooks> hooks)
    : CForwardingClient(std::move(inner)), hooks_(std::move(hooks)) {}

std::string CHookedClient::Map(const std::string& path) const { return hooks_->map ? hooks_->map(path) : path; }

task::task_ptr CHookedClient::Start(std::function<task::task_ptr()> start) const {
    return hooks_->task ? hooks_->task(std::move(start)) : start();
}

task::task_ptr CHookedClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer) {
    return Start([inner = Inner(), hooks = hooks_, real = Map(path), buffer] {
        return hooks->download ? task::RunNow([&] { hooks->download(*inner, real, *buffer); })
                               : inner->DownloadFileAsync(real, buffer);
    });
}

task::task_ptr CHookedClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                                unsigned long size) {
    return Start([inner = Inner(), hooks = hooks_, real = Map(path), buffer, offset, size] {
        return hooks->range ? task::RunNow([&] { hooks->range(*inner, real, *buffer, offset, size); })
                            : inner->DownloadFileAsync(real, buffer, offset, size);
    });
}

task::task_ptr CHookedClient::UploadFileAsync(const std::string& path, buffer_ptr data) {
    return Start([inner = Inner(), hooks = hooks_, real = Map(path), data] {
        return hooks->upload ? task::RunNow([&] { hooks->upload(*inner, real, data); })
                             : inner->UploadFileAsync(real, data);
    });
}

task::task_ptr CHookedClient::CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) {
    return Start([inner = Inner(), hooks = hooks_, source = Map(sourcePath), target = Map(targetPath)] {
        return hooks->copy ? task::RunNow([&] { hooks->copy(*inner, source, target); })
                           : inner->CopyFileAsync(source, target);
    });
}

task::task_ptr CHookedClient::DeleteFileAsync(const std::string& path) {
    return Start([inner = Inner(), hooks = hooks_, real = Map(path)] {
        return hooks->deleteFile ? task::RunNow([&] { hooks->deleteFile(*inner, real); })
                                 : inner->DeleteFileAsync(real);
    });
}

std::uint64_t CHookedClient::GetFileSize(const std::string& path) {
    return hooks_->fileSize ? hooks_->fileSize(*Inner(), Map(path)) : Inner()->GetFileSize(Map(path));
}

bool CHookedClient::IsFileExist(const std::string& path) {
    return hooks_->fileExists ? hooks_->fileExists(*Inner(), Map(path)) : Inner()->IsFileExist(Map(path));
}

task::task_ptr CHookedClient::CreateFolderAsync(const std::string& path) {
    return Start([inner = Inner(), hooks = hooks_, real = Map(path)] {
        return hooks->createFolder ? task::RunNow([&] { hooks->createFolder(*inner, real); })
                                   : inner->CreateFolderAsync(real);
    });
}

task::task_ptr CHookedClient::DeleteFolderAsync(const std::string& path,
                                                std::shared_ptr<progress::progress_base_t> progress) {
    return Start([inner = Inner(), hooks = hooks_, real = Map(path), progress] {
        return hooks->deleteFolder ? task::RunNow([&] { hooks->deleteFolder(*inner, real, progress); })
                                   : inner->DeleteFolderAsync(real, progress);
    });
}

std::uint64_t CHookedClient::GetFolderSize(const std::string& path) {
    return hooks_->folderSize ? hooks_->folderSize(*Inner(), Map(path)) : Inner()->GetFolderSize(Map(path));
}

bool CHookedClient::IsFolderExist(const std::string& path) {
    return hooks_->folderExists ? hooks_->folderExists(*Inner(), Map(path)) : Inner()->IsFolderExist(Map(path));
}

std::vector<SCloudObjectInfo> CHookedClient::QueryFolder(const std::string& path) {
    return hooks_->list ? hooks_->list(*Inner(), Map(path)) : Inner()->QueryFolder(Map(path));
}

std::uint64_t CHookedClient::GetObjectCount(const std::string& path) {
    return hooks_->objectCount ? hooks_->objectCount(*Inner(), Map(path)) : Inner()->GetObjectCount(Map(path));
}

SStorageQuota CHookedClient::GetStorageQuota() {
    return hooks_->quota ? hooks_->quota(*Inner()) : Inner()->GetStorageQuota();
}

std::size_t CHookedClient::GetConcurrentTaskLimit() {
    return hooks_->limit ? hooks_->limit(*Inner()) : Inner()->GetConcurrentTaskLimit();
}

std::shared_ptr<task::IAsyncTaskUtils> CHookedClient::CreateAsyncTaskUtils() {
    return hooks_->utils ? hooks_->utils() : Inner()->CreateAsyncTaskUtils();
}

std::shared_ptr<IDownloadStream> CHookedClient::StartDownload(const std::string& path) {
    return hooks_->startDownload ? hooks_->startDownload(Inner(), Map(path)) : Inner()->StartDownload(Map(path));
}

std::shared_ptr<IUploadStream> CHookedClient::StartUpload(const std::string& path, unsigned long size) {
    return hooks_->startUpload ? hooks_->startUpload(Inner(), Map(path), size) : Inner()->StartUpload(Map(path), size);
}

void CHookedClient::RetrieveArchive(const std::string& path, const SRetrieveArchiveOptions& options) {
    if (hooks_->retrieve) {
        hooks_->retrieve(*Inner(), Map(path));
    } else {
        Inner()->RetrieveArchive(Map(path), options);
    }
}

EArchiveRetrievalStatus CHookedClient::GetArchiveRetrievalStatus(const std::string& path) {
    return hooks_->status ? hooks_->status(*Inner(), Map(path)) : Inner()->GetArchiveRetrievalStatus(Map(path));
}

factory_t FactoryOf(const SBroken& broken) {
    return [broken]() -> place_t {
        const auto store = std::make_shared<clients::CMemoryClient>();
        const auto hooks = std::make_shared<const SHooks>(broken.hooks());
        return [store, hooks, isForgetful = broken.isForgetful] {
            return std::make_shared<CHookedClient>(
                isForgetful ? std::make_shared<clients::CMemoryClient>() : store->Reopen(), hooks);
        };
    };
}

bytes_t Fetch(ICloudClient& client, const std::string& path) {
    const auto buffer = std::make_shared<bytes_t>();
    client.DownloadFileAsync(path, buffer)->Wait();
    return *buffer;
}

void Put(ICloudClient& client, const std::string& path, const bytes_t& bytes) {
    client.UploadFileAsync(path, std::make_shared<bytes_t>(bytes))->Wait();
}

std::string Plain(const std::string& path) { return NormalizeObjectPath("Test", path); }

std::vector<std::string> ObjectsUnder(ICloudClient& client, const std::string& folder) {
    std::vector<std::string> objects;
    for (const auto& entry : client.QueryFolder(folder)) {
        const std::string path = folder.empty() ? entry.name : folder + '/' + entry.name;
        if (!entry.isFolder) {
            objects.push_back(path);
            continue;
        }
        for (auto& below : ObjectsUnder(client, path)) {
            objects.push_back(std::move(below));
        }
    }
    return objects;
}

void Fail(const std::string& operation, const std::string& path) {
    throw CCloudExc({EFailure::other, false, operation, path, "broken on purpose"});
}

}  // namespace cloudclientlib::conformance
