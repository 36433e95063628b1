#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "agent/meta/MetaState.h"
#include "agent/model/Entry.h"

namespace agent {

/// Finds content that the storage has already: of files that were moved, and of small files that are copies.
///
/// Looks into the known state only when first asked: an unchanged source never asks. For one thread; the known state
/// must outlive it.
class CContentIndex {
public:
    explicit CContentIndex(const CMetaState& known) : known_(known) {}

    /// The known entry of the very file that `now` describes, under whatever name: same inode, made, written and
    /// changed at the same times, of the same size, as with all in a folder that was moved. A file that was renamed
    /// itself has another ctime, and so has one that was edited and given its old mtime again: nobody can tell the two
    /// apart, so both are read. Nothing where the file system does not tell when an inode was made: a freed inode
    /// may have come back with another file of the same size and date.
    [[nodiscard]] std::optional<SEntry> FindMoved(const SEntry& now, bool ignoreCtime);
    /// A file of the same content, from the known state or from this run.
    [[nodiscard]] std::optional<std::vector<SSegment>> FindCopy(const digest::sha256_digest_t& sha256,
                                                                std::uint64_t size);
    /// Remembers a file that this run has read, where it is recorded: it must stay there. One without a digest is of no
    /// use.
    void Add(CEntryRef file);

private:
    void LoadKnown();
    [[nodiscard]] std::optional<SEntry> FindContent(const digest::sha256_digest_t& sha256, std::uint64_t size) const;
    void Add(CEntryRef file, const SEntry& entry);

    const CMetaState& known_;
    bool loaded_ = false;
    std::vector<std::pair<std::uint64_t, CEntryRef>> knownByInode_;  // sorted: a map takes three times the memory
    std::unordered_multimap<std::uint64_t, CEntryRef> byDigest_;     // by its first bytes: the entries have it whole
};

}  // namespace agent
