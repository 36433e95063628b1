#include "agent/run/CheckpointList.h"

#include <set>

namespace agent {

namespace backup = cloudbackuplib::backup;

std::vector<SCheckpointInfo> ListCheckpoints(COpenedRepository& repository, const backup::CCloudBackup& cloudBackup,
                                             const unreadable_sink_t& onUnreadable) {
    static_cast<void>(repository.GetKeys());  // not had, they are no fault of a checkpoint
    const auto ids = cloudBackup.EnumCheckpointsImpl(backup::CheckpointFilter::all);
    const auto longTerm = cloudBackup.EnumCheckpointsImpl(backup::CheckpointFilter::longTerm);
    std::vector<SCheckpointInfo> list;
    list.reserve(ids.size());
    const auto take = [&](unsigned long id, const backup::CCloudBackup::checkpoint_ptr& checkpoint,
                          const std::exception_ptr& failure) {
        try {
            if (failure) {
                std::rethrow_exception(failure);
            }
            list.push_back({id, longTerm.contains(id), repository.ReadDocument(id, checkpoint->GetDxr().GetContent()),
                            checkpoint});
        } catch (const std::exception& unreadable) {
            if (!onUnreadable) {
                throw;
            }
            onUnreadable(id, unreadable);
        }
    };
    cloudBackup.LoadCheckpoints({ids.begin(), ids.end()}, take);
    return list;
}

std::vector<SCheckpointInfo> ListCheckpoints(COpenedRepository& repository, const unreadable_sink_t& onUnreadable) {
    return ListCheckpoints(repository, *repository.OpenBackup4Read(), onUnreadable);
}

}  // namespace agent
