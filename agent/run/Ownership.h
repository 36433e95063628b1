#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "agent/run/OpenedRepository.h"

/// Who has what in a repository, and deleting it. Needs no keys: nothing that is encrypted is looked at.
namespace agent {

using cloudbackuplib::backup::SCloudRepoIdentity;

struct SSetSummary {
    std::string name;
    /// Its checkpoints cannot be listed.
    bool isDamaged = false;
    std::uint64_t checkpoints = 0;
    /// 0 when there is none.
    std::uint64_t lastCheckpoint = 0;
    /// When the last checkpoint was stored, as the store says.
    std::chrono::system_clock::time_point lastTime;
};

struct SClientSummary {
    SCloudRepoIdentity identity;
    /// It is the one of this machine.
    bool isOwn = false;
    std::vector<SSetSummary> sets;
};

[[nodiscard]] std::vector<SClientSummary> ListClients(const SRepositoryOptions& options);

/// The owner; its id is empty when there is none.
[[nodiscard]] SCloudRepoIdentity GetOwner(const SRepositoryOptions& options);
/// An identity with an empty id takes the owner away.
void SetOwner(const SRepositoryOptions& options, const SCloudRepoIdentity& owner);

struct SRepositorySummary {
    std::string name;
    /// Empty when it can be read, else why not.
    std::string failure;
    guid::guid_t id;
    std::uint64_t clients = 0;
    SCloudRepoIdentity owner;
};

/// All repositories of the place.
[[nodiscard]] std::vector<SRepositorySummary> ListRepositories(const SRepositoryOptions& options);

/// What a deletion takes away.
struct SDeletion {
    std::vector<SClientSummary> clients;
    /// Objects in the store that belong to the sets.
    std::uint64_t objects = 0;
    /// Nobody else is in the repository: it goes too.
    bool repositoryGoes = false;
};

/// Throws exc::CRuntimeExc when there is no such set of the client that the options ask for (else of this machine's).
[[nodiscard]] SDeletion DescribeSet(const SRepositoryOptions& options);
[[nodiscard]] SDeletion DescribeClient(const SRepositoryOptions& options, const guid::guid_t& client);
[[nodiscard]] SDeletion DescribeRepository(const SRepositoryOptions& options);

/// Deletions that fail go on where they stopped when they are asked for again.
void DeleteSet(const SRepositoryOptions& options);
/// With the repository when nobody else is in it.
void DeleteClient(const SRepositoryOptions& options, const guid::guid_t& client);
/// With all clients.
void DeleteRepository(const SRepositoryOptions& options);

}  // namespace agent
