#include "agent/chunk/BlockBuilder.h"

#include <cstring>
#include <utility>

#include "common/exc.h"

namespace agent {

namespace {

constexpr std::uint32_t largestBlock = 1U << 30U;

}  // namespace

CBlockBuilder::CBlockBuilder(const SBlockSizes& sizes) : sizes_(sizes) {
    if (sizes.minimum == 0 || sizes.spread == 0 || sizes.minimum > sizes.maximum || sizes.maximum > largestBlock) {
        throw exc::CRuntimeExc("Block sizes %1, %2, %3 cannot be used.", sizes.minimum, sizes.spread, sizes.maximum);
    }
}

void CBlockBuilder::Open(buffer_ptr buffer) {
    buffer->clear();
    buffer->reserve(sizes_.maximum);  // growing would copy the block several times
    block_ = std::move(buffer);
}

bool CBlockBuilder::HasRoom(std::size_t storedSize) const {
    return block_->empty() || block_->size() + storedSize <= sizes_.maximum;
}

CBlockBuilder::SPlace CBlockBuilder::Add(std::span<const char> stored, const digest::sha256_digest_t& sha256) {
    const auto offset = static_cast<std::uint32_t>(block_->size());
    block_->insert(block_->end(), stored.begin(), stored.end());
    return {offset, block_->size() >= sizes_.minimum && IsPicked(stored.size(), sha256)};
}

/// With a chance of the chunk's part of the spread: so the average block does not depend on the size of chunks.
bool CBlockBuilder::IsPicked(std::size_t storedSize, const digest::sha256_digest_t& sha256) const {
    std::uint32_t draw = 0;
    std::memcpy(&draw, sha256.bytes.data(), sizeof(draw));
    return std::uint64_t{draw} * sizes_.spread < (std::uint64_t{storedSize} << 32U);
}

CBlockBuilder::buffer_ptr CBlockBuilder::Close() { return std::exchange(block_, nullptr); }

}  // namespace agent
