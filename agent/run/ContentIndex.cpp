#include "agent/run/ContentIndex.h"

#include <algorithm>
#include <cstring>

namespace agent {

namespace {

std::uint64_t KeyOf(const digest::sha256_digest_t& sha256) {
    std::uint64_t key = 0;
    std::memcpy(&key, sha256.bytes.data(), sizeof(key));
    return key;
}

}  // namespace

void CContentIndex::LoadKnown() {
    if (loaded_) {
        return;
    }
    loaded_ = true;
    knownByInode_.reserve(known_.GetEntries().size());
    for (const CEntryRef item : known_.GetEntries()) {
        if (item.GetEntry().GetType() != EEntryType::file) {
            continue;
        }
        const SEntry entry = item.GetEntry().Unpack();
        if (entry.btime != STime{} && !entry.recheck) {
            knownByInode_.emplace_back(entry.inode, item);
        }
        Add(item, entry);
    }
    // Of several with one inode the first in the order of a walk is the one that is found.
    std::ranges::stable_sort(knownByInode_, {}, &std::pair<std::uint64_t, CEntryRef>::first);
}

std::optional<SEntry> CContentIndex::FindMoved(const SEntry& now, bool ignoreCtime) {
    if (now.btime == STime{}) {
        return std::nullopt;
    }
    LoadKnown();
    const auto found =
        std::ranges::lower_bound(knownByInode_, now.inode, {}, &std::pair<std::uint64_t, CEntryRef>::first);
    if (found == knownByInode_.end() || found->first != now.inode) {
        return std::nullopt;
    }
    std::optional<SEntry> entry = found->second.GetEntry().Unpack();
    const bool same = entry->btime == now.btime && entry->mtime == now.mtime && entry->size == now.size &&
                      (ignoreCtime || entry->ctime == now.ctime);
    return same ? std::move(entry) : std::nullopt;
}

std::optional<SEntry> CContentIndex::FindContent(const digest::sha256_digest_t& sha256, std::uint64_t size) const {
    const auto [begin, end] = byDigest_.equal_range(KeyOf(sha256));
    for (auto place = begin; place != end; ++place) {
        SEntry entry = place->second.GetEntry().Unpack();
        if (entry.contentSha256 == sha256 && entry.size == size) {
            return entry;
        }
    }
    return std::nullopt;
}

std::optional<std::vector<SSegment>> CContentIndex::FindCopy(const digest::sha256_digest_t& sha256,
                                                             std::uint64_t size) {
    LoadKnown();
    auto found = FindContent(sha256, size);
    return found ? std::optional(std::move(found->segments)) : std::nullopt;
}

void CContentIndex::Add(CEntryRef file) { Add(file, file.GetEntry().Unpack()); }

void CContentIndex::Add(CEntryRef file, const SEntry& entry) {
    if (entry.contentSha256 && !FindContent(*entry.contentSha256, entry.size)) {
        byDigest_.emplace(KeyOf(*entry.contentSha256), file);
    }
}

}  // namespace agent
