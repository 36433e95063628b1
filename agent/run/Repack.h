#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "agent/run/BlockUse.h"
#include "common/digest.h"
#include "common/guid.h"

namespace agent {

/// How much of what is stored may be waste: unneeded bytes in blocks that are kept for something else in them.
struct SUnusedLimit {
    enum class EKind { share, bytes, unlimited };
    EKind kind = EKind::share;
    /// Of a share: in percent of the bytes of all kept blocks.
    double percent = 10;
    std::uint64_t bytes = 0;

    /// "10%", "2.5%", "500M" (K, M, G, T count by 1024), "0", "unlimited". Throws exc::CRuntimeExc for any other text.
    [[nodiscard]] static SUnusedLimit FromText(const std::string& text);
    /// In bytes, of so many that are stored.
    [[nodiscard]] std::uint64_t Of(std::uint64_t storedBytes) const;
};

/// Blocks that are to be written anew without what nothing needs, and what that takes. A plain value.
struct SRepackPlan {
    using block_names_t = std::set<digest::md5_digest_t>;

    std::map<guid::guid_t, block_names_t> blocks;
    /// Metadata that names them, by its file name: it is written anew too, and so are the documents that name it.
    std::set<std::string> versions;
    std::set<std::uint64_t> checkpoints;

    std::uint64_t blockCount = 0;
    /// What is still needed in the blocks: read, and written again.
    std::uint64_t movedBytes = 0;
    /// What is not, and comes free.
    std::uint64_t freedBytes = 0;

    [[nodiscard]] bool IsEmpty() const { return blocks.empty(); }
    [[nodiscard]] bool HasBlock(const guid::guid_t& storageId, const digest::md5_digest_t& block) const;
};

/// Chooses the blocks with the largest shares of waste first, until the waste is within the limit; none that is needed
/// nearly whole, however much waste there is then. `missing` blocks are left alone. Versions and checkpoints are the
/// caller's to fill in.
[[nodiscard]] SRepackPlan ChooseBlocks(const std::map<guid::guid_t, CBlockUse>& storages,
                                       const std::map<guid::guid_t, SRepackPlan::block_names_t>& missing,
                                       const SUnusedLimit& limit);

}  // namespace agent
