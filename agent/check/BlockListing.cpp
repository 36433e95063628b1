#include "agent/check/BlockListing.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "cloudbackuplib/CloudPaths.h"
#include "cloudclientlib/WorkerPool.h"

namespace agent {

namespace paths = cloudbackuplib::backup::paths;

namespace {

constexpr std::size_t mostListings = 8;

std::optional<std::uint8_t> HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<std::uint8_t>(c - '0');
    }
    return c >= 'a' && c <= 'f' ? std::optional<std::uint8_t>(static_cast<std::uint8_t>(c - 'a' + 10)) : std::nullopt;
}

/// Exactly as a block's name is written.
std::optional<block_name_t> ParseBlockName(const std::string& name) {
    block_name_t block{};
    if (name.size() != 2 * block.size()) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < block.size(); ++i) {
        const auto high = HexDigit(name[2 * i]);
        const auto low = HexDigit(name[2 * i + 1]);
        if (!high || !low) {
            return std::nullopt;
        }
        block[i] = static_cast<std::uint8_t>((*high << 4U) | *low);
    }
    return block;
}

using listing_t = std::vector<cloudclientlib::SCloudObjectInfo>;

/// The listings of the folders, in their order.
std::vector<listing_t> ListAll(cloudclientlib::ICloudClient& client, const std::vector<std::string>& folders) {
    std::vector<listing_t> listings(folders.size());
    task::CWorkerPool workers(std::clamp<std::size_t>(client.GetConcurrentTaskLimit(), 1, mostListings));
    std::vector<task::task_ptr> tasks;
    for (std::size_t i = 0; i < folders.size(); ++i) {
        tasks.push_back(
            workers.Submit([&, i](std::size_t /*worker*/) { listings[i] = client.QueryFolder(folders[i]); }));
    }
    for (const auto& task : tasks) {
        task->Wait();  // the pool waits for the others when one throws
    }
    return listings;
}

}  // namespace

std::size_t CBlockListing::SHash::operator()(const block_name_t& block) const {
    std::size_t hash = 0;
    std::memcpy(&hash, block.data(), sizeof(hash));
    return hash;
}

CBlockListing::CBlockListing(cloudclientlib::ICloudClient& client, const std::string& backupId,
                             const std::string& blockStore) {
    const std::string root = paths::GetBackupBlockFolder(backupId, blockStore);
    std::vector<std::string> names;
    std::vector<std::string> folders;
    for (const auto& entry : client.QueryFolder(root)) {
        if (entry.isFolder) {
            names.push_back(entry.name);
            folders.push_back(root + "/" + entry.name);
        } else {
            ++others_.objects;
            others_.bytes += entry.size;
        }
    }
    const auto listings = ListAll(client, folders);
    for (std::size_t i = 0; i < listings.size(); ++i) {
        for (const auto& object : listings[i]) {
            Add(names[i], object);
        }
    }
}

void CBlockListing::Add(const std::string& subfolder, const cloudclientlib::SCloudObjectInfo& object) {
    const auto block = ParseBlockName(object.name);
    if (object.isFolder || !block || !object.name.starts_with(subfolder)) {
        others_.objects += object.isFolder ? 0 : 1;
        others_.bytes += object.size;
        return;
    }
    blocks_.emplace(*block, SCheckedBlock{object.size, object.md5, false});
}

SCheckedBlock* CBlockListing::Find(const block_name_t& block) {
    const auto found = blocks_.find(block);
    return found == blocks_.end() ? nullptr : &found->second;
}

CBlockListing::SCount CBlockListing::CountUnneeded() const {
    SCount count = others_;
    for (const auto& [name, block] : blocks_) {
        if (!block.isNeeded) {
            ++count.objects;
            count.bytes += block.size;
        }
    }
    return count;
}

}  // namespace agent
