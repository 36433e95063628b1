#include "agent/run/PruneRun.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "agent/run/BlockUse.h"
#include "agent/run/CheckpointList.h"
#include "agent/run/RepackDocuments.h"
#include "agent/run/RepackRun.h"
#include "agent/run/VersionReader.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"
#include "common/options.h"

namespace agent {

namespace backup = cloudbackuplib::backup;
namespace paths = cloudbackuplib::backup::paths;

namespace {

constexpr std::uint64_t toldMissingBlocks = 20;

/// Everything that the set's checkpoints need.
class CSetNeeds {
public:
    CSetNeeds(CSetUpkeep& upkeep, const std::set<std::uint64_t>& without)
        : upkeep_(upkeep),
          without_(without),
          reader_(upkeep.GetBackup(), upkeep.GetRepository().GetSetFolder(), upkeep.GetRepository().GetKeys()) {}

    void Read() {
        auto checkpoints = ListCheckpoints(upkeep_.GetRepository(), upkeep_.GetBackup());
        if (checkpoints.empty()) {
            throw exc::CRuntimeExc(
                "Set '%1' has no checkpoint yet: what an unfinished first backup has stored is kept for its next run",
                upkeep_.GetSet());
        }
        for (const auto& checkpoint : checkpoints) {
            ids_.push_back(checkpoint.id);
        }
        std::erase_if(checkpoints, [&](const auto& checkpoint) { return without_.contains(checkpoint.id); });
        for (const auto& checkpoint : checkpoints) {
            AddMetadataObjects(checkpoint);
        }
        // The newest first: this machine may have its metadata still, which holds most of what earlier ones need.
        std::reverse(checkpoints.begin(), checkpoints.end());
        for (const auto& checkpoint : checkpoints) {
            AddBlocks(checkpoint);
        }
    }

    [[nodiscard]] const std::vector<std::uint64_t>& GetIds() const { return ids_; }
    [[nodiscard]] bool NeedsObject(const std::string& path) const { return objects_.contains(path); }
    [[nodiscard]] const CBlockUse* FindStorage(const guid::guid_t& storageId) const {
        const auto found = blocks_.find(storageId);
        return found == blocks_.end() ? nullptr : &found->second;
    }
    [[nodiscard]] const std::map<guid::guid_t, CBlockUse>& GetStorages() const { return blocks_; }
    /// Adds to the plan which versions name its blocks, and which checkpoints those versions.
    void FindVersions(SRepackPlan& plan) const {
        for (const auto& version : versions_) {
            if (NamesAny(version, plan)) {
                plan.versions.insert(version.fileName);
                plan.checkpoints.insert(version.checkpoints.begin(), version.checkpoints.end());
            }
        }
    }

private:
    void AddMetadataObjects(const SCheckpointInfo& info) {
        for (const auto& storage : info.checkpoint->GetStorages()) {
            objects_.insert(paths::GetBackupMetaItemPath(upkeep_.GetBackup().GetBackupId(), storage.GetFileName()));
            for (const auto& [offset, part] : storage.GetCloudMetadataPartDescriptionsMap()) {
                objects_.insert(part.filePath);
            }
        }
    }

    /// A metadata version, who has it, and the blocks that it needs, by their indexes.
    struct SVersion {
        guid::guid_t storageId;
        std::string fileName;
        std::set<std::uint64_t> checkpoints;
        std::vector<std::uint32_t> blocks;
    };

    void AddBlocks(const SCheckpointInfo& info) {
        CheckAllAreNamed(info);
        for (const auto& root : info.document.roots) {
            const auto [place, isNew] = known_.try_emplace({root.storageId, root.headerSha256}, versions_.size());
            if (isNew) {
                versions_.push_back(ReadVersion(info, root));
            }
            versions_[place->second].checkpoints.insert(info.id);
        }
    }

    SVersion ReadVersion(const SCheckpointInfo& info, const SRoot& root) {
        try {
            const auto& storage = info.checkpoint->GetStorageById(root.storageId);
            reader_.OfferLocalCopy(storage, root);
            return {
                root.storageId, storage.GetFileName(), {}, blocks_[root.storageId].Add(reader_.Read(storage, root))};
        } catch (const std::exception& failure) {
            exc::RegenTraceExc(failure,
                               "Nothing is pruned, since nobody knows which blocks checkpoint %1 needs of '%2'",
                               info.id, EscapePath(root.path));
        }
    }

