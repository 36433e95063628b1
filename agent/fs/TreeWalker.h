#pragma once

#include <string>

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

/// Visits the root and everything under it: a folder before its content, the names of a folder in the order of their
/// bytes, so that two walks over an unchanged source meet the same in the same order. Links are not followed. `root` is
/// the real path (free of links) of a folder or a single file; posix::CPosixExc when it cannot be read.
void WalkTree(const std::string& root, ITreeVisitor& visitor);

}  // namespace agent
