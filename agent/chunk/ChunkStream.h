#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "agent/chunk/BlockBuilder.h"
#include "agent/chunk/BlockUploader.h"
#include "agent/chunk/ChunkPipeline.h"
#include "agent/chunk/ChunkTable.h"
#include "agent/chunk/Chunker.h"
#include "agent/chunk/Sizes.h"
#include "agent/model/Entry.h"

namespace agent {

struct SChunkStreamParams {
    SBlockTarget target;
    /// Where in the storage's content stream this run begins.
    std::uint64_t streamOffset = 0;
    /// The storage's table of blocks and its chunks; both outlive the stream.
    std::span<const cloudbackuplib::backup::SBlockExternalId> knownBlocks;
    std::span<const SChunk> knownChunks;
    /// What new chunks are sealed with; none for no encryption.
    data_key_ptr key;
    int zstdLevel = 3;
    /// That digest and compress; 0 for as many as the machine runs at once.
    unsigned threads = 0;
    SChunkSizes chunkSizes;
    SBlockSizes blockSizes;
};

struct SStreamStatistics {
    std::uint64_t bytesIn = 0;
    std::uint64_t newChunks = 0;
    /// Plain bytes of the new chunks.
    std::uint64_t newBytes = 0;
    /// What the new blocks take in the store.
    std::uint64_t storedBytes = 0;
    std::uint64_t blocksUploaded = 0;
    /// Blocks that an interrupted run had stored already.
    std::uint64_t blocksFound = 0;

    bool operator==(const SStreamStatistics&) const = default;
};

struct SStreamResult {
    /// Of this run, in stream order, covering every appended byte once. A chunk's `block` counts on behind the known
    /// blocks: knownBlocks.size() + i is newBlocks[i].
    std::vector<SChunk> chunks;
    /// `id` is the MD5 of the block's bytes, `number32` its size, `number64` the run's version, with the id of the
    /// key.
    std::vector<cloudbackuplib::backup::SBlockExternalId> newBlocks;
    SStreamStatistics statistics;
};

/// The content stream of one storage in one run: what is appended is cut into chunks, and chunks not stored before are
/// gathered into blocks and uploaded.
///
/// The caller's thread cuts and gathers; workers digest and compress, others upload, and Append blocks while they have
/// enough: 32 chunks and one block more than uploads at most are in memory. Results depend on the content and the
/// parameters alone, not on timing nor on how the bytes are handed over. An existing object is taken for a block only
/// after it was compared, so a run that was interrupted is taken up again by repeating it.
///
/// For one thread. The first failure (of an upload, say) is thrown by the next call, with nothing in flight then; after
/// that, and after Finish, the stream takes no more. The destructor waits for what is at work and throws nothing.
class CChunkStream {
public:
    /// Throws exc::CRuntimeExc for parameters that cannot be used.
    explicit CChunkStream(const SChunkStreamParams& params);

    void Append(std::span<const char> data);
    /// The next byte begins a chunk. Around large files: the same file gives the same chunks wherever it stands.
    void Cut();
    /// Where in the storage's stream the next byte goes.
    [[nodiscard]] std::uint64_t GetPosition() const { return position_; }
    /// Waits until everything is stored. No block is named that is not.
    [[nodiscard]] SStreamResult Finish();

private:
    template <class F>
    void Guard(const F& operation);
    void Abandon() noexcept;

    void AppendBytes(std::span<const char> data);
    void SubmitChunk();
    void CollectOldest();
    SChunk Store(const SChunkSlot& slot);
    void OpenBlock();
    void EndBlock();
    void AddBlocks(SStreamResult& result);

    const std::size_t knownBlocks_;
    std::uint64_t position_;     // of the next byte appended
    std::uint64_t collected_;    // up to where chunks are in the table
    bool isClosed_ = false;      // finished or failed
    std::uint32_t pending_ = 0;  // bytes of the current chunk
    SStreamStatistics statistics_;

    CChunker chunker_;
    CBlockBuilder builder_;
    CChunkTable table_;
    CBlockUploader uploader_;
    CChunkPipeline pipeline_;  // asks the table
};

}  // namespace agent