    [[nodiscard]] bool NamesAny(const SVersion& version, const SRepackPlan& plan) const {
        const auto names = plan.blocks.find(version.storageId);
        if (names == plan.blocks.end()) {
            return false;
        }
        const auto& known = blocks_.at(version.storageId).GetBlocks();
        return std::any_of(names->second.begin(), names->second.end(), [&](const auto& name) {
            return std::binary_search(version.blocks.begin(), version.blocks.end(), known.at(name).index);
        });
    }

    /// A storage that the document does not name would be pruned away.
    static void CheckAllAreNamed(const SCheckpointInfo& info) {
        for (const auto& storage : info.checkpoint->GetStorages()) {
            const auto& roots = info.document.roots;
            const bool named = std::any_of(roots.begin(), roots.end(),
                                           [&](const SRoot& root) { return root.storageId == storage.GetStorageId(); });
            if (!named) {
                throw exc::CRuntimeExc("Nothing is pruned: checkpoint %1 has storage %2, and does not say what it is",
                                       info.id, storage.GetStorageId());
            }
        }
    }

    CSetUpkeep& upkeep_;
    const std::set<std::uint64_t>& without_;
    CVersionReader reader_;
    std::vector<std::uint64_t> ids_;
    std::set<std::string> objects_;
    std::vector<SVersion> versions_;
    std::map<std::pair<guid::guid_t, std::string>, std::size_t> known_;  // places in versions_
    std::map<guid::guid_t, CBlockUse> blocks_;
};

/// Makes the plan of one prune.
class CPrunePlanner {
public:
    CPrunePlanner(CSetUpkeep& upkeep, const SPruneOptions& options, const trouble_sink_t& onTrouble)
        : upkeep_(upkeep),
          onTrouble_(onTrouble),
          minAge_(options.minAge.value_or(upkeep.DefaultMinAge())),
          border_(std::chrono::system_clock::now() - minAge_),
          maxUnused_(options.maxUnused),
          needs_(upkeep, options.without) {}

    SPrunePlan Plan() {
        // Listed before the checkpoints are read: what a checkpoint needs that is made meanwhile is then known.
        const auto stores = ListBlockStores(upkeep_.GetBackup());
        const auto metadata = ListMetadata(upkeep_.GetBackup());
        needs_.Read();
        plan_.checkpoints = needs_.GetIds();
        for (const auto& store : stores) {
            PlanStore(store);
        }
        for (const auto& object : metadata) {
            PlanMetadata(object);
        }
        FindMissingBlocks(stores);
        plan_.repack = ChooseBlocks(needs_.GetStorages(), missing_, maxUnused_);
        needs_.FindVersions(plan_.repack);
        return std::move(plan_);
    }

private:
    template <typename TObject>
    bool IsOldEnough(const TObject& object) {
        if (minAge_.count() == 0 || object.modified < border_) {
            // A store that does not tell times tells the clock's epoch.
            const bool isTold = object.modified != std::chrono::system_clock::time_point();
            if (minAge_.count() == 0 || isTold) {
                return true;
            }
        }
        plan_.young.Add(object.size);
        return false;
    }

    void PlanStore(const SListedBlockStore& listed) {
        const CBlockUse* use = needs_.FindStorage(listed.storageId);
        SPrunePlan::SStore store{listed.storageId, {}, use == nullptr};
        for (const auto& block : listed.blocks) {
            if (use != nullptr && use->IsUsed(block.md5)) {
                plan_.blocksKept.Add(block.size);
            } else if (IsOldEnough(block)) {
                plan_.blocksRemoved.Add(block.size);
                store.blocks.push_back(block.md5);
            } else {
                store.isGone = false;
            }
        }
        for (const auto& object : listed.others) {
            if (IsOldEnough(object)) {
                plan_.othersRemoved.Add(object.size);
                plan_.objects.push_back(object.path);
            } else {
                store.isGone = false;
            }
        }
        if (!store.blocks.empty() || store.isGone) {
            plan_.stores.push_back(std::move(store));
        }
    }

    void PlanMetadata(const SListedObject& object) {
        if (needs_.NeedsObject(object.path)) {
            plan_.metadataKept.Add(object.size);
        } else if (IsOldEnough(object)) {
            plan_.metadataRemoved.Add(object.size);
            plan_.objects.push_back(object.path);
        }
    }

