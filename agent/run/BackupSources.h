#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/run/BackupRun.h"
#include "agent/select/PathTree.h"

namespace agent {

/// One root that a run reads.
struct SSourceRoot {
    /// Real: without links, "." and "..".
    std::string path;
    /// What alone of it is wanted; null for everything.
    std::shared_ptr<const CPathTree> wanted;
};

/// The roots that the options name, each once, in the order of their paths. Throws posix::CPosixExc for a source that
/// cannot be read; a listed path that is not there is told to the sink.
[[nodiscard]] std::vector<SSourceRoot> FindSources(const SBackupOptions& options, const trouble_sink_t& onTrouble);

/// The selection applied to one of them; options and root must outlive it.
[[nodiscard]] CSelector MakeSelector(const SBackupOptions& options, const SBackupSinks& sinks,
                                     const SSourceRoot& source);
/// How it is read, but for the stream. All must outlive the reading.
[[nodiscard]] SSourceParams MakeSourceParams(const SBackupOptions& options, const SBackupSinks& sinks,
                                             const SSourceRoot& source, CSelector& selector,
                                             CProgressCounter& progress);

/// Takes the roots that the options drop out of a document. Throws exc::CRuntimeExc for one that it does not have.
void DropRoots(SSetDocument& document, const std::vector<std::string>& dropped);

/// Of the user, the machine and the program: what a document says beside its roots.
void Describe(SSetDocument& document, const SBackupOptions& options);

/// What the last checkpoint makes one expect of the roots; nothing when one of them is new.
void ExpectTotals(CProgressCounter& progress, const SSetDocument& last, const std::vector<SSourceRoot>& roots);

}  // namespace agent
