#include "agent/run/StoreListing.h"

#include <algorithm>
#include <optional>

#include "cloudbackuplib/CloudPaths.h"
#include "cloudclientlib/WorkerPool.h"
#include "common/exc.h"

namespace agent {

namespace backup = cloudbackuplib::backup;
namespace paths = cloudbackuplib::backup::paths;

namespace {

using listing_t = std::vector<cloudclientlib::SCloudObjectInfo>;

constexpr std::size_t mostListings = 16;

/// Lists several folders at once; the answers in the order of the folders.
std::vector<listing_t> ListFolders(cloudclientlib::ICloudClient& client, const std::vector<std::string>& folders) {
    std::vector<listing_t> listings(folders.size());
    const std::size_t limit = std::max<std::size_t>(1, std::min(client.GetConcurrentTaskLimit(), mostListings));
    task::CWorkerPool workers(limit);
    const auto start = [&](std::size_t index) {
        return workers.Submit([&, index](std::size_t) { listings[index] = client.QueryFolder(folders[index]); });
    };
    task::RunWindow(folders.size(), limit, start, [](std::size_t) {});
    return listings;
}

std::optional<std::uint8_t> BlockDigitValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<std::uint8_t>(digit - '0');
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<std::uint8_t>(digit - 'a' + 10);
    }
    return std::nullopt;
}

/// The digest that a block of this name has; nothing for what is no block's name.
std::optional<digest::md5_digest_t> FromBlockName(const std::string& name) {
    digest::md5_digest_t md5;
    if (name.size() != 2 * md5.bytes.size()) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < md5.bytes.size(); ++i) {
        const auto high = BlockDigitValue(name[2 * i]);
        const auto low = BlockDigitValue(name[2 * i + 1]);
        if (!high || !low) {
            return std::nullopt;
        }
        md5.bytes[i] = static_cast<std::uint8_t>(*high * 16 + *low);
    }
    return md5;
}

SListedBlockStore ListBlockStore(const backup::CCloudBackup& cloudBackup, const guid::guid_t& storageId) {
    SListedBlockStore store;
    store.storageId = storageId;
    const auto folders = paths::EnumCloudBlockSubfolders(cloudBackup.GetBackupId(), storageId);
    const auto listings = ListFolders(*cloudBackup.GetBackupClient(), folders);
    for (std::size_t i = 0; i < folders.size(); ++i) {
        for (const auto& entry : listings[i]) {
            const auto md5 = FromBlockName(entry.name);
            // A block lies in the folder of its first two characters; elsewhere it is found by nobody.
            const bool isBlock = md5 && !entry.isFolder && folders[i].ends_with("/" + entry.name.substr(0, 2));
            if (isBlock) {
                store.blocks.push_back({*md5, entry.size, entry.modified});
            } else if (!entry.isFolder) {
                store.others.push_back({folders[i] + "/" + entry.name, entry.size, entry.modified});
            }
        }
    }
    return store;
}

/// The storage whose folder has exactly this name.
std::optional<guid::guid_t> StorageOfFolder(const std::string& name) {
    try {
        const auto id = guid::guid_t::FromStr(name);
        return id.ToAStr() == name ? std::optional(id) : std::nullopt;
    } catch (const exc::CRuntimeExc&) {  // none of ours
        return std::nullopt;
    }
}

}  // namespace

std::vector<SListedBlockStore> ListBlockStores(const backup::CCloudBackup& cloudBackup) {
    std::vector<SListedBlockStore> stores;
    const std::string folder = paths::GetBackupBlockFolder(cloudBackup.GetBackupId(), "");
    for (const auto& entry : cloudBackup.GetBackupClient()->QueryFolder(folder)) {
        if (const auto storageId = entry.isFolder ? StorageOfFolder(entry.name) : std::nullopt) {
            stores.push_back(ListBlockStore(cloudBackup, *storageId));
        }
    }
    return stores;
}

std::vector<SListedObject> ListMetadata(const backup::CCloudBackup& cloudBackup) {
    static constexpr std::string_view partsSuffix = "_metaparts";
    auto& client = *cloudBackup.GetBackupClient();
    std::vector<SListedObject> objects;
    std::vector<std::string> partFolders;
    for (const auto& entry : client.QueryFolder(paths::GetBackupMetaItemPath(cloudBackup.GetBackupId(), ""))) {
        const std::string path = paths::GetBackupMetaItemPath(cloudBackup.GetBackupId(), entry.name);
        if (!entry.isFolder) {
            objects.push_back({path, entry.size, entry.modified});
        } else if (entry.name.ends_with(partsSuffix)) {
            partFolders.push_back(path);
        }
    }
    const auto listings = ListFolders(client, partFolders);
    for (std::size_t i = 0; i < partFolders.size(); ++i) {
        for (const auto& entry : listings[i]) {
            if (!entry.isFolder) {
                objects.push_back({partFolders[i] + "/" + entry.name, entry.size, entry.modified});
            }
        }
    }
    return objects;
}

}  // namespace agent
