#include "agent/check/RepairRun.h"

#include <algorithm>

#include "agent/check/BlockRebuild.h"
#include "agent/meta/FileExtent.h"
#include "agent/run/OpenedCheckpoint.h"
#include "agent/run/RootMetadata.h"
#include "agent/run/SetUpkeep.h"
#include "agent/run/StoreFailure.h"
#include "agent/select/PathScope.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

/// What is in the state now; what a run did to it is no longer known.
SRootStatistics CountState(const CMetaState& state, std::uint64_t removed) {
    SRootStatistics statistics;
    for (const auto& [path, packed] : state.GetEntries()) {
        const SEntry entry = packed.Unpack();
        statistics.files += entry.type == EEntryType::file ? 1U : 0U;
        statistics.folders += entry.type == EEntryType::directory ? 1U : 0U;
        statistics.others += entry.type != EEntryType::file && entry.type != EEntryType::directory ? 1U : 0U;
        statistics.bytes += entry.size;
    }
    statistics.removed = removed;
    statistics.unchanged = statistics.files + statistics.folders + statistics.others;
    return statistics;
}

/// Keeps an unreadable document on this machine, then takes it out of the store.
class CDocumentRemoval {
public:
    CDocumentRemoval(backup::CCloudBackup& cloudBackup, std::string folder)
        : backup_(cloudBackup), folder_(std::move(folder)) {}

    SRepairResult::SRemovedDocument Remove(std::uint64_t id) {
        const std::string path = backup::paths::GetCheckpointPath(backup_.GetBackupId(), id);
        const auto bytes = std::make_shared<cnt::array_t<char>>();
        auto& client = *backup_.GetBackupClient();
        client.DownloadFileAsync(path, bytes)->Wait();
        const std::string copy = folder_ + "/damaged-checkpoint-" + std::to_string(id) + ".xml";
        auto file = posix::posix_file_t::OpenOrCreate4Write(copy, false, 0);
        file.Truncate(0);
        file.Write(*bytes);
        file.Sync();
        if (ReadLastCheckpoint(folder_) == id) {
            WriteLastCheckpoint(folder_, id - 1);  // not to be missed
        }
        client.DeleteFileAsync(path)->Wait();
        return {id, copy};
    }

private:
    backup::CCloudBackup& backup_;
    const std::string folder_;
};

/// The new checkpoint, from the last one that can be read.
class CRepairCommit {
public:
    CRepairCommit(COpenedRepository& repository, std::shared_ptr<backup::CCloudBackup> cloudBackup,
                  std::vector<SCheckpointInfo> checkpoints, const SCheckResult& check)
        : repository_(repository),
          backup_(std::move(cloudBackup)),
          checkpoints_(std::move(checkpoints)),
          check_(check),
          session_(backup::CCloudBackupSession::StartSession(backup_, checkpoints_.back().id, false)),
          scratch_(repository.GetSetFolder()),
          checkpoint_(backup_->GetLastCheckpointId() + 1),
          document_(checkpoints_.back().document) {}

    std::vector<SRepairedRoot> MendAll() {
        std::vector<SRepairedRoot> mended;
        for (auto& root : document_.roots) {
            if (auto one = Mend(root)) {
                mended.push_back(*std::move(one));
            }
        }
        return mended;
    }

    /// Of a root that was mended: what is to become of it in the new checkpoint is told to the session.
    std::uint64_t Commit() {
        CheckIsUnchanged();
        document_.started = started_;
        document_.finished = Now();
        document_.description = "Repair of checkpoint " + std::to_string(checkpoints_.back().id);
        for (auto& change : changes_) {
            Write(change);
        }
        const auto made = session_->CreateCheckpoint(repository_.StoreDocument(checkpoint_, document_), "");
        for (const auto& change : changes_) {
            util::fs_file_rename(change.newPath, change.localPath);
        }
        return made->GetId();
    }

private:
    struct SChange {
        SRoot* root;
        CMetaState state;
        std::set<std::string, SPathLess> removed;
        /// The new version is written whole: what the store has of the last one cannot be gone on with.
        bool isAnew = false;
        std::string localPath;
        std::string newPath;
        std::shared_ptr<backup::IMetaUpdateSink> sink;  // keeps the extent that the commit reads through
    };

