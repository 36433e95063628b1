#pragma once

#include <cstdint>
#include <string>

#include "agent/run/SetUpkeep.h"

namespace agent {

struct SLongTermChange {
    std::uint64_t id = 0;
    /// False when it was so before.
    bool isChanged = false;
};

/// Writes the long-term copy of a checkpoint, which rules of retention do not touch; `which` is an id or "latest".
/// Nothing is copied but the document.
SLongTermChange KeepForLongTerm(CSetUpkeep& upkeep, const std::string& which);

/// Deletes the long-term copy of a checkpoint, which then is as any other. A checkpoint whose regular copy is gone is
/// left alone with an exception: it would be gone altogether.
SLongTermChange EndLongTerm(CSetUpkeep& upkeep, const std::string& which);

}  // namespace agent
