#include "clients/directory/DirectoryClient.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "clients/directory/ErrnoFailure.h"
#include "clients/directory/FolderTree.h"
#include "clients/directory/Store.h"
#include "clients/directory/Streams.h"
#include "cloudclientlib/WorkerPool.h"

namespace clients {

using cloudclientlib::EFailure;
using cloudclientlib::SCloudObjectInfo;
using directory::CStore;
using directory::PlaceOf;
using directory::SOperation;
using directory::SPlace;
using directory::Translated;

namespace {

std::shared_ptr<CStore> OpenStore(const std::string& root, ERoot mode) {
    return Translated({"OpenRoot", root}, [&] {
        if (mode == ERoot::createMissing) {
            directory::CreateFolders(root);
        }
        return std::make_shared<CStore>(root);
    });
}

/// The root is a folder: nothing can be written or copied there.
SPlace ObjectPlaceOf(const SOperation& operation, const std::string& path) {
    auto place = PlaceOf(operation, path);
    if (place.name.empty()) {
        ThrowCloudFailure(operation, EFailure::conflict, "the root is a folder and cannot be an object");
    }
    return place;
}

void Download(const SOperation& operation, const directory::SOpenObject& object, std::uint64_t offset,
              std::uint64_t size, cnt::array_t<char>& buffer) {
    buffer.resize(size);
    if (object.file.ReadAt(offset, buffer.data(), size) != size) {
        ThrowCloudFailure(operation, EFailure::corrupt, "the object's file ended before its size");
    }
}

void Upload(CStore& store, const SPlace& place, std::span<const char> data) {
    directory::CPendingObject object(store, place);
    object.Write(data);
    object.Publish();
}

void Copy(CStore& store, const SOperation& reading, const SPlace& source, const SPlace& target) {
    const auto opened = Translated(reading, [&] { return OpenObject(store, source); });
    if (source.relative == target.relative) {
        return;
    }
    directory::CPendingObject object(store, target);
    object.CopyFrom(opened);
    object.Publish();
}

void Delete(const CStore& store, const SPlace& place) {
    if (place.name.empty()) {
        return;
    }
    const auto folder = store.GetRoot().TryOpen(place.parent, O_PATH | O_DIRECTORY);
    if (!folder || directory::LookAtPlace(folder.Get(), place.name) != directory::EPlace::object) {
        return;  // a folder is no object: there is nothing to delete
    }
    if (::unlinkat(folder.Get(), place.name.c_str(), 0) != 0 && errno != ENOENT) {
        throw posix::CPosixExc("delete", place.relative, errno);
    }
}

SCloudObjectInfo FolderInfo(const std::string& name) {
    SCloudObjectInfo info;
    info.name = name;
    info.isFolder = true;
    return info;
}

SCloudObjectInfo ObjectInfo(const std::string& name, const struct stat& stat) {
    SCloudObjectInfo info;
    info.name = name;
    info.size = static_cast<std::uint64_t>(stat.st_size);
    info.modified = std::chrono::system_clock::time_point(std::chrono::seconds(stat.st_mtim.tv_sec) +
                                                          std::chrono::nanoseconds(stat.st_mtim.tv_nsec));
    return info;
}

std::vector<SCloudObjectInfo> List(const CStore& store, const std::string& relative) {
    std::vector<SCloudObjectInfo> infos;
    const auto content = ReadFolder(store.GetRoot(), relative);
    if (!content) {
        return infos;
    }
    for (const auto& entry : content->entries) {
        if (entry.kind == directory::EEntry::folder) {
            infos.push_back(FolderInfo(entry.name));
        } else if (entry.kind == directory::EEntry::object) {
            const auto stat = directory::StatElement(content->folder.Get(), entry.name);
            if (stat && S_ISREG(stat->st_mode)) {  // else it was deleted meanwhile
                infos.push_back(ObjectInfo(entry.name, *stat));
            }
        }
    }
    std::ranges::sort(infos, {}, &SCloudObjectInfo::name);
    return infos;
}

}  // namespace

CDirectoryClient::CDirectoryClient(const std::string& root, ERoot mode, std::size_t threads)
    : store_(OpenStore(root, mode)), pool_(std::make_unique<task::CWorkerPool>(threads)) {}

CDirectoryClient::~CDirectoryClient() = default;

task::task_ptr CDirectoryClient::Submit(SOperation operation, std::function<void(CStore&)> work) {
    return pool_->Submit([store = store_, operation = std::move(operation), work = std::move(work)](std::size_t) {
        Translated(operation, [&] { work(*store); });
    });
}

task::task_ptr CDirectoryClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer) {
    const SOperation operation{"DownloadFile", path, true};
    return Submit(operation, [operation, place = PlaceOf(operation, path), buffer = std::move(buffer)](CStore& store) {
        const auto object = OpenObject(store, place);
        Download(operation, object, 0, object.size, *buffer);
    });
}

