#pragma once

#include <functional>
#include <span>

#include "agent/chunk/ChunkSource.h"
#include "agent/meta/MetaState.h"

namespace agent {

/// Takes a file's bytes in order; the span is valid during the call.
using content_sink_t = std::function<void(std::span<const char>)>;

/// Gives the content of a file, holes as zeros, reading only the ranges of blocks that hold it. Every chunk is checked
/// before it is given. Throws at the first chunk that cannot be had; what was given before is right.
void ReadFileContent(const SChunkSource& source, const CMetaState& state, const SEntry& file,
                     const content_sink_t& sink);

}  // namespace agent
