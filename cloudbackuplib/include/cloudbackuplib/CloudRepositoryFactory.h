#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudService.h"
#include "cloudbackuplib/ICloudRepository.h"
#include "common/export.h"

namespace cloudbackuplib::backup {

using ICloudRepositoryPtr = std::shared_ptr<ICloudRepository>;

/// Opens repositories by cloud service and serialised connection specification.
///
/// In this system it checks the service and its connection specification and then reports that the operation is not
/// provided: no operation ever returns a repository. A host opens one with its own cloud client
/// (CCloudExternalRepository). Safe from any thread. Failures are exc::CRuntimeExc; those of a service carry the
/// operation's message and the cause.
class CB_EXPORT CCloudRepositoryFactory {
public:
    [[nodiscard]] static std::vector<std::string> EnumRepositories(ECloudService::type service,
                                                                   const std::string& connectionSpec);
    [[nodiscard]] static ICloudRepositoryPtr InitializeRepository(ECloudService::type service,
                                                                  const std::string& connectionSpec);
    [[nodiscard]] static ICloudRepositoryPtr OpenRepository(ECloudService::type service,
                                                            const std::string& connectionSpec);
    static void DeleteRepository(ECloudService::type service, const std::string& connectionSpec);

    [[nodiscard]] static std::vector<std::string> EnumS3Repositories(const std::string& connectionSpec);
    [[nodiscard]] static ICloudRepositoryPtr InitializeS3Repository(const std::string& connectionSpec);
    [[nodiscard]] static ICloudRepositoryPtr OpenS3Repository(const std::string& connectionSpec);
    [[nodiscard]] static std::vector<std::string> EnumAzureBlobStorageRepositories(const std::string& connectionSpec);
    [[nodiscard]] static ICloudRepositoryPtr InitializeAzureBlobStorageRepository(const std::string& connectionSpec);
    [[nodiscard]] static ICloudRepositoryPtr OpenAzureBlobStorageRepository(const std::string& connectionSpec);
};

}  // namespace cloudbackuplib::backup
