#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/check/CheckRun.h"

namespace agent {

struct SRepairOptions {
    /// What is looked at; damage that is not looked for is not repaired.
    SCheckOptions check;
    /// Only tell what would be done.
    bool dryRun = false;
    /// Take away the documents of checkpoints that cannot be read; a copy of each is kept on this machine.
    bool removeUnreadable = false;
};

struct SRepairedRoot {
    std::string path;
    /// Full paths of files that the new checkpoint no longer has.
    std::vector<std::string> lostFiles;
    /// The metadata was damaged: the root is as this checkpoint knew it. 0 for none that could be read, so that the
    /// root begins anew.
    std::optional<std::uint64_t> takenFrom;
};

struct SRepairResult {
    SCheckResult check;
    /// The checkpoint on which the repair stands, and the one that it made; 0 when it made none.
    std::uint64_t base = 0;
    std::uint64_t checkpoint = 0;
    std::vector<SRepairedRoot> roots;
    struct SRemovedDocument {
        std::uint64_t checkpoint = 0;
        /// Where the copy lies.
        std::string copy;
    };
    std::vector<SRemovedDocument> removed;
    /// Documents that cannot be read and stay.
    std::vector<std::uint64_t> unreadable;
};

/// Checks, and makes a checkpoint like the last one but without the files whose content is lost: it can be restored
/// without failures, and the next backup reads those files again. Earlier checkpoints stay as they are.
///
/// Until the new checkpoint is committed nothing is changed, but for the removal of unreadable documents, which is done
/// one by one after each one's copy is on disk. Throws exc::CRuntimeExc when nothing can be repaired.
[[nodiscard]] SRepairResult RunRepair(const SRepositoryOptions& options, const SRepairOptions& repairOptions);

}  // namespace agent
