#pragma once

#include <string>
#include <vector>

#include "common/digest.h"
#include "common/export.h"
#include "common/guid.h"

/// Where everything of a backup lies in the cloud, relative to the client's root. Pieces are joined as they are:
/// nothing is checked or escaped. Pure functions, safe from any thread.
namespace cloudbackuplib::backup::paths {

/// "/<backup id>"
[[nodiscard]] CB_EXPORT std::string GetBackupFolder(const std::string& backupId);
/// "/<backup id>/Metadata/<item>"
[[nodiscard]] CB_EXPORT std::string GetBackupMetaItemPath(const std::string& backupId, const std::string& item);
/// "/<backup id>/Metadata/Checkpoint"
[[nodiscard]] CB_EXPORT std::string GetCheckpointFolder(const std::string& backupId);
/// "/<backup id>/Metadata/Checkpoint/<n>"
[[nodiscard]] CB_EXPORT std::string GetCheckpointPath(const std::string& backupId, unsigned long checkpointId);
/// "/<backup id>/Metadata/CheckpointLongTerm"
[[nodiscard]] CB_EXPORT std::string GetCheckpointLongTermFolder(const std::string& backupId);
/// "/<backup id>/Metadata/CheckpointLongTerm/<n>"
[[nodiscard]] CB_EXPORT std::string GetCheckpointLongTermPath(const std::string& backupId, unsigned long checkpointId);
/// "/<backup id>/BlockStore/<block store>"; a block store is named by its storage's id.
[[nodiscard]] CB_EXPORT std::string GetBackupBlockFolder(const std::string& backupId, const std::string& blockStore);
/// "/<backup id>/BlockStore/<storage>/<hh>/<name>", hh being the first two characters of the block's name.
[[nodiscard]] CB_EXPORT std::string GetBackupBlockPath(const std::string& backupId, const guid::guid_t& storageId,
                                                       const std::string& blockName);

/// Lower-case hexadecimal text of a digest.
[[nodiscard]] CB_EXPORT std::string DigestToBlockName(const std::vector<char>& digest);
[[nodiscard]] CB_EXPORT std::string DigestToBlockName(const digest::md5_digest_t& digest);

/// The 256 block subfolders of a storage, "00" to "ff"; computed, not read from the cloud.
[[nodiscard]] CB_EXPORT std::vector<std::string> EnumCloudBlockSubfolders(const std::string& backupId,
                                                                          const guid::guid_t& storageId);

}  // namespace cloudbackuplib::backup::paths
