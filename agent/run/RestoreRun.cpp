#include "agent/run/RestoreRun.h"

#include <unistd.h>

#include <algorithm>
#include <deque>

#include "agent/run/OpenedCheckpoint.h"
#include "common/exc.h"

namespace agent {

namespace {

std::string AbsolutePath(const std::string& path) {
    if (path.starts_with('/')) {
        return path;
    }
    char folder[4096];
    if (::getcwd(folder, sizeof(folder)) == nullptr) {
        throw posix::CPosixExc("tell the working folder for", path, errno);
    }
    return std::string(folder) + "/" + path;
}

void Add(SRestoreStatistics& sum, const SRestoreStatistics& one) {
    sum.files += one.files;
    sum.folders += one.folders;
    sum.others += one.others;
    sum.bytes += one.bytes;
    sum.unchanged += one.unchanged;
    sum.skipped += one.skipped;
    sum.deleted += one.deleted;
    sum.verified += one.verified;
    sum.errors += one.errors;
}

SRestoreStatistics PlannedStatistics(const CSourceRestore& restore) {
    const SRestorePlan& plan = restore.GetPlan();
    SRestoreStatistics sum = restore.GetStatistics();
    sum.files = plan.files.size();
    sum.folders = plan.folders.size();
    sum.others = plan.others.size() + plan.hardLinks.size();
    sum.bytes = plan.GetBytes();
    sum.unchanged = plan.kept.size();
    sum.deleted = restore.GetDeletions().size();
    return sum;
}

/// Where a root comes to.
struct SPlace {
    std::string folder;
    STargetMapping mapping;
};

class CRestoreRun {
public:
    CRestoreRun(const SRepositoryOptions& repository, const SRestoreOptions& options, const SRestoreSinks& sinks)
        : options_(options), sinks_(sinks), checkpoint_(repository, options.checkpoint) {
        if (!options_.subfolder.empty()) {
            subfolder_ = NormalPath(options_.subfolder);
        }
    }

    SRestoreResult Run() {
        PlanRoots();
        CheckPathsAreThere();
        if (!options_.dryRun) {
            ConfirmDelete();
        }
        progress_.totalsKnown = true;
        SRestoreResult result;
        result.checkpoint = checkpoint_.GetId();
        for (auto& root : roots_) {
            if (options_.dryRun) {
                root.restore->TellPlan();
                Add(result.statistics, PlannedStatistics(*root.restore));
                continue;
            }
            RunRoot(root);
            Add(result.statistics, root.restore->GetStatistics());
        }
        return result;
    }

private:
    struct SRootRestore {
        SRoot root;
        std::string path;
        CMetaState state;
        std::unique_ptr<CSourceRestore> restore;
    };

    void PlanRoots() {
        LoadRoots();
        const SSourceRestoreOptions options{options_.overwrite, options_.compareContent, options_.deleteOthers,
                                            options_.verify, options_.threads};
        for (auto& planned : roots_) {
            const CRestoreFilter filter(Selection(), planned.path, NeighboursOf(planned));
            NotePathsThatAreThere(planned, filter);
            const SPlace place = PlaceOf(planned.path, planned.state);
            planned.restore = std::make_unique<CSourceRestore>(planned.state, OpenTarget(place.folder), place.mapping,
                                                               filter, options, sinks_, progress_);
        }
    }

    [[nodiscard]] SRestoreSelection Selection() const {
        SRestoreSelection selection = options_.selection;
        if (!subfolder_.empty() && selection.paths.empty()) {
            selection.paths = {subfolder_};
        }
        return selection;
    }

    /// Those that the selection may take anything of, the inner ones first: what is made in a folder changes its time.
    void LoadRoots() {
        for (const auto& root : checkpoint_.GetDocument().roots) {
            // A root's path is as little to be trusted as any other.
            const std::string rootPath = NormalPath(root.path);
            const CRestoreFilter filter(Selection(), rootPath);
            const bool holdsSubfolder = IsPathAtOrUnder(subfolder_, rootPath);
            const bool isLeftOut = !subfolder_.empty() && !holdsSubfolder && !IsPathAtOrUnder(rootPath, subfolder_);
            if (filter.MayTakeAny() && !isLeftOut) {
                roots_.push_back({root, rootPath, checkpoint_.LoadMetadata(root), nullptr});
                hasSubfolder_ = hasSubfolder_ || (holdsSubfolder && HasFolder(roots_.back(), subfolder_));
            }
        }
        if (!subfolder_.empty() && !hasSubfolder_) {
            throw exc::CRuntimeExc("Checkpoint %1 has no folder '%2'", checkpoint_.GetId(), subfolder_);
        }
        const auto isWithout = [&](const SRootRestore& root) {
            return !subfolder_.empty() && IsPathAtOrUnder(subfolder_, root.path) && !HasFolder(root, subfolder_);
        };
        std::erase_if(roots_, isWithout);
        std::stable_sort(roots_.begin(), roots_.end(),
                         [&](const auto& a, const auto& b) { return DepthOf(a.path) > DepthOf(b.path); });
    }

    /// How many roots a path lies in.
    [[nodiscard]] std::ptrdiff_t DepthOf(const std::string& path) const {
        const auto& roots = checkpoint_.GetDocument().roots;
        return std::count_if(roots.begin(), roots.end(), [&](const SRoot& root) { return IsInside(path, root.path); });
    }

