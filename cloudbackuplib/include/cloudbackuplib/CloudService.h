#pragma once

#include <string>

#include "common/export.h"

namespace cloudbackuplib::backup {

/// The cloud services that have a name; which of them can be used is the repository factory's to say.
struct CB_EXPORT ECloudService {
    enum type : int {
        OneDrive = 0,
        OneDriveForBusiness = 1,
        OneDriveGraph = 2,
        AmazonS3 = 3,
        AzureBlobStorage = 4,
        AmazonEBS = 5,
    };

    /// Throws exc::CRuntimeExc on a value that is none of these.
    [[nodiscard]] static std::string ToStr(type service);
    /// The whole text, upper and lower case as it stands; throws exc::CRuntimeExc on any other.
    [[nodiscard]] static type FromStr(const std::string& text);
};

/// Whose a repository is.
struct CB_EXPORT ECloudRepoType {
    enum type : int { personal = 0, external = 1 };

    /// Throws exc::CRuntimeExc on a value that is none of these.
    [[nodiscard]] static std::string ToStr(type repoType);
};

}  // namespace cloudbackuplib::backup
