#include "agent/chunk/ChunkCheck.h"

#include "agent/chunk/Sizes.h"
#include "agent/keys/Sealing.h"
#include "common/format.h"

namespace agent {

namespace {

/// `room` is the stored size without what sealing added.
std::string FindSizeFault(const SChunk& chunk, std::uint32_t room) {
    if (chunk.plainSize == 0 || chunk.plainSize > maxChunkSize) {
        return exc::Format("its plain size %1 is not between 1 and %2", chunk.plainSize, maxChunkSize);
    }
    switch (chunk.codec) {
        case EChunkCodec::plain:
            if (room != chunk.plainSize) {
                return exc::Format("it is stored plain, yet in %1 bytes instead of %2", room, chunk.plainSize);
            }
            return {};
        case EChunkCodec::zstd:
            if (room == 0 || room >= chunk.plainSize) {
                return exc::Format("its stored size %1 is not between 1 and its plain size %2", room, chunk.plainSize);
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
    const bool isSealed = blocks[chunk.block].keySetId != crypto::SRawKeySetId();
    if (isSealed && chunk.storedSize < sealOverhead) {
        return exc::Format("its stored size %1 is less than sealing adds", chunk.storedSize);
    }
    const auto room = static_cast<std::uint32_t>(chunk.storedSize - (isSealed ? sealOverhead : 0));
    if (std::string fault = FindSizeFault(chunk, room); !fault.empty()) {
        return fault;
    }
    const std::uint64_t blockSize = blocks[chunk.block].number32;
    const std::uint64_t end = std::uint64_t{chunk.blockOffset} + chunk.storedSize;
    return end <= blockSize ? std::string() : exc::Format("it ends at byte %1 of a block of %2 bytes", end, blockSize);
}

}  // namespace agent
