#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/run/OpenedRepository.h"
#include "agent/run/SetDocument.h"
#include "agent/run/Trouble.h"

namespace agent {

struct SBackupResult {
    std::uint64_t checkpoint = 0;
    SSetDocument document;
    std::uint64_t troubles = 0;
};

/// Backs the sources up and commits them as the next checkpoint of the set; roots of the last checkpoint that are not
/// among them are carried on as they were.
///
/// A path that cannot be opened at all is an exception before anything is done; what cannot be read inside a source is
/// told to the trouble sink. Until the commit no checkpoint changes; a run that was cut off is simply run again.
[[nodiscard]] SBackupResult RunBackup(const SRepositoryOptions& options, const std::vector<std::string>& sources,
                                      const trouble_sink_t& onTrouble);

}  // namespace agent
