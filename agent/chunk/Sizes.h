#pragma once

#include <cstdint>

namespace agent {

/// Where the content stream is cut into chunks, in plain bytes. Two runs find each other's chunks only with the same
/// sizes. `average` is the size around which the chunker aims, a power of two.
struct SChunkSizes {
    std::uint32_t minimum = 128U << 10U;
    std::uint32_t average = 512U << 10U;
    std::uint32_t maximum = 2U << 20U;
};

/// How much a block gathers, in stored bytes. A block that holds `minimum` ends behind a chunk that its content picks,
/// on average after `minimum` + `spread` bytes, and before a chunk that would take it past `maximum`.
struct SBlockSizes {
    std::uint32_t minimum = 2U << 20U;
    std::uint32_t spread = 2U << 20U;
    std::uint32_t maximum = 8U << 20U;
};

/// No chunk of any version is larger, plain or stored, but for what sealing adds: what a reader allows a table of
/// chunks to claim.
inline constexpr std::uint32_t maxChunkSize = 2U << 20U;

}  // namespace agent
