#include "agent/chunk/ChunkSource.h"

#include "cloudbackuplib/CloudPaths.h"
#include "common/digest.h"

namespace agent {

std::string GetBlockPath(const SChunkSource& source, std::uint32_t block) {
    namespace paths = cloudbackuplib::backup::paths;
    const digest::md5_digest_t name{source.blocks[block].id};
    return paths::GetBackupBlockPath(source.backupId, source.storageId, paths::DigestToBlockName(name));
}

}  // namespace agent
