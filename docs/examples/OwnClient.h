#pragma once

#include <algorithm>
#include <map>
#include <mutex>
#include <set>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/ICloudClient.h"
#include "cloudclientlib/ObjectPath.h"

/// A host's own cloud client, as small as one can be: a flat store of keys in memory.
///
/// It keeps no folders, as most object stores do, and says so to the conformance suite (see own_client.cpp). Every
/// operation is done when its call returns; a client that reaches a network returns a task::CPromiseTask at once and
/// completes it from a thread of its own.
class COwnClient : public cloudclientlib::ICloudClient {
public:
    using content_t = cnt::array_t<char>;
    using content_ptr = std::shared_ptr<const content_t>;

    task::task_ptr DownloadFileAsync(const std::string& path, buffer_ptr buffer) override {
        return task::RunNow([&] { *buffer = *Read("DownloadFile", path); });
    }
    task::task_ptr DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                     unsigned long size) override {
        return task::RunNow([&] {
            const content_ptr content = Read("DownloadFile", path);
            const std::size_t begin = std::min<std::size_t>(offset, content->size());
            const std::size_t end = begin + std::min<std::size_t>(size, content->size() - begin);
            buffer->assign(content->data() + begin, content->data() + end);
        });
    }
    task::task_ptr UploadFileAsync(const std::string& path, buffer_ptr data) override {
        return task::RunNow([&] { Write("UploadFile", path, std::make_shared<const content_t>(*data)); });
    }
    task::task_ptr CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) override {
        return task::RunNow([&] { Write("CopyFile", targetPath, Read("CopyFile", sourcePath)); });
    }
    task::task_ptr DeleteFileAsync(const std::string& path) override {
        return task::RunNow([&] {
            const std::string key = Key("DeleteFile", path);
            const std::lock_guard lock(mutex_);
            objects_.erase(key);
        });
    }
    std::uint64_t GetFileSize(const std::string& path) override { return Read("GetFileSize", path)->size(); }
    bool IsFileExist(const std::string& path) override {
        const std::string key = Key("IsFileExist", path);
        const std::lock_guard lock(mutex_);
        return objects_.contains(key);
    }
    task::task_ptr CreateFolderAsync(const std::string& path) override {
        return task::RunNow([&] { (void)Key("CreateFolder", path); });
    }
    task::task_ptr DeleteFolderAsync(const std::string& path,
                                     std::shared_ptr<progress::progress_base_t> progress) override {
        return task::RunNow([&] {
            const auto inside = Under("DeleteFolder", path);
            std::size_t done = 0;
            for (const auto& [key, content] : inside) {
                DeleteFileAsync(key)->Wait();
                if (progress) {
                    progress->SetProgress(++done, inside.size());
                }
            }
        });
    }
    std::uint64_t GetFolderSize(const std::string& path) override {
        std::uint64_t size = 0;
        for (const auto& [key, content] : Under("GetFolderSize", path)) {
            size += content->size();
        }
        return size;
    }
    bool IsFolderExist(const std::string& path) override {
        return Key("IsFolderExist", path).empty() || !Under("IsFolderExist", path).empty();
    }
    std::vector<cloudclientlib::SCloudObjectInfo> QueryFolder(const std::string& path) override {
        const std::size_t begin = Prefix(Key("QueryFolder", path)).size();
        std::set<std::string> folders;
        std::vector<cloudclientlib::SCloudObjectInfo> found;
        for (const auto& [key, content] : Under("QueryFolder", path)) {
            const std::size_t slash = key.find('/', begin);
            if (slash == std::string::npos) {
                found.push_back({.name = key.substr(begin), .size = content->size(), .modified = {}, .md5 = {}});
            } else if (const auto [name, isNew] = folders.insert(key.substr(begin, slash - begin)); isNew) {
                found.push_back({.name = *name, .isFolder = true, .modified = {}, .md5 = {}});
            }
        }
        return found;
    }
    std::uint64_t GetObjectCount(const std::string& path) override { return Under("GetObjectCount", path).size(); }
    cloudclientlib::SStorageQuota GetStorageQuota() override { return {.used = GetFolderSize("")}; }
    std::size_t GetConcurrentTaskLimit() override { return 4; }
    std::shared_ptr<task::IAsyncTaskUtils> CreateAsyncTaskUtils() override { return task::CreateTaskUtils(); }

    std::shared_ptr<cloudclientlib::IDownloadStream> StartDownload(const std::string& path) override {
        return std::make_shared<SDownload>(Read("StartDownload", path));
    }
    std::shared_ptr<cloudclientlib::IUploadStream> StartUpload(const std::string& path, unsigned long size) override {
        return std::make_shared<SUpload>(*this, NonRootKey("StartUpload", path), size);
    }
    void RetrieveArchive(const std::string& path, const cloudclientlib::SRetrieveArchiveOptions&) override {
        throw Failure(cloudclientlib::EFailure::other, "RetrieveArchive", path, "the store has no archive");
    }
    cloudclientlib::EArchiveRetrievalStatus GetArchiveRetrievalStatus(const std::string& path) override {
        throw Failure(cloudclientlib::EFailure::other, "GetArchiveRetrievalStatus", path, "the store has no archive");
    }

