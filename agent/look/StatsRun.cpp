#include "agent/look/StatsRun.h"

#include <algorithm>

#include <array>
#include <map>
#include <set>
#include <string>
#include <unordered_set>

#include "agent/look/Versions.h"

namespace agent {

namespace {

using block_name_t = std::array<std::uint8_t, 16>;

/// Where a chunk lies. Two places are mixed up once in 2^64 pairs: good enough to count by, and a tenth of the memory.
std::uint64_t PlaceOf(const block_name_t& block, std::uint32_t offset) {
    std::uint64_t place = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        place = (place << 8U) | block[i];
    }
    return place ^ (offset * 0x9E3779B97F4A7C15ULL);
}

/// Counts what the versions of one storage need.
class CStorageCount {
public:
    explicit CStorageCount(SStoreStatistics& sum) : sum_(sum) {}

    void AddVersion(const CMetaState& state) {
        const SMetaUsage usage = state.Check();
        const auto& blocks = state.GetBlocks();
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            if (usage.blocks[i] && blocks_.insert(blocks[i].id).second) {
                ++sum_.blocks;
                sum_.blockBytes += blocks[i].number32;
            }
        }
        for (std::size_t i = 0; i < state.GetChunks().size(); ++i) {
            const SChunk& chunk = state.GetChunks()[i];
            if (usage.chunks[i] && chunks_.insert(PlaceOf(blocks[chunk.block].id, chunk.blockOffset)).second) {
                ++sum_.chunks;
                sum_.plainBytes += chunk.plainSize;
                sum_.chunkBytes += chunk.storedSize;
            }
        }
    }

private:
    SStoreStatistics& sum_;
    std::set<block_name_t> blocks_;
    std::unordered_set<std::uint64_t> chunks_;
};

void AddEntries(SStoreStatistics& sum, const CMetaState& state, std::uint64_t times) {
    for (const auto& [path, packed] : state.GetEntries()) {
        const SEntry entry = packed.Unpack();
        sum.files += entry.type == EEntryType::file ? times : 0;
        sum.folders += entry.type == EEntryType::directory ? times : 0;
        sum.others += entry.type != EEntryType::file && entry.type != EEntryType::directory ? times : 0;
        sum.restoreBytes += entry.size * times;
    }
}

void AddMetadata(SStoreStatistics& sum, const std::vector<SCheckpointInfo>& checkpoints) {
    std::map<std::string, std::uint64_t> objects;
    for (const auto& info : checkpoints) {
        for (const auto& storage : info.checkpoint->GetStorages()) {
            std::uint64_t header = storage.GetMetaSize();
            for (const auto& [offset, part] : storage.GetCloudMetadataPartDescriptionsMap()) {
                objects.emplace(part.filePath, part.size);
                header -= std::min<std::uint64_t>(header, part.size);
            }
            objects.emplace(storage.GetFileName(), header);
        }
    }
    for (const auto& [path, size] : objects) {
        ++sum.metadataObjects;
        sum.metadataBytes += size;
    }
}

}  // namespace

SStoreStatistics CountStore(COpenedCheckpoint& opened, const std::vector<SCheckpointInfo>& checkpoints) {
    SStoreStatistics sum;
    sum.checkpoints = checkpoints.size();
    AddMetadata(sum, checkpoints);
    const auto versions = ListVersions(checkpoints);
    for (std::size_t i = 0; i < versions.size();) {
        CStorageCount count(sum);
        const guid::guid_t storageId = versions[i].root.storageId;
        for (; i < versions.size() && versions[i].root.storageId == storageId; ++i) {
            opened.SwitchTo(std::to_string(versions[i].checkpoints.front()));
            const CMetaState state = opened.LoadMetadata(versions[i].root);
            AddEntries(sum, state, versions[i].checkpoints.size());
            count.AddVersion(state);
        }
    }
    return sum;
}

}  // namespace agent
