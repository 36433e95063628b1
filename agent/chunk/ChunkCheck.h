#pragma once

#include <span>
#include <string>

#include "agent/model/Entry.h"
#include "cloudbackuplib/BlockExternalId.h"

namespace agent {

/// What is wrong with a chunk's record, in words; empty when nothing is. A record may come from damaged or hostile
/// metadata: only one that passes may be read by, allocated for or referred to. Looks at the record alone, not at the
/// block's bytes. A block's number32 is its size.
[[nodiscard]] std::string FindChunkFault(const SChunk& chunk,
                                         std::span<const cloudbackuplib::backup::SBlockExternalId> blocks);

}  // namespace agent
