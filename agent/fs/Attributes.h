#pragma once

#include <string>

#include "agent/model/Entry.h"

namespace agent {

enum class ELinks { follow, noFollow };

/// Gives what is at `path` the entry's owner, mode, extended attributes and times. `shownPath` is for messages.
///
/// Who is not root cannot give files away: the owner then stays, and set-id bits are left out so that nothing runs with
/// rights that its owner never gave. Extended attributes that only the system may set are left out likewise. Throws
/// posix::CPosixExc for anything else that fails.
void ApplyAttributes(const std::string& path, const std::string& shownPath, const SEntry& entry, ELinks links);

/// The same for a file that was just made and is open: only what it does not have yet is changed. `inheritsAcl` when
/// its folder gives what is made in it an access control list.
void ApplyNewFileAttributes(int fd, const std::string& shownPath, const SEntry& entry, bool inheritsAcl);

/// Whether the entry's extended attribute is one that a restore takes away where a checkpoint does not have it.
[[nodiscard]] bool IsRestoredXattr(const std::string& name);

}  // namespace agent
