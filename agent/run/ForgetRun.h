#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/retention/Policy.h"
#include "agent/run/CheckpointFilter.h"
#include "agent/run/SetUpkeep.h"
#include "agent/run/Trouble.h"

namespace agent {

/// What the rules are applied to, each by itself.
struct SGrouping {
    bool byHost = false;
    bool byTags = false;
    bool byPaths = false;
};

struct SForgetOptions {
    /// Either these very checkpoints, or what the rules do not keep.
    std::vector<std::uint64_t> ids;
    retention::SRules rules;
    /// Which checkpoints the rules look at.
    SCheckpointFilter filter;
    SGrouping grouping;
    /// Rules that keep nothing of a group are meant so.
    bool allowRemoveAll = false;
    /// For a client of another machine; nothing for the default.
    std::optional<std::chrono::seconds> minAge;
};

struct SForgetDecision {
    SCheckpointInfo checkpoint;
    /// What the checkpoints that were decided on together have in common, in words.
    std::string group;
    bool keep = true;
    std::vector<std::string> reasons;
};

struct SForgetPlan {
    /// Group by group, the newest first.
    std::vector<SForgetDecision> decisions;
    /// Ascending; also those named by the user that cannot be read.
    std::vector<std::uint64_t> remove;
};

/// Decides over the set's checkpoints. Beyond the rules, the newest checkpoint and the long-term ones are kept. Throws
/// exc::CRuntimeExc for what may not be: an id that is not there, one that is kept for the long term, a client's newest
/// from another machine, rules that keep nothing, a set left without any checkpoint.
[[nodiscard]] SForgetPlan PlanForget(CSetUpkeep& upkeep, const SForgetOptions& options);

/// Deletes the plan's checkpoints with the metadata and the stores of blocks that only they use; other blocks stay for
/// prune. Whatever fails, no other checkpoint is harmed, and the same again goes on where this one stopped. Those that
/// could not be deleted are told to the sink and counted in the answer.
std::uint64_t ExecuteForget(CSetUpkeep& upkeep, const SForgetPlan& plan, const SForgetOptions& options,
                            const trouble_sink_t& onTrouble);

}  // namespace agent
