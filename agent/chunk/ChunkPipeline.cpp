#include "agent/chunk/ChunkPipeline.h"

#include <algorithm>

namespace agent {

namespace {

/// Enough that no worker waits while the caller reads on, and no more than 32 chunks in memory.
std::size_t PipelineSlots(std::size_t threads) { return std::clamp<std::size_t>(4 * threads, 4, 32); }

}  // namespace

CChunkPipeline::CChunkPipeline(const CChunkTable& table, std::size_t threads, std::uint32_t maximum, int zstdLevel,
                               data_key_ptr key)
    : table_(table),
      maximum_(maximum),
      zstdLevel_(zstdLevel),
      key_(std::move(key)),
      tools_(threads),
      slots_(PipelineSlots(threads)),
      workers_(threads) {}

void CChunkPipeline::Fill(std::span<const char> data) {
    SChunkSlot& slot = Current();
    if (!slot.plain) {
        slot.plain = std::make_unique_for_overwrite<char[]>(maximum_);
        slot.room = std::make_unique_for_overwrite<char[]>(maximum_ + sealOverhead);
    }
    std::ranges::copy(data, slot.plain.get() + slot.plainSize);
    slot.plainSize += static_cast<std::uint32_t>(data.size());
}

void CChunkPipeline::Submit() {
    SChunkSlot& slot = Current();
    slot.failure = nullptr;
    slot.known.reset();
    slot.done = workers_.Submit([this, &slot](std::size_t worker) {
        try {
            Prepare(slot, worker);
        } catch (...) {
            slot.failure = std::current_exception();
        }
    });
    ++tail_;
}

void CChunkPipeline::Prepare(SChunkSlot& slot, std::size_t worker) {
    slot.sha256 = digest::Sha256(slot.Plain());
    slot.known = table_.Find(slot.sha256, slot.plainSize);
    if (slot.known) {
        return;
    }
    STools& tools = ToolsOf(worker);
    const std::span<char> room(slot.room.get(), maximum_ + sealOverhead);
    slot.stored = tools.compressor.Compress(slot.Plain(), room.subspan(sealNonceSize, maximum_));
    if (key_) {
        slot.stored.bytes = tools.sealer.Seal(key_->ChunkKey(slot.sha256), ChunkNonce(slot.stored, zstdLevel_), "",
                                              slot.stored.bytes, room);
    }
}

CChunkPipeline::STools& CChunkPipeline::ToolsOf(std::size_t worker) {
    std::optional<STools>& tools = tools_[worker];
    if (!tools) {
        tools.emplace(zstdLevel_);
    }
    return *tools;
}

SChunkSlot& CChunkPipeline::WaitFront() {
    SChunkSlot& slot = slots_[head_ % slots_.size()];
    slot.done->Wait();
    if (slot.failure) {
        std::rethrow_exception(slot.failure);
    }
    return slot;
}

void CChunkPipeline::PopFront() {
    slots_[head_ % slots_.size()].plainSize = 0;
    ++head_;
}

void CChunkPipeline::Clear() noexcept {
    for (; !IsEmpty(); PopFront()) {
        slots_[head_ % slots_.size()].done->Wait();
    }
    Current().plainSize = 0;
}

}  // namespace agent
