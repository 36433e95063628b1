#pragma once

#include <memory>
#include <string>

#include "agent/meta/MetaState.h"
#include "agent/run/OpenedRepository.h"
#include "agent/run/SetDocument.h"
#include "cloudbackuplib/CloudBackupSession.h"

namespace agent {

/// One checkpoint, open for reading. For one thread.
class COpenedCheckpoint {
public:
    /// `which` is a checkpoint's id, or "latest".
    COpenedCheckpoint(const SRepositoryOptions& options, const std::string& which);

    [[nodiscard]] std::uint64_t GetId() const { return id_; }
    [[nodiscard]] const SSetDocument& GetDocument() const { return document_; }
    [[nodiscard]] std::shared_ptr<cloudbackuplib::backup::CCloudBackup> GetBackup() const { return backup_; }
    /// What the checkpoint knows of a root.
    [[nodiscard]] CMetaState LoadMetadata(const SRoot& root);

private:
    COpenedRepository repository_;
    std::shared_ptr<cloudbackuplib::backup::CCloudBackup> backup_;
    std::uint64_t id_;
    std::shared_ptr<cloudbackuplib::backup::CCloudBackupSession> session_;
    CScratchFolder scratch_;
    SSetDocument document_;
};

}  // namespace agent
