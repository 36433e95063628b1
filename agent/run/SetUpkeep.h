#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "agent/run/OpenedRepository.h"
#include "cloudbackuplib/CloudBackup.h"

namespace agent {

/// For the client of another machine: throws exc::CRuntimeExc when its last checkpoint of the set is younger than that,
/// since a run of it may be under way.
void CheckClientIsGone(const COpenedRepository& repository, const cloudbackuplib::backup::CCloudBackup& cloudBackup,
                       std::chrono::seconds minAge);
/// How old that must be, and what no checkpoint names, unless the user says: nothing for this machine's client, whose
/// runs the set's lock holds off; else a day.
[[nodiscard]] std::chrono::seconds DefaultMinAge(const COpenedRepository& repository);

/// A set that is looked after: forgotten from, pruned, kept for the long term. For one thread.
///
/// To change it, the set's lock on this machine is held as long as this lives: a run of this machine's client does not
/// go on meanwhile. Runs of a client of another machine are not held off; see CheckClientIsGone.
class CSetUpkeep {
public:
    enum class EMode { look, change };

    /// Throws exc::CRuntimeExc when there is no such set or another run holds it.
    CSetUpkeep(const SRepositoryOptions& options, EMode mode);

    [[nodiscard]] COpenedRepository& GetRepository() { return repository_; }
    [[nodiscard]] cloudbackuplib::backup::CCloudBackup& GetBackup() const { return *backup_; }
    [[nodiscard]] std::shared_ptr<cloudbackuplib::backup::CCloudBackup> ShareBackup() const { return backup_; }
    [[nodiscard]] const std::string& GetSet() const { return repository_.GetSet(); }
    [[nodiscard]] bool MayChange() const { return mode_ == EMode::change; }
    /// Whether the client was asked for that is not this machine's.
    [[nodiscard]] bool IsForOtherMachine() const { return isForOther_; }

    [[nodiscard]] std::chrono::seconds DefaultMinAge() const;
    /// Only when another machine's client was asked for.
    void CheckClientIsGone(std::chrono::seconds minAge) const;

private:
    const EMode mode_;
    COpenedRepository repository_;
    const bool isForOther_;
    std::optional<CSetLock> lock_;
    std::shared_ptr<cloudbackuplib::backup::CCloudBackup> backup_;
};

}  // namespace agent
