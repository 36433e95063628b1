#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/run/CheckpointList.h"

namespace agent {

/// One version of a root's metadata, and the checkpoints to which it belongs: a run that does not read a root carries
/// it on as it was.
struct SRootVersion {
    SRoot root;
    /// Ascending.
    std::vector<std::uint64_t> checkpoints;
};

/// The versions in the checkpoints, those of one storage together, the oldest first.
[[nodiscard]] std::vector<SRootVersion> ListVersions(const std::vector<SCheckpointInfo>& checkpoints);

/// "3", "1-4, 7": ascending numbers.
[[nodiscard]] std::string FormatIds(const std::vector<std::uint64_t>& ids);

}  // namespace agent
