#include "agent/chunk/ReadPlan.h"

#include <algorithm>

#include "agent/chunk/ChunkCheck.h"
#include "agent/chunk/Sizes.h"

namespace agent {

namespace {

constexpr std::uint64_t largestRange = SBlockSizes{}.maximum;
/// What a store sends in about the time that another request takes to be answered.
constexpr std::uint64_t cheaperThanARequest = 512U << 10U;

}  // namespace

SReadRange PlanRange(std::span<const SChunk> wanted, std::size_t first,
                     std::span<const cloudbackuplib::backup::SBlockExternalId> blocks) {
    std::uint64_t begin = wanted[first].blockOffset;
    std::uint64_t end = begin + wanted[first].storedSize;
    std::size_t last = first + 1;
    for (; last < wanted.size(); ++last) {
        const SChunk& next = wanted[last];
        if (next.block != wanted[first].block || !FindChunkFault(next, blocks).empty()) {
            break;
        }
        const std::uint64_t newBegin = std::min<std::uint64_t>(begin, next.blockOffset);
        const std::uint64_t newEnd = std::max<std::uint64_t>(end, std::uint64_t{next.blockOffset} + next.storedSize);
        const std::uint64_t added = (newEnd - newBegin) - (end - begin);
        if (newEnd - newBegin > largestRange || added > next.storedSize + cheaperThanARequest) {
            break;
        }
        begin = newBegin;
        end = newEnd;
    }
    return {wanted[first].block, begin, end - begin, first, last};
}

}  // namespace agent
