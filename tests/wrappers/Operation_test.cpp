#include "cloudclientlib/wrappers/Operation.h"

#include <gmock/gmock.h>

#include <string>

namespace cloudclientlib {

namespace {

TEST(Operation, NamesAreTheMethods) {
    std::string names;
    for (std::size_t kind = 0; kind < operationKinds; ++kind) {
        names += std::string(ToStr(static_cast<EOperation>(kind))) + ' ';
    }
    EXPECT_EQ(names,
              "DownloadFile DownloadFileRange UploadFile CopyFile DeleteFile GetFileSize IsFileExist CreateFolder "
              "DeleteFolder GetFolderSize IsFolderExist QueryFolder GetObjectCount GetStorageQuota "
              "GetConcurrentTaskLimit CreateAsyncTaskUtils StartDownload StartUpload RetrieveArchive "
              "GetArchiveRetrievalStatus StreamRead StreamWrite StreamFinish ");
}

TEST(Operation, BothDownloadsFailByOneName) {
    EXPECT_EQ(FailureName(EOperation::downloadFile), "DownloadFile");
    EXPECT_EQ(FailureName(EOperation::downloadFileRange), "DownloadFile");
    EXPECT_EQ(FailureName(EOperation::streamFinish), "StreamFinish");
}

TEST(Operation, StoreOperationsAreAllThatReachTheStore) {
    EXPECT_EQ(StoreOperations().size(), operationKinds - 2);
    EXPECT_FALSE(StoreOperations().contains(EOperation::getConcurrentTaskLimit));
    EXPECT_FALSE(StoreOperations().contains(EOperation::createAsyncTaskUtils));
}

TEST(Operation, ChangingOperations) {
    EXPECT_THAT(
        ChangingOperations(),
        testing::UnorderedElementsAre(EOperation::uploadFile, EOperation::copyFile, EOperation::deleteFile,
                                      EOperation::createFolder, EOperation::deleteFolder, EOperation::streamFinish));
}

}  // namespace

}  // namespace cloudclientlib
