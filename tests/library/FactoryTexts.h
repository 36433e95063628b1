#pragma once

#include <string>
#include <vector>

#include "cloudbackuplib/CloudRepositoryFactory.h"

/// What the tests of the repository factory share: the operations of each service with their texts.
namespace test {

using cloudbackuplib::backup::CCloudRepositoryFactory;
using cloudbackuplib::backup::ECloudService;

/// One operation of the factory: through the dispatcher, through the service's own function, and its texts.
struct SFactoryOperation {
    std::string name;
    void (*dispatched)(const std::string& spec);
    void (*direct)(const std::string& spec);
    std::string context;
    std::string logPrefix;
    std::string signature;
};

inline const std::string factory = "cloudbackuplib::backup::CCloudRepositoryFactory::";
inline const std::string enumResult = "static std::vector<std::__cxx11::basic_string<char> > ";
inline const std::string openResult = "static cloudbackuplib::backup::ICloudRepositoryPtr ";
inline const std::string azureLog = "Creating new external Azure repository. Connection spec: ";

inline std::vector<SFactoryOperation> S3Operations() {
    constexpr auto s3 = ECloudService::AmazonS3;
    return {
        {"Enum", [](const std::string& spec) { (void)CCloudRepositoryFactory::EnumRepositories(s3, spec); },
         [](const std::string& spec) { (void)CCloudRepositoryFactory::EnumS3Repositories(spec); },
         "Failed to enumerate S3 repositories", "Enumerating external S3 repositories. Connection spec: ",
         enumResult + factory + "EnumS3Repositories(const astr&)"},
        {"Initialize", [](const std::string& spec) { (void)CCloudRepositoryFactory::InitializeRepository(s3, spec); },
         [](const std::string& spec) { (void)CCloudRepositoryFactory::InitializeS3Repository(spec); },
         "Failed to initialize S3 repository", "Creating new external S3 repository. Connection spec: ",
         openResult + factory + "InitializeS3Repository(const astr&)"},
        {"Open", [](const std::string& spec) { (void)CCloudRepositoryFactory::OpenRepository(s3, spec); },
         [](const std::string& spec) { (void)CCloudRepositoryFactory::OpenS3Repository(spec); },
         "Failed to open S3 repository",
         "Opening external S3 repository. Connection spec: ", openResult + factory + "OpenS3Repository(const astr&)"},
    };
}

inline std::vector<SFactoryOperation> AzureOperations() {
    constexpr auto azure = ECloudService::AzureBlobStorage;
    return {
        {"Enum", [](const std::string& spec) { (void)CCloudRepositoryFactory::EnumRepositories(azure, spec); },
         [](const std::string& spec) { (void)CCloudRepositoryFactory::EnumAzureBlobStorageRepositories(spec); },
         "Failed to enumerate Azure Blob Storage repositories", azureLog,
         enumResult + factory + "EnumAzureBlobStorageRepositories(const astr&)"},
        {"Initialize",
         [](const std::string& spec) { (void)CCloudRepositoryFactory::InitializeRepository(azure, spec); },
         [](const std::string& spec) { (void)CCloudRepositoryFactory::InitializeAzureBlobStorageRepository(spec); },
         "Failed to initialize Azure Blob Storage repository", azureLog,
         openResult + factory + "InitializeAzureBlobStorageRepository(const astr&)"},
        {"Open", [](const std::string& spec) { (void)CCloudRepositoryFactory::OpenRepository(azure, spec); },
         [](const std::string& spec) { (void)CCloudRepositoryFactory::OpenAzureBlobStorageRepository(spec); },
         "Failed to open Azure Blob Storage repository", azureLog,
         openResult + factory + "OpenAzureBlobStorageRepository(const astr&)"},
    };
}

}  // namespace test
