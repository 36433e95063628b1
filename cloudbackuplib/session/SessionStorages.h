#pragma once

#include <map>

#include "cloudbackuplib/CloudCheckpoint.h"

namespace cloudbackuplib::backup {

using storages_map_t = std::map<guid::guid_t, checkpoint::CCloudStorageDescriptor>;

/// The storages of a checkpoint by their ids; of several with one id the first counts, as everywhere.
[[nodiscard]] inline storages_map_t StoragesById(const checkpoint::CCloudCheckpoint& checkpoint) {
    storages_map_t storages;
    for (const auto& storage : checkpoint.GetStorages()) {
        storages.emplace(storage.GetStorageId(), storage);
    }
    return storages;
}

}  // namespace cloudbackuplib::backup
