#include "agent/run/BackupRun.h"

#include <algorithm>

#include "agent/chunk/ChunkStream.h"
#include "agent/meta/FileExtent.h"
#include "agent/meta/MetaFile.h"
#include "agent/run/BackupSources.h"
#include "agent/run/DryRun.h"
#include "agent/run/RootMetadata.h"
#include "agent/run/SourceBackup.h"
#include "cloudbackuplib/CloudBackupSession.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

/// One backup run over one set, from the last checkpoint to the next.
class CBackupRun {
public:
    CBackupRun(COpenedRepository& repository, const SBackupOptions& options, const SBackupSinks& sinks)
        : repository_(repository),
          options_(options),
          sinks_(sinks),
          progress_(sinks.onProgress),
          backup_(repository.OpenBackup4Write()),
          session_(backup::CCloudBackupSession::StartSession(backup_, backup_->GetLastCheckpointId(), false)),
          scratch_(repository.GetSetFolder()),
          checkpoint_(backup_->GetLastCheckpointId() + 1),
          metaVersion_(MakeMetaVersion(checkpoint_)) {
        CheckIsNotOlder();
        document_.started = Now();
        key_ = repository.GetKeys4Write()->GetCurrent();
        const auto& content = session_->GetCheckpoint()->GetDxr();
        if (!content.IsEmpty()) {
            document_.roots = repository.ReadDocument(checkpoint_ - 1, content.GetContent()).roots;
        }
        Describe(document_, options_);
        DropRoots(document_, options_.droppedRoots);
        LeaveOutStorages();
    }

    void BackUp(const std::vector<SSourceRoot>& sources) {
        if (!options_.input) {
            ExpectTotals(progress_, document_, sources);
        }
        for (const auto& source : sources) {
            BackUpSource(source);
        }
        if (options_.input) {
            BackUpInput(*options_.input);
        }
    }

    SBackupResult Commit() {
        if (document_.roots.empty()) {
            throw exc::CRuntimeExc("A checkpoint without any root would hold nothing: it is not made");
        }
        document_.finished = Now();
        CheckIsLast();
        const std::string text = repository_.StoreDocument(checkpoint_, document_);
        const auto checkpoint = session_->CreateCheckpoint(text, options_.longTerm ? text : "");
        for (const auto& written : written_) {
            util::fs_file_rename(written.newPath, written.localPath);
        }
        WriteLastCheckpoint(repository_.GetSetFolder(), checkpoint->GetId());
        return {checkpoint->GetId(), document_, 0};
    }

private:
    struct SWritten {
        std::string localPath;
        std::string newPath;
        std::shared_ptr<backup::IMetaUpdateSink> sink;  // keeps the extent that the commit reads through
    };

    /// A store that shows nothing but old checkpoints can prove that they are the client's, but not that they are all.
    void CheckIsNotOlder() const {
        const std::uint64_t known = ReadLastCheckpoint(repository_.GetSetFolder());
        if (checkpoint_ <= known && !options_.acceptOlderState) {
            throw exc::CRuntimeExc(
                "This machine has made checkpoint %1 of set '%2', but the last one that the store shows is %3: the "
                "store has lost checkpoints, or shows an older state. Nothing was saved; when you know why (they were "
                "deleted from another machine), go on with --accept-older-state",
                known, repository_.GetSet(), checkpoint_ - 1);
        }
    }

    /// A storage whose root was dropped is not carried on: what a session does not know when it begins, it leaves out.
    void LeaveOutStorages() {
        const auto last = session_->GetCheckpoint();
        auto storages = last->GetStorages();
        const std::size_t left = std::erase_if(storages, [&](const auto& storage) {
            return std::none_of(document_.roots.begin(), document_.roots.end(),
                                [&](const SRoot& root) { return root.storageId == storage.GetStorageId(); });
        });
        if (left != 0) {
            const auto base = std::make_shared<backup::checkpoint::CCloudCheckpoint>(
                storages, last->GetDxr(), last->GetDxrLongTerm(), last->GetOwner(), last->GetId(),
                last->GetFormatVersion());
            session_ = std::make_shared<backup::CCloudBackupSession>(base, backup_, false);
        }
    }

