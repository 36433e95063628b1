#include "agent/run/SourceRestore.h"

namespace agent {

namespace {

// Only a damaged or hostile checkpoint makes so many files wait for each other.
constexpr std::size_t maxOpenFiles = 512;

}  // namespace

CSourceRestore::CSourceRestore(const CMetaState& state, CRestoreTarget& target, std::string prefix,
                               trouble_sink_t onTrouble)
    : target_(target),
      prefix_(std::move(prefix)),
      onTrouble_(std::move(onTrouble)),
      plan_(MakeRestorePlan(state)),
      failed_(plan_.files.size()),
      finished_(plan_.files.size()) {}

void CSourceRestore::Run(const SChunkSource& source) {
    MakeFolders();
    RestoreEmptyFiles();
    RestoreContent(source);
    RestoreCopies();
    RestoreOthers();
    FinishFolders();
}

std::string CSourceRestore::TargetPath(const std::string& path) const {
    return path.empty() ? prefix_ : prefix_.empty() ? path : prefix_ + "/" + path;
}

void CSourceRestore::Trouble(const std::string& path, const std::string& reason) {
    ++statistics_.errors;
    onTrouble_({"/" + path, reason});
}

template <class Action>
bool CSourceRestore::Try(const std::string& path, const Action& action) {
    try {
        action();
        return true;
    } catch (const std::exception& failure) {
        Trouble(TargetPath(path), failure.what());
        return false;
    }
}

void CSourceRestore::MakeFolders() {
    for (const auto& folder : plan_.folders) {
        const std::string& path = folder.first;
        statistics_.folders += Try(path, [&] { target_.MakeFolder(TargetPath(path)); }) ? 1U : 0U;
    }
    if (plan_.folders.empty()) {  // the root is a single file
        const auto slash = prefix_.find_last_of('/');
        target_.MakeFolder(slash == std::string::npos ? std::string() : prefix_.substr(0, slash));
    }
}

void CSourceRestore::RestoreEmptyFiles() {
    for (std::size_t i = 0; i < plan_.files.size(); ++i) {
        const auto& file = plan_.files[i];
        if (file.entry.segments.empty()) {
            Try(file.path, [&] { FinishFile(i, target_.CreateFile(TargetPath(file.path), file.entry.size)); });
        }
    }
}

void CSourceRestore::RestoreContent(const SChunkSource& source) {
    std::vector<SChunk> chunks;
    chunks.reserve(plan_.wanted.size());
    for (const auto& wanted : plan_.wanted) {
        chunks.push_back(wanted.chunk);
    }
    CChunkReader(source).Read(chunks, *this);
}

void CSourceRestore::OnChunk(std::size_t index, std::span<const char> plain) {
    for (const auto& piece : plan_.wanted[index].pieces) {
        if (failed_[piece.file]) {
            continue;
        }
        try {
            WritePiece(piece, plain.subspan(piece.chunkOffset, piece.length));
        } catch (const std::exception& failure) {
            GiveUp(piece.file, failure.what());
        }
    }
}

void CSourceRestore::OnDamagedChunk(std::size_t index, const std::exception& reason) {
    for (const auto& piece : plan_.wanted[index].pieces) {
        if (!failed_[piece.file]) {
            GiveUp(piece.file, reason.what());
        }
    }
}

void CSourceRestore::WritePiece(const SRestorePlan::SPiece& piece, std::span<const char> plain) {
    auto& file = plan_.files[piece.file];
    auto found = open_.find(piece.file);
    if (found == open_.end()) {
        if (open_.size() == maxOpenFiles) {
            throw exc::CRuntimeExc("too many files share the same content");
        }
        found = open_.emplace(piece.file, target_.CreateFile(TargetPath(file.path), file.entry.size)).first;
    }
    found->second.file.WriteAt(piece.fileOffset, plain);
    if (--file.pieces == 0) {
        STargetFile whole = std::move(found->second);
        open_.erase(found);
        FinishFile(piece.file, std::move(whole));
    }
}

void CSourceRestore::FinishFile(std::size_t index, STargetFile file) {
    const auto& planned = plan_.files[index];
    target_.FinishFile(std::move(file), planned.entry);
    finished_[index] = true;
    ++statistics_.files;
    statistics_.bytes += planned.entry.size;
}

void CSourceRestore::GiveUp(std::size_t index, const std::string& reason) {
    failed_[index] = true;
    open_.erase(index);
    Trouble(TargetPath(plan_.files[index].path), reason);
}

void CSourceRestore::RestoreCopies() {
    for (const auto& copy : plan_.copies) {
        const auto& file = plan_.files[copy.file];
        const auto& original = plan_.files[copy.original];
        if (!finished_[copy.original]) {
            Trouble(TargetPath(file.path), "has the content of '" + original.path + "', which could not be restored");
            continue;
        }
        Try(file.path, [&] {
            auto target = target_.CreateFile(TargetPath(file.path), file.entry.size);
            target_.CopyContent(TargetPath(original.path), target);
            FinishFile(copy.file, std::move(target));
        });
    }
}

void CSourceRestore::RestoreOthers() {
    for (const auto& other : plan_.others) {
        const auto restore = [&] { RestoreOther(TargetPath(other.first), other.second); };
        statistics_.others += Try(other.first, restore) ? 1U : 0U;
    }
}

void CSourceRestore::RestoreOther(const std::string& path, const SEntry& entry) {
    if (entry.type == EEntryType::symlink) {
        target_.MakeSymlink(path, entry);
    } else if (entry.type == EEntryType::hardLink) {
        target_.MakeHardLink(path, TargetPath(entry.target));
    } else {
        target_.MakeNode(path, entry);
    }
}

/// Deepest first: giving a folder its times and its mode comes after everything in it.
void CSourceRestore::FinishFolders() {
    for (auto folder = plan_.folders.rbegin(); folder != plan_.folders.rend(); ++folder) {
        Try(folder->first, [&] { target_.FinishFolder(TargetPath(folder->first), folder->second); });
    }
}

}  // namespace agent
