#pragma once

#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "agent/chunk/ChunkReader.h"
#include "agent/fs/RestoreTarget.h"
#include "agent/meta/MetaState.h"
#include "agent/run/ExistingItems.h"
#include "agent/run/Progress.h"
#include "agent/run/RestorePlan.h"
#include "agent/run/SmallFiles.h"
#include "agent/run/Trouble.h"

namespace agent {

struct SRestoreStatistics {
    /// Written.
    std::uint64_t files = 0;
    std::uint64_t folders = 0;
    std::uint64_t others = 0;
    std::uint64_t bytes = 0;
    /// There already; attributes may have been set.
    std::uint64_t unchanged = 0;
    /// Left as they were by the rule for what exists.
    std::uint64_t skipped = 0;
    std::uint64_t deleted = 0;
    /// Files that were read back and are right.
    std::uint64_t verified = 0;
    std::uint64_t errors = 0;
};

/// What a restore does to a name, or would do.
enum class ERestoreAction { create, replace, remove };

struct SSourceRestoreOptions {
    EOverwrite overwrite = EOverwrite::refuse;
    bool compareContent = false;
    bool deleteOthers = false;
    bool verify = false;
    /// Threads that write files; 0 for as many as the machine runs at once.
    unsigned threads = 0;
};

/// Who is told what happens; each may be empty. Called in the run's thread; what they throw ends the run.
struct SRestoreSinks {
    trouble_sink_t onTrouble;
    progress_sink_t onProgress;
    std::function<void(ERestoreAction action, const std::string& path)> onAction;
};

/// Brings one source back under a folder of the target.
///
/// Planned when it is made: nothing is written before Run. A large file appears when it is whole, with its attributes;
/// a small one gets its time when it is. What cannot be restored is told to the trouble sink, and the rest goes on, but
/// for deletions: there are none where a file did not come. A store that fails, other than by what it has lost, ends
/// the run. For one thread, though small files are written by others meanwhile; state, progress and sinks must outlive
/// it.
class CSourceRestore : private IChunkSink {
public:
    CSourceRestore(const CMetaState& state, CRestoreTarget target, STargetMapping mapping, CRestoreFilter filter,
                   const SSourceRestoreOptions& options, const SRestoreSinks& sinks, SProgress& progress);

    [[nodiscard]] const SRestorePlan& GetPlan() const { return plan_; }
    /// What in the target the checkpoint does not have, and is to go.
    struct SDeletion {
        std::string path;
        /// A folder with whatever lies in it.
        bool withContent = false;
    };
    [[nodiscard]] const std::vector<SDeletion>& GetDeletions() const { return deletions_; }
    /// Tells the action sink what Run would do.
    void TellPlan() const;
    void Run(const SChunkSource& source);
    [[nodiscard]] const SRestoreStatistics& GetStatistics() const { return statistics_; }

private:
    struct SPieceDigest {
        SFileRange range;
        digest::sha256_digest_t sha256;
    };

    [[nodiscard]] std::string TargetPath(const std::string& path) const { return mapping_.Map(path); }
    void FindDeletions();
    void FindDeletionsIn(const std::string& folder);
    bool FindDeletionsAt(const std::string& path);
    [[nodiscard]] bool IsMounted(const std::string& folder) const;
    void RestoreAll(const SChunkSource& source);
    void GiveModesBack() noexcept;
    void MakeFolders();
    void MakeWay(const std::string& path, EPlanned planned);
    void RestoreContent(const SChunkSource& source);
    void OnChunk(std::size_t index, std::span<const char> plain) override;
    void OnDamagedChunk(std::size_t index, const std::exception& reason) override;
    [[nodiscard]] bool IsSmall(const SRestorePlan::SPiece& piece) const;
    void Submit(std::size_t index, std::span<const char> plain);
    void CollectSmallFiles(bool all);
    void WritePiece(const SRestorePlan::SPiece& piece, std::span<const char> plain);
    STargetFile& OpenFile(std::size_t index);
    void FinishFile(std::size_t index, STargetFile file);
    void GiveUp(std::size_t index, const std::string& reason);
    void RestoreFilesWithoutChunks();
    void RestoreCopies();
    void RestoreOthers();
    void RestoreOther(const std::string& path, const SEntry& entry);
    void RestoreHardLinks();
    bool RestoreHardLink(const SRestorePlan::SHardLink& link);
    void UpdateKept();
    void FinishFolders();
    void DeleteOthers();
    void VerifyFiles();
    void VerifyFile(const std::string& path, std::uint64_t size, const std::vector<SPieceDigest>& pieces);
    void Done(const std::string& path, EPlanned planned, std::uint64_t bytes);
    void Tell(const std::string& path, std::uint64_t files, std::uint64_t bytes);
    void Trouble(const std::string& path, const std::string& reason);

    template <class Action>
    bool Try(const std::string& path, const Action& action);
    template <class Action>
    void TellAttributes(const std::string& path, const Action& action);

    const CMetaState& state_;
    CRestoreTarget target_;
    const STargetMapping mapping_;
    const CRestoreFilter filter_;
    const SSourceRestoreOptions options_;
    const SRestoreSinks& sinks_;
    SProgress& progress_;
    SRestorePlan plan_;
    std::vector<SDeletion> deletions_;
    std::map<std::size_t, STargetFile> open_;
    std::vector<bool> failed_;                        // by file
    std::vector<bool> finished_;                      // by file
    std::vector<std::vector<SPieceDigest>> written_;  // by file, when they are to be verified
    std::vector<bool> isNewFolder_;                   // by folder
    std::set<const void*> lost_;                      // names whose content did not come
    SRestoreStatistics statistics_;
    std::optional<CSmallFiles> smallFiles_;
};

}  // namespace agent
