#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "agent/check/BlockListing.h"
#include "agent/check/BlockSample.h"
#include "agent/check/Finding.h"
#include "agent/check/StorageDamage.h"
#include "agent/chunk/ChunkReader.h"
#include "agent/look/Versions.h"
#include "agent/run/Progress.h"

namespace agent {

/// How deep a check goes.
struct SCheckOptions {
    /// Compare the names of blocks with the MD5 that the store recorded.
    bool digests = false;
    /// Read those blocks.
    std::optional<CBlockSample> readData;
    /// Read blocks that look damaged, to tell what of them is left.
    bool readSuspicious = false;
    /// Is told of blocks looked at and bytes read; may be empty.
    progress_sink_t onProgress = {};
};

/// What was looked at.
struct SCheckCounts {
    std::uint64_t checkpoints = 0;
    std::uint64_t metadataObjects = 0;
    std::uint64_t versions = 0;
    std::uint64_t blocks = 0;
    std::uint64_t blockBytes = 0;
    std::uint64_t digestsCompared = 0;
    std::uint64_t blocksRead = 0;
    std::uint64_t chunksRead = 0;
    std::uint64_t bytesRead = 0;
    std::uint64_t unneededObjects = 0;
    std::uint64_t unneededBytes = 0;
};

/// Checks the content of one storage, version by version. Each block and each chunk is looked at once, however many
/// versions need it. For one thread.
class CStorageCheck : private IChunkSink {
public:
    CStorageCheck(const SCheckOptions& options, CBlockListing& listing, SCheckCounts& counts)
        : options_(options), listing_(listing), counts_(counts) {}

    void AddVersion(const SRootVersion& version, const CMetaState& state, const SChunkSource& source);

    [[nodiscard]] const CStorageDamage& GetDamage() const { return damage_; }
    /// The damaged blocks, with all that needs them.
    [[nodiscard]] std::vector<SFinding> TakeFindings();

private:
    void CheckBlock(const SBlockExternalId& block, const std::string& path);
    void SetDamaged(const block_name_t& block, EDamage damage, const std::string& path, const std::string& reason);
    [[nodiscard]] bool IsRead(const block_name_t& block) const;
    void ReadChunks(const CMetaState& state, const SMetaUsage& usage, const SChunkSource& source);
    void NameFiles(const SRootVersion& version, const CMetaState& state);
    void Tell() const;
    void OnChunk(std::size_t index, std::span<const char> plain) override;
    void OnDamagedChunk(std::size_t index, const std::exception& reason) override;

    const SCheckOptions& options_;
    CBlockListing& listing_;
    SCheckCounts& counts_;
    std::map<block_name_t, std::uint64_t> numbers_;  // of the blocks that were looked at
    std::set<block_name_t> suspicious_;
    std::set<block_name_t> read_;
    std::unordered_set<std::uint64_t> chunksRead_;  // block's number, offset in it
    std::map<block_name_t, SFinding> findings_;
    CStorageDamage damage_;

    // Of the version that is being read.
    const CMetaState* state_ = nullptr;
    const SChunkSource* source_ = nullptr;
    std::string root_;
    std::vector<SChunk> wanted_;
};

}  // namespace agent
