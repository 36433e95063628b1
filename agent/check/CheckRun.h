#pragma once

#include <map>
#include <string>
#include <vector>

#include "agent/check/VersionCheck.h"
#include "agent/run/OpenedRepository.h"

namespace agent {

struct SCheckResult {
    /// As whom the repository was read.
    guid::guid_t clientId;
    std::vector<SFinding> findings;
    SCheckCounts counts;
    /// All that checkpoints need is known, so that what was not needed is needed by none.
    bool isComplete = true;
    /// Content lost, by storage.
    std::map<guid::guid_t, CStorageDamage> damage;
    /// Header digests of the versions whose metadata is damaged.
    std::set<std::string> damagedVersions;
    /// Checkpoints whose documents cannot be read.
    std::set<std::uint64_t> unreadableCheckpoints;
    /// Of those the ones that may be whole: of a later format, of another key, or not authentic.
    std::set<std::uint64_t> foreignCheckpoints;
};

/// Checks all checkpoints of the set, changing nothing.
///
/// Always: every checkpoint's document can be read; every metadata object is there with the recorded size; all metadata
/// is downloaded, whole and free of contradictions; every block that is needed is listed with the recorded size. With
/// options: more. Damage is a finding; a store that cannot be reached, or refuses, is an exception.
[[nodiscard]] SCheckResult RunCheck(COpenedRepository repository, const SCheckOptions& checkOptions);

}  // namespace agent
