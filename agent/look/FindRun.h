#pragma once

#include <functional>
#include <string>
#include <vector>

#include "agent/look/EntryFilter.h"
#include "agent/run/CheckpointList.h"
#include "agent/run/OpenedCheckpoint.h"

namespace agent {

/// What was found at one path: the same content and attributes in those checkpoints.
struct SFound {
    /// Without segments and extended attributes.
    SEntry entry;
    std::vector<std::uint64_t> checkpoints;
};

/// Is told of one path with its versions, the oldest first; `root` is the path of the root that holds it.
using found_sink_t =
    std::function<void(const std::string& root, const std::string& fullPath, const std::vector<SFound>& versions)>;

/// Looks through the checkpoints, each version of a root once and one in memory at a time.
void FindEntries(COpenedCheckpoint& opened, const std::vector<SCheckpointInfo>& checkpoints,
                 const CPathPatterns& patterns, const SEntryFilter& filter, const found_sink_t& sink);

}  // namespace agent
