#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/check/Finding.h"
#include "cloudbackuplib/CloudStorageDescriptor.h"
#include "cloudclientlib/ICloudClient.h"

namespace agent {

/// Compares the objects of storages' metadata with what the checkpoints record of them, by listings alone.
///
/// For one thread. Failures of the client pass through.
class CMetadataObjects {
public:
    CMetadataObjects(std::shared_ptr<cloudclientlib::ICloudClient> client, std::string backupId);

    struct SFault {
        std::string object;
        std::string reason;
    };
    /// What is missing or has another size of the objects that the descriptor names.
    [[nodiscard]] std::vector<SFault> Check(const cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor& storage);
    /// How many different objects were looked for.
    [[nodiscard]] std::uint64_t CountChecked() const { return checked_.size(); }

private:
    using sizes_t = std::map<std::string, std::uint64_t>;

    [[nodiscard]] const sizes_t& List(const std::string& folder);
    void CheckObject(const std::string& path, std::uint64_t size, std::vector<SFault>& faults);

    const std::shared_ptr<cloudclientlib::ICloudClient> client_;
    const std::string backupId_;
    std::map<std::string, sizes_t> folders_;
    std::set<std::string> checked_;
};

}  // namespace agent
