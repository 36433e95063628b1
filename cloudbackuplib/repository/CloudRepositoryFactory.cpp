#include "cloudbackuplib/CloudRepositoryFactory.h"

#include <exception>

#include "cloudbackuplib/AzureConnectionSpec.h"
#include "cloudbackuplib/S3ConnectionSpec.h"
#include "common/exc.h"
#include "common/logging.h"

namespace cloudbackuplib::backup {

namespace {

/// The texts of one operation of one service.
struct SOperation {
    const char* context;
    const char* logMessage;
    const char* signature;
};

constexpr SOperation enumS3 = {"Failed to enumerate S3 repositories",
                               "Enumerating external S3 repositories. Connection spec: '%1'",
                               "static std::vector<std::__cxx11::basic_string<char> > "
                               "cloudbackuplib::backup::CCloudRepositoryFactory::EnumS3Repositories(const astr&)"};
constexpr SOperation initializeS3 = {
    "Failed to initialize S3 repository", "Creating new external S3 repository. Connection spec: '%1'",
    "static cloudbackuplib::backup::ICloudRepositoryPtr "
    "cloudbackuplib::backup::CCloudRepositoryFactory::InitializeS3Repository(const astr&)"};
constexpr SOperation openS3 = {"Failed to open S3 repository", "Opening external S3 repository. Connection spec: '%1'",
                               "static cloudbackuplib::backup::ICloudRepositoryPtr "
                               "cloudbackuplib::backup::CCloudRepositoryFactory::OpenS3Repository(const astr&)"};

// All three log the same text: operators' filters know it.
constexpr const char* azureLogMessage = "Creating new external Azure repository. Connection spec: '%1'";
constexpr SOperation enumAzure = {
    "Failed to enumerate Azure Blob Storage repositories", azureLogMessage,
    "static std::vector<std::__cxx11::basic_string<char> > "
    "cloudbackuplib::backup::CCloudRepositoryFactory::EnumAzureBlobStorageRepositories(const astr&)"};
constexpr SOperation initializeAzure = {
    "Failed to initialize Azure Blob Storage repository", azureLogMessage,
    "static cloudbackuplib::backup::ICloudRepositoryPtr "
    "cloudbackuplib::backup::CCloudRepositoryFactory::InitializeAzureBlobStorageRepository(const astr&)"};
constexpr SOperation openAzure = {
    "Failed to open Azure Blob Storage repository", azureLogMessage,
    "static cloudbackuplib::backup::ICloudRepositoryPtr "
    "cloudbackuplib::backup::CCloudRepositoryFactory::OpenAzureBlobStorageRepository(const astr&)"};

/// Checks a connection specification as far as the operation would, then reports that it is not provided.
[[noreturn]] void RefuseS3(const std::string& connectionSpec, const SOperation& operation) {
    try {
        const auto spec = platform::s3::CS3ConnectionSpec::Deserialize(connectionSpec);
        if (spec.GetRepository().type != ECloudRepoType::external) {
            throw exc::CRuntimeExc("Unsupported S3 repository type: '%1'",
                                   ECloudRepoType::ToStr(spec.GetRepository().type));
        }
        logging::Library().Info(operation.logMessage, spec.ToLogStr());
        if (!spec.GetRepository().IsSet()) {
            throw exc::CRuntimeExc("External repository params not set");
        }
        throw exc::CNotImplExc(operation.signature);
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, operation.context);
    }
}

[[noreturn]] void RefuseAzure(const std::string& connectionSpec, const SOperation& operation) {
    try {
        const auto spec = platform::azure::SAzureConnectionSpec::Deserialize(connectionSpec);
        if (spec.repositoryType != ECloudRepoType::external) {
            throw exc::CRuntimeExc("Unsupported Azure repository type: '%1'",
                                   ECloudRepoType::ToStr(spec.repositoryType));
        }
        logging::Library().Info(operation.logMessage, spec.ToLogStr());
        throw exc::CNotImplExc(operation.signature);
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, operation.context);
    }
}

/// Calls the operation of the service.
template <class Result>
Result Dispatch(ECloudService::type service, const std::string& connectionSpec, Result (*s3)(const std::string&),
                Result (*azure)(const std::string&)) {
    if (service == ECloudService::AmazonS3) {
        return s3(connectionSpec);
    }
    if (service == ECloudService::AzureBlobStorage) {
        return azure(connectionSpec);
    }
    throw exc::CRuntimeExc("Unsupported cloud service: '%1'", ECloudService::ToStr(service));
}

}  // namespace

std::vector<std::string> CCloudRepositoryFactory::EnumRepositories(ECloudService::type service,
                                                                   const std::string& connectionSpec) {
    return Dispatch(service, connectionSpec, EnumS3Repositories, EnumAzureBlobStorageRepositories);
}

ICloudRepositoryPtr CCloudRepositoryFactory::InitializeRepository(ECloudService::type service,
                                                                  const std::string& connectionSpec) {
    return Dispatch(service, connectionSpec, InitializeS3Repository, InitializeAzureBlobStorageRepository);
}

ICloudRepositoryPtr CCloudRepositoryFactory::OpenRepository(ECloudService::type service,
                                                            const std::string& connectionSpec) {
    return Dispatch(service, connectionSpec, OpenS3Repository, OpenAzureBlobStorageRepository);
}

void CCloudRepositoryFactory::DeleteRepository(ECloudService::type service, const std::string& connectionSpec) {
    OpenRepository(service, connectionSpec)->Delete();
}

std::vector<std::string> CCloudRepositoryFactory::EnumS3Repositories(const std::string& connectionSpec) {
    RefuseS3(connectionSpec, enumS3);
}

ICloudRepositoryPtr CCloudRepositoryFactory::InitializeS3Repository(const std::string& connectionSpec) {
    RefuseS3(connectionSpec, initializeS3);
}

ICloudRepositoryPtr CCloudRepositoryFactory::OpenS3Repository(const std::string& connectionSpec) {
    RefuseS3(connectionSpec, openS3);
}

std::vector<std::string> CCloudRepositoryFactory::EnumAzureBlobStorageRepositories(const std::string& connectionSpec) {
    RefuseAzure(connectionSpec, enumAzure);
}

ICloudRepositoryPtr CCloudRepositoryFactory::InitializeAzureBlobStorageRepository(const std::string& connectionSpec) {
    RefuseAzure(connectionSpec, initializeAzure);
}

ICloudRepositoryPtr CCloudRepositoryFactory::OpenAzureBlobStorageRepository(const std::string& connectionSpec) {
    RefuseAzure(connectionSpec, openAzure);
}

}  // namespace cloudbackuplib::backup