private:
    struct SDownload : cloudclientlib::IDownloadStream {
        explicit SDownload(content_ptr bytes) : content(std::move(bytes)) {}
        std::size_t Read(std::span<char> buffer) override {
            const std::size_t count = std::min(buffer.size(), content->size() - position);
            std::copy_n(content->data() + position, count, buffer.data());
            position += count;
            return count;
        }
        content_ptr content;
        std::size_t position = 0;
    };

    struct SUpload : cloudclientlib::IUploadStream {
        SUpload(COwnClient& owner, std::string objectKey, std::size_t announced)
            : client(owner), key(std::move(objectKey)), size(announced) {}
        void Write(std::span<const char> data) override {
            if (data.size() > size - bytes.size()) {
                throw Failure(cloudclientlib::EFailure::other, "StartUpload", key, "more bytes than announced");
            }
            bytes.insert(bytes.end(), data.begin(), data.end());
        }
        void Finish() override {
            if (bytes.size() != size) {
                throw Failure(cloudclientlib::EFailure::other, "StartUpload", key, "fewer bytes than announced");
            }
            client.Write("StartUpload", key, std::make_shared<const content_t>(std::move(bytes)));
        }
        COwnClient& client;
        std::string key;
        std::size_t size;
        content_t bytes;
    };

    static cloudclientlib::CCloudExc Failure(cloudclientlib::EFailure kind, std::string operation, std::string path,
                                             std::string reason) {
        return cloudclientlib::CCloudExc({kind, false, std::move(operation), std::move(path), std::move(reason)});
    }
    /// Refuses what no client may take, and gives the path's plain form.
    static std::string Key(std::string_view operation, const std::string& path) {
        return cloudclientlib::NormalizeObjectPath(operation, path);
    }
    static std::string NonRootKey(std::string_view operation, const std::string& path) {
        std::string key = Key(operation, path);
        if (key.empty()) {
            throw Failure(cloudclientlib::EFailure::conflict, std::string(operation), path, "the root is a folder");
        }
        return key;
    }
    static std::string Prefix(const std::string& key) { return key.empty() ? key : key + "/"; }

    content_ptr Read(std::string_view operation, const std::string& path) const {
        const std::string key = Key(operation, path);
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(key);
        if (found == objects_.end()) {
            throw cloudclientlib::CObjectNotFoundExc(std::string(operation), path);
        }
        return found->second;
    }
    void Write(std::string_view operation, const std::string& path, content_ptr content) {
        const std::string key = NonRootKey(operation, path);
        const std::lock_guard lock(mutex_);
        objects_[key] = std::move(content);
    }
    /// A copy of all that lies under the path: cheap, for contents are shared.
    std::map<std::string, content_ptr> Under(std::string_view operation, const std::string& path) const {
        const std::string prefix = Prefix(Key(operation, path));
        const std::lock_guard lock(mutex_);
        std::map<std::string, content_ptr> inside;
        for (auto i = objects_.lower_bound(prefix); i != objects_.end() && i->first.starts_with(prefix); ++i) {
            inside.insert(*i);
        }
        return inside;
    }

    mutable std::mutex mutex_;
    std::map<std::string, content_ptr> objects_;  // guarded by mutex_
};
