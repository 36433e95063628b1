#pragma once

#include <cstdint>
#include <string>

#include "agent/check/StorageDamage.h"

namespace agent {

/// Which blocks are read, out of all: everyone, a share picked by a seed, or one of several parts that together are
/// all.
///
/// A plain value. The choice depends on the block's name alone, so that a block is read for all that need it or for
/// none.
class CBlockSample {
public:
    /// "" or "100%" for all; "5%", "0.5%" for a share; "2/7" for the second of seven parts. Throws exc::CRuntimeExc for
    /// any other text.
    [[nodiscard]] static CBlockSample FromText(const std::string& text, std::uint64_t seed);

    [[nodiscard]] bool Takes(const block_name_t& block) const;
    [[nodiscard]] bool IsAll() const { return parts_ == 1 && share_ >= fullShare; }
    /// "all blocks", "5% of the blocks (seed 17)", "part 2 of 7".
    [[nodiscard]] std::string ToText() const;

private:
    static constexpr std::uint64_t fullShare = 1'000'000;

    std::uint64_t share_ = fullShare;  // in millionths
    std::uint64_t seed_ = 0;
    std::uint64_t part_ = 0;
    std::uint64_t parts_ = 1;
    std::string text_;
};

}  // namespace agent