    void BackUpSource(const SSourceRoot& source) {
        CSelector selector = MakeSelector(options_, sinks_, source);
        SSourceParams params = MakeSourceParams(options_, sinks_, source, selector, progress_);
        BackUpRoot(source.path, [&](const CMetaState& state, CChunkStream& stream, SRootStatistics& statistics) {
            params.stream = &stream;
            CSourceBackup reader(params, state);
            SMetaChanges changes = reader.Run();
            statistics = reader.GetStatistics();
            return changes;
        });
    }

    void BackUpInput(const SInputOptions& input) {
        BackUpRoot(input.path, [&](const CMetaState& state, CChunkStream& stream, SRootStatistics& statistics) {
            return ReadInput(input, state, stream, progress_, statistics);
        });
    }

    /// `read` fills the stream and gives what changes.
    template <class Read>
    void BackUpRoot(const std::string& path, const Read& read) {
        SRoot root;
        root.path = path;
        const SRoot* const known = document_.FindRoot(path);
        root.storageId = known != nullptr ? known->storageId
                                          : StorageIdOf(repository_.GetClientId(), repository_.GetSet(), path, key_);
        root.checkpoint = checkpoint_;
        CMetaState state = LoadKnown(path, root.storageId);

        root.headerSha256 = WriteMetadata(root.storageId, state, ReadContent(state, root, read));
        SetRoot(std::move(root));
    }

    /// What fills the stream takes much memory: it is gone before metadata is written, which takes much, too.
    template <class Read>
    SMetaChanges ReadContent(const CMetaState& state, SRoot& root, const Read& read) const {
        CChunkStream stream(StreamParams(state, root.storageId));
        SMetaChanges changes = read(state, stream, root.statistics);
        SStreamResult content = stream.Finish();
        AddContent(content, changes, root.statistics);
        return changes;
    }

    /// Nothing but this run may have added to the set, or taken away what it builds on, since it began.
    void CheckIsLast() const {
        const auto ids = backup_->EnumCheckpointsImpl(backup::CheckpointFilter::regular);
        const unsigned long last = ids.empty() ? 0 : *ids.rbegin();
        const unsigned long base = checkpoint_ - 1;
        if (last > base) {
            throw exc::CRuntimeExc(
                "Another run has made checkpoint %1 of set '%2' while this one was under way, which began on "
                "checkpoint %3: nothing was saved, run it again (is there another machine with a copy of this one's "
                "state folder?)",
                last, repository_.GetSet(), base);
        }
        if (last < base) {
            throw exc::CRuntimeExc(
                "Checkpoint %1 of set '%2', on which this run began, was deleted while it was under way: nothing was "
                "saved, run it again",
                base, repository_.GetSet());
        }
    }

    /// What the last checkpoint knows of the source; nothing for a source that is new.
    CMetaState LoadKnown(const std::string& source, const guid::guid_t& storageId) {
        const std::string localPath = LocalMetaPath(repository_.GetSetFolder(), storageId);
        if (const SRoot* known = document_.FindRoot(source)) {
            return LoadRootMetadata(*session_, *known, localPath, *repository_.GetKeys());
        }
        util::fs_file_delete(localPath);
        session_->PrepareStorageForAccess(storageId, localPath, 0);
        return {};
    }

    SChunkStreamParams StreamParams(const CMetaState& state, const guid::guid_t& storageId) const {
        SChunkStreamParams params;
        params.target.client = backup_->GetBackupClient();
        params.target.backupId = backup_->GetBackupId();
        params.target.storageId = storageId;
        params.target.runVersion = checkpoint_;
        params.streamOffset = state.GetStreamEnd();
        params.threads = repository_.GetThreads();
        params.knownBlocks = state.GetBlocks();
        params.knownChunks = state.GetChunks();
        params.key = key_;
        return params;
    }

