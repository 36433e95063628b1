#include "cloudbackuplib/StgMetaCache.h"

#include <algorithm>
#include <boost/thread/lock_guard.hpp>
#include <utility>

#include "common/exc.h"
#include "common/posix.h"

namespace cloudbackuplib::backup::cache {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

// 5,120 bytes below 4 GiB.
constexpr unsigned long maxMetadataSize = 0xFFFFEC00UL;

/// Fewer bytes than wanted. Internal: the loaders do not know which storage they read, their callers do.
struct SShortRead {
    unsigned long offset;
    unsigned long wanted;
    unsigned long available;
};

std::shared_ptr<io::stg::IStgExtent> GetLiveExtent(const CStgMetaCache::SCachedStorageRec& record) {
    return record.Extent.IsSet() ? record.Extent.Get().lock() : nullptr;
}

/// Reads a range through `readAt(offset, data, size)`. What is not there is refused before memory is taken for it: the
/// size may come from a damaged layout.
template <class ReadAt>
std::shared_ptr<cnt::array_t<char>> ReadRange(unsigned long offset, unsigned long wanted, unsigned long totalSize,
                                              const ReadAt& readAt) {
    const unsigned long there = offset < totalSize ? totalSize - offset : 0;
    if (wanted > there) {
        throw SShortRead{offset, wanted, there};
    }
    auto buffer = std::make_shared<cnt::array_t<char>>(wanted);
    if (wanted > 0) {
        if (const std::size_t got = readAt(offset, buffer->data(), wanted); got != wanted) {
            throw SShortRead{offset, wanted, got};
        }
    }
    return buffer;
}

template <class ReadAt>
void ReadParts(parts_map_t& parts, unsigned long totalSize, const ReadAt& readAt) {
    for (auto& [offset, part] : parts) {
        part.Data.Set(ReadRange(offset, part.Size, totalSize, readAt));
    }
}

auto FileReader(posix::posix_file_t& file) {
    return [&file](unsigned long offset, void* data, std::size_t size) {
        file.SeekFromBegin(offset);
        return file.Read(data, size);
    };
}

auto ExtentReader(io::stg::IStgExtent& extent) {
    return [&extent](unsigned long offset, void* data, std::size_t size) { return extent.Read(offset, data, size); };
}

[[noreturn]] void ThrowShort(const guid::guid_t& storageId, const std::string& source, const SShortRead& failure) {
    throw exc::CRuntimeExc("Cannot load metadata for storage '%1': '%2' bytes wanted at offset '%3' of %4, '%5' there",
                           storageId, failure.wanted, failure.offset, source, failure.available);
}

/// A part whose size differs from the one known. The header's size is reported by itself.
bool HasResizedPart(const parts_map_t& known, const parts_map_t& reported) {
    return std::any_of(reported.begin(), reported.end(), [&](const auto& entry) {
        const auto found = known.find(entry.first);
        return entry.first != 0 && found != known.end() && found->second.Size != entry.second.Size;
    });
}

}  // namespace

CStgMetaCache::CStgMetaCache() = default;

void CStgMetaCache::Put(const guid::guid_t& storageId, const std::string& localPath, unsigned long version) {
    const lock_t lock(Mutex);
    CheckNotSuspendedLocked();
    SCachedStorageRec record;
    record.LocalPath = localPath;
    record.Version = version;
    Records.insert_or_assign(storageId, std::move(record));
}

void CStgMetaCache::Pop(const guid::guid_t& storageId) {
    const lock_t lock(Mutex);
    CheckNotSuspendedLocked();
    Records.erase(storageId);
}

bool CStgMetaCache::Relocate(const guid::guid_t& storageId, unsigned long version, const std::string& localPath,
                             bool keepUpdates) {
    const lock_t lock(Mutex);
    CheckNotSuspendedLocked();
    const auto found = Records.find(storageId);
    if (found == Records.end() || found->second.Version != version) {
        return false;
    }
    SCachedStorageRec record;
    record.LocalPath = localPath;
    record.Version = version;
    if (keepUpdates) {
        record.Extent.Set({});
        record.UpdatedParts.swap(found->second.UpdatedParts);
        record.MetaParts.swap(found->second.MetaParts);
        record.HeaderSize = found->second.HeaderSize;
        std::swap(record.Reported, found->second.Reported);
    }
    found->second = std::move(record);
    return true;
}

bool CStgMetaCache::Find(const guid::guid_t& storageId, std::string& localPath, unsigned long& version) const {
    const lock_t lock(Mutex);
    const auto found = Records.find(storageId);
    if (found == Records.end()) {
        return false;
    }
    localPath = found->second.LocalPath;
    version = found->second.Version;
    return true;
}

void CStgMetaCache::Update(const guid::guid_t& storageId, unsigned long version,
                           std::shared_ptr<io::stg::IStgExtent> extent, const parts_map_t& updatedParts,
                           const parts_map_t& metaParts, unsigned long headerSize) {
    const lock_t lock(Mutex);
    CheckNotSuspendedLocked();
    const auto found = Records.find(storageId);
    if (found == Records.end()) {
        throw exc::CRuntimeExc("Cannot update storage '%1': cache record not found", storageId);
    }
    // All that can fail comes first; merging moves nodes and leaves those behind whose offsets are known already.
    parts_map_t newUpdatedParts = updatedParts;
    parts_map_t newMetaParts = metaParts;
    SCachedStorageRec& record = found->second;
    if (headerSize != 0 || !metaParts.empty()) {
        const bool resized = record.Reported.Resized || HasResizedPart(record.MetaParts, metaParts);
        SReportedLayout reported{metaParts, headerSize, resized};
        std::swap(record.Reported, reported);
    }
    record.Extent.Set(extent);
    record.Version = version;
    record.UpdatedParts.merge(newUpdatedParts);
    record.MetaParts.merge(newMetaParts);
    record.HeaderSize = headerSize;
}

