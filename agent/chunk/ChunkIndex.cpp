#include "agent/chunk/ChunkIndex.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "common/exc.h"

namespace agent {

namespace {

constexpr std::uint32_t noPosition = ~std::uint32_t{0};
constexpr std::size_t fewestSlots = 64;

std::size_t HashOf(const digest::sha256_digest_t& sha256) {
    std::size_t hash = 0;
    std::memcpy(&hash, sha256.bytes.data(), sizeof(hash));
    return hash;
}

/// At most two thirds of the slots are taken.
std::size_t SlotsFor(std::size_t count) { return std::bit_ceil(std::max(fewestSlots, count + count / 2 + 1)); }

}  // namespace

void CChunkIndex::Reserve(std::size_t count) {
    if (slots_.empty()) {
        slots_.assign(SlotsFor(count), noPosition);
    }
}

void CChunkIndex::Add(table_t table, std::size_t position) {
    if (position >= noPosition) {
        throw exc::CRuntimeExc("A table of %1 chunks is too large.", position + 1);
    }
    if (SlotsFor(count_ + 1) > slots_.size()) {
        Resize(table, SlotsFor(count_ + 1));
    }
    std::uint32_t& slot = slots_[FindSlot(table, table[position].sha256)];
    if (slot == noPosition) {
        slot = static_cast<std::uint32_t>(position);
        ++count_;
    }
}

const SChunk* CChunkIndex::Find(table_t table, const digest::sha256_digest_t& sha256) const {
    if (slots_.empty()) {
        return nullptr;
    }
    const std::uint32_t position = slots_[FindSlot(table, sha256)];
    return position == noPosition ? nullptr : &table[position];
}

/// The slot that holds the content, or the free one where it belongs.
std::size_t CChunkIndex::FindSlot(table_t table, const digest::sha256_digest_t& sha256) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = HashOf(sha256) & mask;
    while (slots_[slot] != noPosition && table[slots_[slot]].sha256 != sha256) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

void CChunkIndex::Resize(table_t table, std::size_t slots) {
    const std::vector<std::uint32_t> old = std::exchange(slots_, std::vector<std::uint32_t>(slots, noPosition));
    for (const std::uint32_t position : old) {
        if (position != noPosition) {
            slots_[FindSlot(table, table[position].sha256)] = position;
        }
    }
}

}  // namespace agent
