#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "agent/meta/MetaState.h"
#include "common/digest.h"

namespace agent {

/// What the versions of one storage's metadata need of its blocks, all together. For one thread.
///
/// About 80 bytes for a block and 12 for a chunk.
class CBlockUse {
public:
    /// A metadata version as it was read: all its chunks are needed. Returns the indexes of the blocks that have them,
    /// ascending.
    std::vector<std::uint32_t> Add(const CMetaState& state);

    [[nodiscard]] bool IsUsed(const digest::md5_digest_t& block) const { return blocks_.contains(block); }
    [[nodiscard]] std::uint64_t GetBlockCount() const { return blocks_.size(); }
    /// What the used blocks hold that nothing needs, in bytes.
    [[nodiscard]] std::uint64_t CountUnusedBytes() const;
    /// What is needed of each block, in bytes, by the blocks' indexes.
    [[nodiscard]] std::vector<std::uint64_t> CountUsedBytes() const;

    /// The used blocks and their sizes by what the metadata says of them.
    struct SBlock {
        /// From 0 on, in the order in which they were first seen.
        std::uint32_t index = 0;
        std::uint64_t size = 0;
    };
    [[nodiscard]] const std::map<digest::md5_digest_t, SBlock>& GetBlocks() const { return blocks_; }

private:
    struct SUsedChunk {
        std::uint32_t block = 0;
        std::uint32_t offset = 0;
        std::uint32_t size = 0;

        auto operator<=>(const SUsedChunk&) const = default;
    };

    std::uint32_t IndexOf(const SBlockExternalId& block);

    std::map<digest::md5_digest_t, SBlock> blocks_;
    std::vector<SUsedChunk> chunks_;  // ascending, each once
};

}  // namespace agent