std::map<guid::guid_t, unsigned long> CStgMetaCache::EnumUpdates() const {
    const lock_t lock(Mutex);
    std::map<guid::guid_t, unsigned long> updates;
    for (const auto& [storageId, record] : Records) {
        if (record.Extent.IsSet()) {
            updates.emplace_hint(updates.end(), storageId, record.Version);
        }
    }
    return updates;
}

CStgMetaCache::SMetaDataDescriptor CStgMetaCache::GetMetadataDescriptor(const guid::guid_t& storageId) const {
    const lock_t lock(Mutex);
    const SCachedStorageRec& record =
        GetRecordLocked(storageId, "Cannot get metadata descriptor for storage '%1': cache record not found");
    return {record.UpdatedParts, record.MetaParts, record.HeaderSize};
}

CStgMetaCache::SReportedLayout CStgMetaCache::GetReportedLayout(const guid::guid_t& storageId) const {
    const lock_t lock(Mutex);
    return GetRecordLocked(storageId, "Cannot get metadata layout for storage '%1': cache record not found").Reported;
}

std::shared_ptr<cnt::array_t<char>> CStgMetaCache::Load(const guid::guid_t& storageId) const {
    std::shared_ptr<io::stg::IStgExtent> extent;  // outlives the lock: letting go of it may run the writer's code
    const lock_t lock(Mutex);
    CheckSuspendedLocked();
    const SCachedStorageRec& record =
        GetRecordLocked(storageId, "Cannot load metadata for storage '%1': cache record not found");
    try {
        extent = GetLiveExtent(record);
        return extent ? LoadFromExtent(extent) : LoadFromFile(record.LocalPath);
    } catch (const SShortRead& failure) {
        ThrowShort(storageId, extent ? "the writer's extent" : "file '" + record.LocalPath + "'", failure);
    }
}

unsigned long CStgMetaCache::LoadParts(const guid::guid_t& storageId, parts_map_t& parts) const {
    std::shared_ptr<io::stg::IStgExtent> extent;  // outlives the lock: letting go of it may run the writer's code
    const lock_t lock(Mutex);
    CheckSuspendedLocked();
    const SCachedStorageRec& record =
        GetRecordLocked(storageId, "Cannot load metadata for storage '%1': cache record not found");
    try {
        extent = GetLiveExtent(record);
        return extent ? LoadPartsFromExtent(extent, parts) : LoadPartsFromFile(record.LocalPath, parts);
    } catch (const SShortRead& failure) {
        ThrowShort(storageId, extent ? "the writer's extent" : "file '" + record.LocalPath + "'", failure);
    }
}

void CStgMetaCache::SuspendForCheckpoint() {
    const lock_t lock(Mutex);
    CheckNotSuspendedLocked();
    Suspended = true;
}

void CStgMetaCache::Resume(bool clearUpdates) {
    const lock_t lock(Mutex);
    CheckSuspendedLocked();
    if (clearUpdates) {
        for (auto& [storageId, record] : Records) {
            record.Extent.Reset();
        }
    }
    Suspended = false;
}

void CStgMetaCache::CheckSuspended() const {
    const lock_t lock(Mutex);
    CheckSuspendedLocked();
}

void CStgMetaCache::CheckNotSuspended() const {
    const lock_t lock(Mutex);
    CheckNotSuspendedLocked();
}

std::uint32_t CStgMetaCache::CastMetadataSizeExc(unsigned long size) {
    if (size > maxMetadataSize) {
        throw exc::CRuntimeExc("Storage metadata size '%1' is too large", size);
    }
    return static_cast<std::uint32_t>(size);
}

std::shared_ptr<cnt::array_t<char>> CStgMetaCache::LoadFromFile(const std::string& path) const {
    auto file = posix::posix_file_t::Open4Read(path);
    const std::uint32_t size = CastMetadataSizeExc(file.GetSize());
    return ReadRange(0, size, size, FileReader(file));
}

std::shared_ptr<cnt::array_t<char>> CStgMetaCache::LoadFromExtent(std::shared_ptr<io::stg::IStgExtent> extent) const {
    const std::uint32_t size = CastMetadataSizeExc(extent->GetSize());
    return ReadRange(0, size, size, ExtentReader(*extent));
}

unsigned long CStgMetaCache::LoadPartsFromFile(const std::string& path, parts_map_t& parts) const {
    auto file = posix::posix_file_t::Open4Read(path);
    ReadParts(parts, file.GetSize(), FileReader(file));
    return file.GetSize();
}

unsigned long CStgMetaCache::LoadPartsFromExtent(std::shared_ptr<io::stg::IStgExtent> extent,
                                                 parts_map_t& parts) const {
    ReadParts(parts, extent->GetSize(), ExtentReader(*extent));
    return extent->GetSize();
}

const CStgMetaCache::SCachedStorageRec& CStgMetaCache::GetRecordLocked(const guid::guid_t& storageId,
                                                                       std::string_view notFound) const {
    const auto found = Records.find(storageId);
    if (found == Records.end()) {
        throw exc::CRuntimeExc(notFound, storageId);
    }
    return found->second;
}

void CStgMetaCache::CheckSuspendedLocked() const {
    if (!Suspended) {
        throw exc::CRuntimeExc("Storage cache is not suspended");
    }
}

void CStgMetaCache::CheckNotSuspendedLocked() const {
    if (Suspended) {
        throw exc::CRuntimeExc("Storage cache is suspended for checkpoint");
    }
}

}  // namespace cloudbackuplib::backup::cache
