#include "agent/run/OpenedRepository.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "common/exc.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

constexpr const char* clientType = "cloudbackup";
constexpr const char* defaultRepository = "cloudbackup";

/// A set is a folder's name in the store and on this machine.
void CheckSetName(const std::string& set) {
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
               c == '.';
    };
    const bool valid = !set.empty() && set.size() <= 64 && set.front() != '.' && set != "Config" &&
                       std::all_of(set.begin(), set.end(), allowed);
    if (!valid) {
        throw exc::CRuntimeExc(
            "'%1' is no name for a set: up to 64 letters, digits, '-', '_' and '.', the first no '.', and not 'Config'",
            set);
    }
}

/// The client's own id, unless the store's location says as whom it is used.
guid::guid_t IdentityOf(const SOpenedStore& store, CLocalState& state) {
    return store.identity ? store.identity->clientId : state.GetClientId();
}

backup::SCloudRepositoryInfo InfoFor(const SRepositoryOptions& options, const SOpenedStore& store,
                                     const guid::guid_t& clientId) {
    backup::SCloudRepositoryInfo info;
    info.folderName = !options.repositoryName.empty() ? options.repositoryName
                      : !store.repositoryName.empty() ? store.repositoryName
                                                      : defaultRepository;
    info.client = store.identity.value_or(backup::SCloudRepositoryClientInfo{clientId, clientType, HostName()});
    return info;
}

struct SOpened {
    std::shared_ptr<backup::ICloudRepository> repository;
    guid::guid_t clientId;
};

std::string Describe(const std::vector<backup::SCloudRepoIdentity>& clients) {
    std::string text;
    for (const auto& client : clients) {
        text += (text.empty() ? "" : ", ") + client.id.ToAStr() + " (" + client.description + ")";
    }
    return text;
}

SOpenedStore OpenExistingStore(const SRepositoryOptions& options) {
    SOpenedStore store = OpenStore(options.location, clients::ELocation::existing, options.network);
    if (options.wrapStore) {
        store.client = options.wrapStore(store.client);
    }
    return store;
}

SOpened Open(const SRepositoryOptions& options, CLocalState& state, const std::optional<guid::guid_t>& as = {}) {
    CheckSetName(options.set);
    try {
        SOpenedStore store = OpenExistingStore(options);
        const guid::guid_t own = IdentityOf(store, state);
        auto repository = backup::CCloudExternalRepository::OpenExisting(store.client, InfoFor(options, store, own));
        if (!as || *as == own) {
            return {std::move(repository), own};
        }
        const backup::SCloudRepoIdentity client = FindClient(*repository, *as);
        store.identity = {client.id, client.type, client.description};
        return {backup::CCloudExternalRepository::OpenExisting(store.client, InfoFor(options, store, *as)), *as};
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "Cannot open the repository (made by 'cloudbackup init')");
    }
}

/// This machine's client when it has written here, else the only one.
guid::guid_t ChooseClient(const std::vector<backup::SCloudRepoIdentity>& clients, const guid::guid_t& own) {
    const bool ownIsThere =
        std::any_of(clients.begin(), clients.end(), [&](const auto& client) { return client.id == own; });
    if (ownIsThere) {
        return own;
    }
    if (clients.empty()) {
        throw exc::CRuntimeExc("The repository holds no backups yet");
    }
    if (clients.size() > 1) {
        throw exc::CRuntimeExc(
            "This machine has no backups in the repository, and several clients have: name one of "
            "them with --client: %1",
            Describe(clients));
    }
    return clients.front().id;
}

}  // namespace

std::string HostName() {
    std::array<char, 256> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0) {
        return "unknown";
    }
    return name.data();
}

backup::SCloudRepoIdentity FindClient(backup::ICloudRepository& repository, const guid::guid_t& id) {
    const auto clients = repository.EnumClients();
    for (const auto& client : clients) {
        if (client.id == id) {
            return client;
        }
    }
    throw exc::CRuntimeExc("There is no client %1; there are: %2", id, Describe(clients));
}

guid::guid_t CreateRepository(const SRepositoryOptions& options) {
    CLocalState state(options.stateFolder);
    // Asked for before anything is made, and used after it: of a repository without a key nobody would be told.
    SKeyOptions keys = options.keys;
    if (!keys.noEncryption) {
        keys.password = [password = AskPassword(keys, EPasswordUse::first)](EPasswordUse) { return password; };
    }
    try {
        SOpenedStore store = OpenStore(options.location, clients::ELocation::createMissing, options.network);
        if (options.wrapStore) {
            store.client = options.wrapStore(store.client);
        }
        const guid::guid_t own = IdentityOf(store, state);
        const auto repository = backup::CCloudExternalRepository::CreateNew(store.client, InfoFor(options, store, own));
        const guid::guid_t id = repository->GetId();
        static_cast<void>(CClientKeys(*repository, own, keys, state.GetKeyMemoryPath(id, own)).LoadOrMake());
        return id;
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "Cannot make a repository");
    }
}

