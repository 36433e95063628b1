#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "agent/run/RootNeighbours.h"
#include "agent/select/PatternList.h"

namespace agent {

/// What of a checkpoint is restored, as the user says it. A plain value.
struct SRestoreSelection {
    /// Full paths of the source; with all that lies under them. All when there are none.
    std::vector<std::string> paths;
    /// Patterns of gitignore's kind, from a source's root on or with its full path. Only what matches one of `include`
    /// (if there are any) and none of `exclude`; what lies in a folder that matches, matches.
    std::vector<std::string> include;
    std::vector<std::string> exclude;
};

/// Throws exc::CRuntimeExc for a pattern that is blank, a comment or negated, and for a path that is not absolute.
void CheckSelection(const SRestoreSelection& selection);

/// Applies a selection to one root. Constant after construction.
class CRestoreFilter {
public:
    /// Of a selection that CheckSelection passes.
    CRestoreFilter(const SRestoreSelection& selection, const std::string& root, CRootNeighbours neighbours = {});

    /// False when nothing in the root can be meant: its metadata is not even needed.
    [[nodiscard]] bool MayTakeAny() const { return isWhole_ || !paths_.empty(); }
    /// `path` from the root on.
    [[nodiscard]] bool Takes(std::string_view path, bool isFolder) const;
    /// Whether another root restores the path.
    [[nodiscard]] bool IsOfOtherRoot(std::string_view path, bool isFolder) const {
        return neighbours_.LeavesOut(path, isFolder);
    }
    /// Whether a name that the root does not know may be deleted, as far as it is concerned itself.
    [[nodiscard]] bool TakesUnknown(std::string_view path, bool isFolder) const {
        return Takes(path, isFolder) && !neighbours_.IsGuarded(path);
    }
    /// Whether that goes for whatever lies in such a folder as well.
    [[nodiscard]] bool TakesAllUnder(std::string_view path) const {
        return include_.IsEmpty() && exclude_.IsEmpty() && !neighbours_.HasGuardedUnder(path);
    }

private:
    [[nodiscard]] bool MatchesPatterns(std::string_view path, bool isFolder) const;

    bool isWhole_ = false;
    std::vector<std::string> paths_;  // from the root on
    CPatternList include_;
    CPatternList exclude_;
    CRootNeighbours neighbours_;
};

/// "/a//b/" as "/a/b"; throws exc::CRuntimeExc unless it is absolute and free of "." and "..".
[[nodiscard]] std::string NormalPath(const std::string& path);
/// What of `path` lies behind the folder; the empty path for the folder itself. Only for a path at or under it.
[[nodiscard]] std::string PathUnder(const std::string& path, const std::string& folder);
[[nodiscard]] bool IsPathAtOrUnder(std::string_view path, std::string_view folder);

}  // namespace agent
