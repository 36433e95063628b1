#pragma once

#include <cstddef>
#include <exception>
#include <span>
#include <string>

#include "agent/chunk/ChunkDecoder.h"
#include "agent/chunk/ChunkSource.h"
#include "agent/model/Entry.h"

namespace agent {

/// Takes chunks as they come. Called in the thread that reads; an exception ends the reading and passes through.
class IChunkSink {
public:
    virtual ~IChunkSink() = default;
    /// The plain bytes of the wanted chunk with that index, checked; valid during the call.
    virtual void OnChunk(std::size_t index, std::span<const char> plain) = 0;
    /// The chunk cannot be had. The reason names the block's object, the offset in it and what is wrong; a failure of
    /// the client is nested in it (exc::FindCause).
    virtual void OnDamagedChunk(std::size_t index, const std::exception& reason) = 0;
};

/// Reads chunks back from the blocks of a storage.
///
/// Chunks that lie together in a block come with one download; up to min(client's limit, 8) downloads are in flight
/// ahead of what is delivered, with no more than about 64 MiB in memory; workers decompress and check the SHA-256.
/// A chunk whose bytes do not pass the check is read once more by itself, since they may have changed on their way.
/// Records of chunks are checked before anything is read or allocated for them, and a chunk that is damaged, or whose
/// download fails, disturbs no other. Reading with a reader is for one thread at a time.
class CChunkReader {
public:
    explicit CChunkReader(SChunkSource source);

    /// Delivers the wanted chunks in the order given, each once. Nothing is in flight when it returns or throws.
    void Read(std::span<const SChunk> wanted, IChunkSink& sink);

private:
    void Submit(std::span<const SChunk> wanted, std::size_t index, CRangeDownloads& downloads);
    void Deliver(std::span<const SChunk> wanted, std::size_t index, IChunkSink& sink);
    /// Bytes that are not the chunk's may have changed on their way: they are asked for once more.
    void ReadAgain(SDecodeSlot& slot);
    [[nodiscard]] std::string Describe(const SChunk& chunk) const;

    const SChunkSource source_;
    CChunkDecoder decoder_;
};

}  // namespace agent
