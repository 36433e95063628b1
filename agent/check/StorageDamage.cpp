#include "agent/check/StorageDamage.h"

#include <map>
#include <string_view>

namespace agent {

namespace {

/// The blocks with lost content that the file needs.
std::set<block_name_t> BlocksLost(const CMetaState& state, const CStorageDamage& damage, const SEntry& file) {
    std::set<block_name_t> blocks;
    for (const auto& segment : file.segments) {
        for (const auto& chunk : state.FindChunks(segment.streamOffset, segment.length)) {
            if (damage.IsLost(state, chunk)) {
                blocks.insert(state.GetBlocks()[chunk.block].id);
            }
        }
    }
    return blocks;
}

}  // namespace

std::vector<SLostFile> FindLostFiles(const CMetaState& state, const CStorageDamage& damage) {
    std::vector<SLostFile> lost;
    if (damage.IsEmpty()) {
        return lost;
    }
    std::map<std::string, std::set<block_name_t>> files;  // a link stands behind the file that it names
    for (const auto& [path, packed] : state.GetEntries()) {
        if (packed.GetType() == EEntryType::file) {
            if (const auto blocks = BlocksLost(state, damage, packed.Unpack()); !blocks.empty()) {
                files.emplace(path, blocks);
                lost.push_back({std::string(path), blocks});
            }
        } else if (packed.GetType() == EEntryType::hardLink && !files.empty()) {
            const auto found = files.find(packed.Unpack().target);
            if (found != files.end()) {
                lost.push_back({std::string(path), found->second});
            }
        }
    }
    return lost;
}

}  // namespace agent
