#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cloudclientlib/conformance/Conformance.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"

namespace cloudclientlib::conformance {

using client_ptr = std::shared_ptr<ICloudClient>;
using buffer_ptr = ICloudClient::buffer_ptr;
using bytes_t = cnt::array_t<char>;
using text_t = const std::string&;

/// What a hooked client does instead of handing an operation on; an empty hook hands it on. Asynchronous operations are
/// run at once, and what the hook throws becomes the task's failure.
struct SHooks {
    /// Applied to every path, first of all.
    std::function<std::string(text_t path)> map;
    /// Around every task.
    std::function<task::task_ptr(std::function<task::task_ptr()> start)> task;

    std::function<void(ICloudClient&, text_t path, bytes_t& buffer)> download;
    std::function<void(ICloudClient&, text_t path, bytes_t& buffer, unsigned long offset, unsigned long size)> range;
    std::function<void(ICloudClient&, text_t path, const buffer_ptr& data)> upload;
    std::function<void(ICloudClient&, text_t source, text_t target)> copy;
    std::function<void(ICloudClient&, text_t path)> deleteFile;
    std::function<std::uint64_t(ICloudClient&, text_t path)> fileSize;
    std::function<bool(ICloudClient&, text_t path)> fileExists;
    std::function<void(ICloudClient&, text_t path)> createFolder;
    std::function<void(ICloudClient&, text_t path, std::shared_ptr<progress::progress_base_t>)> deleteFolder;
    std::function<std::uint64_t(ICloudClient&, text_t path)> folderSize;
    std::function<bool(ICloudClient&, text_t path)> folderExists;
    std::function<std::vector<SCloudObjectInfo>(ICloudClient&, text_t path)> list;
    std::function<std::uint64_t(ICloudClient&, text_t path)> objectCount;
    std::function<SStorageQuota(ICloudClient&)> quota;
    std::function<std::size_t(ICloudClient&)> limit;
    std::function<std::shared_ptr<task::IAsyncTaskUtils>()> utils;
    std::function<std::shared_ptr<IDownloadStream>(client_ptr, text_t path)> startDownload;
    std::function<std::shared_ptr<IUploadStream>(client_ptr, text_t path, unsigned long size)> startUpload;
    std::function<void(ICloudClient&, text_t path)> retrieve;
    std::function<EArchiveRetrievalStatus(ICloudClient&, text_t path)> status;
};

/// A client that does wrong on purpose: for tests of the suite. As safe from many threads as its hooks.
class CHookedClient : public CForwardingClient {
public:
    CHookedClient(client_ptr inner, std::shared_ptr<const SHooks> hooks);

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
    [[nodiscard]] std::string Map(const std::string& path) const;
    /// Starts what is given, with the task hook around it.
    [[nodiscard]] task::task_ptr Start(std::function<task::task_ptr()> start) const;

    const std::shared_ptr<const SHooks> hooks_;
};

/// Streams made of functions.
class CFunctionDownload : public IDownloadStream {
public:
    using read_t = std::function<std::size_t(std::span<char>)>;
    explicit CFunctionDownload(read_t read) : read_(std::move(read)) {}
    std::size_t Read(std::span<char> buffer) override { return read_(buffer); }

private:
    const read_t read_;
};

class CFunctionUpload : public IUploadStream {
public:
    using write_t = std::function<void(std::span<const char>)>;
    using finish_t = std::function<void()>;
    CFunctionUpload(write_t write, finish_t finish) : write_(std::move(write)), finish_(std::move(finish)) {}
    void Write(std::span<const char> data) override { write_(data); }
    void Finish() override { finish_(); }

private:
    const write_t write_;
    const finish_t finish_;
};

/// A wrong client and the checks that must tell.
struct SBroken {
    /// UpperCamelCase: what it does wrong.
    std::string name;
    /// For the clients of one place.
    std::function<SHooks()> hooks;
    std::vector<std::string> caughtBy;
    /// Each client of a place has a store of its own.
    bool isForgetful = false;
};
inline void PrintTo(const SBroken& broken, std::ostream* out) { *out << broken.name; }

/// Places in memory whose clients have the hooks.
[[nodiscard]] factory_t FactoryOf(const SBroken& broken);

// What the wrong clients are made with, on the client inside.
[[nodiscard]] bytes_t Fetch(ICloudClient& client, const std::string& path);
void Put(ICloudClient& client, const std::string& path, const bytes_t& bytes);
/// The path in its plain form.
[[nodiscard]] std::string Plain(const std::string& path);
/// The paths of all objects under a folder.
[[nodiscard]] std::vector<std::string> ObjectsUnder(ICloudClient& client, const std::string& folder);
/// Throws a failure as a client would.
[[noreturn]] void Fail(const std::string& operation, const std::string& path);

// By subject.
[[nodiscard]] std::vector<SBroken> BrokenInFolders();
[[nodiscard]] std::vector<SBroken> BrokenInNames();
[[nodiscard]] std::vector<SBroken> BrokenInSize();
[[nodiscard]] std::vector<SBroken> BrokenInObjects();
[[nodiscard]] std::vector<SBroken> BrokenInReading();
[[nodiscard]] std::vector<SBroken> BrokenInStreams();
[[nodiscard]] std::vector<SBroken> BrokenInTasks();
[[nodiscard]] std::vector<SBroken> BrokenUnderConcurrency();

}  // namespace cloudclientlib::conformance