task::task_ptr CDirectoryClient::DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                                   unsigned long size) {
    const SOperation operation{"DownloadFile", path, true};
    return Submit(operation, [operation, place = PlaceOf(operation, path), buffer = std::move(buffer), offset,
                              size](CStore& store) {
        const auto object = OpenObject(store, place);
        const std::uint64_t begin = std::min<std::uint64_t>(offset, object.size);
        Download(operation, object, begin, std::min<std::uint64_t>(size, object.size - begin), *buffer);
    });
}

task::task_ptr CDirectoryClient::UploadFileAsync(const std::string& path, buffer_ptr data) {
    const SOperation operation{"UploadFile", path};
    return Submit(operation, [place = ObjectPlaceOf(operation, path), data = std::move(data)](CStore& store) {
        Upload(store, place, *data);
    });
}

task::task_ptr CDirectoryClient::CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) {
    const SOperation reading{"CopyFile", sourcePath, true};
    const SOperation writing{"CopyFile", targetPath};
    return Submit(writing,
                  [reading, source = PlaceOf(reading, sourcePath), target = ObjectPlaceOf(writing, targetPath)](
                      CStore& store) { Copy(store, reading, source, target); });
}

task::task_ptr CDirectoryClient::DeleteFileAsync(const std::string& path) {
    const SOperation operation{"DeleteFile", path};
    return Submit(operation, [place = PlaceOf(operation, path)](CStore& store) { Delete(store, place); });
}

std::uint64_t CDirectoryClient::GetFileSize(const std::string& path) {
    const SOperation operation{"GetFileSize", path, true};
    const auto place = PlaceOf(operation, path);
    return Translated(operation, [&] {
        const auto info = store_->GetRoot().Stat(place.relative);
        if (!info || !S_ISREG(info->st_mode)) {
            throw posix::CPosixExc("look at the object", place.relative, ENOENT);
        }
        return static_cast<std::uint64_t>(info->st_size);
    });
}

bool CDirectoryClient::IsFileExist(const std::string& path) {
    const SOperation operation{"IsFileExist", path};
    if (IsReserved(operation, path)) {
        return false;
    }
    return Translated(operation, [&] {
        const auto info = store_->GetRoot().Stat(PlaceOf(operation, path).relative);
        return info && S_ISREG(info->st_mode);
    });
}

task::task_ptr CDirectoryClient::CreateFolderAsync(const std::string& path) {
    const SOperation operation{"CreateFolder", path};
    return Submit(operation, [place = PlaceOf(operation, path)](CStore& store) {
        static_cast<void>(store.GetFolders().Open(place.relative));
    });
}

task::task_ptr CDirectoryClient::DeleteFolderAsync(const std::string& path,
                                                   std::shared_ptr<progress::progress_base_t> progress) {
    const SOperation operation{"DeleteFolder", path};
    return Submit(operation, [place = PlaceOf(operation, path), progress = std::move(progress)](CStore& store) {
        DeleteTree(store.GetRoot(), place.relative, progress.get());
    });
}

