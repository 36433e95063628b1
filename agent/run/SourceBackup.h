#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "agent/chunk/ChunkStream.h"
#include "agent/fs/FileContent.h"
#include "agent/fs/TreeWalker.h"
#include "agent/meta/MetaState.h"
#include "agent/run/ContentIndex.h"
#include "agent/run/SetDocument.h"
#include "agent/run/Trouble.h"

namespace agent {

/// Reads one source against what its storage knows, and gives what has changed.
///
/// Unchanged files are not read. New and changed ones go into the content stream, in the order of the walk: small ones
/// one behind the other, a large one with a cut before and behind it, so that its copy gives the same chunks. What
/// cannot be read is told to the trouble sink and stays as the storage knew it. A failure of the stream ends the run.
/// For one thread; the known state and the stream must outlive it.
class CSourceBackup : private ITreeVisitor {
public:
    CSourceBackup(std::string root, const CMetaState& known, CChunkStream& stream, trouble_sink_t onTrouble);

    /// Walks the source. The changes come without blocks and chunks, which the stream has.
    [[nodiscard]] SMetaChanges Run();
    [[nodiscard]] const SRootStatistics& GetStatistics() const { return statistics_; }

private:
    void OnItem(const SSourceItem& item) override;
    void OnError(const std::string& path, bool isFolder, const std::exception& failure) override;

    void SkipRemovedBefore(const std::string& path);
    void KeepKnownAt(const std::string& path);
    [[nodiscard]] std::optional<SEntry> TakeKnown(const std::string& path);

    void VisitFile(const SSourceItem& item, const std::optional<SEntry>& known);
    void VisitOther(const SSourceItem& item, const std::optional<SEntry>& known);
    [[nodiscard]] bool VisitHardLink(const SSourceItem& item, const std::optional<SEntry>& known);
    void ReadFile(const SSourceItem& item, SEntry& entry);
    void ReadSmallFile(const posix::posix_file_t& file, SEntry& entry);
    void ReadLargeFile(const posix::posix_file_t& file, SEntry& entry);
    void AppendData(SEntry& entry, std::uint64_t fileOffset, std::span<const char> data);

    void Put(const std::string& path, const SEntry& entry, bool isNew);
    void CountEntry(const SEntry& entry);
    void Trouble(const std::string& path, const std::string& reason);
    void RepairKeptHardLinks();

    using cursor_t = packed_entries_t::const_iterator;
    using inode_key_t = std::pair<std::uint64_t, std::uint64_t>;  // device, inode

    const std::string root_;
    const CMetaState& known_;
    CChunkStream& stream_;
    const trouble_sink_t onTrouble_;
    CContentIndex index_;
    CFileContentReader reader_;
    std::vector<char> smallFile_;
    cursor_t cursor_;  // the first known entry that the walk has not reached
    std::map<inode_key_t, std::string> firstNames_;
    std::vector<std::string> keptHardLinks_;
    SMetaChanges changes_;
    SRootStatistics statistics_;
};

}  // namespace agent
