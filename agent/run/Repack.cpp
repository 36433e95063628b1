#include "agent/run/Repack.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

#include "agent/run/ByteCount.h"
#include "common/exc.h"

namespace agent {

namespace {

/// A block of which less than that is waste would be moved nearly whole for nearly nothing.
constexpr std::uint64_t leastWastePercent = 5;

struct SCandidate {
    guid::guid_t storageId;
    digest::md5_digest_t block;
    std::uint64_t size = 0;
    std::uint64_t unused = 0;
};

/// The larger share of waste first; the same order for the same blocks, whatever else has changed.
bool ComesBefore(const SCandidate& a, const SCandidate& b) {
    const double shareOfA = static_cast<double>(a.unused) / static_cast<double>(a.size);
    const double shareOfB = static_cast<double>(b.unused) / static_cast<double>(b.size);
    if (shareOfA != shareOfB) {
        return shareOfA > shareOfB;
    }
    return a.block < b.block;
}

double ParsePercent(std::string_view text) {
    double percent = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), percent, std::chars_format::fixed);
    if (error != std::errc() || end != text.data() + text.size() || !(percent >= 0 && percent <= 100)) {
        throw exc::CRuntimeExc("a percentage is a number from 0 to 100");
    }
    return percent;
}

}  // namespace

SUnusedLimit SUnusedLimit::FromText(const std::string& text) {
    try {
        if (text == "unlimited") {
            return {EKind::unlimited, 0, 0};
        }
        if (text.ends_with('%')) {
            return {EKind::share, ParsePercent(std::string_view(text).substr(0, text.size() - 1)), 0};
        }
        return {EKind::bytes, 0, ParseByteCount(text)};
    } catch (const exc::CExc& failure) {
        exc::RegenTraceExc(failure, "'%1' is no limit such as 10%, 500M or 'unlimited'", text);
    }
}

std::uint64_t SUnusedLimit::Of(std::uint64_t storedBytes) const {
    switch (kind) {
        case EKind::share:
            return static_cast<std::uint64_t>(std::floor(static_cast<double>(storedBytes) * percent / 100));
        case EKind::bytes:
            return bytes;
        case EKind::unlimited:
            break;
    }
    return ~std::uint64_t{0};
}

bool SRepackPlan::HasBlock(const guid::guid_t& storageId, const digest::md5_digest_t& block) const {
    const auto found = blocks.find(storageId);
    return found != blocks.end() && found->second.contains(block);
}

SRepackPlan ChooseBlocks(const std::map<guid::guid_t, CBlockUse>& storages,
                         const std::map<guid::guid_t, SRepackPlan::block_names_t>& missing, const SUnusedLimit& limit) {
    std::vector<SCandidate> candidates;
    std::uint64_t stored = 0;
    std::uint64_t waste = 0;
    for (const auto& [storageId, use] : storages) {
        const auto used = use.CountUsedBytes();
        const auto gone = missing.find(storageId);
        for (const auto& [name, block] : use.GetBlocks()) {
            const std::uint64_t unused = block.size - std::min(block.size, used[block.index]);
            stored += block.size;
            waste += unused;
            const bool isThere = gone == missing.end() || !gone->second.contains(name);
            if (isThere && unused != 0 && 100 * unused >= leastWastePercent * block.size) {
                candidates.push_back({storageId, name, block.size, unused});
            }
        }
    }
    std::sort(candidates.begin(), candidates.end(), ComesBefore);
    SRepackPlan plan;
    for (const auto& candidate : candidates) {
        if (waste <= limit.Of(stored)) {
            break;
        }
        plan.blocks[candidate.storageId].insert(candidate.block);
        ++plan.blockCount;
        plan.movedBytes += candidate.size - candidate.unused;
        plan.freedBytes += candidate.unused;
        waste -= candidate.unused;
        stored -= candidate.unused;
    }
    return plan;
}

}  // namespace agent
