#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/meta/MetaState.h"

namespace agent {

/// Names a block within its storage: its id.
using block_name_t = std::array<std::uint8_t, 16>;

/// What of a storage's content is lost. A plain value.
class CStorageDamage {
public:
    void AddBlock(const block_name_t& block) { blocks_.insert(block); }
    void AddChunk(const block_name_t& block, std::uint32_t offset) { chunks_.insert({block, offset}); }

    /// The block is whole again.
    void RemoveBlock(const block_name_t& block) {
        blocks_.erase(block);
        std::erase_if(chunks_, [&](const auto& chunk) { return chunk.first == block; });
    }

    [[nodiscard]] bool IsEmpty() const { return blocks_.empty() && chunks_.empty(); }
    [[nodiscard]] bool IsLost(const block_name_t& block, std::uint32_t offset) const {
        return blocks_.contains(block) || chunks_.contains({block, offset});
    }
    [[nodiscard]] bool IsLost(const CMetaState& state, const SChunk& chunk) const {
        return IsLost(state.GetBlocks()[chunk.block].id, chunk.blockOffset);
    }

private:
    std::set<block_name_t> blocks_;
    std::set<std::pair<block_name_t, std::uint32_t>> chunks_;
};

/// A file that needs lost content, and the blocks that had it; a hard link of such a file counts itself.
struct SLostFile {
    std::string path;  ///< in the storage
    std::set<block_name_t> blocks;
};

/// In the order of a walk.
[[nodiscard]] std::vector<SLostFile> FindLostFiles(const CMetaState& state, const CStorageDamage& damage);

}  // namespace agent
