#pragma once

#include <cstdint>
#include <vector>

#include "agent/run/CheckpointList.h"
#include "agent/run/OpenedCheckpoint.h"

namespace agent {

/// How much checkpoints hold, and what it takes in the store. Sizes in bytes.
struct SStoreStatistics {
    std::uint64_t checkpoints = 0;
    /// Of every checkpoint by itself, added up: what restoring each of them would write.
    std::uint64_t files = 0;
    std::uint64_t folders = 0;
    std::uint64_t others = 0;
    std::uint64_t restoreBytes = 0;
    /// Contents that are needed, each once, before and after compression.
    std::uint64_t chunks = 0;
    std::uint64_t plainBytes = 0;
    std::uint64_t chunkBytes = 0;
    /// Blocks that hold them, each once; what of them is no longer needed is waste.
    std::uint64_t blocks = 0;
    std::uint64_t blockBytes = 0;
    /// The storages' metadata, each object once.
    std::uint64_t metadataObjects = 0;
    std::uint64_t metadataBytes = 0;

    [[nodiscard]] std::uint64_t GetWaste() const { return blockBytes > chunkBytes ? blockBytes - chunkBytes : 0; }
    [[nodiscard]] std::uint64_t GetStoredBytes() const { return blockBytes + metadataBytes; }
};

/// Reads each version of each root's metadata once, one in memory at a time, and no content. What several checkpoints
/// share counts once.
[[nodiscard]] SStoreStatistics CountStore(COpenedCheckpoint& opened, const std::vector<SCheckpointInfo>& checkpoints);

}  // namespace agent
