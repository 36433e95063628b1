#pragma once

#include <string>
#include <vector>

#include "common/posix.h"

namespace agent {

/// The names in an open folder, sorted by their bytes. `shownPath` is for messages.
[[nodiscard]] std::vector<std::string> NamesInFolder(const posix::fd_t& folder, const std::string& shownPath);

/// Removes the name from the open folder `parent` without following links; a folder with all that lies in it when
/// `withContent`, else only when it is empty. Does not enter another file system. Throws posix::CPosixExc.
void RemoveItem(int parent, const std::string& name, const std::string& shownPath, bool withContent);

}  // namespace agent
