#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "agent/model/Entry.h"

/// Which checkpoints are kept. Pure functions; periods are those of the local time zone.
namespace agent::retention {

/// The periods of which one checkpoint each is kept.
enum class EPeriod : std::uint8_t { hourly, daily, weekly, monthly, yearly };

/// "hourly" and so on.
[[nodiscard]] const char* ToStr(EPeriod period);

/// A length of time as a person says it: years and months are those of the calendar.
struct SDuration {
    int years = 0;
    int months = 0;
    int days = 0;
    int hours = 0;

    /// "1y6m", "2w", "36h"; units y, m, w, d, h in any order, each at most once. Throws exc::CRuntimeExc for what is no
    /// duration, or is none at all ("0d").
    [[nodiscard]] static SDuration FromText(const std::string& text);
    /// Years, months, days, hours; what is zero is left out.
    [[nodiscard]] std::string ToText() const;
    /// The point of time so long before.
    [[nodiscard]] STime Before(const STime& time) const;

    bool operator==(const SDuration&) const = default;
};

inline constexpr std::uint64_t keepAll = ~std::uint64_t{0};

struct SRules {
    /// The newest so many checkpoints.
    std::uint64_t last = 0;
    /// Per kind of period: of the newest so many periods that have a checkpoint the newest one; keepAll for all.
    std::map<EPeriod, std::uint64_t> periods;
    /// All checkpoints within so long before the newest one.
    std::vector<SDuration> within;
    /// Per kind of period: within so long before the newest checkpoint the newest one of each period.
    std::map<EPeriod, SDuration> withinPeriods;
    /// Checkpoints that have all tags of one of these lists.
    std::vector<std::vector<std::string>> tags;

    [[nodiscard]] bool IsEmpty() const;
};

/// What the policy knows of a checkpoint.
struct SItem {
    std::uint64_t id = 0;
    STime time;
    std::vector<std::string> tags;
};

struct SDecision {
    std::uint64_t id = 0;
    bool keep = false;
    /// Why it is kept: "last", "daily 2026-11-20", "within 7d", "daily 2026-11-20 within 14d", "tags a,b".
    std::vector<std::string> reasons;

    bool operator==(const SDecision&) const = default;
};

/// Decides over one group of checkpoints, given in any order; the newest comes first in the answer. Of two made at the
/// same time the one with the higher id is newer. What no rule keeps is to be removed: without rules, all.
[[nodiscard]] std::vector<SDecision> Decide(const SRules& rules, std::vector<SItem> items);

/// The period that a time lies in: "2026-11-20 14h", "2026-11-20", "2026-W47", "2026-11", "2026".
[[nodiscard]] std::string PeriodName(EPeriod period, const STime& time);

}  // namespace agent::retention
