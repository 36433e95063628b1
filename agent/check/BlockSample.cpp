#include "agent/check/BlockSample.h"

#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace {

/// SplitMix64's last step: every bit of the result depends on every bit of the number.
std::uint64_t Mix(std::uint64_t z) {
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31U);
}

std::uint64_t NumberOf(const block_name_t& block) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        number = (number << 8U) | block[i];
    }
    return number;
}

/// Percent with up to four decimals, in millionths.
std::uint64_t ParsePercent(const std::string& text) {
    const auto point = text.find('.');
    std::string decimals = point == std::string::npos ? "" : text.substr(point + 1);
    if (decimals.size() > 4 || (point != std::string::npos && decimals.empty())) {
        throw exc::CRuntimeExc("more than four decimals, or none");
    }
    decimals.resize(4, '0');
    const std::uint64_t whole = util::str_to_uint64(text.substr(0, point));
    const std::uint64_t share = (whole > 100 ? 101 : whole) * 10'000 + util::str_to_uint64(decimals);
    if (share == 0 || share > 1'000'000) {
        throw exc::CRuntimeExc("not more than 0 and at most 100");
    }
    return share;
}

}  // namespace

CBlockSample CBlockSample::FromText(const std::string& text, std::uint64_t seed) {
    CBlockSample sample;
    sample.seed_ = seed;
    sample.text_ = text;
    try {
        if (const auto slash = text.find('/'); slash != std::string::npos) {
            const std::uint64_t part = util::str_to_uint64(text.substr(0, slash));
            sample.parts_ = util::str_to_uint64(text.substr(slash + 1));
            if (part == 0 || part > sample.parts_) {
                throw exc::CRuntimeExc("there is no such part");
            }
            sample.part_ = part - 1;
        } else if (text.ends_with('%')) {
            sample.share_ = ParsePercent(text.substr(0, text.size() - 1));
        } else if (!text.empty()) {
            throw exc::CRuntimeExc("no percent sign");
        }
    } catch (const exc::CExc& failure) {
        exc::RegenTraceExc(failure, "'%1' is no share of the blocks such as 5%, 0.5% or 2/7", text);
    }
    return sample;
}

bool CBlockSample::Takes(const block_name_t& block) const {
    const std::uint64_t number = NumberOf(block);
    if (parts_ > 1) {
        return number % parts_ == part_;
    }
    return share_ >= fullShare || Mix(number ^ Mix(seed_ + 0x9E3779B97F4A7C15ULL)) % fullShare < share_;
}

std::string CBlockSample::ToText() const {
    if (IsAll()) {
        return "all blocks";
    }
    return parts_ > 1 ? "part " + std::to_string(part_ + 1) + " of " + std::to_string(parts_)
                      : text_ + " of the blocks (seed " + std::to_string(seed_) + ")";
}

}  // namespace agent
