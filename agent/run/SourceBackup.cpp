#include "agent/run/SourceBackup.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "agent/chunk/Sizes.h"
#include "common/exc.h"

namespace agent {

namespace {

// A file of this size or less is one piece in memory and is looked up whole by its SHA-256.
constexpr std::uint64_t smallFileLimit = maxChunkSize;

/// What was read cannot stand in the metadata.
class CNotKeptExc : public exc::CRuntimeExc {
public:
    using CRuntimeExc::CRuntimeExc;
};

bool IsAtOrUnder(std::string_view path, std::string_view folder) {
    return folder.empty() || path == folder ||
           (path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/');
}

/// Waits until a change of the file would show in its times. They advance in steps of up to 10 ms: a change in the step
/// of the last one, after we read, would never be seen.
void WaitUntilSettled(const STime& ctime) {
    constexpr std::int64_t step = 20'000'000;
    const STime now = Now();
    const std::int64_t seconds = now.seconds - ctime.seconds;
    if (seconds < 0 || seconds > 1) {
        return;
    }
    const std::int64_t age = seconds * 1'000'000'000 + now.nanoseconds - ctime.nanoseconds;
    if (age >= 0 && age < step) {
        const timespec rest{0, step - age};
        ::nanosleep(&rest, nullptr);
    }
}

/// Whether a further name is still one of that file, which may be another under the same name by now.
bool IsSameFile(const SEntry& link, const SEntry& file) {
    return file.type == EEntryType::file && file.inode == link.inode && file.device == link.device;
}

bool SameState(const SEntry& a, const SEntry& b, const SChangeSigns& signs) {
    return a.type == b.type && a.size == b.size && a.mtime == b.mtime && (signs.ignoreCtime || a.ctime == b.ctime);
}

}  // namespace

std::string FullPathOf(const std::string& root, const std::string& path) {
    if (path.empty()) {
        return root;
    }
    return (root == "/" ? std::string() : root) + "/" + path;
}

void AppendSegment(SEntry& entry, const SSegment& segment) {
    if (!entry.segments.empty()) {
        SSegment& last = entry.segments.back();
        if (last.fileOffset + last.length == segment.fileOffset &&
            last.streamOffset + last.length == segment.streamOffset) {
            last.length += segment.length;
            return;
        }
    }
    entry.segments.push_back(segment);
}

CSourceBackup::CSourceBackup(SSourceParams params, const CMetaState& known)
    : params_(std::move(params)), known_(known), index_(known), cursor_(known.GetEntries().begin()) {}

SMetaChanges CSourceBackup::Run() {
    WalkTree(params_.root, *this, params_.filter);
    for (; cursor_ != known_.GetEntries().end(); ++cursor_) {
        Remove(std::string(cursor_->GetPath()), cursor_->GetEntry().Unpack());
    }
    RepairKeptHardLinks();
    statistics_.removed = changes_.removed.size();
    return std::move(changes_);
}

void CSourceBackup::SkipRemovedBefore(const std::string& path) {
    for (; cursor_ != known_.GetEntries().end() && SPathLess()(cursor_->GetPath(), path); ++cursor_) {
        Remove(std::string(cursor_->GetPath()), cursor_->GetEntry().Unpack());
    }
}

std::optional<SEntry> CSourceBackup::TakeKnown(const std::string& path) {
    SkipRemovedBefore(path);
    if (cursor_ == known_.GetEntries().end() || cursor_->GetPath() != path) {
        return std::nullopt;
    }
    SEntry entry = cursor_->GetEntry().Unpack();
    ++cursor_;
    return entry;
}

void CSourceBackup::Remove(const std::string& path, const SEntry& known) {
    changes_.removed.insert(path);
    Tell(EChange::removed, path, known);
}

void CSourceBackup::KeepKnownAt(const std::string& path) {
    SkipRemovedBefore(path);
    for (; cursor_ != known_.GetEntries().end() && IsAtOrUnder(cursor_->GetPath(), path); ++cursor_) {
        CountEntry(cursor_->GetEntry().Unpack());
        if (cursor_->GetEntry().GetType() == EEntryType::hardLink) {
            keptHardLinks_.emplace_back(cursor_->GetPath());
        }
    }
}

/// Every entry lies in a folder that is kept.
bool CSourceBackup::IsLeftOut(const std::string& path) {
    if (leftOut_ && !IsAtOrUnder(path, *leftOut_)) {
        leftOut_.reset();
    }
    return leftOut_.has_value();
}

void CSourceBackup::OnItem(const SSourceItem& item) {
    if (IsLeftOut(item.path)) {
        return;
    }
    if (params_.progress != nullptr) {
        params_.progress->Begin(params_.root, item.path);
    }
    const auto known = TakeKnown(item.path);
    try {
        VisitItem(item, known);
    } catch (const posix::CPosixExc& failure) {
        OnFailure(item, known, failure.what(), failure.GetErrorNumber() == ENOENT);
    } catch (const CNotKeptExc& failure) {
        OnFailure(item, known, failure.what(), false);
    }
    if (params_.progress != nullptr && item.entry.type == EEntryType::file) {
        params_.progress->EndFile(item.entry.size);
    }
}

/// To be called in the handler of the failure.
void CSourceBackup::OnFailure(const SSourceItem& item, const std::optional<SEntry>& known, const std::string& reason,
                              bool isGone) {
    const bool isFolder = item.entry.type == EEntryType::directory;
    const bool isLink = known && known->type == EEntryType::hardLink && item.entry.type == EEntryType::file;
    const bool keep = known && (known->type == item.entry.type || isLink) && !isGone;
    if (isFolder && item.path.empty() && !keep) {
        throw;  // without its root nothing of the source is left
    }
    Trouble(item.path, isGone ? "vanished while the folder was read" : reason);
    if (keep) {
        CountEntry(*known);
        if (isLink) {
            keptHardLinks_.push_back(item.path);
        }
        return;
    }
    if (known) {
        Remove(item.path, *known);
    }
    if (isFolder) {
        leftOut_ = item.path;
    }
}

void CSourceBackup::OnError(const std::string& path, bool, const std::exception& failure) {
    if (IsLeftOut(path)) {
        return;
    }
    const auto* posixFailure = dynamic_cast<const posix::CPosixExc*>(&failure);
    if (posixFailure != nullptr && posixFailure->GetErrorNumber() == ENOENT) {
        Trouble(path, "vanished while the folder was read");
        return;
    }
    Trouble(path, failure.what());
    KeepKnownAt(path);
}

void CSourceBackup::VisitItem(const SSourceItem& item, const std::optional<SEntry>& known) {
    if (IsSocket(item)) {
        if (known) {
            Remove(item.path, *known);
        }
    } else if (item.entry.type == EEntryType::file) {
        VisitFile(item, known);
    } else {
        VisitOther(item, known);
    }
}

bool CSourceBackup::IsKept(const std::optional<SEntry>& known, const SSourceItem& item) const {
    return known && IsUnchanged(*known, item.entry, params_.signs);
}

void CSourceBackup::VisitFile(const SSourceItem& item, const std::optional<SEntry>& known) {
    if (item.links > 1 && VisitHardLink(item, known)) {
        return;
    }
    SEntry entry = item.entry;
    if (IsKept(known, item) && !params_.force) {
        KeepUnchanged(*known);
    } else {
        if (params_.stream != nullptr) {
            FillFile(item, known, entry);
        }
        Put(item.path, entry, known);
    }
    if (item.links > 1) {  // by the file that was read: another may have taken its name since it was met
        firstNames_.emplace(inode_key_t{entry.device, entry.inode}, item.path);
    }
}

void CSourceBackup::FillFile(const SSourceItem& item, const std::optional<SEntry>& known, SEntry& entry) {
    auto moved = known || params_.force ? std::nullopt : index_.FindMoved(entry, params_.signs.ignoreCtime);
    if (!moved) {
        ReadFile(item, entry);
        return;
    }
    entry.segments = std::move(moved->segments);
    entry.contentSha256 = moved->contentSha256;
    ReadXattrsOf(item, entry);
}

void CSourceBackup::ReadXattrsOf(const SSourceItem& item, SEntry& entry) {
    std::string fault;
    entry.xattrs = ReadXattrs(item, [&](const auto& failure) { fault = fault.empty() ? failure.what() : fault; });
    TellXattrs(item, fault, entry);
}

void CSourceBackup::TellXattrs(const SSourceItem& item, const std::string& fault, SEntry& entry) {
    if (!fault.empty()) {
        entry.recheck = true;
        Trouble(item.path, fault);
    }
}

bool CSourceBackup::VisitHardLink(const SSourceItem& item, const std::optional<SEntry>& known) {
    const auto first = firstNames_.find({item.entry.device, item.entry.inode});
    if (first == firstNames_.end()) {
        return false;
    }
    // All that a further name needs is the first one; times and the like are the file's.
    SEntry entry;
    entry.type = EEntryType::hardLink;
    entry.target = first->second;
    entry.mode = item.entry.mode;
    entry.inode = item.entry.inode;
    entry.device = item.entry.device;
    if (known && known->type == entry.type && known->target == entry.target) {
        KeepUnchanged(*known);
    } else {
        Put(item.path, entry, known);
    }
    return true;
}

void CSourceBackup::VisitOther(const SSourceItem& item, const std::optional<SEntry>& known) {
    if (IsKept(known, item)) {
        KeepUnchanged(*known);
        return;
    }
    SEntry entry = item.entry;
    ReadXattrsOf(item, entry);
    if (entry.type == EEntryType::symlink) {
        entry.target = ReadLinkTarget(item);
    }
    Put(item.path, entry, known);
}

void CSourceBackup::ReadFile(const SSourceItem& item, SEntry& entry) {
    ++statistics_.filesRead;
    if (!ReadOnce(item, entry, false) && !ReadOnce(item, entry, true)) {
        entry.recheck = true;
        Trouble(item.path, "changed while it was read; what was saved may be a mixture");
    }
}

/// False when the file changed meanwhile. Its name may have been given to another file: then that one is as good.
bool CSourceBackup::ReadOnce(const SSourceItem& item, SEntry& entry, bool isLastTry) {
    const posix::posix_file_t file = OpenItem(item);
    entry = StatOpened(file);
    if (entry.type != EEntryType::file) {
        throw posix::CPosixExc("open", item.path, ENOENT);
    }
    WaitUntilSettled(entry.ctime);
    std::string fault;
    entry.xattrs = ReadXattrs(file, [&](const auto& failure) { fault = fault.empty() ? failure.what() : fault; });
    const SEntry before = entry;
    const bool isSmall = entry.size <= smallFileLimit;
    if (isSmall) {
        ReadSmallContent(file, entry);
    } else {
        ReadLargeContent(file, entry);
    }
    if (params_.afterRead) {
        params_.afterRead(FullPathOf(params_.root, item.path));
    }
    const bool settled = IsSettled(file, before, entry);
    if (isSmall && (settled || isLastTry)) {
        StoreSmallContent(entry);
    }
    if (settled || isLastTry) {
        TellXattrs(item, fault, entry);
    }
    return settled;
}

bool CSourceBackup::IsSettled(const posix::posix_file_t& file, const SEntry& before, const SEntry& entry) const {
    return entry.size == before.size && SameState(before, StatOpened(file), params_.signs);
}

void CSourceBackup::ReadSmallContent(const posix::posix_file_t& file, SEntry& entry) {
    smallFile_.assign(entry.size, '\0');
    smallRuns_.clear();
    std::uint64_t end = 0;  // what was read was there, whatever became of the file since
    const std::uint64_t size = reader_.Read(file, entry.size, [&](std::uint64_t offset, std::span<const char> data) {
        end = offset + data.size();
        std::copy(data.begin(), data.end(), smallFile_.begin() + static_cast<std::ptrdiff_t>(offset));
        smallRuns_.push_back({offset, data.size()});
    });
    entry.size = std::max(size, end);
    statistics_.bytesRead += entry.size;
}

void CSourceBackup::StoreSmallContent(SEntry& entry) {
    const std::span<const char> content(smallFile_.data(), entry.size);
    entry.contentSha256 = digest::Sha256(content);
    if (auto copy = index_.FindCopy(*entry.contentSha256, entry.size)) {
        entry.segments = *std::move(copy);
        return;
    }
    for (const auto& run : smallRuns_) {
        AppendData(entry, run.offset, content.subspan(run.offset, run.size));
    }
}

void CSourceBackup::ReadLargeContent(const posix::posix_file_t& file, SEntry& entry) {
    params_.stream->Cut();
    std::uint64_t end = 0;
    const std::uint64_t size = reader_.Read(file, entry.size, [&](std::uint64_t offset, std::span<const char> data) {
        end = offset + data.size();
        AppendData(entry, offset, data);
        statistics_.bytesRead += data.size();
        if (params_.progress != nullptr) {
            params_.progress->SetRead(offset + data.size());
        }
    });
    entry.size = std::max(size, end);
    params_.stream->Cut();
}

void CSourceBackup::AppendData(SEntry& entry, std::uint64_t fileOffset, std::span<const char> data) {
    const std::uint64_t streamOffset = params_.stream->GetPosition();
    params_.stream->Append(data);
    AppendSegment(entry, {fileOffset, streamOffset, data.size()});
}

void CSourceBackup::KeepUnchanged(const SEntry& known) {
    ++statistics_.unchanged;
    CountEntry(known);
}

void CSourceBackup::Put(const std::string& path, const SEntry& entry, const std::optional<SEntry>& known) {
    if (known == entry) {  // read again, and the same to the last bit
        KeepUnchanged(*known);
        return;
    }
    try {
        const CEntryRef kept = changes_.Put(path, entry);
        if (entry.contentSha256) {
            index_.Add(kept);
        }
    } catch (const exc::CRuntimeExc& failure) {
        throw CNotKeptExc("cannot be kept: %1", failure.what());
    }
    ++(known ? statistics_.changed : statistics_.added);
    CountEntry(entry);
    Tell(known ? EChange::changed : EChange::added, path, entry);
}

void CSourceBackup::CountEntry(const SEntry& entry) {
    switch (entry.type) {
        case EEntryType::directory:
            ++statistics_.folders;
            break;
        case EEntryType::file:
            ++statistics_.files;
            statistics_.bytes += entry.size;
            break;
        default:
            ++statistics_.others;
            break;
    }
}

void CSourceBackup::Tell(EChange kind, const std::string& path, const SEntry& entry) const {
    if (params_.onChange) {
        params_.onChange({kind, FullPathOf(params_.root, path), entry.type, entry.size});
    }
}

void CSourceBackup::Trouble(const std::string& path, const std::string& reason) {
    ++statistics_.errors;
    if (params_.progress != nullptr) {
        params_.progress->AddError();
    }
    params_.onTrouble({FullPathOf(params_.root, path), reason});
}

/// A name that was kept because it, or its folder, cannot be read may have been another name of a file that is gone: it
/// then becomes that file.
void CSourceBackup::RepairKeptHardLinks() {
    for (const auto& path : keptHardLinks_) {
        const auto link = known_.Find(path);
        const CEntryRef target = changes_.entries.Find(link->target);
        const bool isGone = changes_.removed.contains(link->target) ||
                            (!target.IsNull() && !IsSameFile(*link, target.GetEntry().Unpack()));
        if (isGone) {
            changes_.Put(path, *known_.Find(link->target));
        }
    }
}

}  // namespace agent
