#pragma once

#include <memory>
#include <optional>
#include <string>

#include "agent/run/LocalState.h"
#include "agent/store/OpenedStore.h"
#include "cloudbackuplib/CloudExternalRepository.h"

namespace agent {

/// Where the repository is, and as whom it is used.
struct SRepositoryOptions {
    /// As OpenStore takes it.
    std::string location;
    clients::SNetworkOptions network;
    /// The repository's folder among all of the place; empty for what the location says, else "cloudbackup".
    std::string repositoryName;
    std::string set = "default";
    /// The client whose backups are read; empty for this machine's own, else the only one there is.
    std::string client;
    std::string stateFolder;
};

/// Makes a new repository, with the place for it when that is missing; returns its id.
guid::guid_t CreateRepository(const SRepositoryOptions& options);

/// An open repository, seen as one client with one set. For one thread.
class COpenedRepository {
public:
    /// For writing, as this machine's client.
    [[nodiscard]] static COpenedRepository Open4Write(const SRepositoryOptions& options);
    /// For reading, as the client that the options ask for.
    [[nodiscard]] static COpenedRepository Open4Read(const SRepositoryOptions& options);

    [[nodiscard]] const guid::guid_t& GetClientId() const { return clientId_; }
    [[nodiscard]] const std::string& GetSet() const { return set_; }
    [[nodiscard]] const std::string& GetSetFolder() const { return setFolder_; }

    /// The set's backup; made when there is none yet.
    [[nodiscard]] std::shared_ptr<cloudbackuplib::backup::CCloudBackup> OpenBackup4Write();
    /// Throws exc::CRuntimeExc that names the sets there are when this one is not among them.
    [[nodiscard]] std::shared_ptr<cloudbackuplib::backup::CCloudBackup> OpenBackup4Read();

private:
    COpenedRepository(std::shared_ptr<cloudbackuplib::backup::ICloudRepository> repository,
                      const guid::guid_t& clientId, const SRepositoryOptions& options, const CLocalState& state);

    std::shared_ptr<cloudbackuplib::backup::ICloudRepository> repository_;
    guid::guid_t clientId_;
    std::string set_;
    std::string setFolder_;
};

}  // namespace agent
