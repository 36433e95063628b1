#include "agent/run/RestoreRun.h"

#include <unistd.h>

#include "agent/run/OpenedCheckpoint.h"

namespace agent {

namespace {

std::string AbsolutePath(const std::string& path) {
    if (path.starts_with('/')) {
        return path;
    }
    char folder[4096];
    if (::getcwd(folder, sizeof(folder)) == nullptr) {
        throw posix::CPosixExc("tell the working folder for", path, errno);
    }
    return std::string(folder) + "/" + path;
}

std::string WithoutLeadingSlashes(const std::string& path) {
    const auto begin = path.find_first_not_of('/');
    return begin == std::string::npos ? std::string() : path.substr(begin);
}

void Add(SRestoreStatistics& sum, const SRestoreStatistics& one) {
    sum.files += one.files;
    sum.folders += one.folders;
    sum.others += one.others;
    sum.bytes += one.bytes;
    sum.errors += one.errors;
}

}  // namespace

SRestoreResult RunRestore(const SRepositoryOptions& options, const std::string& which, const std::string& target,
                          const trouble_sink_t& onTrouble) {
    COpenedCheckpoint checkpoint(options, which);
    CRestoreTarget folder(AbsolutePath(target));
    SRestoreResult result;
    result.checkpoint = checkpoint.GetId();
    for (const auto& root : checkpoint.GetDocument().roots) {
        const CMetaState state = checkpoint.LoadMetadata(root);
        // A root's path is as little to be trusted as any other: the target opens nothing outside of itself.
        CSourceRestore restore(state, folder, WithoutLeadingSlashes(root.path), onTrouble);
        const auto cloudBackup = checkpoint.GetBackup();
        restore.Run({cloudBackup->GetBackupClient(), cloudBackup->GetBackupId(), root.storageId, state.GetBlocks()});
        Add(result.statistics, restore.GetStatistics());
    }
    return result;
}

}  // namespace agent
