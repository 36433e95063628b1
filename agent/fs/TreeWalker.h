#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/fs/SourceItem.h"

namespace agent {

/// Gets what a walk over a source meets, in the walk's thread. What it throws ends the walk.
class ITreeVisitor {
public:
    virtual ~ITreeVisitor() = default;
    virtual void OnItem(const SSourceItem& item) = 0;
    /// A name, or a folder's content, that cannot be read; the walk goes on with the next. `isFolder` when it is the
    /// content of a folder that stays unknown.
    virtual void OnError(const std::string& path, bool isFolder, const std::exception& failure) = 0;
};

/// Says which names of a source a walk visits, in the walk's thread. What it throws ends the walk. The root itself is
/// always visited.
class ITreeFilter {
public:
    virtual ~ITreeFilter() = default;
    /// A folder that is not taken is not entered.
    [[nodiscard]] virtual bool Takes(const SSourceItem& item) = 0;
    /// The same for a name that cannot be looked at: whether that is worth a word.
    [[nodiscard]] virtual bool TakesUnseen(const std::string& path) = 0;
    /// The only names of interest in a folder that is to be entered, sorted by their bytes, when they are known
    /// beforehand: the folder then need not be readable. With none of interest it is not entered.
    [[nodiscard]] virtual std::optional<std::vector<std::string>> NamesOf(const SSourceItem& folder) = 0;
    /// Before the folder's names are visited, sorted by their bytes; names taken away are not. Each is followed by a
    /// LeaveFolder.
    virtual void EnterFolder(const SSourceItem& folder, int folderFd, std::vector<std::string>& names) = 0;
    virtual void LeaveFolder() = 0;
};

/// Visits the root and everything under it: a folder before its content, the names of a folder in the order of their
/// bytes, so that two walks over an unchanged source meet the same in the same order. Links are not followed. `root` is
/// the real path (free of links) of a folder or a single file; posix::CPosixExc when it cannot be read. Without a
/// filter everything is visited.
void WalkTree(const std::string& root, ITreeVisitor& visitor, ITreeFilter* filter = nullptr);

}  // namespace agent
