#include "clients/memory/MemoryStore.h"

#include <utility>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/ObjectPath.h"

using cloudclientlib::CCloudExc;
using cloudclientlib::CObjectNotFoundExc;
using cloudclientlib::EArchiveRetrievalStatus;
using cloudclientlib::EFailure;
using cloudclientlib::EStorageTier;
using cloudclientlib::SCloudObjectInfo;
using cloudclientlib::SStorageQuota;

namespace clients {

namespace {

[[noreturn]] void Refuse(const SMemoryPath& path, EFailure kind, const char* reason) {
    throw CCloudExc({kind, false, path.operation, path.given, reason});
}

/// What every path under a folder begins with.
std::string PrefixOf(const std::string& folder) { return folder.empty() ? folder : folder + '/'; }

/// All entries under a folder stand together in the order of the map: from its prefix up to the first path that no
/// longer begins with it ('0' follows '/').
template <class Entries>
auto RangeUnder(Entries& entries, const std::string& folder) {
    if (folder.empty()) {
        return std::pair(entries.begin(), entries.end());
    }
    return std::pair(entries.lower_bound(folder + '/'), entries.lower_bound(folder + '0'));
}

/// Calls `visit` for each true parent of a plain path, from the top.
template <class Visitor>
void ForEachParent(const std::string& plain, const Visitor& visit) {
    for (auto end = plain.find('/'); end != std::string::npos; end = plain.find('/', end + 1)) {
        visit(plain.substr(0, end));
    }
}

}  // namespace

SMemoryPath::SMemoryPath(const char* operationName, const std::string& path)
    : operation(operationName), given(path), plain(cloudclientlib::NormalizeObjectPath(operationName, path)) {}

CMemoryStore::CMemoryStore(std::uint64_t quota, clock_t clock) : clock_(std::move(clock)) { state_.quota = quota; }

CMemoryStore::CMemoryStore(const CMemoryStore& other) : clock_(other.clock_), state_(other.CopyOfState()) {}

CMemoryStore& CMemoryStore::operator=(const CMemoryStore& other) {
    if (this != &other) {
        SState copy = other.CopyOfState();
        const std::lock_guard lock(mutex_);
        state_ = std::move(copy);
    }
    return *this;
}

CMemoryStore::SState CMemoryStore::CopyOfState() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

void CMemoryStore::Put(const SMemoryPath& path, content_ptr content) {
    const auto md5 = digest::Md5(*content);
    const std::lock_guard lock(mutex_);
    Store(path, std::move(content), md5);
}

CMemoryStore::content_ptr CMemoryStore::Read(const SMemoryPath& path) const {
    const std::lock_guard lock(mutex_);
    return GetReadable(path).content;
}

void CMemoryStore::Copy(const SMemoryPath& source, const SMemoryPath& target) {
    const std::lock_guard lock(mutex_);
    const SEntry& entry = GetReadable(source);
    if (source.plain != target.plain) {
        Store(target, entry.content, entry.md5);
    }
}

void CMemoryStore::DeleteObject(const SMemoryPath& path) {
    const std::lock_guard lock(mutex_);
    if (const SEntry* entry = FindObject(path.plain)) {
        state_.used -= entry->content->size();
        state_.entries.erase(path.plain);
    }
}

std::uint64_t CMemoryStore::GetSize(const SMemoryPath& path) const {
    const std::lock_guard lock(mutex_);
    return GetObject(path).content->size();
}

bool CMemoryStore::HasObject(const SMemoryPath& path) const {
    const std::lock_guard lock(mutex_);
    return FindObject(path.plain) != nullptr;
}

void CMemoryStore::CreateFolder(const SMemoryPath& path) {
    const std::lock_guard lock(mutex_);
    CheckParents(path);
    if (FindObject(path.plain) != nullptr) {
        Refuse(path, EFailure::conflict, "an object lies at the folder's path");
    }
    if (!path.plain.empty()) {
        CreateParents(path.plain);
        state_.entries.try_emplace(path.plain);
    }
}

std::uint64_t CMemoryStore::DeleteFolder(const SMemoryPath& path) {
    const std::lock_guard lock(mutex_);
    std::uint64_t count = 0;
    const auto [begin, end] = RangeUnder(state_.entries, path.plain);
    for (auto entry = begin; entry != end; entry = state_.entries.erase(entry)) {
        if (entry->second.content) {
            state_.used -= entry->second.content->size();
            ++count;
        }
    }
    if (FindObject(path.plain) == nullptr) {
        state_.entries.erase(path.plain);
    }
    return count;
}

bool CMemoryStore::HasFolder(const SMemoryPath& path) const {
    const std::lock_guard lock(mutex_);
    const auto found = state_.entries.find(path.plain);
    return path.plain.empty() || (found != state_.entries.end() && !found->second.content);
}

std::vector<SCloudObjectInfo> CMemoryStore::List(const SMemoryPath& path) const {
    const std::lock_guard lock(mutex_);
    const std::size_t prefix = PrefixOf(path.plain).size();
    std::vector<SCloudObjectInfo> result;
    auto [entry, end] = RangeUnder(state_.entries, path.plain);
    while (entry != end) {
        const auto& [name, value] = *entry;
        if (const auto slash = name.find('/', prefix); slash != std::string::npos) {
            entry = RangeUnder(state_.entries, name.substr(0, slash)).second;  // what lies in a sub-folder
            continue;
        }
        SCloudObjectInfo info;
        info.name = name.substr(prefix);
        info.isFolder = !value.content;
        if (value.content) {
            info.size = value.content->size();
            info.modified = value.modified;
            info.md5 = value.md5;
            info.tier = value.tier;
        }
        result.push_back(std::move(info));
        ++entry;
    }
    return result;
}

CMemoryStore::STotals CMemoryStore::GetTotals(const SMemoryPath& path) const {
    const std::lock_guard lock(mutex_);
    STotals totals;
    const auto [begin, end] = RangeUnder(state_.entries, path.plain);
    for (auto entry = begin; entry != end; ++entry) {
        if (entry->second.content) {
            ++totals.objects;
            totals.bytes += entry->second.content->size();
        }
    }
    return totals;
}

SStorageQuota CMemoryStore::GetQuota() const {
    const std::lock_guard lock(mutex_);
    return {.total = state_.quota, .used = state_.used};
}

void CMemoryStore::SetQuota(std::uint64_t total) {
    const std::lock_guard lock(mutex_);
    state_.quota = total;
}

void CMemoryStore::SetTier(const SMemoryPath& path, EStorageTier tier) {
    const std::lock_guard lock(mutex_);
    static_cast<void>(GetObject(path));
    SEntry& entry = state_.entries.at(path.plain);
    entry.tier = tier;
    entry.status = tier == EStorageTier::archive ? EArchiveRetrievalStatus::archived : EArchiveRetrievalStatus::online;
}

void CMemoryStore::Retrieve(const SMemoryPath& path) {
    const std::lock_guard lock(mutex_);
    if (GetObject(path).status == EArchiveRetrievalStatus::archived) {
        state_.entries.at(path.plain).status = EArchiveRetrievalStatus::inProgress;
    }
}

EArchiveRetrievalStatus CMemoryStore::GetStatus(const SMemoryPath& path) const {
    const std::lock_guard lock(mutex_);
    return GetObject(path).status;
}

void CMemoryStore::MoveRetrievals(EArchiveRetrievalStatus from, EArchiveRetrievalStatus to) {
    const std::lock_guard lock(mutex_);
    for (auto& [name, entry] : state_.entries) {
        if (entry.status == from) {
            entry.status = to;
        }
    }
}

const CMemoryStore::SEntry* CMemoryStore::FindObject(const std::string& plain) const {
    const auto found = state_.entries.find(plain);
    return found != state_.entries.end() && found->second.content ? &found->second : nullptr;
}

const CMemoryStore::SEntry& CMemoryStore::GetObject(const SMemoryPath& path) const {
    const SEntry* entry = FindObject(path.plain);
    if (entry == nullptr) {
        throw CObjectNotFoundExc(path.operation, path.given);
    }
    return *entry;
}

const CMemoryStore::SEntry& CMemoryStore::GetReadable(const SMemoryPath& path) const {
    const SEntry& entry = GetObject(path);
    if (entry.status == EArchiveRetrievalStatus::archived || entry.status == EArchiveRetrievalStatus::inProgress) {
        Refuse(path, EFailure::conflict, "the object is archived");
    }
    return entry;
}

void CMemoryStore::CheckPlaceForObject(const SMemoryPath& path) const {
    const auto found = state_.entries.find(path.plain);
    if (path.plain.empty() || (found != state_.entries.end() && !found->second.content)) {
        Refuse(path, EFailure::conflict, "a folder lies at the object's path");
    }
    CheckParents(path);
}

void CMemoryStore::CheckParents(const SMemoryPath& path) const {
    ForEachParent(path.plain, [&](const std::string& parent) {
        if (FindObject(parent) != nullptr) {
            Refuse(path, EFailure::conflict, "a parent in the path is an object");
        }
    });
}

void CMemoryStore::CheckQuota(const SMemoryPath& path, std::uint64_t oldSize, std::uint64_t newSize) const {
    const std::uint64_t others = state_.used - oldSize;
    if (newSize > oldSize && (others > state_.quota || newSize > state_.quota - others)) {
        Refuse(path, EFailure::quota, "the store is full");
    }
}

void CMemoryStore::CreateParents(const std::string& plain) {
    ForEachParent(plain, [&](const std::string& parent) { state_.entries.try_emplace(parent); });
}

void CMemoryStore::Store(const SMemoryPath& path, content_ptr content, const digest::md5_digest_t& md5) {
    CheckPlaceForObject(path);
    const SEntry* old = FindObject(path.plain);
    const std::uint64_t oldSize = old == nullptr ? 0 : old->content->size();
    CheckQuota(path, oldSize, content->size());
    CreateParents(path.plain);
    state_.used += content->size() - oldSize;
    state_.entries[path.plain] = SEntry{.content = std::move(content), .md5 = md5, .modified = Now()};
}

std::chrono::system_clock::time_point CMemoryStore::Now() {
    ++state_.writes;
    return clock_ ? clock_() : std::chrono::system_clock::time_point(std::chrono::seconds(state_.writes));
}

}  // namespace clients
