#pragma once

#include <gmock/gmock.h>

#include "cloudclientlib/ICloudClient.h"

namespace test {

/// A cloud client whose every call a test expects by itself.
class MockCloudClient : public cloudclientlib::ICloudClient {
public:
    using progress_ptr = std::shared_ptr<progress::progress_base_t>;

    MOCK_METHOD(task::task_ptr, DownloadFileAsync, (const std::string&, buffer_ptr), (override));
    MOCK_METHOD(task::task_ptr, DownloadFileAsync, (const std::string&, buffer_ptr, unsigned long, unsigned long),
                (override));
    MOCK_METHOD(task::task_ptr, UploadFileAsync, (const std::string&, buffer_ptr), (override));
    MOCK_METHOD(task::task_ptr, CopyFileAsync, (const std::string&, const std::string&), (override));
    MOCK_METHOD(task::task_ptr, DeleteFileAsync, (const std::string&), (override));
    MOCK_METHOD(std::uint64_t, GetFileSize, (const std::string&), (override));
    MOCK_METHOD(bool, IsFileExist, (const std::string&), (override));
    MOCK_METHOD(task::task_ptr, CreateFolderAsync, (const std::string&), (override));
    MOCK_METHOD(task::task_ptr, DeleteFolderAsync, (const std::string&, progress_ptr), (override));
    MOCK_METHOD(std::uint64_t, GetFolderSize, (const std::string&), (override));
    MOCK_METHOD(bool, IsFolderExist, (const std::string&), (override));
    MOCK_METHOD(std::vector<cloudclientlib::SCloudObjectInfo>, QueryFolder, (const std::string&), (override));
    MOCK_METHOD(std::uint64_t, GetObjectCount, (const std::string&), (override));
    MOCK_METHOD(cloudclientlib::SStorageQuota, GetStorageQuota, (), (override));
    MOCK_METHOD(std::size_t, GetConcurrentTaskLimit, (), (override));
    MOCK_METHOD(std::shared_ptr<task::IAsyncTaskUtils>, CreateAsyncTaskUtils, (), (override));
    MOCK_METHOD(std::shared_ptr<cloudclientlib::IDownloadStream>, StartDownload, (const std::string&), (override));
    MOCK_METHOD(std::shared_ptr<cloudclientlib::IUploadStream>, StartUpload, (const std::string&, unsigned long),
                (override));
    MOCK_METHOD(void, RetrieveArchive, (const std::string&, const cloudclientlib::SRetrieveArchiveOptions&),
                (override));
    MOCK_METHOD(cloudclientlib::EArchiveRetrievalStatus, GetArchiveRetrievalStatus, (const std::string&), (override));
};

}  // namespace test
