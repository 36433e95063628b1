#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "agent/check/StorageDamage.h"
#include "agent/chunk/ChunkCodec.h"
#include "agent/chunk/ChunkSource.h"
#include "agent/keys/Sealing.h"
#include "agent/look/Versions.h"

namespace agent {

/// Makes damaged blocks of one storage again, from what is left of them and from source files that still hold the rest.
///
/// A block is what its chunks make it: compressed and sealed the same plain bytes give the same stored ones. Each chunk
/// that comes from a file is compared by its SHA-256, and the block by its name, the MD5 of its bytes, so that nothing
/// but the very block is stored. What cannot be had so (a file has changed; the block was written with another version
/// of the compressor; it has chunks that no checkpoint knows any more and that are lost) stays as it is.
/// For one thread. The damage outlives it.
class CBlockRebuild {
public:
    /// The files are looked for under `source`, as the root folder of what was backed up.
    CBlockRebuild(const CStorageDamage& damage, std::string source);

    /// One version of the storage: what it knows of the damaged blocks, and which files had it.
    void AddVersion(const SRootVersion& version, const CMetaState& state);

    /// The damaged blocks that could be made again, with their objects' paths. They are stored unless it is a dry run.
    /// Failures of the client pass through.
    [[nodiscard]] std::map<block_name_t, std::string> Run(SChunkSource source, bool dryRun);

private:
    /// Bytes of a chunk that a file had.
    struct SPiece {
        std::string path;
        std::uint64_t fileOffset = 0;
        std::uint32_t offset = 0;  ///< in the chunk
        std::uint32_t length = 0;
        std::uint64_t size = 0;  ///< of the file, as it was
        STime mtime;

        auto operator<=>(const SPiece&) const = default;
    };
    struct SLostChunk {
        SChunk chunk;
        std::set<SPiece> pieces;
    };
    struct SBlock {
        SBlockExternalId id;
        std::map<std::uint32_t, SLostChunk> chunks;  // by their offsets; the lost ones alone
    };

    void AddPieces(const SRootVersion& version, const CMetaState& state, const std::string& path, const SEntry& entry);
    [[nodiscard]] SLostChunk* FindLost(const CMetaState& state, const SChunk& chunk);
    [[nodiscard]] bool Fill(const SBlock& block, const data_key_ptr& key, std::span<char> bytes);
    [[nodiscard]] bool ReadPlain(const SLostChunk& lost);
    [[nodiscard]] bool ReadPieces(const SLostChunk& lost, const std::vector<const SPiece*>& pieces);
    [[nodiscard]] bool Encode(const SChunk& chunk, const data_key_ptr& key, std::span<char> place);

    const CStorageDamage& damage_;
    const std::string source_;
    std::map<block_name_t, SBlock> blocks_;
    CChunkCompressor compressor_;
    CSealer sealer_;
    std::vector<char> plain_;
    std::vector<char> room_;
};

}  // namespace agent