    /// What the new checkpoint is made of was read a while ago: a run may have added to the set since, or a prune of
    /// another machine written its checkpoints anew.
    void CheckIsUnchanged() const {
        const auto fresh = repository_.OpenBackup4Read();
        const auto now = ListCheckpoints(
            repository_, *fresh, [](std::uint64_t, const std::exception& failure) { RethrowUnlessDamage(failure); });
        const auto isSame = [](const SCheckpointInfo& a, const SCheckpointInfo& b) {
            return a.id == b.id && a.document == b.document;
        };
        if (!std::ranges::equal(checkpoints_, now, isSame)) {
            throw exc::CRuntimeExc(
                "Another run has changed the checkpoints of set '%1' while this one was under way: no checkpoint was "
                "made, repair again",
                repository_.GetSet());
        }
    }

    /// Nothing for a root that is sound.
    std::optional<SRepairedRoot> Mend(SRoot& root) {
        SRepairedRoot mended{root.path, {}, std::nullopt};
        SChange change{&root, {}, {}, check_.damagedVersions.contains(root.headerSha256), {}, {}, nullptr};
        change.localPath = LocalMetaPath(repository_.GetSetFolder(), root.storageId);
        change.newPath = LocalMetaPath(scratch_.GetPath(), root.storageId);
        if (change.isAnew) {
            mended.takenFrom = LoadOther(root, change);
        } else {
            change.state = LoadRootMetadata(*session_, root, change.localPath, *repository_.GetKeys());
        }
        const auto damage = check_.damage.find(root.storageId);
        if (damage != check_.damage.end()) {
            for (const auto& lost : FindLostFiles(change.state, damage->second)) {
                change.removed.insert(lost.path);
                mended.lostFiles.push_back(FullPath(root.path, lost.path));
            }
        }
        if (!change.isAnew && change.removed.empty()) {
            return std::nullopt;
        }
        changes_.push_back(std::move(change));
        return mended;
    }

    /// The metadata of a root whose own is damaged in the store: this machine's copy, else what the newest checkpoint
    /// before it knew. Returns that checkpoint; 0 for none.
    std::uint64_t LoadOther(const SRoot& root, SChange& change) {
        // The library shall not download what is damaged: as far as it is concerned the local file is up to date.
        const auto& descriptor = session_->GetStorageDescriptor(root.storageId);
        session_->PrepareStorageForAccess(root.storageId, change.localPath, descriptor.GetMetaVersion());
        if (LocalMetaVersion(change.localPath, root) != 0) {
            change.state = LoadRootMetadata(*session_, root, change.localPath, *repository_.GetKeys());
            return checkpoints_.back().id;
        }
        for (auto info = checkpoints_.rbegin() + 1; info != checkpoints_.rend(); ++info) {
            const SRoot* const known = info->document.FindRoot(root.path);
            if (known == nullptr || known->storageId != root.storageId ||
                check_.damagedVersions.contains(known->headerSha256)) {
                continue;
            }
            change.state = COpenedCheckpoint(repository_, backup_, std::to_string(info->id)).LoadMetadata(*known);
            return info->id;
        }
        return 0;
    }

    void Write(SChange& change) {
        SRoot& root = *change.root;
        SMetaTarget target{std::nullopt, change.newPath, root.storageId, MakeMetaVersion(checkpoint_),
                           repository_.GetKeys()->GetCurrent()};
        if (!change.isAnew) {
            target.oldPath = change.localPath;
        }
        const std::uint64_t removed = change.removed.size();
        SMetaChanges changes;
        changes.removed = std::move(change.removed);
        const SMetaLayout layout = WriteMeta(target, change.state, std::move(changes));
        const SPartsMaps maps = MakePartsMaps(layout);
        change.sink = session_->GetStorageUpdateSink(root.storageId, std::make_shared<CFileExtent>(change.newPath));
        change.sink->Update(layout.version, maps.updatedParts, maps.metaParts, layout.headerSize);
        root.checkpoint = checkpoint_;
        root.headerSha256 = ReadMetaHeader(change.newPath).sha256.ToAStr();
        root.statistics = CountState(change.state, removed);
    }

    COpenedRepository& repository_;
    const std::shared_ptr<backup::CCloudBackup> backup_;
    const std::vector<SCheckpointInfo> checkpoints_;
    const SCheckResult& check_;
    const std::shared_ptr<backup::CCloudBackupSession> session_;
    const CScratchFolder scratch_;
    const std::uint64_t checkpoint_;
    const STime started_ = Now();
    SSetDocument document_;
    std::vector<SChange> changes_;
};

