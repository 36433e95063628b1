#include "cloudbackuplib/CloudPaths.h"

#include <string_view>

#include "common/util.h"

namespace cloudbackuplib::backup::paths {

namespace {

constexpr std::string_view hexAlphabet = "0123456789abcdef";

template <class Bytes>
std::string HexText(const Bytes& bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const auto value : bytes) {
        const auto byte = static_cast<unsigned char>(value);
        text += hexAlphabet[byte >> 4U];
        text += hexAlphabet[byte & 0x0FU];
    }
    return text;
}

std::string GetMetadataFolder(const std::string& backupId) { return GetBackupFolder(backupId) + "/Metadata"; }

}  // namespace

std::string GetBackupFolder(const std::string& backupId) { return "/" + backupId; }

std::string GetBackupMetaItemPath(const std::string& backupId, const std::string& item) {
    return GetMetadataFolder(backupId) + "/" + item;
}

std::string GetCheckpointFolder(const std::string& backupId) { return GetMetadataFolder(backupId) + "/Checkpoint"; }

std::string GetCheckpointPath(const std::string& backupId, unsigned long checkpointId) {
    return GetCheckpointFolder(backupId) + "/" + util::str_from_uint64(checkpointId);
}

std::string GetCheckpointLongTermFolder(const std::string& backupId) {
    return GetMetadataFolder(backupId) + "/CheckpointLongTerm";
}

std::string GetCheckpointLongTermPath(const std::string& backupId, unsigned long checkpointId) {
    return GetCheckpointLongTermFolder(backupId) + "/" + util::str_from_uint64(checkpointId);
}

std::string GetBackupBlockFolder(const std::string& backupId, const std::string& blockStore) {
    return GetBackupFolder(backupId) + "/BlockStore/" + blockStore;
}

std::string GetBackupBlockPath(const std::string& backupId, const guid::guid_t& storageId,
                               const std::string& blockName) {
    return GetBackupBlockFolder(backupId, storageId.ToAStr()) + "/" + blockName.substr(0, 2) + "/" + blockName;
}

std::string DigestToBlockName(const std::vector<char>& digest) { return HexText(digest); }
std::string DigestToBlockName(const digest::md5_digest_t& digest) { return HexText(digest.bytes); }

std::vector<std::string> EnumCloudBlockSubfolders(const std::string& backupId, const guid::guid_t& storageId) {
    const std::string folder = GetBackupBlockFolder(backupId, storageId.ToAStr());
    std::vector<std::string> subfolders;
    subfolders.reserve(256);
    for (const char high : hexAlphabet) {
        for (const char low : hexAlphabet) {
            subfolders.push_back(folder + "/" + high + low);
        }
    }
    return subfolders;
}

}  // namespace cloudbackuplib::backup::paths
