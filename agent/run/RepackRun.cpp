#include "agent/run/RepackRun.h"

#include <algorithm>
#include <map>
#include <utility>

#include "agent/run/CheckpointList.h"
#include "agent/run/LocalState.h"
#include "agent/run/RepackDocuments.h"
#include "agent/run/RootMetadata.h"
#include "agent/run/VersionReader.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

/// A metadata version that names blocks of the plan.
struct SOldVersion {
    backup::checkpoint::CCloudStorageDescriptor descriptor;
    SRoot root;
};

class CRepackRun {
public:
    CRepackRun(CSetUpkeep& upkeep, const SRepackPlan& plan, const std::vector<std::uint64_t>& checkpoints,
               const trouble_sink_t& onTrouble)
        : upkeep_(upkeep),
          plan_(plan),
          expected_(checkpoints),
          onTrouble_(onTrouble),
          scratch_(upkeep.GetRepository().GetSetFolder()),
          reader_(upkeep.GetBackup(), upkeep.GetRepository().GetSetFolder(), upkeep.GetRepository().GetKeys()) {}

    void Run() {
        checkpoints_ = ListCheckpoints(upkeep_.GetRepository(), upkeep_.GetBackup());
        FindVersions();
        for (const auto& [storageId, names] : plan_.blocks) {
            MoveStorage(storageId, names);
        }
        CheckNothingHappened();
        const auto regular = upkeep_.GetBackup().EnumCheckpointsImpl(backup::CheckpointFilter::regular);
        for (const auto& info : checkpoints_) {
            ReplaceDocuments(upkeep_, info, regular.contains(info.id), written_);
        }
        KeepLocalCopies();
    }

private:
    void FindVersions() {
        for (const auto& info : checkpoints_) {
            for (const auto& storage : info.checkpoint->GetStorages()) {
                for (const auto& root : info.document.roots) {
                    if (root.storageId == storage.GetStorageId() && plan_.versions.contains(storage.GetFileName())) {
                        versions_[root.storageId].try_emplace(storage.GetMetaVersion(), SOldVersion{storage, root});
                    }
                }
            }
        }
        for (const auto& [storageId, versions] : versions_) {
            const SOldVersion& newest = versions.rbegin()->second;
            reader_.OfferLocalCopy(newest.descriptor, newest.root);
        }
    }

    void MoveStorage(const guid::guid_t& storageId, const SRepackPlan::block_names_t& names) {
        const auto& versions = versions_[storageId];
        CWantedChunks wanted(names);
        for (const auto& [number, version] : versions) {
            wanted.Add(reader_.Read(version.descriptor, version.root));
        }
        const auto& cloudBackup = upkeep_.GetBackup();
        auto& repository = upkeep_.GetRepository();
        const SChunkSource source{
            cloudBackup.GetBackupClient(), cloudBackup.GetBackupId(), storageId, wanted.GetBlocks(),
            repository.GetKeys(),          repository.GetThreads()};
        const chunk_moves_t moves = MoveChunks(source, wanted, cloudBackup.GetLastCheckpointId(), onTrouble_);
        CVersionWriter writer(cloudBackup, storageId, repository.GetKeys()->GetCurrent(), scratch_.GetPath(), moves);
        for (const auto& [number, version] : versions) {
            if (auto written = writer.Write(version.descriptor, reader_.Read(version.descriptor, version.root))) {
                written_.emplace(version.descriptor.GetFileName(), *std::move(written));
            }
        }
        files_[storageId] = writer.GetLastFile();
    }

    void CheckNothingHappened() const {
        const auto now = upkeep_.GetBackup().EnumCheckpointsImpl(backup::CheckpointFilter::all);
        const bool isAsPlanned = std::equal(now.begin(), now.end(), expected_.begin(), expected_.end());
        const bool isAsListed = std::equal(now.begin(), now.end(), checkpoints_.begin(), checkpoints_.end(),
                                           [](unsigned long id, const auto& info) { return id == info.id; });
        if (!isAsPlanned || !isAsListed) {
            throw exc::CRuntimeExc("Checkpoints of set '%1' were made or forgotten meanwhile: prune again",
                                   upkeep_.GetSet());
        }
    }

    /// The next run finds the metadata that it builds on, as it would have found the old one.
    void KeepLocalCopies() const {
        const auto& newest = checkpoints_.back();
        for (const auto& storage : newest.checkpoint->GetStorages()) {
            const auto written = written_.find(storage.GetFileName());
            const auto file = files_.find(storage.GetStorageId());
            if (written == written_.end() || file == files_.end()) {
                continue;
            }
            if (ReadMetaHeader(file->second).sha256.ToAStr() == written->second.headerSha256) {
                util::fs_file_rename(file->second, LocalMetaPath(upkeep_.GetRepository().GetSetFolder(), file->first));
            }
        }
    }

    CSetUpkeep& upkeep_;
    const SRepackPlan& plan_;
    const std::vector<std::uint64_t>& expected_;
    const trouble_sink_t& onTrouble_;
    const CScratchFolder scratch_;
    CVersionReader reader_;
    std::vector<SCheckpointInfo> checkpoints_;
    std::map<guid::guid_t, std::map<std::uint64_t, SOldVersion>> versions_;
    written_versions_t written_;
    std::map<guid::guid_t, std::string> files_;
};

}  // namespace

void ExecuteRepack(CSetUpkeep& upkeep, const SRepackPlan& plan, const std::vector<std::uint64_t>& checkpoints,
                   const trouble_sink_t& onTrouble) {
    CRepackRun(upkeep, plan, checkpoints, onTrouble).Run();
}

}  // namespace agent
