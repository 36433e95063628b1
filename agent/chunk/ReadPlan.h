#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "agent/model/Entry.h"
#include "cloudbackuplib/BlockExternalId.h"

namespace agent {

/// Wanted chunks that one ranged download brings: those from `first` to before `last`, all of one block.
struct SReadRange {
    std::uint32_t block = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    std::size_t first = 0;
    std::size_t last = 0;
};

/// The range that begins with the wanted chunk `first`, which is sound (FindChunkFault): wanted chunks that follow are
/// taken along while they are sound and lie in the same block (in any order), little that is not wanted lies between,
/// and the range stays under the largest block. So a block that is wanted nearly whole is one download.
[[nodiscard]] SReadRange PlanRange(std::span<const SChunk> wanted, std::size_t first,
                                   std::span<const cloudbackuplib::backup::SBlockExternalId> blocks);

}  // namespace agent