std::uint64_t CDirectoryClient::GetFolderSize(const std::string& path) {
    const SOperation operation{"GetFolderSize", path};
    if (IsReserved(operation, path)) {
        return 0;
    }
    return Translated(operation, [&] { return CountTree(store_->GetRoot(), PlaceOf(operation, path).relative).bytes; });
}

bool CDirectoryClient::IsFolderExist(const std::string& path) {
    const SOperation operation{"IsFolderExist", path};
    if (IsReserved(operation, path)) {
        return false;
    }
    return Translated(operation, [&] {
        const auto info = store_->GetRoot().Stat(PlaceOf(operation, path).relative);
        return info && S_ISDIR(info->st_mode);
    });
}

std::vector<SCloudObjectInfo> CDirectoryClient::QueryFolder(const std::string& path) {
    const SOperation operation{"QueryFolder", path};
    if (IsReserved(operation, path)) {
        return {};
    }
    return Translated(operation, [&] { return List(*store_, PlaceOf(operation, path).relative); });
}

std::uint64_t CDirectoryClient::GetObjectCount(const std::string& path) {
    const SOperation operation{"GetObjectCount", path};
    if (IsReserved(operation, path)) {
        return 0;
    }
    return Translated(operation,
                      [&] { return CountTree(store_->GetRoot(), PlaceOf(operation, path).relative).objects; });
}

cloudclientlib::SStorageQuota CDirectoryClient::GetStorageQuota() {
    const auto& root = store_->GetRoot();
    return Translated({"GetStorageQuota", root.GetPath()}, [&] {
        struct statvfs info {};
        if (::fstatvfs(root.GetFd(), &info) != 0) {
            throw posix::CPosixExc("ask for the space of", root.GetPath(), errno);
        }
        return cloudclientlib::SStorageQuota{info.f_blocks * info.f_frsize,
                                             (info.f_blocks - info.f_bavail) * info.f_frsize};
    });
}

std::size_t CDirectoryClient::GetConcurrentTaskLimit() { return pool_->GetLimit(); }

std::shared_ptr<task::IAsyncTaskUtils> CDirectoryClient::CreateAsyncTaskUtils() { return task::CreateTaskUtils(); }

std::shared_ptr<cloudclientlib::IDownloadStream> CDirectoryClient::StartDownload(const std::string& path) {
    const SOperation operation{"StartDownload", path, true};
    const auto place = PlaceOf(operation, path);
    return Translated(operation,
                      [&] { return std::make_shared<directory::CDownloadStream>(store_, operation, place); });
}

std::shared_ptr<cloudclientlib::IUploadStream> CDirectoryClient::StartUpload(const std::string& path,
                                                                             unsigned long size) {
    const SOperation operation{"StartUpload", path};
    const auto place = ObjectPlaceOf(operation, path);
    return Translated(operation,
                      [&] { return std::make_shared<directory::CUploadStream>(store_, operation, place, size); });
}

void CDirectoryClient::RetrieveArchive(const std::string& path,
                                       const cloudclientlib::SRetrieveArchiveOptions& /*options*/) {
    const SOperation operation{"RetrieveArchive", path, true};
    const auto place = PlaceOf(operation, path);
    Translated(operation, [&] { static_cast<void>(OpenObject(*store_, place)); });
}

cloudclientlib::EArchiveRetrievalStatus CDirectoryClient::GetArchiveRetrievalStatus(const std::string& path) {
    const SOperation operation{"GetArchiveRetrievalStatus", path, true};
    const auto place = PlaceOf(operation, path);
    Translated(operation, [&] { static_cast<void>(OpenObject(*store_, place)); });
    return cloudclientlib::EArchiveRetrievalStatus::online;
}

}  // namespace clients
