#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/meta/EntryTable.h"
#include "agent/model/Entry.h"
#include "agent/model/PathOrder.h"
#include "cloudbackuplib/BlockExternalId.h"
#include "common/digest.h"

namespace agent {

using cloudbackuplib::backup::SBlockExternalId;

/// A run of entries that stand together.
class CEntryRange {
public:
    using iterator = CEntryTable::const_iterator;

    CEntryRange(iterator begin, iterator end) : begin_(begin), end_(end) {}
    [[nodiscard]] iterator begin() const { return begin_; }
    [[nodiscard]] iterator end() const { return end_; }

private:
    iterator begin_;
    iterator end_;
};

/// What one run changes in a storage's metadata.
struct SMetaChanges {
    /// New blocks; they follow those that the table has. `number32` is the size of the block's object in bytes.
    std::vector<SBlockExternalId> blocks;
    /// New chunks, by ascending stream offsets, all behind the stream's end so far.
    std::vector<SChunk> chunks;
    /// Entries that are new or replace those of the same paths.
    CEntryTable entries;
    /// Paths that are no more; taken away before the entries are put.
    std::set<std::string, SPathLess> removed;
    /// Where the stream ends at least, whatever becomes of the last chunks.
    std::uint64_t streamEnd = 0;

    /// Throws exc::CRuntimeExc for an entry or a path that does not hold together; nothing is changed then.
    CEntryRef Put(const std::string& path, const SEntry& entry);
    [[nodiscard]] bool IsEmpty() const;
};

/// Which chunks a segment of an entry needs, and which blocks such a chunk.
struct SMetaUsage {
    std::vector<bool> chunks;
    std::vector<bool> blocks;
    std::uint64_t chunkCount = 0;
    std::uint64_t blockCount = 0;
};

/// All that a storage's metadata says at one version: the table of blocks, the chunks of the content stream, the
/// entries. A plain value, about 150 bytes per entry and 64 per chunk. For one thread; const operations from several.
///
/// As it is read or written it holds only chunks that some entry needs: no others may get a new reference, since their
/// blocks may have been cleared. Blocks keep their places in the table, also those that nothing needs any more.
/// Operations throw exc::CRuntimeExc for what does not fit.
class CMetaState {
public:
    [[nodiscard]] const std::vector<SBlockExternalId>& GetBlocks() const { return blocks_; }
    /// By ascending stream offsets, without overlap; gaps are what nothing needs any more.
    [[nodiscard]] const std::vector<SChunk>& GetChunks() const { return chunks_; }
    [[nodiscard]] const CEntryTable& GetEntries() const { return entries_; }
    /// Where the content stream ends; new chunks begin there.
    [[nodiscard]] std::uint64_t GetStreamEnd() const { return streamEnd_; }

    [[nodiscard]] std::optional<SEntry> Find(std::string_view path) const;
    /// The entry of the path and all that lie under it, in the order of a walk.
    [[nodiscard]] CEntryRange EntriesAt(std::string_view path) const;
    /// The chunks that hold any of the bytes; without gaps for a segment of an entry.
    [[nodiscard]] std::span<const SChunk> FindChunks(std::uint64_t streamOffset, std::uint64_t length) const;

    /// The blocks that some entry needs; all others of the table may be cleared once no other version needs them.
    [[nodiscard]] std::vector<SBlockExternalId> GetUsedBlocks() const;

    /// Checks all that entries, chunks and blocks say of each other, and tells what is needed.
    [[nodiscard]] SMetaUsage Check() const;

    void Apply(SMetaChanges&& changes);
    void AddBlock(const SBlockExternalId& block);
    void AddChunk(const SChunk& chunk);
    void PutEntry(std::string_view path, CPackedView entry);
    void RemoveEntry(std::string_view path);
    /// The stream never ends before its last chunk does.
    void SetStreamEnd(std::uint64_t streamEnd);

    /// Lets go the chunks that nothing needs.
    void DropUnusedChunks(const SMetaUsage& usage);
    /// Lets go such chunks, and such blocks too: the others get new places in the table.
    void Compact(const SMetaUsage& usage);

    /// The digest of the header that the state was read or written with; empty for a state that is in no file yet.
    [[nodiscard]] const std::optional<digest::sha256_digest_t>& GetOrigin() const { return origin_; }
    void SetOrigin(const digest::sha256_digest_t& headerDigest) { origin_ = headerDigest; }

    /// Equal content; where it came from does not count.
    friend bool operator==(const CMetaState& a, const CMetaState& b) {
        return a.blocks_ == b.blocks_ && a.chunks_ == b.chunks_ && a.entries_ == b.entries_ &&
               a.streamEnd_ == b.streamEnd_;
    }

private:
    std::vector<SBlockExternalId> blocks_;
    std::vector<SChunk> chunks_;
    CEntryTable entries_;
    std::uint64_t streamEnd_ = 0;
    std::optional<digest::sha256_digest_t> origin_;
};

}  // namespace agent
