#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "agent/chunk/ChunkIndex.h"
#include "agent/model/Entry.h"
#include "cloudbackuplib/BlockExternalId.h"

namespace agent {

/// The chunks of a stream: those known when the run began, and those of the run. Answers whether a content is stored.
///
/// Find may be called from any thread; Add and Take from one. The known chunks and blocks belong to the caller and
/// outlive the table.
class CChunkTable {
public:
    /// Known chunks whose records cannot be right are left out: nothing new shall refer to them.
    CChunkTable(std::span<const SChunk> known, std::span<const cloudbackuplib::backup::SBlockExternalId> blocks);

    /// Where content of that digest and size is stored.
    [[nodiscard]] std::optional<SChunk> Find(const digest::sha256_digest_t& sha256, std::uint32_t plainSize) const;
    /// The next chunk of the run.
    void Add(const SChunk& chunk);
    /// The chunks of the run, in the order in which they were added; the table is not used any more.
    [[nodiscard]] std::vector<SChunk> Take();

private:
    const std::span<const SChunk> known_;
    CChunkIndex knownIndex_;  // constant after construction

    mutable std::mutex mutex_;
    std::vector<SChunk> run_;  // guarded by mutex_
    CChunkIndex runIndex_;     // guarded by mutex_
};

}  // namespace agent