    static void AddContent(SStreamResult& content, SMetaChanges& changes, SRootStatistics& statistics) {
        changes.blocks = std::move(content.newBlocks);
        changes.chunks = std::move(content.chunks);
        statistics.newBytes = content.statistics.newBytes;
        statistics.storedBytes = content.statistics.storedBytes;
        statistics.blocksUploaded = content.statistics.blocksUploaded;
        statistics.blocksFound = content.statistics.blocksFound;
    }

    /// Writes the next version beside the local copy and reports it to the session; returns the header's digest.
    std::string WriteMetadata(const guid::guid_t& storageId, CMetaState& state, SMetaChanges changes) {
        SWritten written;
        written.localPath = LocalMetaPath(repository_.GetSetFolder(), storageId);
        written.newPath = LocalMetaPath(scratch_.GetPath(), storageId);
        SMetaTarget target{std::nullopt, written.newPath, storageId, metaVersion_, key_};
        if (state.GetOrigin()) {
            target.oldPath = written.localPath;
        }
        const SMetaLayout layout = WriteMeta(target, state, std::move(changes));
        const SPartsMaps maps = MakePartsMaps(layout);
        written.sink = session_->GetStorageUpdateSink(storageId, std::make_shared<CFileExtent>(written.newPath));
        written.sink->Update(layout.version, maps.updatedParts, maps.metaParts, layout.headerSize);
        written_.push_back(std::move(written));
        return ReadMetaHeader(written_.back().newPath).sha256.ToAStr();
    }

    void SetRoot(SRoot root) {
        for (auto& existing : document_.roots) {
            if (existing.path == root.path) {
                existing = std::move(root);
                return;
            }
        }
        document_.roots.push_back(std::move(root));
    }

    COpenedRepository& repository_;
    const SBackupOptions& options_;
    const SBackupSinks& sinks_;
    CProgressCounter progress_;
    const std::shared_ptr<backup::CCloudBackup> backup_;
    std::shared_ptr<backup::CCloudBackupSession> session_;
    const CScratchFolder scratch_;
    const std::uint64_t checkpoint_;
    const std::uint64_t metaVersion_;
    data_key_ptr key_;  // none without encryption
    SSetDocument document_;
    std::vector<SWritten> written_;
};

}  // namespace

namespace {

void CheckOptions(const SBackupOptions& options) {
    CheckPatterns(options.selection);
    if (options.dryRun && options.input) {
        throw exc::CRuntimeExc("A dry run reads nothing, so it cannot tell what comes in");
    }
}

SBackupResult RunIt(const SRepositoryOptions& options, const SBackupOptions& backupOptions, const SBackupSinks& sinks) {
    const auto sources = FindSources(backupOptions, sinks.onTrouble);
    auto repository = COpenedRepository::Open4Write(options);
    if (backupOptions.dryRun) {
        return RunDryBackup(repository, backupOptions, sources, sinks);
    }
    const CSetLock lock(repository.GetSetFolder(), repository.GetSet());
    static_cast<void>(repository.GetKeys4Write());  // before anything of the client is in the store
    CBackupRun run(repository, backupOptions, sinks);
    run.BackUp(sources);
    return run.Commit();
}

}  // namespace

SBackupResult RunBackup(const SRepositoryOptions& options, const SBackupOptions& backupOptions,
                        const SBackupSinks& sinks) {
    CheckOptions(backupOptions);
    std::uint64_t troubles = 0;
    SBackupSinks counting = sinks;
    counting.onTrouble = [&](const STrouble& trouble) {
        ++troubles;
        if (sinks.onTrouble) {
            sinks.onTrouble(trouble);
        }
    };
    SBackupResult result = RunIt(options, backupOptions, counting);
    result.troubles = troubles;
    return result;
}

SBackupResult RunBackup(const SRepositoryOptions& options, const std::vector<std::string>& sources,
                        const trouble_sink_t& onTrouble) {
    SBackupOptions backupOptions;
    backupOptions.sources = sources;
    return RunBackup(options, backupOptions, {onTrouble, {}, {}});
}

}  // namespace agent
