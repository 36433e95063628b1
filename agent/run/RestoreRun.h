#pragma once

#include <string>

#include "agent/run/OpenedRepository.h"
#include "agent/run/SourceRestore.h"
#include "agent/run/Trouble.h"

namespace agent {

struct SRestoreResult {
    std::uint64_t checkpoint = 0;
    SRestoreStatistics statistics;
};

/// Restores a checkpoint ("latest" or an id) into the folder `target`, which must be empty or not exist: each root at
/// its full path under it. What cannot be restored is told to the trouble sink; the rest goes on.
[[nodiscard]] SRestoreResult RunRestore(const SRepositoryOptions& options, const std::string& which,
                                        const std::string& target, const trouble_sink_t& onTrouble);

}  // namespace agent
