#pragma once

#include <string>
#include <vector>

#include "agent/fs/RestoreTarget.h"
#include "agent/run/RestorePlan.h"

namespace agent {

/// Which of the things that stand in the target a restore may replace.
enum class EOverwrite {
    refuse,     ///< the target must be empty
    always,     ///< all, unseen
    ifChanged,  ///< those that differ
    ifNewer,    ///< those that are older than what the checkpoint has
    never,
};

/// Where the paths of a state come to in a target.
struct STargetMapping {
    /// The part of the state that is restored to `prefix`: paths that lie elsewhere have no place.
    std::string strip;
    std::string prefix;

    [[nodiscard]] std::string Map(const std::string& path) const;
};

/// Judges by what stands in the target. For one thread; the target must outlive it.
///
/// A file is taken for equal when size and time are; with `compareContent` its content must have the digests that the
/// checkpoint has, whatever its time. What a digest cannot tell (a chunk that other files share) counts as different.
class CExistingItems : public IExistingItems {
public:
    CExistingItems(CRestoreTarget& target, const STargetMapping& mapping, EOverwrite rule, bool compareContent)
        : target_(target), mapping_(mapping), rule_(rule), compareContent_(compareContent) {}

    EPlanned Judge(const std::string& path, const SEntry& entry, const std::vector<SRestorePlan::SWanted>& pieces,
                   std::vector<SRestorePlan::SLocalRange>& local) override;
    [[nodiscard]] bool IsSameFile(const std::string& path, const SEntry& entry) override;

private:
    [[nodiscard]] EPlanned JudgeFile(const std::string& path, const SEntry& now, const SEntry& entry,
                                     const std::vector<SRestorePlan::SWanted>& pieces,
                                     std::vector<SRestorePlan::SLocalRange>& local);
    [[nodiscard]] bool IsSameOther(const std::string& path, const SEntry& now, const SEntry& entry);

    CRestoreTarget& target_;
    const STargetMapping& mapping_;
    const EOverwrite rule_;
    const bool compareContent_;
    std::vector<char> buffer_;
};

}  // namespace agent
