#include "agent/run/SetUpkeep.h"

#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

constexpr std::chrono::hours oneDay{24};

}  // namespace

CSetUpkeep::CSetUpkeep(const SRepositoryOptions& options, EMode mode)
    : mode_(mode),
      repository_(COpenedRepository::Open4Upkeep(options)),
      isForOther_(!options.client.empty() && !repository_.IsOwnClient()) {
    if (mode == EMode::change) {
        lock_.emplace(repository_.GetSetFolder(), repository_.GetSet());
    }
    backup_ = repository_.OpenBackup4Read();
    if (mode == EMode::change) {
        backup_ = repository_.OpenBackup4Write();  // which would make a set that is not there
    }
}

std::chrono::seconds CSetUpkeep::DefaultMinAge() const {
    return repository_.IsOwnClient() ? std::chrono::seconds(0) : oneDay;
}

void CSetUpkeep::CheckClientIsGone(std::chrono::seconds minAge) const {
    if (!isForOther_) {
        return;
    }
    const std::string folder = backup::paths::GetCheckpointFolder(backup_->GetBackupId());
    const auto border = std::chrono::system_clock::now() - minAge;
    for (const auto& entry : backup_->GetBackupClient()->QueryFolder(folder)) {
        if (entry.modified > border) {
            throw exc::CRuntimeExc(
                "Client %1 has made checkpoint %2 of set '%3' so lately that a run of it may be under way: do this on "
                "its own machine, or say with --min-age that an earlier checkpoint is old enough",
                repository_.GetClientId(), entry.name, GetSet());
        }
    }
}

}  // namespace agent
