#include "agent/run/LongTerm.h"

#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace backup = cloudbackuplib::backup;
namespace checkpoint = cloudbackuplib::backup::checkpoint;

namespace {

std::uint64_t Choose(CSetUpkeep& upkeep, const std::string& which) {
    const auto ids = upkeep.GetBackup().EnumCheckpointsImpl(backup::CheckpointFilter::all);
    if (ids.empty()) {
        throw exc::CRuntimeExc("Set '%1' has no checkpoint yet", upkeep.GetSet());
    }
    const std::uint64_t id = which == "latest" ? *ids.rbegin() : util::str_to_uint64(which);
    if (!ids.contains(id)) {
        throw exc::CRuntimeExc("Set '%1' has no checkpoint %2; the last one is %3", upkeep.GetSet(), id, *ids.rbegin());
    }
    return id;
}

bool IsLongTerm(const backup::CCloudBackup& cloudBackup, std::uint64_t id) {
    return cloudBackup.EnumCheckpointsImpl(backup::CheckpointFilter::longTerm).contains(id);
}

}  // namespace

SLongTermChange KeepForLongTerm(CSetUpkeep& upkeep, const std::string& which) {
    const std::uint64_t id = Choose(upkeep, which);
    auto& cloudBackup = upkeep.GetBackup();
    if (IsLongTerm(cloudBackup, id)) {
        return {id, false};
    }
    const auto regular = cloudBackup.LoadCheckpoint(id);
    const auto& content = regular->GetDxrLongTerm().IsEmpty() ? regular->GetDxr() : regular->GetDxrLongTerm();
    const auto copy = std::make_shared<checkpoint::CCloudCheckpoint>(
        regular->GetStorages(), regular->GetDxr(), content, regular->GetOwner(), id, regular->GetFormatVersion());
    cloudBackup.SaveCheckpointImpl(copy, checkpoint::DxrContentFeature::longTerm);
    return {id, true};
}

SLongTermChange EndLongTerm(CSetUpkeep& upkeep, const std::string& which) {
    const std::uint64_t id = Choose(upkeep, which);
    auto& cloudBackup = upkeep.GetBackup();
    if (!IsLongTerm(cloudBackup, id)) {
        return {id, false};
    }
    if (!cloudBackup.EnumCheckpointsImpl(backup::CheckpointFilter::regular).contains(id)) {
        throw exc::CRuntimeExc("The long-term copy is all that is left of checkpoint %1", id);
    }
    cloudBackup.GetBackupClient()
        ->DeleteFileAsync(backup::paths::GetCheckpointLongTermPath(cloudBackup.GetBackupId(), id))
        ->Wait();
    return {id, true};
}

}  // namespace agent
