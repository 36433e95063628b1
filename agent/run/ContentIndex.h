#pragma once

#include <optional>
#include <string>
#include <unordered_map>

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
    /// Remembers a file that this run has read.
    void Add(const SEntry& entry);

private:
    struct SHash {
        std::size_t operator()(const digest::sha256_digest_t& sha256) const;
    };
    struct SContent {
        std::uint64_t size;
        std::vector<SSegment> segments;
    };

    void LoadKnown();

    const CMetaState& known_;
    bool loaded_ = false;
    std::unordered_map<std::uint64_t, const std::string*> pathOfInode_;
    std::unordered_map<digest::sha256_digest_t, SContent, SHash> content_;
};

}  // namespace agent
