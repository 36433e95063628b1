#include "agent/check/MetadataObjects.h"

#include <algorithm>
#include <utility>

#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"

namespace agent {

namespace paths = cloudbackuplib::backup::paths;

CMetadataObjects::CMetadataObjects(std::shared_ptr<cloudclientlib::ICloudClient> client, std::string backupId)
    : client_(std::move(client)), backupId_(std::move(backupId)) {}

std::vector<CMetadataObjects::SFault> CMetadataObjects::Check(
    const cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor& storage) {
    std::vector<SFault> faults;
    std::uint64_t header = storage.GetMetaSize();
    for (const auto& [offset, part] : storage.GetCloudMetadataPartDescriptionsMap()) {
        header -= std::min<std::uint64_t>(header, part.size);
        CheckObject(part.filePath, part.size, faults);
    }
    CheckObject(paths::GetBackupMetaItemPath(backupId_, storage.GetFileName()), header, faults);
    return faults;
}

void CMetadataObjects::CheckObject(const std::string& path, std::uint64_t size, std::vector<SFault>& faults) {
    checked_.insert(path);
    const auto slash = path.find_last_of('/');
    const sizes_t& folder = List(path.substr(0, slash));
    const auto found = folder.find(path.substr(slash + 1));
    if (found == folder.end()) {
        faults.push_back({path, "is missing"});
    } else if (found->second != size) {
        faults.push_back({path, exc::Format("has %1 bytes instead of %2", found->second, size)});
    }
}

const CMetadataObjects::sizes_t& CMetadataObjects::List(const std::string& folder) {
    const auto [found, isNew] = folders_.try_emplace(folder);
    if (isNew) {
        for (const auto& entry : client_->QueryFolder(folder)) {
            if (!entry.isFolder) {
                found->second.emplace(entry.name, entry.size);
            }
        }
    }
    return found->second;
}

}  // namespace agent
