#include "agent/run/Ownership.h"

#include <algorithm>

#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

guid::guid_t OwnClientId(const SRepositoryOptions& options) { return CLocalState(options.stateFolder).GetClientId(); }

SSetSummary Summarize(const backup::CCloudBackupCollectionItem& item) {
    SSetSummary set;
    set.name = item.GetId();
    set.isDamaged = item.IsCorrupted();
    if (set.isDamaged) {
        return set;
    }
    const auto cloudBackup = item.GetBackup();
    const std::string folder = backup::paths::GetCheckpointFolder(set.name);
    for (const auto& entry : cloudBackup->GetBackupClient()->QueryFolder(folder)) {
        const std::uint64_t id = util::str_to_uint64(entry.name);
        ++set.checkpoints;
        if (id > set.lastCheckpoint) {
            set.lastCheckpoint = id;
            set.lastTime = entry.modified;
        }
    }
    return set;
}

SClientSummary Summarize(backup::ICloudRepository& repository, const SCloudRepoIdentity& identity,
                         const guid::guid_t& own) {
    SClientSummary client{identity, identity.id == own, {}};
    for (const auto& item : repository.EnumBackups(identity.id)) {
        client.sets.push_back(Summarize(item));
    }
    return client;
}

std::uint64_t CountObjects(const backup::ICloudRepository& repository, const SClientSummary& client) {
    std::uint64_t count = 0;
    for (const auto& set : client.sets) {
        count += repository.GetBackupObjectCount(client.identity.id, set.name);
    }
    return count;
}

/// Whose set is meant: the client that the options name, else the one that the repository was opened for.
guid::guid_t ClientOfSet(const SRepositoryOptions& options, const backup::ICloudRepository& repository) {
    return options.client.empty()
               ? dynamic_cast<const backup::CCloudExternalRepository&>(repository).GetEffectiveClientId({})
               : guid::guid_t::FromStr(options.client);
}

}  // namespace

std::vector<SClientSummary> ListClients(const SRepositoryOptions& options) {
    const guid::guid_t own = OwnClientId(options);
    const auto repository = OpenCloudRepository(options);
    std::vector<SClientSummary> clients;
    for (const auto& identity : repository->EnumClients()) {
        clients.push_back(Summarize(*repository, identity, own));
    }
    return clients;
}

SCloudRepoIdentity GetOwner(const SRepositoryOptions& options) { return OpenCloudRepository(options)->GetOwner(); }

void SetOwner(const SRepositoryOptions& options, const SCloudRepoIdentity& owner) {
    OpenCloudRepository(options)->SetOwner(owner);
}

std::vector<SRepositorySummary> ListRepositories(const SRepositoryOptions& options) {
    auto client = OpenStore(options.location, clients::ELocation::existing, options.network).client;
    if (options.wrapStore) {
        client = options.wrapStore(client);
    }
    std::vector<SRepositorySummary> repositories;
    for (const auto& name : backup::CCloudExternalRepository::Enumerate(client, {})) {
        SRepositorySummary summary;
        summary.name = name;
        SRepositoryOptions one = options;
        one.repositoryName = name;
        try {
            const auto repository = OpenCloudRepository(one);
            summary.id = repository->GetId();
            summary.owner = repository->GetOwner();
            summary.clients = repository->EnumClients().size();
        } catch (const std::exception& failure) {
            summary.failure = exc::ChainText(failure);
        }
        repositories.push_back(std::move(summary));
    }
    std::sort(repositories.begin(), repositories.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return repositories;
}

SDeletion DescribeSet(const SRepositoryOptions& options) {
    const auto repository = OpenCloudRepository(options);
    const guid::guid_t id = ClientOfSet(options, *repository);
    SClientSummary client = Summarize(*repository, FindClient(*repository, id), OwnClientId(options));
    SDeletion deletion;
    // What a deletion that was cut off has left may be no set any more.
    deletion.objects = repository->GetBackupObjectCount(id, options.set);
    std::erase_if(client.sets, [&](const SSetSummary& set) { return set.name != options.set; });
    if (client.sets.empty()) {
        if (deletion.objects == 0) {
            throw exc::CRuntimeExc("Client %1 has no set '%2' ('cloudbackup clients' lists them)", id, options.set);
        }
        SSetSummary rest;
        rest.name = options.set;
        rest.isDamaged = true;
        client.sets.push_back(rest);
    }
    deletion.clients.push_back(std::move(client));
    return deletion;
}

SDeletion DescribeClient(const SRepositoryOptions& options, const guid::guid_t& client) {
    const auto repository = OpenCloudRepository(options);
    SDeletion deletion;
    deletion.clients.push_back(Summarize(*repository, FindClient(*repository, client), OwnClientId(options)));
    deletion.objects = CountObjects(*repository, deletion.clients.front());
    deletion.repositoryGoes = repository->EnumClients().size() == 1;
    return deletion;
}

SDeletion DescribeRepository(const SRepositoryOptions& options) {
    SDeletion deletion;
    deletion.clients = ListClients(options);
    const auto repository = OpenCloudRepository(options);
    for (const auto& client : deletion.clients) {
        deletion.objects += CountObjects(*repository, client);
    }
    deletion.repositoryGoes = true;
    return deletion;
}

void DeleteSet(const SRepositoryOptions& options) {
    const auto repository = OpenCloudRepository(options);
    const guid::guid_t id = ClientOfSet(options, *repository);
    const std::string folder = CLocalState(options.stateFolder).GetSetFolder(repository->GetId(), id, options.set);
    const CSetLock lock(folder, options.set);
    WriteLastCheckpoint(folder, 0);  // not to be missed, also where this is cut off
    OpenCloudRepository(options, id)->DeleteBackup(id, options.set, nullptr);
}

void DeleteClient(const SRepositoryOptions& options, const guid::guid_t& client) {
    const auto repository = OpenCloudRepository(options, client);
    const guid::guid_t id = repository->GetId();
    repository->Delete();
    CLocalState(options.stateFolder).ForgetClient(id, client);
}

void DeleteRepository(const SRepositoryOptions& options) {
    const auto clients = OpenCloudRepository(options)->EnumClients();
    for (const auto& client : clients) {
        OpenCloudRepository(options, client.id)->Delete();
    }
    if (clients.empty()) {
        OpenCloudRepository(options)->Delete();
    }
    // A client's folder that cannot be read keeps the repository.
    const auto left = ListRepositories(options);
    const bool isThere = std::any_of(left.begin(), left.end(), [&](const auto& one) {
        return one.name == options.repositoryName && one.failure.empty();
    });
    if (isThere) {
        throw exc::CRuntimeExc(
            "The repository stays: it has a client whose record cannot be read, and nobody knows whose backups those "
            "are");
    }
}

}  // namespace agent
