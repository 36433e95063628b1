#pragma once

#include <string>

#include "agent/meta/MetaFile.h"
#include "agent/run/SetDocument.h"
#include "cloudbackuplib/CloudBackupSession.h"

namespace agent {

/// The version of the metadata that a run writes for its checkpoint. Above the run's own number stands the
/// checkpoint's: two machines with the same client id (one was cloned from the other) that make the same checkpoint
/// never write the same objects.
[[nodiscard]] std::uint64_t MakeMetaVersion(std::uint64_t checkpoint);
/// Another version of the same checkpoint, for what is written anew of it.
[[nodiscard]] std::uint64_t MakeMetaVersionBeside(std::uint64_t version);

/// Where this machine keeps its copy of a storage's metadata.
[[nodiscard]] std::string LocalMetaPath(const std::string& setFolder, const guid::guid_t& storageId);

/// The version that the local copy holds, when it is the very file that the root's checkpoint has; else 0.
[[nodiscard]] unsigned long LocalMetaVersion(const std::string& localPath, const SRoot& root);

/// Brings a root's metadata to `localPath`, downloading it unless the file there is the checkpoint's own, and reads it.
/// Throws exc::CRuntimeExc when what the store has is not what the checkpoint's document names.
[[nodiscard]] CMetaState LoadRootMetadata(cloudbackuplib::backup::CCloudBackupSession& session, const SRoot& root,
                                          const std::string& localPath, const CKeyRing& keys);
/// The same for who only reads: from the copy that this machine keeps in the set's folder when it is the checkpoint's
/// own, whatever a run puts in its place meanwhile; else by a download into the scratch folder.
[[nodiscard]] CMetaState LoadRootMetadata4Read(cloudbackuplib::backup::CCloudBackupSession& session, const SRoot& root,
                                               const std::string& setFolder, const std::string& scratchFolder,
                                               const CKeyRing& keys);

}  // namespace agent