/// Makes what is lost of one storage again, as far as the source has it; what was made is damaged no more.
void RebuildStorage(COpenedCheckpoint& opened, std::span<const SRootVersion> versions, const SRepairOptions& options,
                    CStorageDamage& damage, SRepairResult& result) {
    CBlockRebuild rebuild(damage, options.source);
    SChunkSource source;
    for (const auto& version : versions) {
        if (result.check.damagedVersions.contains(version.root.headerSha256)) {
            continue;
        }
        opened.SwitchTo(std::to_string(version.checkpoints.front()));
        const CMetaState state = opened.LoadMetadata(version.root);
        rebuild.AddVersion(version, state);
        source = opened.GetChunkSource(version.root, state);
        source.blocks = {};  // the state's
    }
    if (!source.client) {
        return;
    }
    for (const auto& [block, path] : rebuild.Run(source, options.dryRun)) {
        damage.RemoveBlock(block);
        result.rebuiltBlocks.push_back(path);
    }
}

void Rebuild(const COpenedRepository& repository, const std::shared_ptr<backup::CCloudBackup>& cloudBackup,
             const std::vector<SCheckpointInfo>& checkpoints, const SRepairOptions& options, SRepairResult& result) {
    COpenedCheckpoint opened(repository, cloudBackup, std::to_string(checkpoints.back().id));
    const auto versions = ListVersions(checkpoints);
    for (auto begin = versions.begin(); begin != versions.end();) {
        const guid::guid_t& id = begin->root.storageId;
        const auto end = std::find_if(begin, versions.end(), [&](const auto& one) { return one.root.storageId != id; });
        const auto damage = result.check.damage.find(id);
        if (damage != result.check.damage.end() && !damage->second.IsEmpty()) {
            RebuildStorage(opened, {begin, end}, options, damage->second, result);
        }
        begin = end;
    }
}

}  // namespace

SRepairResult RunRepair(const SRepositoryOptions& options, const SRepairOptions& repairOptions) {
    SRepairResult result;
    SCheckOptions checkOptions = repairOptions.check;
    checkOptions.readSuspicious = true;
    SRepositoryOptions as = options;
    {
        // As whom the checkpoints are read is as whom they are mended; and no other run of it meanwhile.
        as.client = COpenedRepository::Open4Read(options).GetClientId().ToAStr();
    }
    auto repository = COpenedRepository::Open4Upkeep(as);
    const CSetLock lock(repository.GetSetFolder(), repository.GetSet());
    (void)repository.GetKeys();  // so that the password is asked for once
    result.check = RunCheck(repository, checkOptions);

    auto cloudBackup = repository.OpenBackup4Write();
    if (!repairOptions.dryRun) {
        CheckClientIsGone(repository, *cloudBackup, repairOptions.minAge.value_or(DefaultMinAge(repository)));
    }
    const auto& foreign = result.check.foreignCheckpoints;
    result.foreign.assign(foreign.begin(), foreign.end());
    result.unreadable = result.foreign;
    std::set<std::uint64_t> unreadable = result.check.unreadableCheckpoints;
    std::erase_if(unreadable, [&](std::uint64_t id) { return foreign.contains(id); });
    if (!unreadable.empty() && repairOptions.removeUnreadable && !repairOptions.dryRun) {
        CDocumentRemoval removal(*cloudBackup, repository.GetSetFolder());
        for (const auto id : unreadable) {
            result.removed.push_back(removal.Remove(id));
        }
        cloudBackup = repository.OpenBackup4Write();
    } else {
        result.unreadable.insert(result.unreadable.end(), unreadable.begin(), unreadable.end());
        std::ranges::sort(result.unreadable);
    }
    auto checkpoints = ListCheckpoints(
        repository, *cloudBackup, [](std::uint64_t, const std::exception& failure) { RethrowUnlessDamage(failure); });
    const bool mayRebuild = repairOptions.useSource && (repository.IsOwnClient() || !repairOptions.source.empty());
    if (!checkpoints.empty() && mayRebuild) {
        Rebuild(repository, cloudBackup, checkpoints, repairOptions, result);
    }
    if (checkpoints.empty() || checkpoints.back().id != cloudBackup->GetLastCheckpointId()) {
        return result;  // a run cannot stand on a document that cannot be read
    }
    result.base = checkpoints.back().id;
    CRepairCommit commit(repository, cloudBackup, std::move(checkpoints), result.check);
    result.roots = commit.MendAll();
    if (!result.roots.empty() && !repairOptions.dryRun) {
        result.checkpoint = commit.Commit();
        WriteLastCheckpoint(repository.GetSetFolder(), result.checkpoint);
    }
    return result;
}

}  // namespace agent
