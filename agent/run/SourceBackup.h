#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/chunk/ChunkStream.h"
#include "agent/fs/FileContent.h"
#include "agent/fs/TreeWalker.h"
#include "agent/meta/MetaState.h"
#include "agent/run/ContentIndex.h"
#include "agent/run/Progress.h"
#include "agent/run/SetDocument.h"
#include "agent/run/Trouble.h"

namespace agent {

enum class EChange : std::uint8_t { added, changed, removed };

/// What a run does to one name of a source.
struct SChange {
    EChange kind = EChange::added;
    /// The full path.
    std::string path;
    EEntryType type = EEntryType::file;
    /// Of a file, in bytes: as it is now, or was when it is removed.
    std::uint64_t size = 0;
};

using change_sink_t = std::function<void(const SChange&)>;

/// Called with a file's full path when its content has been read and its state is not yet compared: tests change it
/// then.
using file_hook_t = std::function<void(const std::string& path)>;

/// Where a path of a source stands in the file system.
[[nodiscard]] std::string FullPathOf(const std::string& root, const std::string& path);

/// Adds bytes to a file's content, behind what it has.
void AppendSegment(SEntry& entry, const SSegment& segment);

/// How one source is read. What it points at outlives the reading.
struct SSourceParams {
    /// The real path.
    std::string root;
    /// Takes the content; null for a dry run, which reads no file.
    CChunkStream* stream = nullptr;
    /// What is kept; null for everything.
    ITreeFilter* filter = nullptr;
    SChangeSigns signs;
    /// Read files that show no change, too.
    bool force = false;
    CProgressCounter* progress = nullptr;
    trouble_sink_t onTrouble;
    change_sink_t onChange;
    file_hook_t afterRead;
};

/// Reads one source against what its storage knows, and gives what has changed.
///
/// Unchanged files are not read. New and changed ones go into the content stream, in the order of the walk: small ones
/// one behind the other, a large one with a cut before and behind it, so that its copy gives the same chunks. A file
/// that changes while it is read is read once more; should it change again, it is kept as it was read, named as a
/// trouble, and read again by the next run. One that vanishes is named and left out; what else cannot be read, or kept,
/// is named and stays as the storage knew it; a folder that it did not know is then left out with all that lies in it.
/// Of extended attributes only those that cannot be read are left out. A failure of the stream ends the run. For one
/// thread; the known state must outlive it.
class CSourceBackup : private ITreeVisitor {
public:
    CSourceBackup(SSourceParams params, const CMetaState& known);

    /// Walks the source. The changes come without blocks and chunks, which the stream has.
    [[nodiscard]] SMetaChanges Run();
    [[nodiscard]] const SRootStatistics& GetStatistics() const { return statistics_; }

private:
    void OnItem(const SSourceItem& item) override;
    void OnError(const std::string& path, bool isFolder, const std::exception& failure) override;

    [[nodiscard]] bool IsLeftOut(const std::string& path);
    void OnFailure(const SSourceItem& item, const std::optional<SEntry>& known, const std::string& reason, bool isGone);
    void SkipRemovedBefore(const std::string& path);
    void KeepKnownAt(const std::string& path);
    [[nodiscard]] std::optional<SEntry> TakeKnown(const std::string& path);
    void Remove(const std::string& path, const SEntry& known);

    void VisitItem(const SSourceItem& item, const std::optional<SEntry>& known);
    void VisitFile(const SSourceItem& item, const std::optional<SEntry>& known);
    void VisitOther(const SSourceItem& item, const std::optional<SEntry>& known);
    [[nodiscard]] bool VisitHardLink(const SSourceItem& item, const std::optional<SEntry>& known);
    [[nodiscard]] bool IsKept(const std::optional<SEntry>& known, const SSourceItem& item) const;
    void FillFile(const SSourceItem& item, const std::optional<SEntry>& known, SEntry& entry);
    void ReadFile(const SSourceItem& item, SEntry& entry);
    [[nodiscard]] bool ReadOnce(const SSourceItem& item, SEntry& entry, bool isLastTry);
    void ReadXattrsOf(const SSourceItem& item, SEntry& entry);
    void TellXattrs(const SSourceItem& item, const std::string& fault, SEntry& entry);
    [[nodiscard]] bool IsSettled(const posix::posix_file_t& file, const SEntry& before, const SEntry& entry) const;
    void ReadSmallContent(const posix::posix_file_t& file, SEntry& entry);
    void StoreSmallContent(SEntry& entry);
    void ReadLargeContent(const posix::posix_file_t& file, SEntry& entry);
    void AppendData(SEntry& entry, std::uint64_t fileOffset, std::span<const char> data);

    void KeepUnchanged(const SEntry& known);
    void Put(const std::string& path, const SEntry& entry, const std::optional<SEntry>& known);
    void CountEntry(const SEntry& entry);
    void Tell(EChange kind, const std::string& path, const SEntry& entry) const;
    void Trouble(const std::string& path, const std::string& reason);
    void RepairKeptHardLinks();

    using cursor_t = CEntryTable::const_iterator;
    using inode_key_t = std::pair<std::uint64_t, std::uint64_t>;  // device, inode
    struct SRun {
        std::uint64_t offset;
        std::size_t size;
    };

    const SSourceParams params_;
    const CMetaState& known_;
    CContentIndex index_;
    CFileContentReader reader_;
    std::vector<char> smallFile_;
    std::vector<SRun> smallRuns_;  // of smallFile_, without its holes
    cursor_t cursor_;              // the first known entry that the walk has not reached
    std::map<inode_key_t, std::string> firstNames_;
    std::vector<std::string> keptHardLinks_;
    std::optional<std::string> leftOut_;  // a folder that is not kept, as long as the walk is in it
    SMetaChanges changes_;
    SRootStatistics statistics_;
};

}  // namespace agent
