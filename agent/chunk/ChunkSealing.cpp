#include "agent/chunk/ChunkSealing.h"

#include <zstd.h>

namespace agent {

namespace {

void PutNumber(seal_nonce_t& nonce, std::size_t at, std::uint32_t number) {
    for (std::size_t i = 0; i < sizeof(number); ++i) {
        nonce[at + i] = static_cast<char>(number >> (8 * i) & 0xFFU);
    }
}

}  // namespace

seal_nonce_t ChunkNonce(const SStoredChunk& chunk, int zstdLevel) {
    seal_nonce_t nonce{};
    PutNumber(nonce, 0, ZSTD_versionNumber());
    nonce[4] = static_cast<char>(zstdLevel);
    nonce[5] = static_cast<char>(chunk.codec);
    PutNumber(nonce, 6, static_cast<std::uint32_t>(chunk.bytes.size()));
    return nonce;
}

}  // namespace agent
