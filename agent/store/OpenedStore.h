#pragma once

#include <memory>
#include <optional>
#include <string>

#include "clients/registry/ClientRegistry.h"
#include "cloudbackuplib/CloudRepositoryInfo.h"

namespace agent {

/// A store, and what its location says of the repository in it.
struct SOpenedStore {
    std::shared_ptr<cloudclientlib::ICloudClient> client;
    /// Empty when the location does not say.
    std::string repositoryName;
    /// As whom the repository is used, when the location says.
    std::optional<cloudbackuplib::backup::SCloudRepositoryClientInfo> identity;
};

/// Opens a location: those of clients::OpenLocation, and "spec:FILE", a connection specification. Throws what opening
/// the store throws.
[[nodiscard]] SOpenedStore OpenStore(const std::string& location, clients::ELocation mode,
                                     const clients::SNetworkOptions& network);

/// Whether an object of a repository is a block: the bulk of the data, and read only when files are restored.
[[nodiscard]] bool IsBlockPath(const std::string& path);

}  // namespace agent
