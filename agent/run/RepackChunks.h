#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "agent/chunk/ChunkSource.h"
#include "agent/meta/MetaState.h"
#include "agent/run/Repack.h"
#include "agent/run/Trouble.h"

namespace agent {

/// Where a chunk lies, by the name of its block.
struct SChunkPlace {
    digest::md5_digest_t block;
    std::uint32_t offset = 0;

    auto operator<=>(const SChunkPlace&) const = default;
};

/// Where chunks lie now that lay elsewhere.
struct SMovedTo {
    SBlockExternalId block;
    std::uint32_t offset = 0;
};
using chunk_moves_t = std::map<SChunkPlace, SMovedTo>;

/// The needed chunks of the blocks of one storage that are to be written anew, gathered from several versions of its
/// metadata. For one thread.
class CWantedChunks {
public:
    explicit CWantedChunks(const SRepackPlan::block_names_t& blocks) : blocks_(blocks) {}

    void Add(const CMetaState& state);

    [[nodiscard]] const std::vector<SBlockExternalId>& GetBlocks() const { return table_; }
    /// Those that the key with this id sealed, each once, in the order of the stream; `block` counts in GetBlocks().
    [[nodiscard]] std::vector<SChunk> ChunksOf(const crypto::SRawKeySetId& key) const;
    /// The keys that sealed any.
    [[nodiscard]] std::set<crypto::SRawKeySetId> GetKeys() const;

private:
    std::uint32_t IndexOf(const SBlockExternalId& block);

    const SRepackPlan::block_names_t& blocks_;
    std::vector<SBlockExternalId> table_;
    std::map<digest::md5_digest_t, std::uint32_t> indexes_;
    std::set<std::pair<std::uint32_t, std::uint32_t>> seen_;
    std::vector<SChunk> chunks_;
};

/// Brings the chunks into new blocks, as the bytes that they are stored as, and says where they are. Each one is opened
/// and its SHA-256 checked on the way, for what was read before may be deleted afterwards. One that is damaged, or
/// whose block cannot be had, is told to the sink and stays where it is; any other failure of the store passes through.
/// `source` has GetBlocks() as its table.
[[nodiscard]] chunk_moves_t MoveChunks(const SChunkSource& source, const CWantedChunks& wanted,
                                       std::uint64_t runVersion, const trouble_sink_t& onTrouble);

}  // namespace agent
