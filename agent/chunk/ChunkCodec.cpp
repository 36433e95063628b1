#include "agent/chunk/ChunkCodec.h"

#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <new>

#include "common/exc.h"

namespace agent {

namespace {

void CheckZstd(std::size_t result, const char* operation) {
    if (ZSTD_isError(result) != 0U) {
        throw exc::CRuntimeExc("zstd failed to %1: %2", operation, ZSTD_getErrorName(result));
    }
}

void CheckSize(std::size_t size, std::size_t expected) {
    if (size != expected) {
        throw exc::CRuntimeExc("the stored bytes give %1 bytes instead of %2", size, expected);
    }
}

}  // namespace

void CChunkCompressor::SFree::operator()(ZSTD_CCtx_s* context) const noexcept { ZSTD_freeCCtx(context); }

CChunkCompressor::CChunkCompressor(int level) : context_(ZSTD_createCCtx()) {
    if (!context_) {
        throw std::bad_alloc();
    }
    CheckZstd(ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_compressionLevel, level), "set the level");
    // The table of chunks holds both.
    CheckZstd(ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_contentSizeFlag, 0), "leave out the size");
    CheckZstd(ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_checksumFlag, 0), "leave out the checksum");
}

SStoredChunk CChunkCompressor::Compress(std::span<const char> plain, std::span<char> room) {
    if (plain.empty()) {
        return {EChunkCodec::plain, plain};
    }
    // With a byte less room than the plain bytes take, what is not smaller does not fit.
    const std::size_t size = ZSTD_compress2(context_.get(), room.data(), std::min(room.size(), plain.size() - 1),
                                            plain.data(), plain.size());
    if (ZSTD_getErrorCode(size) == ZSTD_error_dstSize_tooSmall) {
        return {EChunkCodec::plain, plain};
    }
    CheckZstd(size, "compress");
    return {EChunkCodec::zstd, room.first(size)};
}

void CChunkDecompressor::SFree::operator()(ZSTD_DCtx_s* context) const noexcept { ZSTD_freeDCtx(context); }

CChunkDecompressor::CChunkDecompressor() : context_(ZSTD_createDCtx()) {
    if (!context_) {
        throw std::bad_alloc();
    }
}

void CChunkDecompressor::Decompress(const SStoredChunk& stored, std::span<char> plain) {
    if (stored.codec == EChunkCodec::plain) {
        CheckSize(stored.bytes.size(), plain.size());
        std::ranges::copy(stored.bytes, plain.begin());
        return;
    }
    const std::size_t size =
        ZSTD_decompressDCtx(context_.get(), plain.data(), plain.size(), stored.bytes.data(), stored.bytes.size());
    CheckZstd(size, "decompress");
    CheckSize(size, plain.size());
}

}  // namespace agent
