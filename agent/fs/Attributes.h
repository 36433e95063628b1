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

}  // namespace agent
