#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "agent/run/ClientKeys.h"
#include "agent/run/LocalState.h"
#include "agent/run/SetDocument.h"
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
    SKeyOptions keys;
    /// That compress, encrypt and check; 0 for as many as the machine runs at once.
    unsigned threads = 0;
    /// What stands between the agent and the store, if anything: for tests that fail or count its calls.
    std::function<std::shared_ptr<cloudclientlib::ICloudClient>(std::shared_ptr<cloudclientlib::ICloudClient>)>
        wrapStore;
};

/// Makes a new repository, with the place for it when that is missing, and this machine's key in it; returns its id.
guid::guid_t CreateRepository(const SRepositoryOptions& options);

/// The repository itself, for what looks across its clients. Opened as this machine's client, or as the one of its
/// clients that is given: the library writes as the client that a repository was opened for. Throws exc::CRuntimeExc
/// when there is no such client.
[[nodiscard]] std::shared_ptr<cloudbackuplib::backup::ICloudRepository> OpenCloudRepository(
    const SRepositoryOptions& options, const std::optional<guid::guid_t>& as = {});

/// This machine's name; "unknown" when the system does not tell.
[[nodiscard]] std::string HostName();

/// One of the repository's clients. Throws exc::CRuntimeExc that names those there are.
[[nodiscard]] cloudbackuplib::backup::SCloudRepoIdentity FindClient(
    cloudbackuplib::backup::ICloudRepository& repository, const guid::guid_t& id);

/// The options ask for another client than the one that can be written as from here.
class CForeignClientExc : public exc::CRuntimeExc {
public:
    using CRuntimeExc::CRuntimeExc;
};

/// An open repository, seen as one client with one set. For one thread.
class COpenedRepository {
public:
    /// For writing, as this machine's client. Throws CForeignClientExc when the options ask for another one.
    [[nodiscard]] static COpenedRepository Open4Write(const SRepositoryOptions& options);
    /// For reading, as the client that the options ask for.
    [[nodiscard]] static COpenedRepository Open4Read(const SRepositoryOptions& options);

    /// For retention, which writes and deletes also for a client whose machine is gone: as the client that the options
    /// ask for, else as this machine's.
    [[nodiscard]] static COpenedRepository Open4Upkeep(const SRepositoryOptions& options);

    [[nodiscard]] const guid::guid_t& GetClientId() const { return clientId_; }
    /// Whether it is the client of this machine's state folder, whose runs hold the set's lock here.
    [[nodiscard]] bool IsOwnClient() const { return isOwnClient_; }
    [[nodiscard]] const std::string& GetSet() const { return set_; }
    [[nodiscard]] const std::string& GetSetFolder() const { return setFolder_; }
    /// As the options have it.
    [[nodiscard]] unsigned GetThreads() const { return threads_; }

    /// The keys by which the client's data is read; asks for the password when it first needs them.
    [[nodiscard]] const key_ring_ptr& GetKeys();
    /// The same to write with: a client that has no key record yet gets one.
    [[nodiscard]] const key_ring_ptr& GetKeys4Write();
    /// A checkpoint's document from its stored text, and back.
    [[nodiscard]] SSetDocument ReadDocument(std::uint64_t checkpoint, const std::string& text);
    [[nodiscard]] std::string StoreDocument(std::uint64_t checkpoint, const SSetDocument& document);
    /// For changing keys.
    [[nodiscard]] CClientKeys GetClientKeys() const;
    [[nodiscard]] guid::guid_t GetRepositoryId() const { return repository_->GetId(); }

    /// The set's backup; made when there is none yet.
    [[nodiscard]] std::shared_ptr<cloudbackuplib::backup::CCloudBackup> OpenBackup4Write();
    /// The set's backup to read; null when there is none yet. Nothing is written.
    [[nodiscard]] std::shared_ptr<cloudbackuplib::backup::CCloudBackup> FindBackup();
    /// Throws exc::CRuntimeExc that names the sets there are when this one is not among them.
    [[nodiscard]] std::shared_ptr<cloudbackuplib::backup::CCloudBackup> OpenBackup4Read();

private:
    COpenedRepository(std::shared_ptr<cloudbackuplib::backup::ICloudRepository> repository,
                      const guid::guid_t& clientId, const SRepositoryOptions& options, CLocalState& state);

    std::shared_ptr<cloudbackuplib::backup::ICloudRepository> repository_;
    guid::guid_t clientId_;
    bool isOwnClient_;
    std::string set_;
    std::string setFolder_;
    unsigned threads_;
    SKeyOptions keyOptions_;
    std::string keyMemoryPath_;
    key_ring_ptr keys_;  // null until they are first needed
};

}  // namespace agent
