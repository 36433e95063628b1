#pragma once

#include "agent/chunk/ChunkCodec.h"
#include "agent/keys/DataKey.h"

namespace agent {

/// The nonce of a chunk: the same for the same stored form, so that a repeated run gives the same blocks.
///
/// A chunk's key belongs to its plain content. What can be sealed with it are the forms that zstd gives that content,
/// one for each version and level, so those make the nonce, with the codec and the form's size: version (u32,
/// little-endian), level (u8), codec (u8), size (u32, little-endian), two zeros.
[[nodiscard]] seal_nonce_t ChunkNonce(const SStoredChunk& chunk, int zstdLevel);

}  // namespace agent
