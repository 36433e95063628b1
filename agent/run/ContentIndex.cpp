#include "agent/run/ContentIndex.h"

#include <cstring>

namespace agent {

std::size_t CContentIndex::SHash::operator()(const digest::sha256_digest_t& sha256) const {
    std::size_t hash = 0;
    std::memcpy(&hash, sha256.bytes.data(), sizeof(hash));
    return hash;
}

void CContentIndex::LoadKnown() {
    if (loaded_) {
        return;
    }
    loaded_ = true;
    for (const auto& [path, packed] : known_.GetEntries()) {
        if (packed.GetType() != EEntryType::file) {
            continue;
        }
        const SEntry entry = packed.Unpack();
        if (entry.btime != STime{} && !entry.recheck) {
            pathOfInode_.emplace(entry.inode, &path);
        }
        Add(entry);
    }
}

std::optional<SEntry> CContentIndex::FindMoved(const SEntry& now, bool ignoreCtime) {
    if (now.btime == STime{}) {
        return std::nullopt;
    }
    LoadKnown();
    const auto found = pathOfInode_.find(now.inode);
    if (found == pathOfInode_.end()) {
        return std::nullopt;
    }
    auto entry = known_.Find(*found->second);
    const bool same = entry && entry->btime == now.btime && entry->mtime == now.mtime && entry->size == now.size &&
                      (ignoreCtime || entry->ctime == now.ctime);
    return same ? std::move(entry) : std::nullopt;
}

std::optional<std::vector<SSegment>> CContentIndex::FindCopy(const digest::sha256_digest_t& sha256,
                                                             std::uint64_t size) {
    LoadKnown();
    const auto found = content_.find(sha256);
    if (found == content_.end() || found->second.size != size) {
        return std::nullopt;
    }
    return found->second.segments;
}

void CContentIndex::Add(const SEntry& entry) {
    if (entry.contentSha256) {
        content_.emplace(*entry.contentSha256, SContent{entry.size, entry.segments});
    }
}

}  // namespace agent
