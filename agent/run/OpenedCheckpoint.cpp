#include "agent/run/OpenedCheckpoint.h"

#include "agent/run/RootMetadata.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace backup = cloudbackuplib::backup;

namespace {

std::uint64_t ChooseCheckpoint(backup::CCloudBackup& cloudBackup, const std::string& which) {
    const unsigned long last = cloudBackup.GetLastCheckpointId();
    if (last == 0) {
        throw exc::CRuntimeExc("Set '%1' has no checkpoint yet", cloudBackup.GetBackupId());
    }
    if (which == "latest") {
        return last;
    }
    const auto ids = cloudBackup.EnumCheckpointsImpl(backup::CheckpointFilter::all);
    const std::uint64_t id = util::str_to_uint64(which);
    if (!ids.contains(id)) {
        throw exc::CRuntimeExc("Set '%1' has no checkpoint %2; the last one is %3", cloudBackup.GetBackupId(), id,
                               last);
    }
    return id;
}

}  // namespace

COpenedCheckpoint::COpenedCheckpoint(const SRepositoryOptions& options, const std::string& which)
    : COpenedCheckpoint(COpenedRepository::Open4Read(options), nullptr, which) {}

COpenedCheckpoint::COpenedCheckpoint(COpenedRepository repository, std::shared_ptr<backup::CCloudBackup> cloudBackup,
                                     const std::string& which)
    : repository_(std::move(repository)),
      backup_(cloudBackup ? std::move(cloudBackup) : repository_.OpenBackup4Read()),
      id_(ChooseCheckpoint(*backup_, which)),
      session_(backup::CCloudBackupSession::StartSession(backup_, id_, true)),
      scratch_(repository_.GetSetFolder()),
      document_(repository_.ReadDocument(id_, session_->GetCheckpoint()->GetDxr().GetContent())) {}

void COpenedCheckpoint::SwitchTo(const std::string& which) {
    const std::uint64_t id = ChooseCheckpoint(*backup_, which);
    if (id == id_) {
        return;
    }
    auto session = backup::CCloudBackupSession::StartSession(backup_, id, true);
    document_ = repository_.ReadDocument(id, session->GetCheckpoint()->GetDxr().GetContent());
    session_ = std::move(session);
    id_ = id;
}

CMetaState COpenedCheckpoint::LoadMetadata(const SRoot& root, EMetadataFrom from) {
    const CKeyRing& keys = *repository_.GetKeys();
    return from == EMetadataFrom::anywhere
               ? LoadRootMetadata4Read(*session_, root, repository_.GetSetFolder(), scratch_.GetPath(), keys)
               : LoadRootMetadata(*session_, root, LocalMetaPath(scratch_.GetPath(), root.storageId), keys);
}

SChunkSource COpenedCheckpoint::GetChunkSource(const SRoot& root, const CMetaState& state) {
    return {backup_->GetBackupClient(), backup_->GetBackupId(), root.storageId,
            state.GetBlocks(),          repository_.GetKeys(),  repository_.GetThreads()};
}

}  // namespace agent
