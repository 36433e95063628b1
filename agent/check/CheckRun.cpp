#include "agent/check/CheckRun.h"

#include <algorithm>
#include <optional>

#include "agent/check/MetadataObjects.h"
#include "agent/run/OpenedCheckpoint.h"
#include "agent/run/StoreFailure.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"

namespace agent {

namespace paths = cloudbackuplib::backup::paths;

namespace {

class CCheckRun {
public:
    CCheckRun(COpenedRepository repository, const SCheckOptions& checkOptions)
        : checkOptions_(checkOptions),
          repository_(std::move(repository)),
          backup_(repository_.OpenBackup4Read()),
          objects_(backup_->GetBackupClient(), backup_->GetBackupId()) {
        result_.clientId = repository_.GetClientId();
    }

    SCheckResult Run() {
        ListAll();
        CheckMetadataObjects();
        if (!checkpoints_.empty()) {
            opened_.emplace(std::move(repository_), backup_, std::to_string(checkpoints_.back().id));
            CheckVersions();
        }
        CountUnneededStorages();
        for (auto& [object, finding] : metadataFindings_) {
            result_.findings.push_back(std::move(finding));
        }
        result_.counts.metadataObjects = objects_.CountChecked();
        return std::move(result_);
    }

private:
    void ListAll() {
        checkpoints_ = ListCheckpoints(repository_, *backup_, [&](std::uint64_t id, const std::exception& failure) {
            RethrowUnlessDamage(failure);
            result_.isComplete = false;
            result_.unreadableCheckpoints.insert(id);
            if (exc::FindCause<CForeignDocumentExc>(failure) || exc::FindCause<CUnsealExc>(failure)) {
                result_.foreignCheckpoints.insert(id);
            }
            result_.findings.push_back({EDamage::checkpoint,
                                        paths::GetCheckpointPath(backup_->GetBackupId(), id),
                                        exc::ChainText(failure),
                                        {id},
                                        {}});
        });
        result_.counts.checkpoints = checkpoints_.size();
    }

    void CheckMetadataObjects() {
        for (const auto& info : checkpoints_) {
            for (const auto& storage : info.checkpoint->GetStorages()) {
                const SRoot* const root = RootOf(info, storage.GetStorageId());
                for (const auto& fault : objects_.Check(storage)) {
                    AddMetadataFinding(fault.object, fault.reason, {info.id}, root);
                }
            }
        }
    }

    static const SRoot* RootOf(const SCheckpointInfo& info, const guid::guid_t& storageId) {
        for (const auto& root : info.document.roots) {
            if (root.storageId == storageId) {
                return &root;
            }
        }
        return nullptr;
    }

    void AddMetadataFinding(const std::string& object, const std::string& reason,
                            const std::vector<std::uint64_t>& checkpoints, const SRoot* root) {
        auto& finding =
            metadataFindings_.try_emplace(object, SFinding{EDamage::metadata, object, reason, {}, {}}).first->second;
        finding.checkpoints.insert(checkpoints.begin(), checkpoints.end());
        result_.isComplete = false;
        if (root != nullptr) {
            finding.files.insert(root->path);
            result_.damagedVersions.insert(root->headerSha256);
        }
    }

    void CheckVersions() {
        const auto versions = ListVersions(checkpoints_);
        for (std::size_t i = 0; i < versions.size();) {
            const guid::guid_t storageId = versions[i].root.storageId;
            storages_.insert(storageId.ToAStr());
            CBlockListing listing(*backup_->GetBackupClient(), backup_->GetBackupId(), storageId.ToAStr());
            CStorageCheck storage(checkOptions_, listing, result_.counts);
            bool isWhole = true;
            for (; i < versions.size() && versions[i].root.storageId == storageId; ++i) {
                isWhole = CheckVersion(versions[i], storage) && isWhole;
            }
            if (isWhole) {
                AddUnneeded(listing.CountUnneeded());
            }
            std::ranges::move(storage.TakeFindings(), std::back_inserter(result_.findings));
            result_.damage.emplace(storageId, storage.GetDamage());
        }
    }

    /// False when the metadata is damaged.
    bool CheckVersion(const SRootVersion& version, CStorageCheck& storage) {
        if (result_.damagedVersions.contains(version.root.headerSha256)) {
            return false;
        }
        std::optional<CMetaState> state;
        try {
            opened_->SwitchTo(std::to_string(version.checkpoints.front()));
            state = opened_->LoadMetadata(version.root, EMetadataFrom::store);
        } catch (const std::exception& failure) {
            RethrowUnlessDamage(failure);
            AddMetadataFinding(MetadataPath(version), exc::ChainText(failure), version.checkpoints, &version.root);
            return false;
        }
        ++result_.counts.versions;
        storage.AddVersion(version, *state, opened_->GetChunkSource(version.root, *state));
        return true;
    }

    /// Where the version's header lies: it stands for all of its metadata.
    std::string MetadataPath(const SRootVersion& version) const {
        for (const auto& info : checkpoints_) {
            cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor storage;
            if (info.id == version.checkpoints.front() &&
                info.checkpoint->FindStorageById(version.root.storageId, storage)) {
                return paths::GetBackupMetaItemPath(backup_->GetBackupId(), storage.GetFileName());
            }
        }
        return version.root.storageId.ToAStr();
    }

    void AddUnneeded(const CBlockListing::SCount& count) {
        result_.counts.unneededObjects += count.objects;
        result_.counts.unneededBytes += count.bytes;
    }

    /// Block stores of which no checkpoint knows.
    void CountUnneededStorages() {
        if (!result_.isComplete) {
            return;
        }
        auto& client = *backup_->GetBackupClient();
        for (const auto& entry : client.QueryFolder(paths::GetBackupBlockFolder(backup_->GetBackupId(), ""))) {
            if (entry.isFolder && !storages_.contains(entry.name)) {
                AddUnneeded(CBlockListing(client, backup_->GetBackupId(), entry.name).CountUnneeded());
            }
        }
    }

    const SCheckOptions& checkOptions_;
    COpenedRepository repository_;
    const std::shared_ptr<cloudbackuplib::backup::CCloudBackup> backup_;
    CMetadataObjects objects_;
    std::vector<SCheckpointInfo> checkpoints_;
    std::optional<COpenedCheckpoint> opened_;
    std::set<std::string> storages_;
    std::map<std::string, SFinding> metadataFindings_;
    SCheckResult result_;
};

}  // namespace

SCheckResult RunCheck(COpenedRepository repository, const SCheckOptions& checkOptions) {
    return CCheckRun(std::move(repository), checkOptions).Run();
}

}  // namespace agent