    void FindMissingBlocks(const std::vector<SListedBlockStore>& stores) {
        for (const auto& [storageId, use] : needs_.GetStorages()) {
            plan_.unusedBytes += use.CountUnusedBytes();
            std::set<digest::md5_digest_t> there;
            for (const auto& store : stores) {
                if (store.storageId == storageId) {
                    for (const auto& block : store.blocks) {
                        there.insert(block.md5);
                    }
                }
            }
            for (const auto& [md5, block] : use.GetBlocks()) {
                if (!there.contains(md5)) {
                    TellMissing(storageId, md5);
                }
            }
        }
    }

    void TellMissing(const guid::guid_t& storageId, const digest::md5_digest_t& md5) {
        missing_[storageId].insert(md5);
        if (++plan_.missingBlocks <= toldMissingBlocks) {
            onTrouble_(
                {paths::GetBackupBlockPath(upkeep_.GetBackup().GetBackupId(), storageId, paths::DigestToBlockName(md5)),
                 "a checkpoint needs this block, and it is missing; see 'cloudbackup check'"});
        }
    }

    CSetUpkeep& upkeep_;
    const trouble_sink_t& onTrouble_;
    const std::chrono::seconds minAge_;
    const std::chrono::system_clock::time_point border_;
    const SUnusedLimit maxUnused_;
    CSetNeeds needs_;
    std::map<guid::guid_t, SRepackPlan::block_names_t> missing_;
    SPrunePlan plan_;
};

void CheckNothingHappened(const backup::CCloudBackup& cloudBackup, const SPrunePlan& plan) {
    const auto now = cloudBackup.EnumCheckpointsImpl(backup::CheckpointFilter::all);
    if (!std::equal(now.begin(), now.end(), plan.checkpoints.begin(), plan.checkpoints.end())) {
        throw exc::CRuntimeExc("Checkpoints of set '%1' were made or forgotten meanwhile: prune again",
                               cloudBackup.GetBackupId());
    }
}

void Delete(CSetUpkeep& upkeep, const SPrunePlan& plan) {
    auto& cloudBackup = upkeep.GetBackup();
    CheckNothingHappened(cloudBackup, plan);
    const auto client = cloudBackup.GetBackupClient();
    const std::size_t limit = client->GetConcurrentTaskLimit();
    options_t::GetInst().SetBlockDeletionConcurrency(limit);
    task::RunWindow(
        plan.objects.size(), limit, [&](std::size_t index) { return client->DeleteFileAsync(plan.objects[index]); },
        [](std::size_t) {});
    for (const auto& store : plan.stores) {
        cloudBackup.ClearReleasedBlocks(store.storageId, store.blocks);
        if (store.isGone && upkeep.GetRepository().IsOwnClient()) {
            cloudBackup.DeleteBlockStore(store.storageId);
        }
    }
}

}  // namespace

SObjectCount SPrunePlan::Removed() const {
    return {blocksRemoved.objects + metadataRemoved.objects + othersRemoved.objects,
            blocksRemoved.bytes + metadataRemoved.bytes + othersRemoved.bytes};
}

SPrunePlan PlanPrune(CSetUpkeep& upkeep, const SPruneOptions& options, const trouble_sink_t& onTrouble) {
    return CPrunePlanner(upkeep, options, onTrouble).Plan();
}

void ExecutePrune(CSetUpkeep& upkeep, const SPrunePlan& plan, const SPruneOptions& options) {
    upkeep.CheckClientIsGone(options.minAge.value_or(upkeep.DefaultMinAge()));
    Delete(upkeep, plan);
}

SPrunePlan RunPrune(CSetUpkeep& upkeep, const SPruneOptions& options, const trouble_sink_t& onTrouble) {
    // Asked only here: a document that is replaced looks as if the client had just made it.
    upkeep.CheckClientIsGone(options.minAge.value_or(upkeep.DefaultMinAge()));
    AlignLongTermCopies(upkeep);
    SPrunePlan plan = PlanPrune(upkeep, options, onTrouble);
    if (!plan.repack.IsEmpty()) {
        ExecuteRepack(upkeep, plan.repack, plan.checkpoints, onTrouble);
        SPrunePlan after = PlanPrune(upkeep, options, [](const STrouble&) {});
        if (after.missingBlocks > plan.missingBlocks) {
            throw exc::CRuntimeExc("Of the blocks just written %1 are missing in the store: nothing is deleted",
                                   after.missingBlocks - plan.missingBlocks);
        }
        after.repack = std::move(plan.repack);
        plan = std::move(after);
    }
    Delete(upkeep, plan);
    return plan;
}

}  // namespace agent
