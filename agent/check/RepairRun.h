#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/check/CheckRun.h"

namespace agent {

struct SRepairOptions {
    /// What is looked at; damage that is not looked for is not repaired.
    SCheckOptions check;
    /// How old the last checkpoint of another machine's client must be; nothing for the default.
    std::optional<std::chrono::seconds> minAge;
    /// Only tell what would be done.
    bool dryRun = false;
    /// Take away the documents of checkpoints that are damaged; a copy of each is kept on this machine.
    bool removeUnreadable = false;
    /// Make lost blocks again from the source's files, where this machine has them.
    bool useSource = true;
    /// The folder under which the files are by their full paths, when they are not where they were backed up.
    std::string source;
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
    /// Objects of blocks that were made again.
    std::vector<std::string> rebuiltBlocks;
    struct SRemovedDocument {
        std::uint64_t checkpoint = 0;
        /// Where the copy lies.
        std::string copy;
    };
    std::vector<SRemovedDocument> removed;
    /// Documents that cannot be read and stay.
    std::vector<std::uint64_t> unreadable;
    /// Of those the ones that are not taken away, since they may be whole.
    std::vector<std::uint64_t> foreign;
};

/// Checks, makes lost blocks again whose content the source still has, so that all checkpoints have it back, and makes
/// a checkpoint like the last one but without the files whose content is lost: it can be restored without failures, and
/// the next backup reads those files again. Earlier checkpoints stay as they are.
///
/// For a client of another machine, which may have a run under way, nothing is done when it has made a checkpoint
/// lately; and no checkpoint is made when there are others than at the beginning. Until the new checkpoint is committed
/// nothing is changed, but for blocks that are stored again, and the removal of damaged documents, which is done one by
/// one after each one's copy is on disk. Throws exc::CRuntimeExc when nothing can be repaired.
[[nodiscard]] SRepairResult RunRepair(const SRepositoryOptions& options, const SRepairOptions& repairOptions);

}  // namespace agent
