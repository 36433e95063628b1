#pragma once

#include <cstddef>
#include <initializer_list>
#include <set>
#include <string_view>

namespace cloudclientlib {

/// The operations of a client and of its streams, as the wrappers tell them apart.
enum class EOperation {
    downloadFile,
    downloadFileRange,
    uploadFile,
    copyFile,
    deleteFile,
    getFileSize,
    isFileExist,
    createFolder,
    deleteFolder,
    getFolderSize,
    isFolderExist,
    queryFolder,
    getObjectCount,
    getStorageQuota,
    getConcurrentTaskLimit,
    createAsyncTaskUtils,
    startDownload,
    startUpload,
    retrieveArchive,
    getArchiveRetrievalStatus,
    streamRead,
    streamWrite,
    streamFinish,
};

inline constexpr std::size_t operationKinds = 23;

/// "DownloadFile", "DownloadFileRange", ..., "StreamFinish".
[[nodiscard]] std::string_view ToStr(EOperation operation);
/// The name that a failure of the operation bears: "DownloadFile" for both downloads, else as ToStr.
[[nodiscard]] std::string_view FailureName(EOperation operation);

using operation_set = std::set<EOperation>;

/// All that reach the store: every operation but GetConcurrentTaskLimit and CreateAsyncTaskUtils.
[[nodiscard]] const operation_set& StoreOperations();
/// All that change the store: uploads, copies, deletions, created folders, and the end of a streamed upload.
[[nodiscard]] const operation_set& ChangingOperations();

}  // namespace cloudclientlib
