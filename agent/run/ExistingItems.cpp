#include "agent/run/ExistingItems.h"

#include <algorithm>
#include <span>

#include "common/digest.h"
#include "common/exc.h"

namespace agent {

namespace {

/// Reads the places of a chunk's pieces; false when the file ends before them.
bool ReadPieces(const posix::posix_file_t& file, const SRestorePlan::SWanted& wanted, std::vector<char>& buffer) {
    buffer.resize(wanted.chunk->plainSize);
    for (const auto& piece : wanted.pieces) {
        if (file.ReadAt(piece.fileOffset, buffer.data() + piece.chunkOffset, piece.length) != piece.length) {
            return false;
        }
    }
    return true;
}

/// Whether the file has a chunk's bytes where they belong; only for a chunk that is the file's alone.
bool HasChunk(const posix::posix_file_t& file, const SRestorePlan::SWanted& wanted, std::vector<char>& buffer) {
    std::uint64_t covered = 0;
    for (const auto& piece : wanted.pieces) {
        covered += piece.length;
    }
    return covered == wanted.chunk->plainSize && ReadPieces(file, wanted, buffer) &&
           digest::Sha256(buffer) == wanted.chunk->sha256;
}

bool HasContent(const posix::posix_file_t& file, const SEntry& entry, std::vector<char>& buffer) {
    if (!entry.contentSha256 || entry.size > smallFileSize) {
        return false;
    }
    buffer.resize(entry.size);
    return file.ReadAt(0, buffer.data(), buffer.size()) == entry.size && digest::Sha256(buffer) == *entry.contentSha256;
}

/// Notes where a chunk's pieces are, with the digests of what was read there.
void AddLocal(const SRestorePlan::SWanted& wanted, const std::vector<char>& plain,
              std::vector<SRestorePlan::SLocalRange>& local) {
    for (const auto& piece : wanted.pieces) {
        const std::span<const char> bytes(plain.data() + piece.chunkOffset, piece.length);
        const bool isAll = piece.length == wanted.chunk->plainSize;
        local.push_back({{piece.fileOffset, piece.length}, isAll ? wanted.chunk->sha256 : digest::Sha256(bytes)});
    }
}

bool IsWithoutHoles(const SEntry& entry) {
    std::uint64_t covered = 0;
    for (const auto& segment : entry.segments) {
        covered += segment.length;
    }
    return covered == entry.size;
}

}  // namespace

std::string STargetMapping::Map(const std::string& path) const {
    const std::string rest = PathUnder(path, strip);
    return rest.empty() ? prefix : prefix.empty() ? rest : prefix + "/" + rest;
}

EPlanned CExistingItems::Judge(const std::string& path, const SEntry& entry,
                               const std::vector<SRestorePlan::SWanted>& pieces,
                               std::vector<SRestorePlan::SLocalRange>& local) {
    const std::string target = mapping_.Map(path);
    const auto now = target_.Find(target);
    if (!now) {
        return EPlanned::create;
    }
    const bool isFolder = entry.type == EEntryType::directory;
    if (isFolder && now->type == EEntryType::directory) {
        return rule_ == EOverwrite::never ? EPlanned::skip : EPlanned::keep;
    }
    if (rule_ == EOverwrite::never) {
        return EPlanned::skip;
    }
    if (rule_ == EOverwrite::always || isFolder) {
        return EPlanned::replace;
    }
    if (rule_ == EOverwrite::ifNewer && entry.mtime <= now->mtime) {
        return EPlanned::skip;
    }
    if (entry.type == EEntryType::file && now->type == EEntryType::file) {
        return JudgeFile(target, *now, entry, pieces, local);
    }
    return IsSameOther(target, *now, entry) ? EPlanned::keep : EPlanned::replace;
}

bool CExistingItems::IsSameFile(const std::string& path, const SEntry& entry) {
    if (compareContent_) {
        return false;  // nobody has looked
    }
    const auto now = target_.Find(mapping_.Map(path));
    return now && now->type == EEntryType::file && now->size == entry.size && now->mtime == entry.mtime;
}

bool CExistingItems::IsSameOther(const std::string& path, const SEntry& now, const SEntry& entry) {
    return now.type == entry.type && now.rdev == entry.rdev &&
           (entry.type != EEntryType::symlink || target_.ReadLink(path) == entry.target);
}

EPlanned CExistingItems::JudgeFile(const std::string& path, const SEntry& now, const SEntry& entry,
                                   const std::vector<SRestorePlan::SWanted>& pieces,
                                   std::vector<SRestorePlan::SLocalRange>& local) {
    const bool looksSame = now.size == entry.size && now.mtime == entry.mtime;
    if (looksSame && (!compareContent_ || entry.size == 0)) {
        return EPlanned::keep;
    }
    const posix::posix_file_t file = target_.OpenFile(path);
    if (now.size == entry.size && HasContent(file, entry, buffer_)) {
        return EPlanned::keep;
    }
    std::size_t found = 0;
    for (const auto& wanted : pieces) {
        if (HasChunk(file, wanted, buffer_)) {
            ++found;
            AddLocal(wanted, buffer_, local);
        }
    }
    const auto byOffset = [](const auto& a, const auto& b) { return a.offset < b.offset; };
    std::sort(local.begin(), local.end(), byOffset);
    const bool isSame = found == pieces.size() && now.size == entry.size && IsWithoutHoles(entry);
    return isSame ? EPlanned::keep : EPlanned::replace;
}

}  // namespace agent
