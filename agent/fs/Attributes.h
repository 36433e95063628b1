#pragma once

#include <string>

#include "agent/model/Entry.h"
#include "common/exc.h"

namespace agent {

enum class ELinks { follow, noFollow };

/// What is restored is there and whole, and so are all of its attributes that could be set; the message tells the first
/// that could not.
class CAttributesExc : public exc::CRuntimeExc {
public:
    using CRuntimeExc::CRuntimeExc;
};

/// Gives what is at `path` the entry's owner, mode, extended attributes and times. `shownPath` is for messages.
///
/// Who is not root cannot give files away: the owner then stays, and set-id bits are left out so that nothing runs with
/// rights that its owner never gave. Extended attributes that only the system may set are left out likewise. Whatever
/// else fails, the rest is set, then it throws CAttributesExc. What cannot have its access control list gives its group
/// no rights, since the mode's group bits are then what others of the list had.
void ApplyAttributes(const std::string& path, const std::string& shownPath, const SEntry& entry, ELinks links);

/// The same for a file that was just made and is open: only what it does not have yet is changed. `inheritsAcl` when
/// its folder gives what is made in it an access control list.
void ApplyNewFileAttributes(int fd, const std::string& shownPath, const SEntry& entry, bool inheritsAcl);

/// Whether the entry's extended attribute is one that a restore takes away where a checkpoint does not have it.
[[nodiscard]] bool IsRestoredXattr(const std::string& name);

}  // namespace agent
