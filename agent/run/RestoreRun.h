#pragma once

#include <functional>
#include <string>

#include "agent/run/OpenedRepository.h"
#include "agent/run/RestoreFilter.h"
#include "agent/run/SourceRestore.h"

namespace agent {

struct SRestoreOptions {
    /// A checkpoint's id, or "latest".
    std::string checkpoint = "latest";
    /// Full path of a folder in the checkpoint whose content comes directly into the target; empty for each root at its
    /// full path under it.
    std::string subfolder;
    /// The folder to restore into; empty to restore each root to where it came from.
    std::string target;
    SRestoreSelection selection;
    /// With `refuse` the target must be empty or not exist.
    EOverwrite overwrite = EOverwrite::refuse;
    /// Files of the same size and time are compared by their content too.
    bool compareContent = false;
    /// Removes what stands in restored folders and is not in the checkpoint.
    bool deleteOthers = false;
    /// Asked before anything is written, with how many names would be removed; none are when it says no.
    std::function<bool(std::uint64_t count)> confirmDelete;
    bool dryRun = false;
    /// Reads back what was written.
    bool verify = false;
    /// Returns when all that was written is on the device.
    bool sync = false;
    unsigned threads = 0;
};

struct SRestoreResult {
    std::uint64_t checkpoint = 0;
    SRestoreStatistics statistics;
};

/// Restores a checkpoint. What cannot be restored is told to the trouble sink; the rest goes on. A dry run tells the
/// action sink what would be done, and counts it.
[[nodiscard]] SRestoreResult RunRestore(const SRepositoryOptions& repository, const SRestoreOptions& options,
                                        const SRestoreSinks& sinks);

/// The whole of a checkpoint into an empty folder.
[[nodiscard]] SRestoreResult RunRestore(const SRepositoryOptions& repository, const std::string& which,
                                        const std::string& target, const trouble_sink_t& onTrouble);

}  // namespace agent
