#pragma once

#include <memory>
#include <string>

#include "agent/chunk/ChunkSource.h"
#include "agent/meta/MetaState.h"
#include "agent/run/OpenedRepository.h"
#include "agent/run/SetDocument.h"
#include "cloudbackuplib/CloudBackupSession.h"

namespace agent {

/// Where a root's metadata may be taken from.
enum class EMetadataFrom {
    anywhere,  ///< this machine's copy will do when it is the checkpoint's very file
    store,     ///< what the store has
};

/// One checkpoint, open for reading. For one thread.
class COpenedCheckpoint {
public:
    /// `which` is a checkpoint's id, or "latest".
    COpenedCheckpoint(const SRepositoryOptions& options, const std::string& which);
    /// The same in a repository that is open; the set's backup is opened when none is given.
    COpenedCheckpoint(COpenedRepository repository, std::shared_ptr<cloudbackuplib::backup::CCloudBackup> cloudBackup,
                      const std::string& which);

    /// Goes on with another checkpoint of the set. After a failure it stands where it stood.
    void SwitchTo(const std::string& which);

    [[nodiscard]] COpenedRepository& GetRepository() { return repository_; }
    [[nodiscard]] std::uint64_t GetId() const { return id_; }
    [[nodiscard]] const SSetDocument& GetDocument() const { return document_; }
    [[nodiscard]] std::shared_ptr<cloudbackuplib::backup::CCloudBackup> GetBackup() const { return backup_; }
    /// What the checkpoint knows of a root.
    [[nodiscard]] CMetaState LoadMetadata(const SRoot& root, EMetadataFrom from = EMetadataFrom::anywhere);
    /// Where the chunks of that state are read from; the state outlives it.
    [[nodiscard]] SChunkSource GetChunkSource(const SRoot& root, const CMetaState& state);

private:
    COpenedRepository repository_;
    std::shared_ptr<cloudbackuplib::backup::CCloudBackup> backup_;
    std::uint64_t id_;
    std::shared_ptr<cloudbackuplib::backup::CCloudBackupSession> session_;
    CScratchFolder scratch_;
    SSetDocument document_;
};

}  // namespace agent
