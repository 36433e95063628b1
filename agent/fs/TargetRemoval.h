#pragma once

#include <string>
#include <vector>

#include "common/posix.h"

namespace agent {

/// The names in an open folder, sorted by their bytes. `shownPath` is for messages.
[[nodiscard]] std::vector<std::string> NamesInFolder(const posix::fd_t& folder, const std::string& shownPath);

/// Opens a folder beneath another open one without following links and without entering what is mounted there:
/// `openat2` with those flags. Not a folder, and errno EXDEV, when a mount or another file system is in the way.
[[nodiscard]] posix::fd_t OpenOnSameFileSystem(int parent, const std::string& path, int flags);

/// Removes the name from the open folder `parent` without following links; a folder with all that lies in it when
/// `withContent`, else only when it is empty. Does not enter another file system, nor anything else that is mounted.
/// Throws posix::CPosixExc.
void RemoveItem(int parent, const std::string& name, const std::string& shownPath, bool withContent);

}  // namespace agent
