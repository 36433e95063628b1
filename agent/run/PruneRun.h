#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/run/Repack.h"
#include "agent/run/SetUpkeep.h"
#include "agent/run/StoreListing.h"
#include "agent/run/Trouble.h"

namespace agent {

struct SPruneOptions {
    /// What no checkpoint names stays until it is so old; nothing for the default.
    std::optional<std::chrono::seconds> minAge;
    /// Checkpoints to be taken as forgotten already: to tell beforehand what a prune would do behind a forget.
    std::set<std::uint64_t> without;
    /// Blocks are written anew when the waste in them is more.
    SUnusedLimit maxUnused;
};

struct SObjectCount {
    std::uint64_t objects = 0;
    std::uint64_t bytes = 0;

    void Add(std::uint64_t size) {
        ++objects;
        bytes += size;
    }
    bool operator==(const SObjectCount&) const = default;
};

/// What a set has and what of it goes.
struct SPrunePlan {
    struct SStore {
        guid::guid_t storageId;
        std::vector<digest::md5_digest_t> blocks;
        /// Nothing needs the storage any more: its folder goes too.
        bool isGone = false;
    };

    std::vector<std::uint64_t> checkpoints;
    std::vector<SStore> stores;
    std::vector<std::string> objects;

    SObjectCount blocksKept;
    SObjectCount blocksRemoved;
    SObjectCount metadataKept;
    SObjectCount metadataRemoved;
    /// Objects in the stores of blocks that are none.
    SObjectCount othersRemoved;
    /// What nothing needs but is too young to go.
    SObjectCount young;
    /// In blocks that are kept for something else in them.
    std::uint64_t unusedBytes = 0;
    /// Blocks that a checkpoint needs and the store does not have.
    std::uint64_t missingBlocks = 0;
    /// What is to be written anew, or was.
    SRepackPlan repack;

    [[nodiscard]] SObjectCount Removed() const;
};

/// Finds what no checkpoint of the set needs, and what of what is kept is worth writing anew: reads the metadata of all
/// checkpoints, each version once. Blocks that are missing are told to the sink. Throws exc::CRuntimeExc when a
/// checkpoint or its metadata cannot be read, or when the set has no checkpoint: what it needs is then not known.
[[nodiscard]] SPrunePlan PlanPrune(CSetUpkeep& upkeep, const SPruneOptions& options, const trouble_sink_t& onTrouble);

/// Deletes what the plan says. Nothing refers to it, so that a failure at any point harms no checkpoint, and the next
/// prune finishes. Blocks are not written anew. Throws exc::CRuntimeExc when checkpoints were made or deleted since the
/// plan.
void ExecutePrune(CSetUpkeep& upkeep, const SPrunePlan& plan, const SPruneOptions& options);

/// A whole prune. Where blocks are to be written anew that comes first; then all is read again, from the store as it is
/// then, before anything is deleted. Returns what went.
SPrunePlan RunPrune(CSetUpkeep& upkeep, const SPruneOptions& options, const trouble_sink_t& onTrouble);

}  // namespace agent
