#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/run/OpenedRepository.h"
#include "agent/run/Progress.h"
#include "agent/run/SetDocument.h"
#include "agent/run/SourceBackup.h"
#include "agent/run/StandardInput.h"
#include "agent/run/Trouble.h"
#include "agent/select/Selection.h"

namespace agent {

/// What one backup run is to do. A plain value.
struct SBackupOptions {
    /// Folders and files; each is a root of its own.
    std::vector<std::string> sources;
    /// Paths that are kept, with the folders that lead to them, under the one root "/".
    std::vector<std::string> listed;
    std::optional<SInputOptions> input;
    /// Roots of the last checkpoint that the next one is not to have.
    std::vector<std::string> droppedRoots;
    SSelection selection;

    /// Empty for this machine's name and for the system's user.
    std::string host;
    std::string user;
    std::string programVersion;
    std::vector<std::string> tags;
    std::string description;
    /// Write the checkpoint's long-term copy as well: rules of retention leave it alone.
    bool longTerm = false;

    SChangeSigns signs;
    /// Read all files, whether or not anything points at a change.
    bool force = false;
    /// Go on although the store's last checkpoint is older than the last one made here.
    bool acceptOlderState = false;
    /// Tell what would change, read no file and write nothing.
    bool dryRun = false;

    file_hook_t afterRead;
};

/// Who is told of a run while it goes on; all in its thread. What is not set is not told.
struct SBackupSinks {
    trouble_sink_t onTrouble;
    progress_sink_t onProgress;
    change_sink_t onChange;
};

struct SBackupResult {
    /// 0 for a dry run.
    std::uint64_t checkpoint = 0;
    SSetDocument document;
    std::uint64_t troubles = 0;
};

/// Backs the sources up and commits them as the next checkpoint of the set; roots of the last checkpoint that are not
/// among them are carried on as they were, unless they are dropped.
///
/// A path that cannot be opened at all is an exception before anything is done; what cannot be read inside a source is
/// told to the trouble sink. A store whose last checkpoint is older than the last one made here has lost some, or does
/// not show them: that is an exception too, unless the options accept it. Until the commit no checkpoint changes; a run
/// that was cut off is simply run again. When another run has made a checkpoint meanwhile (of a machine that has a copy
/// of the state folder) this one is refused at its end; of two that reach the end in the same moment the later one
/// wins, and both are whole.
[[nodiscard]] SBackupResult RunBackup(const SRepositoryOptions& options, const SBackupOptions& backupOptions,
                                      const SBackupSinks& sinks);

/// The same for nothing but sources.
[[nodiscard]] SBackupResult RunBackup(const SRepositoryOptions& options, const std::vector<std::string>& sources,
                                      const trouble_sink_t& onTrouble);

}  // namespace agent
