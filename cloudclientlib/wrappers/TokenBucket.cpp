#include "cloudclientlib/wrappers/TokenBucket.h"

#include <algorithm>
#include <cmath>

namespace cloudclientlib {

namespace {

using std::chrono::nanoseconds;

constexpr double perSecond = 1e9;
/// Thirty years: a debt that nobody waits for, and that the clock can still count.
constexpr double longest = 1e9;

}  // namespace

nanoseconds CTokenBucket::Take(nanoseconds now, std::uint64_t bytes) {
    if (rate_ == 0) {
        return nanoseconds(0);
    }
    const std::lock_guard lock(mutex_);
    FillUntil(now);
    const auto needed = static_cast<double>(std::min(bytes, rate_));
    if (level_ < needed) {
        const double seconds = std::min((needed - level_) / static_cast<double>(rate_), longest);
        at_ = std::min(at_ + nanoseconds(std::llround(seconds * perSecond)),
                       now + nanoseconds(std::llround(longest * perSecond)));
        level_ = needed;
    }
    level_ -= static_cast<double>(bytes);
    return std::max(at_ - now, nanoseconds(0));
}

void CTokenBucket::Settle(nanoseconds now, std::uint64_t taken, std::uint64_t bytes) {
    if (rate_ == 0) {
        return;
    }
    const std::lock_guard lock(mutex_);
    FillUntil(now);
    level_ = std::min(level_ + static_cast<double>(taken) - static_cast<double>(bytes), static_cast<double>(rate_));
}

void CTokenBucket::FillUntil(nanoseconds now) {
    if (now <= at_) {
        return;
    }
    const double seconds = static_cast<double>((now - at_).count()) / perSecond;
    level_ = std::min(level_ + seconds * static_cast<double>(rate_), static_cast<double>(rate_));
    at_ = now;
}

}  // namespace cloudclientlib