    /// Whether a folder lies in another.
    static bool IsInside(const std::string& path, const std::string& folder) {
        return path != folder && IsPathAtOrUnder(path, folder);
    }

    static bool HasFolder(const SRootRestore& root, const std::string& path) {
        const auto found = root.state.Find(PathUnder(path, root.path));
        return found && found->type == EEntryType::directory;
    }

    [[nodiscard]] CRootNeighbours NeighboursOf(const SRootRestore& one) const {
        CRootNeighbours neighbours;
        for (const auto& root : checkpoint_.GetDocument().roots) {
            const std::string path = NormalPath(root.path);
            if (IsInside(path, one.path)) {
                neighbours.AddInner(PathUnder(path, one.path), root.checkpoint < one.root.checkpoint);
            }
        }
        for (const auto& other : roots_) {
            if (IsInside(one.path, other.path) && one.root.checkpoint < other.root.checkpoint) {
                neighbours.AddNewerOuter(other.state, PathUnder(one.path, other.path));
            }
        }
        return neighbours;
    }

    /// Where the root's content goes. Opened once when it is the same for all, since it must be empty at first.
    [[nodiscard]] SPlace PlaceOf(const std::string& rootPath, const CMetaState& state) const {
        const auto& entries = state.GetEntries();
        const bool isFolder = !entries.empty() && entries.begin()->GetEntry().GetType() == EEntryType::directory;
        if (!subfolder_.empty()) {
            const bool isUnder = IsInside(rootPath, subfolder_);
            return {AbsolutePath(options_.target), isUnder ? STargetMapping{{}, PathUnder(rootPath, subfolder_)}
                                                           : STargetMapping{PathUnder(subfolder_, rootPath), {}}};
        }
        if (!options_.target.empty()) {
            return {AbsolutePath(options_.target), {{}, rootPath.substr(1)}};
        }
        if (isFolder) {
            return {rootPath, {}};
        }
        const auto slash = rootPath.find_last_of('/');
        return {slash == 0 ? "/" : rootPath.substr(0, slash), {{}, rootPath.substr(slash + 1)}};
    }

    CRestoreTarget OpenTarget(const std::string& folder) {
        const auto use = options_.dryRun                            ? ETargetUse::onlyLook
                         : options_.overwrite == EOverwrite::refuse ? ETargetUse::mustBeEmpty
                                                                    : ETargetUse::mayHoldFiles;
        if (!target_ || target_->GetFolder() != folder) {
            target_.emplace(folder, use);
            const bool mustBeEmpty = options_.overwrite == EOverwrite::refuse && target_->Find({});
            if (mustBeEmpty && !target_->ListNames({}).empty()) {
                throw exc::CRuntimeExc("Cannot restore into '%1': the folder is not empty", folder);
            }
        }
        return target_->Fork();
    }

    void NotePathsThatAreThere(const SRootRestore& root, const CRestoreFilter& filter) {
        for (const auto& given : options_.selection.paths) {
            const std::string path = NormalPath(given);
            if (IsPathAtOrUnder(root.path, path) ||
                (IsPathAtOrUnder(path, root.path) && HasPath(root, PathUnder(path, root.path), filter))) {
                found_.insert(path);
            }
        }
    }

    /// Patterns may leave it out all the same.
    static bool HasPath(const SRootRestore& root, const std::string& path, const CRestoreFilter& filter) {
        const auto entry = root.state.Find(path);
        return entry && !filter.IsOfOtherRoot(path, entry->type == EEntryType::directory);
    }

    /// Before anything is written: who misspells a path shall not think that it was restored.
    void CheckPathsAreThere() const {
        for (const auto& given : options_.selection.paths) {
            if (!found_.contains(NormalPath(given))) {
                throw exc::CRuntimeExc("Checkpoint %1 holds nothing at '%2'", checkpoint_.GetId(), NormalPath(given));
            }
        }
    }

    void ConfirmDelete() const {
        std::uint64_t count = 0;
        for (const auto& root : roots_) {
            count += root.restore->GetDeletions().size();
        }
        if (count != 0 && options_.confirmDelete && !options_.confirmDelete(count)) {
            throw exc::CRuntimeExc("Nothing was restored: what is not in the checkpoint was not to be deleted");
        }
    }

    void RunRoot(SRootRestore& root) {
        root.restore->Run(checkpoint_.GetChunkSource(root.root, root.state));
        if (options_.sync) {
            target_->Sync();
        }
    }

    const SRestoreOptions& options_;
    const SRestoreSinks& sinks_;
    COpenedCheckpoint checkpoint_;
    std::string subfolder_;
    bool hasSubfolder_ = false;
    std::optional<CRestoreTarget> target_;
    SProgress progress_;
    std::set<std::string> found_;
    std::deque<SRootRestore> roots_;  // restores refer to their neighbours
};

}  // namespace

SRestoreResult RunRestore(const SRepositoryOptions& repository, const SRestoreOptions& options,
                          const SRestoreSinks& sinks) {
    CheckSelection(options.selection);
    return CRestoreRun(repository, options, sinks).Run();
}

SRestoreResult RunRestore(const SRepositoryOptions& repository, const std::string& which, const std::string& target,
                          const trouble_sink_t& onTrouble) {
    SRestoreOptions options;
    options.checkpoint = which;
    options.target = target;
    return RunRestore(repository, options, {onTrouble, {}, {}});
}

}  // namespace agent
