#include "agent/retention/Policy.h"

#include <algorithm>
#include <array>

#include "agent/retention/LocalTime.h"

namespace agent::retention {

namespace {

/// One rule at work over the checkpoints of a group, the newest first.
class CPeriodRule {
public:
    CPeriodRule(EPeriod period, std::uint64_t count) : period_(period), left_(count) {}

    /// Whether the checkpoint is the newest one of a period that counts; to be asked of each in turn.
    bool Take(const std::string& name) {
        if (left_ == 0 || name == last_) {
            return false;
        }
        last_ = name;
        left_ -= left_ == keepAll ? 0 : 1;
        return true;
    }
    [[nodiscard]] EPeriod GetPeriod() const { return period_; }

private:
    EPeriod period_;
    std::uint64_t left_;
    std::string last_;
};

bool IsNewer(const SItem& a, const SItem& b) { return std::pair(a.time, a.id) > std::pair(b.time, b.id); }

bool HasAll(const std::vector<std::string>& tags, const std::vector<std::string>& wanted) {
    return std::all_of(wanted.begin(), wanted.end(),
                       [&](const std::string& tag) { return std::find(tags.begin(), tags.end(), tag) != tags.end(); });
}

std::string Join(const std::vector<std::string>& texts) {
    std::string joined;
    for (const auto& text : texts) {
        joined += (joined.empty() ? "" : ",") + text;
    }
    return joined;
}

std::string PeriodReason(EPeriod period, const std::string& name) { return std::string(ToStr(period)) + " " + name; }

/// The rules at work, asked of one checkpoint after the other, the newest first.
class CRulesAtWork {
public:
    CRulesAtWork(const SRules& rules, const STime& newest) : rules_(rules), newest_(newest), lastLeft_(rules.last) {
        for (const auto& [period, count] : rules.periods) {
            periods_.emplace_back(period, count);
        }
        for (const auto& [period, within] : rules.withinPeriods) {
            periodsWithin_.emplace_back(CPeriodRule(period, keepAll), within);
        }
    }

    std::vector<std::string> ReasonsFor(const SItem& item) {
        std::vector<std::string> reasons;
        AskLast(reasons);
        for (auto& rule : periods_) {
            const std::string name = PeriodName(rule.GetPeriod(), item.time);
            if (rule.Take(name)) {
                reasons.push_back(PeriodReason(rule.GetPeriod(), name));
            }
        }
        AskWithin(item, reasons);
        for (const auto& tags : rules_.tags) {
            if (HasAll(item.tags, tags)) {
                reasons.push_back((tags.size() == 1 ? "tag " : "tags ") + Join(tags));
            }
        }
        return reasons;
    }

private:
    void AskLast(std::vector<std::string>& reasons) {
        if (lastLeft_ != 0) {
            lastLeft_ -= lastLeft_ == keepAll ? 0 : 1;
            reasons.emplace_back("last");
        }
    }

    void AskWithin(const SItem& item, std::vector<std::string>& reasons) {
        for (const auto& within : rules_.within) {
            if (item.time > within.Before(newest_)) {
                reasons.push_back("within " + within.ToText());
            }
        }
        for (auto& [rule, within] : periodsWithin_) {
            const std::string name = PeriodName(rule.GetPeriod(), item.time);
            if (item.time > within.Before(newest_) && rule.Take(name)) {
                reasons.push_back(PeriodReason(rule.GetPeriod(), name) + " within " + within.ToText());
            }
        }
    }

    const SRules& rules_;
    const STime newest_;
    std::uint64_t lastLeft_;
    std::vector<CPeriodRule> periods_;
    std::vector<std::pair<CPeriodRule, SDuration>> periodsWithin_;
};

}  // namespace

const char* ToStr(EPeriod period) {
    static constexpr std::array<const char*, 5> names{"hourly", "daily", "weekly", "monthly", "yearly"};
    return names[static_cast<std::size_t>(period)];
}

std::string PeriodName(EPeriod period, const STime& time) {
    static constexpr std::array<const char*, 5> formats{"%Y-%m-%d %Hh", "%Y-%m-%d", "%G-W%V", "%Y-%m", "%Y"};
    return FormatLocalTime(time, formats[static_cast<std::size_t>(period)]);
}

bool SRules::IsEmpty() const {
    const bool noPeriods =
        std::all_of(periods.begin(), periods.end(), [](const auto& rule) { return rule.second == 0; });
    return last == 0 && noPeriods && within.empty() && withinPeriods.empty() && tags.empty();
}

std::vector<SDecision> Decide(const SRules& rules, std::vector<SItem> items) {
    std::vector<SDecision> decisions;
    if (items.empty()) {
        return decisions;
    }
    std::sort(items.begin(), items.end(), IsNewer);
    CRulesAtWork atWork(rules, items.front().time);
    for (const auto& item : items) {
        SDecision decision{item.id, false, atWork.ReasonsFor(item)};
        decision.keep = !decision.reasons.empty();
        decisions.push_back(std::move(decision));
    }
    return decisions;
}

}  // namespace agent::retention
