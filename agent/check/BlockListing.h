#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "agent/check/StorageDamage.h"
#include "cloudclientlib/ICloudClient.h"
#include "common/digest.h"

namespace agent {

/// What a listing tells of a block.
struct SCheckedBlock {
    std::uint64_t size = 0;
    /// Where the store recorded one.
    std::optional<digest::md5_digest_t> md5;
    bool isNeeded = false;
};

/// The objects of one storage's block store, as a listing tells them; several folders are listed at once.
///
/// For one thread. Failures of the client are thrown by the constructor.
class CBlockListing {
public:
    /// A block store is named by its storage's id.
    CBlockListing(cloudclientlib::ICloudClient& client, const std::string& backupId, const std::string& blockStore);

    /// Null when there is none.
    [[nodiscard]] SCheckedBlock* Find(const block_name_t& block);

    struct SCount {
        std::uint64_t objects = 0;
        std::uint64_t bytes = 0;
    };
    /// Those that were not marked as needed, with objects whose names are no blocks'.
    [[nodiscard]] SCount CountUnneeded() const;

private:
    struct SHash {
        std::size_t operator()(const block_name_t& block) const;
    };
    void Add(const std::string& subfolder, const cloudclientlib::SCloudObjectInfo& object);

    std::unordered_map<block_name_t, SCheckedBlock, SHash> blocks_;
    SCount others_;
};

}  // namespace agent
