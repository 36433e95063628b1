#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "agent/model/Entry.h"

struct ZSTD_CCtx_s;
struct ZSTD_DCtx_s;

namespace agent {

/// The stored form of a chunk.
struct SStoredChunk {
    EChunkCodec codec = EChunkCodec::plain;
    std::span<const char> bytes;
};

/// Compresses chunks, each by itself, with zstd. For one thread at a time; keeps zstd's working memory between chunks.
/// The result depends on the chunk and the level alone. Failures are exc::CRuntimeExc.
class CChunkCompressor {
public:
    explicit CChunkCompressor(int level);

    /// The bytes to store: compressed, lying in `room` (which must be as large as `plain`), or `plain` itself when
    /// compression makes nothing smaller.
    [[nodiscard]] SStoredChunk Compress(std::span<const char> plain, std::span<char> room);

private:
    struct SFree {
        void operator()(ZSTD_CCtx_s* context) const noexcept;
    };
    std::unique_ptr<ZSTD_CCtx_s, SFree> context_;
};

/// Restores the plain bytes of chunks. For one thread at a time. What it is given may be anything: it allocates nothing
/// after construction and writes nothing outside `plain`.
class CChunkDecompressor {
public:
    CChunkDecompressor();

    /// Fills `plain`, exactly. Throws exc::CRuntimeExc when the stored bytes give anything else.
    void Decompress(const SStoredChunk& stored, std::span<char> plain);

private:
    struct SFree {
        void operator()(ZSTD_DCtx_s* context) const noexcept;
    };
    std::unique_ptr<ZSTD_DCtx_s, SFree> context_;
};

}  // namespace agent
