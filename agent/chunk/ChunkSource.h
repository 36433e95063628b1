#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "agent/keys/KeyRing.h"
#include "cloudbackuplib/BlockExternalId.h"
#include "cloudclientlib/ICloudClient.h"
#include "common/guid.h"

namespace agent {

/// Where the chunks of a storage are read from.
struct SChunkSource {
    std::shared_ptr<cloudclientlib::ICloudClient> client;
    std::string backupId;
    guid::guid_t storageId;
    /// The storage's table; outlives the reader. `number32` is a block's size.
    std::span<const cloudbackuplib::backup::SBlockExternalId> blocks;
    /// That open sealed blocks; none where there are none.
    key_ring_ptr keys = {};
    /// That decompress and check; 0 for as many as the machine runs at once.
    unsigned threads = 0;
};

/// The object of a block in the table.
[[nodiscard]] std::string GetBlockPath(const SChunkSource& source, std::uint32_t block);

}  // namespace agent
