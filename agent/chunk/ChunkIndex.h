#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "agent/model/Entry.h"

namespace agent {

/// Finds chunks of a table by their SHA-256. Holds positions only (8 bytes a chunk, about): the table belongs to the
/// caller, who gives it with every call and appends to it at most. Reading is safe from many threads while none adds.
class CChunkIndex {
public:
    using table_t = std::span<const SChunk>;

    /// Makes room for so many chunks.
    void Reserve(std::size_t count);
    /// A chunk whose content the index has already is left out. Throws exc::CRuntimeExc for a position past 2^32 - 2.
    void Add(table_t table, std::size_t position);
    [[nodiscard]] const SChunk* Find(table_t table, const digest::sha256_digest_t& sha256) const;

private:
    [[nodiscard]] std::size_t FindSlot(table_t table, const digest::sha256_digest_t& sha256) const;
    void Resize(table_t table, std::size_t slots);

    std::vector<std::uint32_t> slots_;  // a power of two of them, or none; open addressing
    std::size_t count_ = 0;
};

}  // namespace agent
