#include "agent/chunk/ChunkCheck.h"

#include "agent/chunk/Sizes.h"
#include "common/format.h"

namespace agent {

namespace {

std::string FindSizeFault(const SChunk& chunk) {
    if (chunk.plainSize == 0 || chunk.plainSize > maxChunkSize) {
        return exc::Format("its plain size %1 is not between 1 and %2", chunk.plainSize, maxChunkSize);
    }
    switch (chunk.codec) {
        case EChunkCodec::plain:
            if (chunk.storedSize != chunk.plainSize) {
                return exc::Format("it is stored plain, yet in %1 bytes instead of %2", chunk.storedSize,
                                   chunk.plainSize);
            }
            return {};
        case EChunkCodec::zstd:
            if (chunk.storedSize == 0 || chunk.storedSize >= chunk.plainSize) {
                return exc::Format("its stored size %1 is not between 1 and its plain size %2", chunk.storedSize,
                                   chunk.plainSize);
            }
            return {};
    }
    return exc::Format("its codec %1 is not known", static_cast<unsigned>(chunk.codec));
}

}  // namespace

std::string FindChunkFault(const SChunk& chunk, std::span<const cloudbackuplib::backup::SBlockExternalId> blocks) {
    if (chunk.block >= blocks.size()) {
        return exc::Format("the table of blocks has only %1", blocks.size());
    }
    if (std::string fault = FindSizeFault(chunk); !fault.empty()) {
        return fault;
    }
    const std::uint64_t blockSize = blocks[chunk.block].number32;
    const std::uint64_t end = std::uint64_t{chunk.blockOffset} + chunk.storedSize;
    return end <= blockSize ? std::string() : exc::Format("it ends at byte %1 of a block of %2 bytes", end, blockSize);
}

}  // namespace agent
