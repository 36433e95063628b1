#pragma once

#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "agent/chunk/ChunkCodec.h"
#include "agent/chunk/RangeDownloads.h"
#include "cloudclientlib/WorkerPool.h"

namespace agent {

/// A wanted chunk on its way to the sink.
struct SDecodeSlot {
    const SChunk* chunk = nullptr;
    CRangeDownloads::range_ptr source;
    /// Null for a chunk that is not sealed.
    data_key_ptr key;
    std::unique_ptr<char[]> plain;
    /// Why there are no plain bytes.
    std::exception_ptr failure;
    task::task_ptr done;

    [[nodiscard]] std::span<const char> Plain() const { return {plain.get(), chunk->plainSize}; }
};

/// Unseals, restores and checks chunks on worker threads and gives them back in the order in which they came.
///
/// A ring of slots: the caller submits while it is not full and takes the oldest back. Called from one thread. Failures
/// are in the slots: an exc::CRuntimeExc for bytes that are not the chunk's. The destructor waits for what is at work.
class CChunkDecoder {
public:
    explicit CChunkDecoder(std::size_t threads);

    [[nodiscard]] bool IsFull() const { return tail_ - head_ == slots_.size(); }
    [[nodiscard]] bool IsEmpty() const { return tail_ == head_; }
    /// A sound chunk (FindChunkFault), the range that holds it, and the key when it is sealed.
    void Submit(const SChunk& chunk, CRangeDownloads::range_ptr source, data_key_ptr key);
    /// A chunk that needs no work, since it cannot be had.
    void SubmitFailed(const SChunk& chunk, std::exception_ptr failure);
    /// Tries a slot that failed with other bytes, in the caller's thread.
    void DecodeAgain(SDecodeSlot& slot, CRangeDownloads::range_ptr source);
    /// Waits for the oldest.
    [[nodiscard]] SDecodeSlot& WaitFront();
    void PopFront();
    /// Waits for everything at work, and forgets it.
    void Clear() noexcept;

private:
    SDecodeSlot& NextSlot(const SChunk& chunk);
    void Decode(SDecodeSlot& slot, std::size_t worker);
    struct STools {
        CChunkDecompressor decompressor;
        CSealer sealer;
        std::unique_ptr<char[]> unsealed;
    };
    STools& ToolsOf(std::size_t worker);
    /// The chunk as it was compressed; in the slot's source or in the tools.
    [[nodiscard]] static SStoredChunk Unseal(const SDecodeSlot& slot, STools& tools);

    std::vector<std::optional<STools>> tools_;  // each one its worker's, the last the caller's
    std::vector<SDecodeSlot> slots_;            // from head_ to tail_ the workers', the others the caller's
    std::size_t head_ = 0;                      // the caller's
    std::size_t tail_ = 0;                      // the caller's

    task::CWorkerPool workers_;  // last: gone before what its jobs use
};

}  // namespace agent
