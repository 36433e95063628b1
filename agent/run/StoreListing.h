#pragma once

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudBackup.h"
#include "common/digest.h"
#include "common/guid.h"

namespace agent {

/// An object as the store lists it.
struct SListedObject {
    std::string path;
    std::uint64_t size = 0;
    std::chrono::system_clock::time_point modified;
};

struct SListedBlock {
    digest::md5_digest_t md5;
    std::uint64_t size = 0;
    std::chrono::system_clock::time_point modified;
};

/// The store of blocks of one storage.
struct SListedBlockStore {
    guid::guid_t storageId;
    std::vector<SListedBlock> blocks;
    /// Objects among them that no block's name has.
    std::vector<SListedObject> others;
};

/// All stores of blocks that the backup has, also those that no checkpoint names; with as many listings at once as the
/// store allows.
[[nodiscard]] std::vector<SListedBlockStore> ListBlockStores(const cloudbackuplib::backup::CCloudBackup& cloudBackup);

/// All storages' metadata objects that the backup has; checkpoints are none.
[[nodiscard]] std::vector<SListedObject> ListMetadata(const cloudbackuplib::backup::CCloudBackup& cloudBackup);

}  // namespace agent
