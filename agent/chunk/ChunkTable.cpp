#include "agent/chunk/ChunkTable.h"

#include <utility>

#include "agent/chunk/ChunkCheck.h"
#include "common/logging.h"

namespace agent {

CChunkTable::CChunkTable(std::span<const SChunk> known,
                         std::span<const cloudbackuplib::backup::SBlockExternalId> blocks)
    : known_(known) {
    knownIndex_.Reserve(known.size());
    std::size_t faults = 0;
    for (std::size_t i = 0; i < known.size(); ++i) {
        if (FindChunkFault(known[i], blocks).empty()) {
            knownIndex_.Add(known, i);
        } else {
            ++faults;
        }
    }
    if (faults != 0) {
        logging::Storage().Warn("%1 of %2 known chunks cannot be right; their content is stored anew when met.", faults,
                                known.size());
    }
}

std::optional<SChunk> CChunkTable::Find(const digest::sha256_digest_t& sha256, std::uint32_t plainSize) const {
    const SChunk* found = knownIndex_.Find(known_, sha256);
    if (found != nullptr && found->plainSize == plainSize) {
        return *found;
    }
    const std::lock_guard lock(mutex_);
    found = runIndex_.Find(run_, sha256);
    return found != nullptr ? std::optional(*found) : std::nullopt;
}

void CChunkTable::Add(const SChunk& chunk) {
    const std::lock_guard lock(mutex_);
    run_.push_back(chunk);
    runIndex_.Add(run_, run_.size() - 1);
}

std::vector<SChunk> CChunkTable::Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(run_, {});
}

}  // namespace agent
