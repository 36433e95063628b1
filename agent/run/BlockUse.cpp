#include "agent/run/BlockUse.h"

#include <algorithm>
#include <limits>

namespace agent {

namespace {

constexpr std::uint32_t notAsked = std::numeric_limits<std::uint32_t>::max();

}  // namespace

std::vector<std::uint32_t> CBlockUse::Add(const CMetaState& state) {
    const auto& table = state.GetBlocks();
    std::vector<std::uint32_t> indexes(table.size(), notAsked);  // ours, by the places in the version's table
    const std::size_t before = chunks_.size();
    for (const auto& chunk : state.GetChunks()) {
        std::uint32_t& index = indexes.at(chunk.block);
        if (index == notAsked) {
            index = IndexOf(table[chunk.block]);
        }
        chunks_.push_back({index, chunk.blockOffset, chunk.storedSize});
    }
    const auto middle = chunks_.begin() + static_cast<std::ptrdiff_t>(before);
    std::sort(middle, chunks_.end());
    std::inplace_merge(chunks_.begin(), middle, chunks_.end());
    chunks_.erase(std::unique(chunks_.begin(), chunks_.end()), chunks_.end());
    std::erase(indexes, notAsked);
    std::sort(indexes.begin(), indexes.end());
    return indexes;
}

std::uint32_t CBlockUse::IndexOf(const SBlockExternalId& block) {
    const auto next = static_cast<std::uint32_t>(blocks_.size());
    return blocks_.try_emplace(digest::md5_digest_t{block.id}, SBlock{next, block.number32}).first->second.index;
}

std::vector<std::uint64_t> CBlockUse::CountUsedBytes() const {
    std::vector<std::uint64_t> used(blocks_.size());
    for (const auto& chunk : chunks_) {
        used[chunk.block] += chunk.size;
    }
    return used;
}

std::uint64_t CBlockUse::CountUnusedBytes() const {
    const auto used = CountUsedBytes();
    std::uint64_t unused = 0;
    for (const auto& [digest, block] : blocks_) {
        unused += block.size - std::min(block.size, used[block.index]);
    }
    return unused;
}

}  // namespace agent
