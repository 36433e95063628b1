#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "agent/chunk/Sizes.h"

namespace agent {

/// Finds where a stream of bytes is cut into chunks, by content: FastCDC (Xia et al., USENIX ATC 2016; IEEE TPDS 2020)
/// with a gear hash, the skipped minimum and normalised chunking of level 2.
///
/// A chunk ends behind the first byte, from the minimum on, at which the hash of the 64 bytes before has its highest
/// bits zero: two more than the average has below it, two fewer from there on. So a cut depends on the 64 bytes before
/// it and on where the chunk begins, never on how the bytes were handed over. For one thread; owns nothing.
class CChunker {
public:
    struct SCut {
        std::size_t size = 0;  ///< how many of the bytes given belong to the current chunk
        bool isEnd = false;    ///< the chunk ends behind them
    };

    /// Throws exc::CRuntimeExc for sizes that are not ascending, a minimum under 64 bytes, and an average that is no
    /// power of two or under 1 KiB.
    explicit CChunker(const SChunkSizes& sizes);

    /// Looks at the bytes that follow. After an end the next call begins a chunk.
    [[nodiscard]] SCut Next(std::span<const char> data);
    /// Ends the current chunk where it stands.
    void Restart();

private:
    void Skip(std::span<const char> data, std::size_t& at);
    void Warm(std::span<const char> data, std::size_t& at);
    bool Scan(std::span<const char> data, std::size_t& at, std::uint32_t limit, std::uint64_t mask);

    SChunkSizes sizes_;
    std::uint64_t strictMask_;
    std::uint64_t looseMask_;
    std::uint32_t length_ = 0;  // of the current chunk so far
    std::uint64_t hash_ = 0;
};

}  // namespace agent
