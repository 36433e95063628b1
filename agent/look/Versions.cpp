#include "agent/look/Versions.h"

#include <map>
#include <tuple>
#include <utility>

namespace agent {

std::vector<SRootVersion> ListVersions(const std::vector<SCheckpointInfo>& checkpoints) {
    std::map<std::tuple<guid::guid_t, std::uint64_t, std::string>, SRootVersion> versions;
    for (const auto& info : checkpoints) {
        for (const auto& root : info.document.roots) {
            auto& version = versions[{root.storageId, root.checkpoint, root.headerSha256}];
            version.root = root;
            version.checkpoints.push_back(info.id);
        }
    }
    std::vector<SRootVersion> list;
    list.reserve(versions.size());
    for (auto& [key, version] : versions) {
        list.push_back(std::move(version));
    }
    return list;
}

std::string FormatIds(const std::vector<std::uint64_t>& ids) {
    std::string text;
    for (std::size_t i = 0; i < ids.size();) {
        std::size_t last = i;
        while (last + 1 < ids.size() && ids[last + 1] == ids[last] + 1) {
            ++last;
        }
        text += (text.empty() ? "" : ", ") + std::to_string(ids[i]);
        if (last > i) {
            text += "-" + std::to_string(ids[last]);
        }
        i = last + 1;
    }
    return text;
}

}  // namespace agent
