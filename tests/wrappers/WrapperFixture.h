#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "clients/memory/MemoryClient.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/Operation.h"

namespace cloudclientlib {

using bytes_t = cnt::array_t<char>;

[[nodiscard]] inline ICloudClient::buffer_ptr Share(std::string_view text = {}) {
    return std::make_shared<bytes_t>(text.begin(), text.end());
}

[[nodiscard]] inline std::string TextOf(const ICloudClient::buffer_ptr& buffer) {
    return {buffer->begin(), buffer->end()};
}

[[nodiscard]] inline std::string Read(ICloudClient& client, const std::string& path) {
    const auto buffer = Share();
    client.DownloadFileAsync(path, buffer)->Wait();
    return TextOf(buffer);
}

/// The message of the failure that the action ends with; empty when it succeeds.
[[nodiscard]] inline std::string MessageOf(const std::function<void()>& action) {
    try {
        action();
        return {};
    } catch (const exc::CExc& failure) {
        return failure.what();
    }
}

[[nodiscard]] inline std::shared_ptr<clients::CMemoryClient> RecordingStore() {
    return std::make_shared<clients::CMemoryClient>(clients::SMemoryOptions{.recordCalls = true});
}

/// One call of each operation, in the order of EOperation, on an object "a/object" of the text "0123456789". Streams
/// are read, written and finished. All of them succeed on a sound client.
struct SOneCall {
    EOperation operation;
    std::function<void(ICloudClient&)> run;
};
[[nodiscard]] inline std::vector<SOneCall> OneCallOfEach() {
    using Client = ICloudClient;
    return {
        {EOperation::downloadFile, [](Client& client) { client.DownloadFileAsync("a/object", Share())->Wait(); }},
        {EOperation::downloadFileRange,
         [](Client& client) { client.DownloadFileAsync("a/object", Share(), 2, 3)->Wait(); }},
        {EOperation::uploadFile,
         [](Client& client) { client.UploadFileAsync("a/object", Share("0123456789"))->Wait(); }},
        {EOperation::copyFile, [](Client& client) { client.CopyFileAsync("a/object", "a/copy")->Wait(); }},
        {EOperation::deleteFile, [](Client& client) { client.DeleteFileAsync("a/copy")->Wait(); }},
        {EOperation::getFileSize, [](Client& client) { client.GetFileSize("a/object"); }},
        {EOperation::isFileExist, [](Client& client) { client.IsFileExist("a/object"); }},
        {EOperation::createFolder, [](Client& client) { client.CreateFolderAsync("b")->Wait(); }},
        {EOperation::deleteFolder, [](Client& client) { client.DeleteFolderAsync("b", nullptr)->Wait(); }},
        {EOperation::getFolderSize, [](Client& client) { client.GetFolderSize("a"); }},
        {EOperation::isFolderExist, [](Client& client) { client.IsFolderExist("a"); }},
        {EOperation::queryFolder, [](Client& client) { client.QueryFolder("a"); }},
        {EOperation::getObjectCount, [](Client& client) { client.GetObjectCount("a"); }},
        {EOperation::getStorageQuota, [](Client& client) { client.GetStorageQuota(); }},
        {EOperation::getConcurrentTaskLimit, [](Client& client) { client.GetConcurrentTaskLimit(); }},
        {EOperation::createAsyncTaskUtils, [](Client& client) { client.CreateAsyncTaskUtils(); }},
        {EOperation::startDownload, [](Client& client) { client.StartDownload("a/object"); }},
        {EOperation::startUpload, [](Client& client) { client.StartUpload("a/stream", 3); }},
        {EOperation::retrieveArchive, [](Client& client) { client.RetrieveArchive("a/object", {}); }},
        {EOperation::getArchiveRetrievalStatus, [](Client& client) { client.GetArchiveRetrievalStatus("a/object"); }},
    };
}

}  // namespace cloudclientlib
