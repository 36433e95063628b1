#pragma once

#include <map>
#include <string>

#include "agent/run/CheckpointList.h"
#include "agent/run/RepackVersions.h"
#include "agent/run/SetUpkeep.h"

namespace agent {

/// What stands for metadata versions, by the file names of those.
using written_versions_t = std::map<std::string, SWrittenVersion>;

/// Replaces the documents of a checkpoint by ones that name the new versions; each with one upload, which leaves the
/// old document or the new one, whole. The regular copy first. True when it names any of them.
bool ReplaceDocuments(CSetUpkeep& upkeep, const SCheckpointInfo& info, bool hasRegularCopy,
                      const written_versions_t& versions);

/// Writes long-term copies anew that name other metadata than the regular ones, which a replacement leaves that was cut
/// off between the two, or that cannot be read. What a prune deletes is judged by the regular copies.
void AlignLongTermCopies(CSetUpkeep& upkeep);

}  // namespace agent
