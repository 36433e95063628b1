#include "agent/run/SourceBackup.h"

#include <cerrno>
#include <ctime>

#include "agent/chunk/Sizes.h"
#include "common/exc.h"

namespace agent {

namespace {

// A file of this size or less is one piece in memory and is looked up whole by its SHA-256.
constexpr std::uint64_t smallFileLimit = maxChunkSize;

bool IsAtOrUnder(const std::string& path, const std::string& folder) {
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

/// The item's state as it is now; the file is open, so it cannot become another.
SEntry StatAgain(const SSourceItem& item) { return StatItem(item.parentFd, item.name, item.path).entry; }

bool SameState(const SEntry& a, const SEntry& b) {
    return a.type == b.type && a.inode == b.inode && a.size == b.size && a.mtime == b.mtime && a.ctime == b.ctime;
}

}  // namespace

CSourceBackup::CSourceBackup(std::string root, const CMetaState& known, CChunkStream& stream, trouble_sink_t onTrouble)
    : root_(std::move(root)),
      known_(known),
      stream_(stream),
      onTrouble_(std::move(onTrouble)),
      index_(known),
      cursor_(known.GetEntries().begin()) {}

SMetaChanges CSourceBackup::Run() {
    WalkTree(root_, *this);
    for (; cursor_ != known_.GetEntries().end(); ++cursor_) {
        changes_.removed.insert(cursor_->first);
    }
    RepairKeptHardLinks();
    statistics_.removed = changes_.removed.size();
    return std::move(changes_);
}

void CSourceBackup::SkipRemovedBefore(const std::string& path) {
    const auto& less = known_.GetEntries().key_comp();
    for (; cursor_ != known_.GetEntries().end() && less(cursor_->first, path); ++cursor_) {
        changes_.removed.insert(cursor_->first);
    }
}

std::optional<SEntry> CSourceBackup::TakeKnown(const std::string& path) {
    SkipRemovedBefore(path);
    if (cursor_ == known_.GetEntries().end() || cursor_->first != path) {
        return std::nullopt;
    }
    SEntry entry = cursor_->second.Unpack();
    ++cursor_;
    return entry;
}

void CSourceBackup::KeepKnownAt(const std::string& path) {
    SkipRemovedBefore(path);
    for (; cursor_ != known_.GetEntries().end() && IsAtOrUnder(cursor_->first, path); ++cursor_) {
        CountEntry(cursor_->second.Unpack());
        if (cursor_->second.GetType() == EEntryType::hardLink) {
            keptHardLinks_.push_back(cursor_->first);
        }
    }
}

void CSourceBackup::OnItem(const SSourceItem& item) {
    const auto known = TakeKnown(item.path);
    try {
        if (IsSocket(item)) {
            if (known) {
                changes_.removed.insert(item.path);
            }
        } else if (item.entry.type == EEntryType::file) {
            VisitFile(item, known);
        } else {
            VisitOther(item, known);
        }
    } catch (const posix::CPosixExc& failure) {
        const bool gone = failure.GetErrorNumber() == ENOENT;
        const bool keep = known && known->type == item.entry.type && !gone;
        Trouble(item.path, gone ? "vanished while the folder was read" : failure.what());
        if (keep) {
            CountEntry(*known);
        } else if (known) {
            changes_.removed.insert(item.path);
        }
    }
}

void CSourceBackup::OnError(const std::string& path, bool, const std::exception& failure) {
    const auto* posixFailure = dynamic_cast<const posix::CPosixExc*>(&failure);
    if (posixFailure != nullptr && posixFailure->GetErrorNumber() == ENOENT) {
        Trouble(path, "vanished while the folder was read");
        return;
    }
    Trouble(path, failure.what());
    KeepKnownAt(path);
}

void CSourceBackup::VisitFile(const SSourceItem& item, const std::optional<SEntry>& known) {
    if (item.links > 1 && VisitHardLink(item, known)) {
        return;
    }
    if (known && IsUnchanged(*known, item.entry)) {
        ++statistics_.unchanged;
        CountEntry(*known);
    } else {
        SEntry entry = item.entry;
        if (auto moved = known ? std::nullopt : index_.FindMoved(entry)) {
            entry.segments = std::move(moved->segments);
            entry.contentSha256 = moved->contentSha256;
            entry.xattrs = ReadXattrs(item);
        } else {
            ReadFile(item, entry);
        }
        Put(item.path, entry, !known);
    }
    if (item.links > 1) {
        firstNames_.emplace(inode_key_t{item.entry.device, item.entry.inode}, item.path);
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
        ++statistics_.unchanged;
        CountEntry(*known);
    } else {
        Put(item.path, entry, !known);
    }
    return true;
}

void CSourceBackup::VisitOther(const SSourceItem& item, const std::optional<SEntry>& known) {
    if (known && IsUnchanged(*known, item.entry)) {
        ++statistics_.unchanged;
        CountEntry(*known);
        return;
    }
    SEntry entry = item.entry;
    entry.xattrs = ReadXattrs(item);
    if (entry.type == EEntryType::symlink) {
        entry.target = ReadLinkTarget(item);
    }
    Put(item.path, entry, !known);
}

void CSourceBackup::ReadFile(const SSourceItem& item, SEntry& entry) {
    WaitUntilSettled(entry.ctime);
    const posix::posix_file_t file = OpenItem(item);
    SEntry before = StatAgain(item);
    if (before.type != EEntryType::file) {
        throw posix::CPosixExc("open", item.path, ENOENT);
    }
    entry = std::move(before);
    entry.xattrs = ReadXattrs(item);
    const SEntry stat = entry;
    if (entry.size <= smallFileLimit) {
        ReadSmallFile(file, entry);
    } else {
        ReadLargeFile(file, entry);
    }
    ++statistics_.filesRead;
    bool same = false;
    try {
        same = SameState(stat, StatAgain(item));
    } catch (const posix::CPosixExc&) {  // removed since: what was read is whole
        same = true;
    }
    if (!same || entry.size != stat.size) {
        entry.recheck = true;
        Trouble(item.path, "changed while it was read; what was saved may be a mixture");
    }
}

void CSourceBackup::ReadSmallFile(const posix::posix_file_t& file, SEntry& entry) {
    smallFile_.assign(entry.size, '\0');
    struct SRun {
        std::uint64_t offset;
        std::size_t size;
    };
    std::vector<SRun> runs;
    entry.size = reader_.Read(file, entry.size, [&](std::uint64_t offset, std::span<const char> data) {
        std::copy(data.begin(), data.end(), smallFile_.begin() + static_cast<std::ptrdiff_t>(offset));
        runs.push_back({offset, data.size()});
    });
    const std::span<const char> content(smallFile_.data(), entry.size);
    entry.contentSha256 = digest::Sha256(content);
    statistics_.bytesRead += entry.size;
    if (auto copy = index_.FindCopy(*entry.contentSha256, entry.size)) {
        entry.segments = *std::move(copy);
        return;
    }
    for (const auto& run : runs) {
        AppendData(entry, run.offset, content.subspan(run.offset, run.size));
    }
    index_.Add(entry);
}

void CSourceBackup::ReadLargeFile(const posix::posix_file_t& file, SEntry& entry) {
    stream_.Cut();
    entry.size = reader_.Read(file, entry.size, [&](std::uint64_t offset, std::span<const char> data) {
        AppendData(entry, offset, data);
        statistics_.bytesRead += data.size();
    });
    stream_.Cut();
}

void CSourceBackup::AppendData(SEntry& entry, std::uint64_t fileOffset, std::span<const char> data) {
    const std::uint64_t streamOffset = stream_.GetPosition();
    stream_.Append(data);
    if (!entry.segments.empty()) {
        SSegment& last = entry.segments.back();
        if (last.fileOffset + last.length == fileOffset && last.streamOffset + last.length == streamOffset) {
            last.length += data.size();
            return;
        }
    }
    entry.segments.push_back({fileOffset, streamOffset, data.size()});
}

void CSourceBackup::Put(const std::string& path, const SEntry& entry, bool isNew) {
    changes_.Put(path, entry);
    ++(isNew ? statistics_.added : statistics_.changed);
    CountEntry(entry);
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

void CSourceBackup::Trouble(const std::string& path, const std::string& reason) {
    ++statistics_.errors;
    onTrouble_({path.empty() ? root_ : root_ + "/" + path, reason});
}

/// A name that was kept because its folder cannot be read may have been another name of a file that is gone: it then
/// becomes that file.
void CSourceBackup::RepairKeptHardLinks() {
    for (const auto& path : keptHardLinks_) {
        const auto link = known_.Find(path);
        const auto target = changes_.entries.find(link->target);
        const bool gone = changes_.removed.contains(link->target) ||
                          (target != changes_.entries.end() && target->second.GetType() != EEntryType::file);
        if (gone) {
            changes_.Put(path, *known_.Find(link->target));
        }
    }
}

}  // namespace agent
