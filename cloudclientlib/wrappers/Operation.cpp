#include "cloudclientlib/wrappers/Operation.h"

#include <array>

namespace cloudclientlib {

namespace {

constexpr std::array<std::string_view, operationKinds> names{
    "DownloadFile",         "DownloadFileRange", "UploadFile",     "CopyFile",        "DeleteFile",
    "GetFileSize",          "IsFileExist",       "CreateFolder",   "DeleteFolder",    "GetFolderSize",
    "IsFolderExist",        "QueryFolder",       "GetObjectCount", "GetStorageQuota", "GetConcurrentTaskLimit",
    "CreateAsyncTaskUtils", "StartDownload",     "StartUpload",    "RetrieveArchive", "GetArchiveRetrievalStatus",
    "StreamRead",           "StreamWrite",       "StreamFinish",
};

operation_set MakeStoreOperations() {
    operation_set all;
    for (std::size_t kind = 0; kind < operationKinds; ++kind) {
        all.insert(static_cast<EOperation>(kind));
    }
    all.erase(EOperation::getConcurrentTaskLimit);
    all.erase(EOperation::createAsyncTaskUtils);
    return all;
}

}  // namespace

std::string_view ToStr(EOperation operation) { return names.at(static_cast<std::size_t>(operation)); }

std::string_view FailureName(EOperation operation) {
    return ToStr(operation == EOperation::downloadFileRange ? EOperation::downloadFile : operation);
}

const operation_set& StoreOperations() {
    static const operation_set operations = MakeStoreOperations();
    return operations;
}

const operation_set& ChangingOperations() {
    static const operation_set operations{EOperation::uploadFile,   EOperation::copyFile,     EOperation::deleteFile,
                                          EOperation::createFolder, EOperation::deleteFolder, EOperation::streamFinish};
    return operations;
}

}  // namespace cloudclientlib
