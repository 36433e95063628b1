#pragma once

#include <vector>

#include "agent/run/BackupRun.h"
#include "agent/run/BackupSources.h"
#include "agent/run/OpenedRepository.h"

namespace agent {

/// Walks the sources and compares them with the last checkpoint as a run would, and tells the sinks; reads no file's
/// content and writes nothing into the repository. The result's document is the one that the run would make, with
/// checkpoint 0 for the roots that it would read.
[[nodiscard]] SBackupResult RunDryBackup(COpenedRepository& repository, const SBackupOptions& options,
                                         const std::vector<SSourceRoot>& sources, const SBackupSinks& sinks);

}  // namespace agent
