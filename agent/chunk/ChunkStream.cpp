#include "agent/chunk/ChunkStream.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "agent/chunk/ThreadCount.h"
#include "common/exc.h"

namespace agent {

namespace {

constexpr std::size_t mostUploads = 8;

std::size_t UploadLimit(cloudclientlib::ICloudClient& client) {
    return std::clamp<std::size_t>(client.GetConcurrentTaskLimit(), 1, mostUploads);
}

SBlockTarget TargetOf(const SChunkStreamParams& params) {
    SBlockTarget target = params.target;
    if (params.key) {
        target.keySetId = params.key->GetId();
    }
    return target;
}

const SChunkSizes& CheckMaximum(const SChunkSizes& sizes) {
    if (sizes.maximum > maxChunkSize) {
        throw exc::CRuntimeExc("Chunks of %1 bytes are larger than %2.", sizes.maximum, maxChunkSize);
    }
    return sizes;
}

}  // namespace

CChunkStream::CChunkStream(const SChunkStreamParams& params)
    : knownBlocks_(params.knownBlocks.size()),
      position_(params.streamOffset),
      collected_(params.streamOffset),
      chunker_(CheckMaximum(params.chunkSizes)),
      builder_(params.blockSizes),
      table_(params.knownChunks, params.knownBlocks),
      uploader_(TargetOf(params), UploadLimit(*params.target.client)),
      pipeline_(table_, ThreadCount(params.threads), params.chunkSizes.maximum, params.zstdLevel, params.key) {}

void CChunkStream::Append(std::span<const char> data) {
    Guard([&] { AppendBytes(data); });
}

void CChunkStream::Cut() {
    Guard([&] { SubmitChunk(); });
}

SStreamResult CChunkStream::Finish() {
    SStreamResult result;
    Guard([&] {
        SubmitChunk();
        while (!pipeline_.IsEmpty()) {
            CollectOldest();
        }
        EndBlock();
        AddBlocks(result);
        result.chunks = table_.Take();
        result.statistics = statistics_;
        isClosed_ = true;
    });
    return result;
}

template <class F>
void CChunkStream::Guard(const F& operation) {
    if (isClosed_) {
        throw exc::CRuntimeExc("The content stream has ended.");
    }
    try {
        operation();
    } catch (...) {
        isClosed_ = true;
        Abandon();
        throw;
    }
}

void CChunkStream::Abandon() noexcept {
    pipeline_.Clear();
    uploader_.WaitAll();
}

void CChunkStream::AppendBytes(std::span<const char> data) {
    uploader_.ThrowIfFailed();
    if (data.size() > std::numeric_limits<std::uint64_t>::max() - position_) {
        throw exc::CRuntimeExc("The content stream ends at 2^64 bytes.");
    }
    while (!data.empty()) {
        const CChunker::SCut cut = chunker_.Next(data);
        if (pipeline_.IsFull()) {
            CollectOldest();
        }
        pipeline_.Fill(data.first(cut.size));
        position_ += cut.size;
        pending_ += static_cast<std::uint32_t>(cut.size);
        statistics_.bytesIn += cut.size;
        data = data.subspan(cut.size);
        if (cut.isEnd) {
            SubmitChunk();
        }
    }
}

void CChunkStream::SubmitChunk() {
    chunker_.Restart();
    if (pending_ != 0) {
        pending_ = 0;
        pipeline_.Submit();
    }
}

void CChunkStream::CollectOldest() {
    const SChunkSlot& slot = pipeline_.WaitFront();
    // What the worker did not know may have come with a chunk before this one, in the meantime.
    const std::optional<SChunk> known = slot.known ? slot.known : table_.Find(slot.sha256, slot.plainSize);
    SChunk chunk = known ? *known : Store(slot);
    chunk.streamOffset = collected_;
    collected_ += slot.plainSize;
    table_.Add(chunk);
    pipeline_.PopFront();
}

SChunk CChunkStream::Store(const SChunkSlot& slot) {
    const std::span<const char> stored = slot.stored.bytes;
    if (builder_.IsOpen() && !builder_.HasRoom(stored.size())) {
        EndBlock();
    }
    OpenBlock();
    SChunk chunk;
    chunk.plainSize = slot.plainSize;
    chunk.storedSize = static_cast<std::uint32_t>(stored.size());
    chunk.block = static_cast<std::uint32_t>(knownBlocks_ + uploader_.GetCount());
    chunk.codec = slot.stored.codec;
    chunk.sha256 = slot.sha256;
    const CBlockBuilder::SPlace place = builder_.Add(stored, slot.sha256);
    chunk.blockOffset = place.offset;
    if (place.isEnd) {
        EndBlock();
    }
    ++statistics_.newChunks;
    statistics_.newBytes += slot.plainSize;
    return chunk;
}

void CChunkStream::OpenBlock() {
    if (builder_.IsOpen()) {
        return;
    }
    if (knownBlocks_ + uploader_.GetCount() > std::numeric_limits<std::uint32_t>::max()) {
        throw exc::CRuntimeExc("A storage cannot have more than 2^32 blocks.");
    }
    builder_.Open(uploader_.TakeBuffer());
}

void CChunkStream::EndBlock() {
    if (builder_.IsOpen()) {
        uploader_.Put(builder_.Close());
    }
}

void CChunkStream::AddBlocks(SStreamResult& result) {
    for (const SWrittenBlock& block : uploader_.Finish()) {
        result.newBlocks.push_back(block.id);
        statistics_.storedBytes += block.id.number32;
        ++(block.isFound ? statistics_.blocksFound : statistics_.blocksUploaded);
    }
}

}  // namespace agent
