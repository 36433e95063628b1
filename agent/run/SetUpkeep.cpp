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

std::chrono::seconds CSetUpkeep::DefaultMinAge() const { return agent::DefaultMinAge(repository_); }

void CSetUpkeep::CheckClientIsGone(std::chrono::seconds minAge) const {
    if (isForOther_) {
        agent::CheckClientIsGone(repository_, *backup_, minAge);
    }
}

std::chrono::seconds DefaultMinAge(const COpenedRepository& repository) {
    return repository.IsOwnClient() ? std::chrono::seconds(0) : oneDay;
}

void CheckClientIsGone(const COpenedRepository& repository, const backup::CCloudBackup& cloudBackup,
                       std::chrono::seconds minAge) {
    if (repository.IsOwnClient()) {
        return;
    }
    const std::string folder = backup::paths::GetCheckpointFolder(cloudBackup.GetBackupId());
    const auto border = std::chrono::system_clock::now() - minAge;
    for (const auto& entry : cloudBackup.GetBackupClient()->QueryFolder(folder)) {
        if (entry.modified > border) {
            throw exc::CRuntimeExc(
                "Client %1 has made checkpoint %2 of set '%3' so lately that a run of it may be under way: do this on "
                "its own machine, or say with --min-age that an earlier checkpoint is old enough",
                repository.GetClientId(), entry.name, repository.GetSet());
        }
    }
}

}  // namespace agent
