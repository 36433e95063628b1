#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/run/CheckpointList.h"

namespace agent {

/// Which checkpoints are meant; what is empty does not choose.
struct SCheckpointFilter {
    /// One of them.
    std::vector<std::string> hosts;
    /// All tags of one of these lists, each separated by commas.
    std::vector<std::string> tags;
    /// A root that is one of these paths, lies under one, or holds one.
    std::vector<std::string> paths;
    /// By when their runs began.
    std::optional<STime> since;
    std::optional<STime> until;
    /// Of those that are left the newest so many.
    std::optional<std::uint64_t> last;
};

[[nodiscard]] bool Matches(const SCheckpointFilter& filter, const SSetDocument& document);
/// In the order they are given, by ascending ids.
[[nodiscard]] std::vector<SCheckpointInfo> Choose(const SCheckpointFilter& filter, std::vector<SCheckpointInfo> list);

}  // namespace agent