std::shared_ptr<backup::ICloudRepository> OpenCloudRepository(const SRepositoryOptions& options,
                                                              const std::optional<guid::guid_t>& as) {
    CLocalState state(options.stateFolder);
    return Open(options, state, as).repository;
}

COpenedRepository::COpenedRepository(std::shared_ptr<backup::ICloudRepository> repository, const guid::guid_t& clientId,
                                     const SRepositoryOptions& options, CLocalState& state)
    : repository_(std::move(repository)),
      clientId_(clientId),
      isOwnClient_(clientId == state.GetClientId()),
      set_(options.set),
      setFolder_(state.GetSetFolder(repository_->GetId(), clientId, options.set)),
      threads_(options.threads),
      keyOptions_(options.keys),
      keyMemoryPath_(state.GetKeyMemoryPath(repository_->GetId(), clientId)) {}

CClientKeys COpenedRepository::GetClientKeys() const { return {*repository_, clientId_, keyOptions_, keyMemoryPath_}; }

const key_ring_ptr& COpenedRepository::GetKeys() {
    if (!keys_) {
        keys_ = std::make_shared<const CKeyRing>(GetClientKeys().Load());
    }
    return keys_;
}

const key_ring_ptr& COpenedRepository::GetKeys4Write() {
    if (!keys_) {
        keys_ = std::make_shared<const CKeyRing>(GetClientKeys().LoadOrMake());
    }
    return keys_;
}

SSetDocument COpenedRepository::ReadDocument(std::uint64_t checkpoint, const std::string& text) {
    return RestoreDocument(text, {clientId_, set_, checkpoint}, *GetKeys());
}

std::string COpenedRepository::StoreDocument(std::uint64_t checkpoint, const SSetDocument& document) {
    return agent::StoreDocument(document, {clientId_, set_, checkpoint}, *GetKeys());
}

COpenedRepository COpenedRepository::Open4Write(const SRepositoryOptions& options) {
    CLocalState state(options.stateFolder);
    auto opened = Open(options, state);
    if (!options.client.empty() && guid::guid_t::FromStr(options.client) != opened.clientId) {
        throw CForeignClientExc("Backups are made as client %1 from here, not as client %2: leave --client away",
                                opened.clientId, options.client);
    }
    return {std::move(opened.repository), opened.clientId, options, state};
}

COpenedRepository COpenedRepository::Open4Read(const SRepositoryOptions& options) {
    CLocalState state(options.stateFolder);
    auto [repository, own] = Open(options, state);
    const guid::guid_t chosen =
        options.client.empty() ? ChooseClient(repository->EnumClients(), own) : guid::guid_t::FromStr(options.client);
    return {std::move(repository), chosen, options, state};
}

COpenedRepository COpenedRepository::Open4Upkeep(const SRepositoryOptions& options) {
    CLocalState state(options.stateFolder);
    std::optional<guid::guid_t> as;
    if (!options.client.empty()) {
        as = guid::guid_t::FromStr(options.client);
    }
    auto opened = Open(options, state, as);
    return {std::move(opened.repository), opened.clientId, options, state};
}

std::shared_ptr<backup::CCloudBackup> COpenedRepository::OpenBackup4Write() {
    try {
        // Also one that was never finished: what it uploaded is found again.
        return repository_->LoadBackup(clientId_, set_, false);
    } catch (const backup::CBackupNotFoundExc&) {
        return repository_->CreateBackup(clientId_, set_);
    }
}

std::shared_ptr<backup::CCloudBackup> COpenedRepository::FindBackup() {
    try {
        return repository_->LoadBackup(clientId_, set_, true);
    } catch (const backup::CBackupNotFoundExc&) {
        return nullptr;
    }
}

std::shared_ptr<backup::CCloudBackup> COpenedRepository::OpenBackup4Read() {
    try {
        return repository_->LoadBackup(clientId_, set_, true);
    } catch (const backup::CBackupNotFoundExc&) {
        std::string sets;
        for (const auto& item : repository_->EnumBackups(clientId_)) {
            sets += (sets.empty() ? "" : ", ") + item.GetId();
        }
        if (sets.empty() && isOwnClient_) {
            throw exc::CRuntimeExc("The repository holds no backups of this machine yet");
        }
        if (sets.empty()) {
            throw exc::CRuntimeExc("The repository holds no backups of client %1 yet", clientId_);
        }
        throw exc::CRuntimeExc("There is no set '%1'; there are: %2", set_, sets);
    }
}

}  // namespace agent
