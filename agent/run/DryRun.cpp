#include "agent/run/DryRun.h"

#include "agent/run/RootMetadata.h"
#include "cloudbackuplib/CloudBackupSession.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

class CDryRun {
public:
    CDryRun(COpenedRepository& repository, const SBackupOptions& options, const SBackupSinks& sinks)
        : repository_(repository),
          options_(options),
          sinks_(sinks),
          progress_(sinks.onProgress),
          scratch_(repository.GetSetFolder()) {
        document_.started = Now();
        if (const auto cloudBackup = repository.FindBackup()) {
            session_ = backup::CCloudBackupSession::StartSession(cloudBackup, cloudBackup->GetLastCheckpointId(), true);
            const auto& content = session_->GetCheckpoint()->GetDxr();
            if (!content.IsEmpty()) {
                document_.roots =
                    repository.ReadDocument(cloudBackup->GetLastCheckpointId(), content.GetContent()).roots;
            }
        }
        Describe(document_, options);
        DropRoots(document_, options.droppedRoots);
    }

    SBackupResult Run(const std::vector<SSourceRoot>& sources) {
        ExpectTotals(progress_, document_, sources);
        for (const auto& source : sources) {
            Compare(source);
        }
        document_.finished = Now();
        return {0, document_, 0};
    }

private:
    void Compare(const SSourceRoot& source) {
        CSelector selector = MakeSelector(options_, sinks_, source);
        SSourceParams params = MakeSourceParams(options_, sinks_, source, selector, progress_);
        const CMetaState state = LoadKnown(source.path);
        CSourceBackup reader(params, state);
        (void)reader.Run();
        SetStatistics(source.path, reader.GetStatistics());
    }

    CMetaState LoadKnown(const std::string& path) {
        const SRoot* known = document_.FindRoot(path);
        if (known == nullptr) {
            return {};
        }
        return LoadRootMetadata4Read(*session_, *known, repository_.GetSetFolder(), scratch_.GetPath(),
                                     *repository_.GetKeys());
    }

    void SetStatistics(const std::string& path, const SRootStatistics& statistics) {
        for (auto& root : document_.roots) {
            if (root.path == path) {
                root.statistics = statistics;
                root.checkpoint = 0;
                return;
            }
        }
        SRoot root;
        root.path = path;
        root.storageId = StorageIdOf(repository_.GetClientId(), repository_.GetSet(), path);
        root.statistics = statistics;
        document_.roots.push_back(std::move(root));
    }

    COpenedRepository& repository_;
    const SBackupOptions& options_;
    const SBackupSinks& sinks_;
    CProgressCounter progress_;
    const CScratchFolder scratch_;
    std::shared_ptr<backup::CCloudBackupSession> session_;
    SSetDocument document_;
};

}  // namespace

SBackupResult RunDryBackup(COpenedRepository& repository, const SBackupOptions& options,
                           const std::vector<SSourceRoot>& sources, const SBackupSinks& sinks) {
    return CDryRun(repository, options, sinks).Run(sources);
}

}  // namespace agent
