#include "agent/meta/MetaState.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "agent/chunk/ChunkCheck.h"
#include "agent/meta/MetaLimits.h"
#include "common/exc.h"

namespace agent {

namespace {

std::uint64_t EndOf(const SChunk& chunk) { return chunk.streamOffset + chunk.plainSize; }

}  // namespace

CEntryRef SMetaChanges::Put(const std::string& path, const SEntry& entry) {
    CheckEntryPath(path);
    return entries.Put(path, CPackedEntry(entry));
}

bool SMetaChanges::IsEmpty() const { return blocks.empty() && chunks.empty() && entries.empty() && removed.empty(); }

std::optional<SEntry> CMetaState::Find(std::string_view path) const {
    const CEntryRef found = entries_.Find(path);
    return found.IsNull() ? std::nullopt : std::optional(found.GetEntry().Unpack());
}

CEntryRange CMetaState::EntriesAt(std::string_view path) const {
    if (path.empty()) {
        return {entries_.begin(), entries_.end()};
    }
    // Nothing stands between what lies under a path and its next sibling, whose name goes on with 1 at least.
    return {entries_.LowerBound(path), entries_.LowerBound(std::string(path) + '\1')};
}

std::span<const SChunk> CMetaState::FindChunks(std::uint64_t streamOffset, std::uint64_t length) const {
    if (length == 0) {
        return {};
    }
    const std::uint64_t last = streamOffset + std::min(length - 1, ~streamOffset);
    const auto begin = std::partition_point(chunks_.begin(), chunks_.end(),
                                            [&](const SChunk& chunk) { return EndOf(chunk) <= streamOffset; });
    const auto end =
        std::partition_point(begin, chunks_.end(), [&](const SChunk& chunk) { return chunk.streamOffset <= last; });
    return {begin, end};
}

std::vector<SBlockExternalId> CMetaState::GetUsedBlocks() const {
    const SMetaUsage usage = Check();
    std::vector<SBlockExternalId> used;
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        if (usage.blocks[i]) {
            used.push_back(blocks_[i]);
        }
    }
    return used;
}

void CMetaState::Apply(SMetaChanges&& changes) {
    for (const auto& block : changes.blocks) {
        AddBlock(block);
    }
    for (const auto& chunk : changes.chunks) {
        if (chunk.streamOffset < streamEnd_) {
            throw exc::CRuntimeExc("a new chunk begins at %1, before the stream's end at %2", chunk.streamOffset,
                                   streamEnd_);
        }
        AddChunk(chunk);
    }
    for (const auto& path : changes.removed) {
        RemoveEntry(path);
    }
    entries_.PutAll(std::move(changes.entries));
    SetStreamEnd(std::max(streamEnd_, changes.streamEnd));
}

void CMetaState::AddBlock(const SBlockExternalId& block) {
    if (blocks_.size() == std::numeric_limits<std::uint32_t>::max()) {
        throw exc::CRuntimeExc("more blocks than a table can hold");
    }
    blocks_.push_back(block);
}

void CMetaState::AddChunk(const SChunk& chunk) {
    if (!meta::IsWithin(chunk.streamOffset, chunk.plainSize, meta::maxOffset)) {
        throw exc::CRuntimeExc("a chunk at stream offset %1 is beyond all bounds", chunk.streamOffset);
    }
    if (!chunks_.empty() && chunk.streamOffset < EndOf(chunks_.back())) {
        throw exc::CRuntimeExc("chunks overlap or are out of order at stream offset %1", chunk.streamOffset);
    }
    if (const std::string fault = FindChunkFault(chunk, blocks_); !fault.empty()) {
        throw exc::CRuntimeExc("the chunk at stream offset %1: %2", chunk.streamOffset, fault);
    }
    chunks_.push_back(chunk);
    streamEnd_ = std::max(streamEnd_, EndOf(chunk));
}

void CMetaState::PutEntry(std::string_view path, CPackedView entry) {
    CheckEntryPath(path);
    entries_.Put(path, entry);
}

void CMetaState::RemoveEntry(std::string_view path) {
    if (!entries_.Erase(path)) {
        throw exc::CRuntimeExc("entry '%1' is removed and not there", path);
    }
}

void CMetaState::SetStreamEnd(std::uint64_t streamEnd) {
    if (streamEnd > meta::maxOffset || streamEnd < streamEnd_) {
        throw exc::CRuntimeExc("the stream cannot end at %1 with a chunk that ends at %2", streamEnd, streamEnd_);
    }
    streamEnd_ = streamEnd;
}

void CMetaState::DropUnusedChunks(const SMetaUsage& usage) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < chunks_.size(); ++i) {
        if (usage.chunks[i]) {
            chunks_[kept++] = chunks_[i];
        }
    }
    chunks_.resize(kept);
    chunks_.shrink_to_fit();
}

void CMetaState::Compact(const SMetaUsage& usage) {
    DropUnusedChunks(usage);
    std::vector<std::uint32_t> places(blocks_.size());
    std::vector<SBlockExternalId> kept;
    kept.reserve(usage.blockCount);
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        places[i] = static_cast<std::uint32_t>(kept.size());
        if (usage.blocks[i]) {
            kept.push_back(blocks_[i]);
        }
    }
    for (auto& chunk : chunks_) {
        chunk.block = places[chunk.block];
    }
    blocks_ = std::move(kept);
}

}  // namespace agent
