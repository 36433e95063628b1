#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "agent/chunk/ChunkCodec.h"
#include "agent/chunk/ChunkSealing.h"
#include "agent/chunk/ChunkTable.h"
#include "cloudclientlib/AsyncTask.h"
#include "cloudclientlib/WorkerPool.h"

namespace agent {

/// A chunk on its way: its bytes, then what the workers found out about it.
struct SChunkSlot {
    std::unique_ptr<char[]> plain;
    std::uint32_t plainSize = 0;
    digest::sha256_digest_t sha256;
    /// Where the content is stored already.
    std::optional<SChunk> known;
    /// When it is not known: its stored form, in `room` or `plain`; sealed where there is a key.
    SStoredChunk stored;
    std::unique_ptr<char[]> room;

    task::task_ptr done;
    std::exception_ptr failure;

    [[nodiscard]] std::span<const char> Plain() const { return {plain.get(), plainSize}; }
};

/// Digests, compresses and seals chunks on worker threads and gives them back in the order in which they came.
///
/// A ring of slots: the caller fills the current one, submits it, and takes the oldest back when the ring is full.
/// Slots and their buffers are made once and used again. Called from one thread. The destructor waits for what is at
/// work.
class CChunkPipeline {
public:
    /// The table is asked from the workers; it outlives the pipeline. Without a key nothing is sealed.
    CChunkPipeline(const CChunkTable& table, std::size_t threads, std::uint32_t maximum, int zstdLevel,
                   data_key_ptr key);

    /// No slot is free: the oldest chunk must be taken back first.
    [[nodiscard]] bool IsFull() const { return tail_ - head_ == slots_.size(); }
    [[nodiscard]] bool IsEmpty() const { return tail_ == head_; }
    /// The slot being filled; not when full.
    [[nodiscard]] SChunkSlot& Current() { return slots_[tail_ % slots_.size()]; }
    /// Appends to the current slot; no more than the maximum in all.
    void Fill(std::span<const char> data);
    /// Hands the current slot to the workers.
    void Submit();
    /// Waits for the oldest chunk; throws its failure.
    [[nodiscard]] SChunkSlot& WaitFront();
    /// The oldest chunk's slot is free again.
    void PopFront();
    /// Waits for everything at work, and forgets it.
    void Clear() noexcept;

private:
    void Prepare(SChunkSlot& slot, std::size_t worker);
    struct STools {
        explicit STools(int zstdLevel) : compressor(zstdLevel) {}
        CChunkCompressor compressor;
        CSealer sealer;
    };
    STools& ToolsOf(std::size_t worker);

    const CChunkTable& table_;
    const std::uint32_t maximum_;
    const int zstdLevel_;
    const data_key_ptr key_;
    std::vector<std::optional<STools>> tools_;  // each one its worker's

    std::vector<SChunkSlot> slots_;  // from head_ to tail_ the workers', the others the caller's
    std::size_t head_ = 0;           // the caller's
    std::size_t tail_ = 0;           // the caller's

    task::CWorkerPool workers_;  // last: gone before what its jobs use
};

}  // namespace agent
