#include "agent/run/SourceRestore.h"

#include <fcntl.h>

#include <algorithm>

#include "agent/chunk/ThreadCount.h"
#include "agent/fs/Attributes.h"
#include "agent/run/StoreFailure.h"
#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"
#include "common/logging.h"

namespace agent {

namespace {

// Only a damaged or hostile checkpoint makes so many files wait for each other.
constexpr std::size_t maxOpenFiles = 512;

/// It can be had once it was asked for: as good as lost until then.
bool IsArchived(const std::exception& failure) {
    const auto cloud = exc::FindCause<cloudclientlib::CCloudExc>(failure);
    return cloud && cloud->GetKind() == cloudclientlib::EFailure::conflict;
}

EReplace ReplaceWhat(EPlanned planned) { return planned == EPlanned::replace ? EReplace::yes : EReplace::no; }

}  // namespace

CSourceRestore::CSourceRestore(const CMetaState& state, CRestoreTarget target, STargetMapping mapping,
                               CRestoreFilter filter, const SSourceRestoreOptions& options, const SRestoreSinks& sinks,
                               SProgress& progress)
    : state_(state),
      target_(std::move(target)),
      mapping_(std::move(mapping)),
      filter_(std::move(filter)),
      options_(options),
      sinks_(sinks),
      progress_(progress) {
    CExistingItems existing(target_, mapping_, options_.overwrite, options_.compareContent || options_.verify);
    plan_ = MakeRestorePlan(state_, filter_, mapping_.strip,
                            options_.overwrite == EOverwrite::refuse ? nullptr : &existing);
    failed_.resize(plan_.files.size());
    finished_.resize(plan_.files.size());
    written_.resize(options_.verify ? plan_.files.size() : 0);
    isNewFolder_.resize(plan_.folders.size());
    statistics_.skipped = plan_.skipped;
    if (options_.deleteOthers) {
        FindDeletions();
    }
    progress_.filesTotal += plan_.files.size();
    for (const auto& wanted : plan_.wanted) {  // holes take no time
        for (const auto& piece : wanted.pieces) {
            progress_.bytesTotal += piece.length;
        }
    }
    for (const auto& copy : plan_.copies) {
        progress_.bytesTotal += plan_.files[copy.file].size;
    }
}

void CSourceRestore::FindDeletions() {
    for (const auto& folder : plan_.folders) {
        if (folder.planned == EPlanned::keep) {
            Try(folder.GetPath(), [&] { FindDeletionsIn(folder.GetPath()); });
        }
    }
}

/// Of what is mounted on a folder the checkpoint need not know anything: it was not there then, or was left out.
bool CSourceRestore::IsMounted(const std::string& folder) const {
    return target_.IsMountedUnder(TargetPath(mapping_.strip), TargetPath(folder));
}

void CSourceRestore::FindDeletionsIn(const std::string& folder) {
    if (!IsPathAtOrUnder(folder, mapping_.strip) || IsMounted(folder)) {
        return;
    }
    for (const auto& name : target_.ListNames(TargetPath(folder))) {
        const std::string path = folder.empty() ? name : folder + "/" + name;
        if (state_.GetEntries().Find(path).IsNull()) {
            Try(path, [&] { FindDeletionsAt(path); });
        }
    }
}

/// What of a name that the checkpoint does not know, and of all under it, is to go; true for all of it. A folder goes
/// as a whole, or else after what lies in it, when it is empty then.
bool CSourceRestore::FindDeletionsAt(const std::string& path) {
    const auto now = target_.Find(TargetPath(path));
    const bool isFolder = now && now->type == EEntryType::directory;
    const bool isWhole = isFolder && filter_.TakesAllUnder(path);
    bool isAll = filter_.TakesUnknown(path, isFolder);
    if (isFolder && !isWhole) {
        if (IsMounted(path)) {
            return false;
        }
        for (const auto& name : target_.ListNames(TargetPath(path))) {
            isAll = FindDeletionsAt(path + "/" + name) && isAll;
        }
    }
    if (isAll) {
        deletions_.push_back({TargetPath(path), isWhole});
    }
    return isAll;
}

void CSourceRestore::TellPlan() const {
    const auto tell = [&](const SRestorePlan::SItem& item) {
        if (sinks_.onAction && (item.planned == EPlanned::create || item.planned == EPlanned::replace)) {
            sinks_.onAction(item.planned == EPlanned::create ? ERestoreAction::create : ERestoreAction::replace,
                            target_.FullPath(TargetPath(item.GetPath())));
        }
    };
    std::for_each(plan_.folders.begin(), plan_.folders.end(), tell);
    std::for_each(plan_.files.begin(), plan_.files.end(), tell);
    std::for_each(plan_.others.begin(), plan_.others.end(), tell);
    std::for_each(plan_.hardLinks.begin(), plan_.hardLinks.end(), tell);
    for (const auto& deletion : deletions_) {
        if (sinks_.onAction) {
            sinks_.onAction(ERestoreAction::remove, target_.FullPath(deletion.path));
        }
    }
}

void CSourceRestore::Run(const SChunkSource& source) {
    try {
        RestoreAll(source);
    } catch (...) {
        GiveModesBack();
        throw;
    }
    Try({}, [&] { target_.GiveModesBack(); });
}

void CSourceRestore::GiveModesBack() noexcept {
    try {
        smallFiles_.reset();
        target_.GiveModesBack();
    } catch (const std::exception& failure) {  // what ended the run is told
        logging::Storage().Info("Modes of folders in '%1' were not given back: %2", target_.GetFolder(),
                                failure.what());
    }
}

void CSourceRestore::RestoreAll(const SChunkSource& source) {
    smallFiles_.emplace(target_, ThreadCount(options_.threads));
    MakeFolders();
    RestoreFilesWithoutChunks();
    RestoreContent(source);
    CollectSmallFiles(true);
    RestoreCopies();
    RestoreOthers();
    RestoreHardLinks();
    UpdateKept();
    DeleteOthers();
    FinishFolders();
    if (options_.verify) {
        VerifyFiles();
    }
    smallFiles_.reset();
}

void CSourceRestore::Trouble(const std::string& path, const std::string& reason) {
    ++statistics_.errors;
    ++progress_.errors;
    if (sinks_.onTrouble) {
        sinks_.onTrouble({target_.FullPath(TargetPath(path)), reason});
    }
}

template <class Action>
bool CSourceRestore::Try(const std::string& path, const Action& action) {
    try {
        action();
        return true;
    } catch (const std::exception& failure) {
        Trouble(path, failure.what());
        return false;
    }
}

/// What came, but for an attribute, is told and counts as restored.
template <class Action>
void CSourceRestore::TellAttributes(const std::string& path, const Action& action) {
    try {
        action();
    } catch (const CAttributesExc& failure) {
        Trouble(path, failure.what());
    }
}

void CSourceRestore::Tell(const std::string& path, std::uint64_t files, std::uint64_t bytes) {
    progress_.filesDone += files;
    progress_.bytesDone += bytes;
    if (sinks_.onProgress) {
        progress_.currentPath = target_.FullPath(TargetPath(path));
        sinks_.onProgress(progress_);
    }
}

void CSourceRestore::Done(const std::string& path, EPlanned planned, std::uint64_t bytes) {
    ++statistics_.files;
    statistics_.bytes += bytes;
    if (sinks_.onAction) {
        sinks_.onAction(planned == EPlanned::replace ? ERestoreAction::replace : ERestoreAction::create,
                        target_.FullPath(TargetPath(path)));
    }
}

void CSourceRestore::MakeFolders() {
    for (std::size_t i = 0; i < plan_.folders.size(); ++i) {
        const auto& folder = plan_.folders[i];
        const bool isMade = Try(folder.GetPath(), [&] {
            MakeWay(folder.GetPath(), folder.planned);
            isNewFolder_[i] = target_.MakeFolder(TargetPath(folder.GetPath()));
        });
        statistics_.folders += isMade ? 1U : 0U;
    }
    if (plan_.folders.empty()) {  // the root is a single file
        target_.MakeFolder(std::string(ParentPath(mapping_.prefix)));
    }
}

/// What is replaced by a rename needs no way made, unless it is a folder.
void CSourceRestore::MakeWay(const std::string& path, EPlanned planned) {
    if (planned != EPlanned::replace) {
        return;
    }
    const std::string target = TargetPath(path);
    const auto now = target_.Find(target);
    if (now && now->type == EEntryType::directory && !options_.deleteOthers && !target_.ListNames(target).empty()) {
        throw exc::CRuntimeExc("a folder that is not empty is in its place (--delete removes it)");
    }
    if (now) {
        target_.Remove(target, options_.deleteOthers);
    }
}

void CSourceRestore::RestoreFilesWithoutChunks() {
    std::vector<bool> isCopy(plan_.files.size());
    for (const auto& copy : plan_.copies) {
        isCopy[copy.file] = true;
    }
    for (std::size_t i = 0; i < plan_.files.size(); ++i) {
        if (plan_.files[i].pieces != 0 || isCopy[i]) {
            continue;
        }
        const std::string& path = plan_.files[i].GetPath();
        if (!Try(path, [&] { FinishFile(i, std::move(OpenFile(i))); })) {
            failed_[i] = true;
        }
        open_.erase(i);
        Tell(path, 1, 0);
    }
}

void CSourceRestore::RestoreContent(const SChunkSource& source) {
    std::vector<SChunk> chunks;
    chunks.reserve(plan_.wanted.size());
    for (const auto& wanted : plan_.wanted) {
        chunks.push_back(*wanted.chunk);
    }
    if (!chunks.empty()) {
        CChunkReader(source).Read(chunks, *this);
    }
}

bool CSourceRestore::IsSmall(const SRestorePlan::SPiece& piece) const {
    const auto& file = plan_.files[piece.file];
    return file.pieces == 1 && file.planned == EPlanned::create && file.size <= smallFileSize &&
           plan_.GetLocal(piece.file).empty() && !open_.contains(piece.file);
}

void CSourceRestore::OnChunk(std::size_t index, std::span<const char> plain) {
    std::size_t small = 0;
    for (const auto& piece : plan_.wanted[index].pieces) {
        if (failed_[piece.file]) {
            continue;
        }
        if (IsSmall(piece)) {
            ++small;
            continue;
        }
        try {
            WritePiece(piece, plain.subspan(piece.chunkOffset, piece.length));
        } catch (const std::exception& failure) {
            GiveUp(piece.file, failure.what());
        }
        // Outside: what the sink throws ends the run.
        Tell(plan_.files[piece.file].GetPath(), finished_[piece.file] ? 1 : 0, piece.length);
    }
    if (small != 0) {
        Submit(index, plain);
    }
}

/// Hands the small files of a chunk over, with a copy of its bytes.
void CSourceRestore::Submit(std::size_t index, std::span<const char> plain) {
    auto batch = std::make_unique<CSmallFiles::SBatch>();
    const auto submit = [&] {
        smallFiles_->Submit(std::exchange(batch, std::make_unique<CSmallFiles::SBatch>()));
        CollectSmallFiles(false);
    };
    for (const auto& piece : plan_.wanted[index].pieces) {
        const auto& file = plan_.files[piece.file];
        if (!failed_[piece.file] && IsSmall(piece)) {
            batch->files.push_back({piece.file,
                                    TargetPath(file.GetPath()),
                                    file.entry,
                                    piece.fileOffset,
                                    batch->bytes.size(),
                                    piece.length,
                                    {},
                                    {}});
            const auto bytes = plain.subspan(piece.chunkOffset, piece.length);
            batch->bytes.insert(batch->bytes.end(), bytes.begin(), bytes.end());
            if (batch->files.size() == CSmallFiles::batchFiles) {
                submit();
            }
            if (options_.verify) {
                written_[piece.file].push_back({{piece.fileOffset, piece.length}, digest::Sha256(bytes)});
            }
        }
    }
    if (!batch->files.empty()) {
        submit();
    }
}

void CSourceRestore::CollectSmallFiles(bool all) {
    while (all ? !smallFiles_->IsEmpty() : smallFiles_->IsFull()) {
        const auto batch = smallFiles_->TakeOldest();
        for (const auto& file : batch->files) {
            const auto& planned = plan_.files[file.index];
            finished_[file.index] = file.failure.empty();
            failed_[file.index] = !finished_[file.index];
            if (failed_[file.index]) {
                Trouble(planned.GetPath(), file.failure);
            } else {
                if (!file.attributeFault.empty()) {
                    Trouble(planned.GetPath(), file.attributeFault);
                }
                Done(planned.GetPath(), planned.planned, planned.size);
            }
            Tell(planned.GetPath(), 1, file.length);
        }
    }
}

void CSourceRestore::OnDamagedChunk(std::size_t index, const std::exception& reason) {
    if (!IsArchived(reason)) {
        RethrowUnlessDamage(reason);
    }
    for (const auto& piece : plan_.wanted[index].pieces) {
        if (!failed_[piece.file]) {
            GiveUp(piece.file, reason.what());
        }
    }
}

/// Opens a file with all that it takes over from the one that it replaces.
STargetFile& CSourceRestore::OpenFile(std::size_t index) {
    const auto found = open_.find(index);
    if (found != open_.end()) {
        return found->second;
    }
    if (open_.size() == maxOpenFiles) {
        throw exc::CRuntimeExc("too many files share the same content");
    }
    const auto& file = plan_.files[index];
    const std::string target = TargetPath(file.GetPath());
    STargetFile created = target_.CreateFile(target, file.size);
    if (const auto local = plan_.GetLocal(index); !local.empty()) {
        const posix::posix_file_t old = target_.OpenFile(target);
        for (const auto& range : local) {
            CRestoreTarget::CopyRange(old, created, range);
            if (options_.verify) {  // by what it was when it was compared: it may have changed since
                written_[index].push_back({range, range.sha256});
            }
        }
    }
    return open_.emplace(index, std::move(created)).first->second;
}

void CSourceRestore::WritePiece(const SRestorePlan::SPiece& piece, std::span<const char> plain) {
    auto& file = plan_.files[piece.file];
    OpenFile(piece.file).file.WriteAt(piece.fileOffset, plain);
    if (options_.verify) {
        written_[piece.file].push_back({{piece.fileOffset, piece.length}, digest::Sha256(plain)});
    }
    if (--file.pieces == 0) {
        const auto found = open_.find(piece.file);
        STargetFile whole = std::move(found->second);
        open_.erase(found);
        FinishFile(piece.file, std::move(whole));
    }
}

void CSourceRestore::FinishFile(std::size_t index, STargetFile file) {
    const auto& planned = plan_.files[index];
    const auto now = planned.planned == EPlanned::replace ? target_.Find(TargetPath(planned.GetPath())) : std::nullopt;
    if (now && now->type == EEntryType::directory) {
        MakeWay(planned.GetPath(), planned.planned);
    }
    TellAttributes(planned.GetPath(),
                   [&] { target_.FinishFile(std::move(file), planned.entry.Unpack(), ReplaceWhat(planned.planned)); });
    finished_[index] = true;
    Done(planned.GetPath(), planned.planned, planned.size);
}

void CSourceRestore::GiveUp(std::size_t index, const std::string& reason) {
    failed_[index] = true;
    open_.erase(index);
    Trouble(plan_.files[index].GetPath(), reason);
}

void CSourceRestore::RestoreCopies() {
    for (const auto& copy : plan_.copies) {
        const auto& file = plan_.files[copy.file];
        const std::string& original = plan_.files[copy.original].GetPath();
        if (!finished_[copy.original]) {
            Trouble(file.GetPath(), "has the content of '" + original + "', which could not be restored");
            continue;
        }
        Try(file.GetPath(), [&] {
            auto target = target_.CreateFile(TargetPath(file.GetPath()), file.size);
            target_.CopyContent(TargetPath(original), target);
            if (options_.verify) {
                written_[copy.file] = written_[copy.original];
            }
            FinishFile(copy.file, std::move(target));
        });
        Tell(file.GetPath(), 1, file.size);
    }
}

void CSourceRestore::RestoreOthers() {
    for (const auto& other : plan_.others) {
        const bool isRestored = Try(other.GetPath(), [&] {
            MakeWay(other.GetPath(), other.planned);
            TellAttributes(other.GetPath(), [&] { RestoreOther(TargetPath(other.GetPath()), other.entry.Unpack()); });
        });
        statistics_.others += isRestored ? 1U : 0U;
        Tell(other.GetPath(), 0, 0);
    }
}

void CSourceRestore::RestoreOther(const std::string& path, const SEntry& entry) {
    if (entry.type == EEntryType::symlink) {
        target_.MakeSymlink(path, entry);
    } else {
        target_.MakeNode(path, entry);
    }
}

void CSourceRestore::RestoreHardLinks() {
    for (std::size_t i = 0; i < plan_.files.size(); ++i) {
        if (!plan_.hardLinks.empty() && !finished_[i]) {
            lost_.insert(plan_.files[i].name.GetId());
        }
    }
    for (const auto& link : plan_.hardLinks) {
        bool isNew = false;
        if (Try(link.GetPath(), [&] { isNew = RestoreHardLink(link); })) {
            ++(isNew ? statistics_.others : statistics_.unchanged);
        }
    }
}

/// False when it is there.
bool CSourceRestore::RestoreHardLink(const SRestorePlan::SHardLink& link) {
    if (link.existing.IsNull()) {
        throw exc::CRuntimeExc("is another name of what is no file of the checkpoint");
    }
    if (lost_.contains(link.existing.GetId())) {
        throw exc::CRuntimeExc("is another name of '" + std::string(link.existing.GetPath()) +
                               "', which could not be restored");
    }
    const std::string existing = TargetPath(std::string(link.existing.GetPath()));
    const std::string path = TargetPath(link.GetPath());
    const auto first = target_.Find(existing);
    const auto now = link.planned == EPlanned::create ? std::nullopt : target_.Find(path);
    if (first && now && first->inode == now->inode && first->device == now->device) {
        return false;
    }
    MakeWay(link.GetPath(), link.planned);
    target_.MakeHardLink(path, existing);
    return true;
}

void CSourceRestore::UpdateKept() {
    for (const auto& item : plan_.kept) {
        const bool isRight =
            Try(item.GetPath(), [&] { target_.UpdateAttributes(TargetPath(item.GetPath()), item.entry.Unpack()); });
        statistics_.unchanged += isRight ? 1U : 0U;
        Tell(item.GetPath(), 0, 0);
    }
}

/// Deepest first: giving a folder its times and its mode comes after everything in it.
void CSourceRestore::FinishFolders() {
    for (std::size_t i = plan_.folders.size(); i-- > 0;) {
        const auto& folder = plan_.folders[i];
        const bool isOurs = isNewFolder_[i] || (folder.isSelected && folder.planned != EPlanned::skip);
        // The folder that the user named stays as it is, unless it stands for one of the checkpoint.
        if (isOurs) {
            Try(folder.GetPath(), [&] {
                const SEntry entry = folder.entry.Unpack();
                const std::string path = TargetPath(folder.GetPath());
                isNewFolder_[i] ? target_.FinishFolder(path, entry) : void(target_.UpdateAttributes(path, entry));
            });
        }
    }
}

void CSourceRestore::DeleteOthers() {
    if (!deletions_.empty() && std::find(finished_.begin(), finished_.end(), false) != finished_.end()) {
        Trouble(mapping_.strip, "nothing was deleted here, since not every file could be restored");
        return;
    }
    for (const auto& [path, withContent] : deletions_) {
        try {
            target_.Remove(path, withContent);
            ++statistics_.deleted;
            if (sinks_.onAction) {
                sinks_.onAction(ERestoreAction::remove, target_.FullPath(path));
            }
        } catch (const std::exception& failure) {
            ++statistics_.errors;
            if (sinks_.onTrouble) {
                sinks_.onTrouble({target_.FullPath(path), failure.what()});
            }
        }
    }
}

void CSourceRestore::VerifyFiles() {
    target_.Sync();
    for (std::size_t i = 0; i < plan_.files.size(); ++i) {
        const auto& file = plan_.files[i];
        if (finished_[i]) {
            const auto verify = [&] { VerifyFile(TargetPath(file.GetPath()), file.size, written_[i]); };
            statistics_.verified += Try(file.GetPath(), verify) ? 1U : 0U;
            Tell(file.GetPath(), 0, 0);
        }
    }
}

void CSourceRestore::VerifyFile(const std::string& path, std::uint64_t size, const std::vector<SPieceDigest>& pieces) {
    const posix::posix_file_t file = target_.OpenFile(path);
    // What is only in memory proves nothing.
    ::posix_fadvise(file.GetFd(), 0, 0, POSIX_FADV_DONTNEED);
    if (file.GetSize() != size) {
        throw exc::CRuntimeExc("has %1 bytes when read back, not the %2 that were written", file.GetSize(), size);
    }
    std::vector<char> buffer;
    for (const auto& piece : pieces) {
        buffer.resize(piece.range.length);
        const std::size_t count = file.ReadAt(piece.range.offset, buffer.data(), buffer.size());
        if (count != buffer.size() || digest::Sha256(buffer) != piece.sha256) {
            throw exc::CRuntimeExc("what was read back at byte %1 is not what was written", piece.range.offset);
        }
    }
}

}  // namespace agent
