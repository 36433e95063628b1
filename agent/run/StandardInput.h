#pragma once

#include <string>

#include "agent/chunk/ChunkStream.h"
#include "agent/meta/MetaState.h"
#include "agent/run/Progress.h"
#include "agent/run/SetDocument.h"

namespace agent {

/// A root that is one file of what comes in, of unknown size.
struct SInputOptions {
    /// The root's path.
    std::string path = "/stdin";
    /// What is read when there is no command.
    int fd = 0;
    /// For the shell: its output is read. Failing, it fails the run.
    std::string command;
};

/// Reads the input to its end into the stream; the changes are those of a root that is this file. Throws
/// posix::CPosixExc when it cannot be read, exc::CRuntimeExc when the command does not end with success.
[[nodiscard]] SMetaChanges ReadInput(const SInputOptions& input, const CMetaState& known, CChunkStream& stream,
                                     CProgressCounter& progress, SRootStatistics& statistics);

}  // namespace agent
