#include "agent/run/RepackVersions.h"

#include <algorithm>
#include <utility>

#include "agent/meta/FileExtent.h"
#include "agent/run/RootMetadata.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace backup = cloudbackuplib::backup;
using backup::checkpoint::CCloudStorageDescriptor;

namespace {

constexpr int mostTries = 16;

bool IsSameContent(const SChunk& a, const SChunk& b) {
    return a.streamOffset == b.streamOffset && a.plainSize == b.plainSize && a.storedSize == b.storedSize &&
           a.codec == b.codec && a.sha256 == b.sha256;
}

/// The run that stored a block does not count: a later one may have found it again.
bool IsSameBlock(const SBlockExternalId& a, const SBlockExternalId& b) {
    return a.id == b.id && a.keySetId == b.keySetId && a.number32 == b.number32;
}

/// What is to be put and removed so that `from` becomes `to`.
void AddEntryChanges(const CEntryTable& from, const CEntryTable& to, SMetaChanges& changes) {
    const SPathLess isLess;
    auto old = from.begin();
    for (const auto& [path, entry] : to) {
        for (; old != from.end() && isLess(old->GetPath(), path); ++old) {
            changes.removed.emplace(old->GetPath());
        }
        const bool isKnown = old != from.end() && old->GetPath() == path;
        if (!isKnown || old->GetEntry() != entry) {
            changes.entries.Put(path, entry);
        }
        if (isKnown) {
            ++old;
        }
    }
    for (; old != from.end(); ++old) {
        changes.removed.emplace(old->GetPath());
    }
}

backup::SMetaLocationDescr ReadPart(io::stg::IStgExtent& file, std::uint64_t offset, std::uint64_t size) {
    const auto bytes = std::make_shared<cnt::array_t<char>>(size);
    if (file.Read(offset, bytes->data(), size) != size) {
        throw exc::CRuntimeExc("Metadata that was just written is cut off at byte %1", offset);
    }
    backup::SMetaLocationDescr part;
    part.Size = size;
    part.Data.Set(bytes);
    return part;
}

}  // namespace

CVersionWriter::CVersionWriter(const backup::CCloudBackup& cloudBackup, const guid::guid_t& storageId, data_key_ptr key,
                               std::string folder, const chunk_moves_t& moves)
    : backup_(cloudBackup), storageId_(storageId), key_(std::move(key)), folder_(std::move(folder)), moves_(moves) {}

CVersionWriter::SPlaced CVersionWriter::Place(const CMetaState& state, const SChunk& chunk) const {
    const SBlockExternalId& block = state.GetBlocks()[chunk.block];
    const auto moved = moves_.find({{block.id}, chunk.blockOffset});
    return moved == moves_.end() ? SPlaced{&block, chunk.blockOffset}
                                 : SPlaced{&moved->second.block, moved->second.offset};
}

bool CVersionWriter::HasMoved(const CMetaState& state) const {
    return std::any_of(state.GetChunks().begin(), state.GetChunks().end(), [&](const SChunk& chunk) {
        return moves_.contains({{state.GetBlocks()[chunk.block].id}, chunk.blockOffset});
    });
}

std::optional<SWrittenVersion> CVersionWriter::Write(const CCloudStorageDescriptor& old, const CMetaState& state) {
    if (!HasMoved(state)) {
        return std::nullopt;
    }
    const std::uint64_t version = NewVersion(old.GetMetaVersion());
    SMetaTarget target{std::nullopt, exc::Format("%1/%2.%3", folder_, storageId_, version), storageId_, version, key_};
    std::optional<SMetaChanges> changes;
    if (!lastFile_.empty() && version > lastVersion_) {
        changes = ChangesFromLast(state);
    }
    if (changes) {
        target.oldPath = lastFile_;
    } else {
        last_ = {};
        lastParts_.clear();
        changes.emplace();
        AddChunks(state, 0, {}, *changes);
        changes->entries = state.GetEntries();
        changes->streamEnd = state.GetStreamEnd();
    }
    const SMetaLayout layout = WriteMeta(target, last_, std::move(*changes));
    CheckSame(state);
    if (!lastFile_.empty()) {
        util::fs_file_delete(lastFile_);
    }
    lastFile_ = target.newPath;
    lastVersion_ = version;
    return SWrittenVersion{Upload(old, layout), ReadMetaHeader(lastFile_).sha256.ToAStr()};
}

