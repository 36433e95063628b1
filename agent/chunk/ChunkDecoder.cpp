#include "agent/chunk/ChunkDecoder.h"

#include <algorithm>
#include <utility>

#include "agent/chunk/Sizes.h"
#include "common/exc.h"

namespace agent {

namespace {

std::size_t DecoderSlots(std::size_t threads) { return std::clamp<std::size_t>(4 * threads, 4, 16); }

std::span<const char> StoredBytes(const SChunk& chunk, const SRangeDownload& source) {
    const std::span<const char> bytes(*source.bytes);
    const SReadRange& range = source.range;
    if (chunk.block != range.block || chunk.blockOffset < range.offset) {
        throw exc::CRuntimeExc("it does not lie in the bytes %1 to %2 of block %3, which were taken for its own",
                               range.offset, range.offset + range.size, range.block);
    }
    const std::uint64_t offset = chunk.blockOffset - range.offset;
    if (bytes.size() < chunk.storedSize || bytes.size() - chunk.storedSize < offset) {
        throw exc::CRuntimeExc("of the bytes %1 to %2 asked for only %3 came", range.offset, range.offset + range.size,
                               bytes.size());
    }
    return bytes.subspan(offset, chunk.storedSize);
}

}  // namespace

CChunkDecoder::CChunkDecoder(std::size_t threads)
    : tools_(threads + 1), slots_(DecoderSlots(threads)), workers_(threads) {}

void CChunkDecoder::Submit(const SChunk& chunk, CRangeDownloads::range_ptr source, data_key_ptr key) {
    SDecodeSlot& slot = NextSlot(chunk);
    slot.source = std::move(source);
    slot.key = std::move(key);
    if (!slot.plain) {
        slot.plain = std::make_unique_for_overwrite<char[]>(maxChunkSize);
    }
    slot.done = workers_.Submit([this, &slot](std::size_t worker) { Decode(slot, worker); });
    ++tail_;
}

void CChunkDecoder::DecodeAgain(SDecodeSlot& slot, CRangeDownloads::range_ptr source) {
    slot.source = std::move(source);
    slot.failure = nullptr;
    Decode(slot, tools_.size() - 1);
}

void CChunkDecoder::SubmitFailed(const SChunk& chunk, std::exception_ptr failure) {
    NextSlot(chunk).failure = std::move(failure);
    ++tail_;
}

SDecodeSlot& CChunkDecoder::NextSlot(const SChunk& chunk) {
    SDecodeSlot& slot = slots_[tail_ % slots_.size()];
    slot.chunk = &chunk;
    slot.failure = nullptr;
    slot.done = nullptr;
    return slot;
}

void CChunkDecoder::Decode(SDecodeSlot& slot, std::size_t worker) {
    const SChunk& chunk = *slot.chunk;
    try {
        STools& tools = ToolsOf(worker);
        tools.decompressor.Decompress(Unseal(slot, tools), {slot.plain.get(), chunk.plainSize});
        if (digest::Sha256(slot.Plain()) != chunk.sha256) {
            throw exc::CRuntimeExc("its content does not have the SHA-256 %1", chunk.sha256);
        }
    } catch (...) {
        slot.failure = std::current_exception();
    }
}

SStoredChunk CChunkDecoder::Unseal(const SDecodeSlot& slot, STools& tools) {
    const SChunk& chunk = *slot.chunk;
    const std::span<const char> stored = StoredBytes(chunk, *slot.source);
    if (!slot.key) {
        return {chunk.codec, stored};
    }
    if (!tools.unsealed) {
        tools.unsealed = std::make_unique_for_overwrite<char[]>(maxChunkSize);
    }
    const std::span<char> unsealed(tools.unsealed.get(), stored.size() - sealOverhead);
    tools.sealer.Open(slot.key->ChunkKey(chunk.sha256), "", stored, unsealed);
    return {chunk.codec, unsealed};
}

CChunkDecoder::STools& CChunkDecoder::ToolsOf(std::size_t worker) {
    std::optional<STools>& tools = tools_[worker];
    if (!tools) {
        tools.emplace();
    }
    return *tools;
}

SDecodeSlot& CChunkDecoder::WaitFront() {
    SDecodeSlot& slot = slots_[head_ % slots_.size()];
    if (slot.done) {
        slot.done->Wait();
    }
    return slot;
}

void CChunkDecoder::PopFront() {
    slots_[head_ % slots_.size()].source = nullptr;
    ++head_;
}

void CChunkDecoder::Clear() noexcept {
    for (; !IsEmpty(); PopFront()) {
        static_cast<void>(WaitFront());
    }
}

}  // namespace agent
