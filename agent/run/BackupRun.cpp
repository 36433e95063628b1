#include "agent/run/BackupRun.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <set>

#include "agent/chunk/ChunkStream.h"
#include "agent/meta/FileExtent.h"
#include "agent/meta/MetaFile.h"
#include "agent/run/RootMetadata.h"
#include "agent/run/SourceBackup.h"
#include "cloudbackuplib/CloudBackupSession.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

/// The path without links, "." and "..": one source has one name.
std::string RealPath(const std::string& path) {
    struct SFree {
        void operator()(char* text) const { std::free(text); }  // NOLINT: what realpath allocates is freed so
    };
    const std::unique_ptr<char, SFree> real(::realpath(path.c_str(), nullptr));
    if (!real) {
        throw posix::CPosixExc("back up", path, errno);
    }
    if (::access(real.get(), R_OK) != 0) {
        throw posix::CPosixExc("read", path, errno);
    }
    return real.get();
}

std::vector<std::string> RealPaths(const std::vector<std::string>& sources) {
    std::set<std::string> unique;
    for (const auto& source : sources) {
        unique.insert(RealPath(source));
    }
    return {unique.begin(), unique.end()};
}

std::string HostName() {
    char name[256] = {};
    return ::gethostname(name, sizeof(name) - 1) == 0 ? name : "unknown";
}

/// One backup run over one set, from the last checkpoint to the next.
class CBackupRun {
public:
    CBackupRun(COpenedRepository& repository, const trouble_sink_t& onTrouble)
        : repository_(repository),
          onTrouble_(onTrouble),
          backup_(repository.OpenBackup4Write()),
          session_(backup::CCloudBackupSession::StartSession(backup_, backup_->GetLastCheckpointId(), false)),
          scratch_(repository.GetSetFolder()),
          checkpoint_(backup_->GetLastCheckpointId() + 1) {
        document_.started = Now();
        document_.host = HostName();
        const auto& content = session_->GetCheckpoint()->GetDxr();
        if (!content.IsEmpty()) {
            document_.roots = SSetDocument::FromText(content.GetContent()).roots;
        }
    }

    void BackUp(const std::string& source) {
        SRoot root;
        root.path = source;
        root.storageId = StorageIdOf(repository_.GetClientId(), repository_.GetSet(), source);
        root.checkpoint = checkpoint_;
        CMetaState state = LoadKnown(source, root.storageId);

        CChunkStream stream(StreamParams(state, root.storageId));
        CSourceBackup reader(source, state, stream, onTrouble_);
        SMetaChanges changes = reader.Run();
        SStreamResult content = stream.Finish();
        root.statistics = reader.GetStatistics();
        AddContent(content, changes, root.statistics);

        root.headerSha256 = WriteMetadata(root.storageId, state, std::move(changes));
        SetRoot(std::move(root));
    }

    SBackupResult Commit() {
        document_.finished = Now();
        const auto checkpoint = session_->CreateCheckpoint(document_.ToText(), "");
        for (const auto& written : written_) {
            util::fs_file_rename(written.newPath, written.localPath);
        }
        return {checkpoint->GetId(), document_, 0};
    }

private:
    struct SWritten {
        std::string localPath;
        std::string newPath;
        std::shared_ptr<backup::IMetaUpdateSink> sink;  // keeps the extent that the commit reads through
    };

    /// What the last checkpoint knows of the source; nothing for a source that is new.
    CMetaState LoadKnown(const std::string& source, const guid::guid_t& storageId) {
        const std::string localPath = LocalMetaPath(repository_.GetSetFolder(), storageId);
        if (const SRoot* known = document_.FindRoot(source)) {
            return LoadRootMetadata(*session_, *known, localPath);
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
        params.knownBlocks = state.GetBlocks();
        params.knownChunks = state.GetChunks();
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
        SMetaTarget target{std::nullopt, written.newPath, storageId, checkpoint_};
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
    const trouble_sink_t& onTrouble_;
    const std::shared_ptr<backup::CCloudBackup> backup_;
    const std::shared_ptr<backup::CCloudBackupSession> session_;
    const CScratchFolder scratch_;
    const std::uint64_t checkpoint_;
    SSetDocument document_;
    std::vector<SWritten> written_;
};

}  // namespace

SBackupResult RunBackup(const SRepositoryOptions& options, const std::vector<std::string>& sources,
                        const trouble_sink_t& onTrouble) {
    const auto paths = RealPaths(sources);
    auto repository = COpenedRepository::Open4Write(options);
    const CSetLock lock(repository.GetSetFolder(), repository.GetSet());
    std::uint64_t troubles = 0;
    const trouble_sink_t counting = [&](const STrouble& trouble) {
        ++troubles;
        onTrouble(trouble);
    };
    CBackupRun run(repository, counting);
    for (const auto& path : paths) {
        run.BackUp(path);
    }
    SBackupResult result = run.Commit();
    result.troubles = troubles;
    return result;
}

}  // namespace agent
