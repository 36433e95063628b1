#include "cloudbackuplib/CloudService.h"

#include <array>
#include <cstddef>

#include "common/exc.h"

namespace cloudbackuplib::backup {

namespace {

constexpr std::array<const char*, 6> serviceTexts = {
    "OneDrive", "OneDriveForBusiness", "OneDriveGraph", "AmazonS3", "AzureBlobStorage", "AmazonEBS",
};
constexpr std::array<const char*, 2> repoTypeTexts = {"personal", "external"};

}  // namespace

std::string ECloudService::ToStr(type service) {
    const auto index = static_cast<std::size_t>(service);
    if (index >= serviceTexts.size()) {
        throw exc::CRuntimeExc("Unknown cloud service value: '%1'", static_cast<int>(service));
    }
    return serviceTexts[index];
}

ECloudService::type ECloudService::FromStr(const std::string& text) {
    for (std::size_t index = 0; index != serviceTexts.size(); ++index) {
        if (text == serviceTexts[index]) {
            return static_cast<type>(index);
        }
    }
    throw exc::CRuntimeExc("Unknown cloud service string: '%1'", text);
}

std::string ECloudRepoType::ToStr(type repoType) {
    const auto index = static_cast<std::size_t>(repoType);
    if (index >= repoTypeTexts.size()) {
        throw exc::CRuntimeExc("Unknown cloud repository type value: '%1'", static_cast<int>(repoType));
    }
    return repoTypeTexts[index];
}

}  // namespace cloudbackuplib::backup