/// Nothing when the version does not go on from the last one.
std::optional<SMetaChanges> CVersionWriter::ChangesFromLast(const CMetaState& state) const {
    const auto& chunks = state.GetChunks();
    const auto& known = last_.GetChunks();
    if (state.GetStreamEnd() < last_.GetStreamEnd()) {
        return std::nullopt;
    }
    std::size_t first = 0;
    for (auto at = known.begin(); first < chunks.size() && chunks[first].streamOffset < last_.GetStreamEnd(); ++first) {
        at = std::partition_point(at, known.end(),
                                  [&](const SChunk& chunk) { return chunk.streamOffset < chunks[first].streamOffset; });
        const SPlaced place = Place(state, chunks[first]);
        if (at == known.end() || !IsSameContent(*at, chunks[first]) || at->blockOffset != place.offset ||
            !IsSameBlock(last_.GetBlocks()[at->block], *place.block)) {
            return std::nullopt;
        }
    }
    SMetaChanges changes;
    AddChunks(state, first, last_.GetBlocks(), changes);
    AddEntryChanges(last_.GetEntries(), state.GetEntries(), changes);
    changes.streamEnd = state.GetStreamEnd();
    return changes;
}

void CVersionWriter::AddChunks(const CMetaState& state, std::size_t first, const std::vector<SBlockExternalId>& known,
                               SMetaChanges& changes) const {
    std::map<digest::md5_digest_t, std::uint32_t> indexes;
    for (std::size_t i = 0; i < known.size(); ++i) {
        indexes.emplace(digest::md5_digest_t{known[i].id}, static_cast<std::uint32_t>(i));
    }
    for (std::size_t i = first; i < state.GetChunks().size(); ++i) {
        SChunk chunk = state.GetChunks()[i];
        const SPlaced place = Place(state, chunk);
        const auto next = static_cast<std::uint32_t>(known.size() + changes.blocks.size());
        const auto [index, isNew] = indexes.try_emplace(digest::md5_digest_t{place.block->id}, next);
        if (isNew) {
            changes.blocks.push_back(*place.block);
        }
        chunk.block = index->second;
        chunk.blockOffset = place.offset;
        changes.chunks.push_back(chunk);
    }
}

/// What was written says of the content what the version said for which it stands; else it must not stand for it.
void CVersionWriter::CheckSame(const CMetaState& state) const {
    bool isSame = last_.GetEntries() == state.GetEntries() && last_.GetStreamEnd() == state.GetStreamEnd() &&
                  last_.GetChunks().size() == state.GetChunks().size();
    for (std::size_t i = 0; isSame && i < state.GetChunks().size(); ++i) {
        const SChunk& written = last_.GetChunks()[i];
        const SPlaced place = Place(state, state.GetChunks()[i]);
        isSame = IsSameContent(written, state.GetChunks()[i]) && written.blockOffset == place.offset &&
                 IsSameBlock(last_.GetBlocks()[written.block], *place.block);
    }
    if (!isSame) {
        throw exc::CRuntimeExc("The metadata of storage %1 is not the same when it is written anew: nothing is changed",
                               storageId_);
    }
}

/// One that no object in the store has.
std::uint64_t CVersionWriter::NewVersion(std::uint64_t old) const {
    for (int i = 0; i < mostTries; ++i) {
        const std::uint64_t version = MakeMetaVersionBeside(old);
        const std::string header =
            backup::paths::GetBackupMetaItemPath(backup_.GetBackupId(), exc::Format("%1.%2", storageId_, version));
        if (version != old && version != lastVersion_ && !backup_.GetBackupClient()->IsFileExist(header)) {
            return version;
        }
    }
    throw exc::CRuntimeExc("No version beside %1 of storage %2 is free", old, storageId_);
}

CCloudStorageDescriptor CVersionWriter::Upload(const CCloudStorageDescriptor& old, const SMetaLayout& layout) {
    CFileExtent file(lastFile_);
    backup::parts_map_t parts;
    parts.emplace(0, ReadPart(file, 0, layout.headerSize));
    for (const auto& bank : layout.banks) {
        if (bank.isNew) {
            parts.emplace(bank.offset, ReadPart(file, bank.offset, bank.size));
        }
    }
    backup_.UploadMetadata(storageId_, layout.version, parts);
    std::erase_if(lastParts_, [&](const auto& part) {
        return std::none_of(layout.banks.begin(), layout.banks.end(),
                            [&](const auto& bank) { return bank.offset == part.first && !bank.isNew; });
    });
    const std::string name = exc::Format("%1.%2", storageId_, layout.version);
    const auto describe = [&] {
        return CCloudStorageDescriptor(storageId_, name, layout.version, file.GetSize(), old.GetBlockStoreSchema(),
                                       lastParts_);
    };
    backup_.UpdateMetaLocationMapForCheckpoint({describe(), std::move(parts)}, lastParts_);
    return describe();
}

}  // namespace agent
