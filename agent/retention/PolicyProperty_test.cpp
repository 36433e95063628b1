#include <gmock/gmock.h>

#include <cstdlib>
#include <random>
#include <set>

#include "agent/retention/PolicyTestKit.h"

/// The policy against a slow reference that follows each rule's words by itself, over random checkpoints and rules.
namespace agent::retention {
namespace {

using namespace test_kit;

constexpr std::array<EPeriod, 5> allPeriods{EPeriod::hourly, EPeriod::daily, EPeriod::weekly, EPeriod::monthly,
                                            EPeriod::yearly};

/// The number of the period on a line of time, not by its name.
std::int64_t PeriodNumber(EPeriod period, const STime& time) {
    const std::time_t seconds = time.seconds;
    const std::tm local = *std::localtime(&seconds);  // NOLINT: one thread
    const std::int64_t day = (seconds + local.tm_gmtoff) / 86400;
    switch (period) {
        case EPeriod::hourly:
            return day * 24 + local.tm_hour;
        case EPeriod::daily:
            return day;
        case EPeriod::weekly:
            return (day + 3) / 7;  // 1970-01-01 was a Thursday
        case EPeriod::monthly:
            return local.tm_year * 12 + local.tm_mon;
        default:
            return local.tm_year;
    }
}

bool IsNewer(const SItem& a, const SItem& b) { return a.time > b.time || (a.time == b.time && a.id > b.id); }

/// The newest checkpoints of the newest `count` periods, of those checkpoints alone.
std::set<std::uint64_t> NewestOfPeriods(EPeriod period, std::uint64_t count, const std::vector<SItem>& items) {
    std::set<std::int64_t, std::greater<>> numbers;
    for (const auto& item : items) {
        numbers.insert(PeriodNumber(period, item.time));
    }
    std::set<std::uint64_t> kept;
    for (const auto number : numbers) {
        if (count-- == 0) {
            break;
        }
        const SItem* newest = nullptr;
        for (const auto& item : items) {
            if (PeriodNumber(period, item.time) == number && (newest == nullptr || IsNewer(item, *newest))) {
                newest = &item;
            }
        }
        kept.insert(newest->id);
    }
    return kept;
}

std::vector<SItem> Within(const SDuration& duration, const std::vector<SItem>& items) {
    STime newest = items.front().time;
    for (const auto& item : items) {
        newest = std::max(newest, item.time);
    }
    std::vector<SItem> inside;
    for (const auto& item : items) {
        if (item.time > duration.Before(newest)) {
            inside.push_back(item);
        }
    }
    return inside;
}

std::set<std::uint64_t> Reference(const SRules& rules, const std::vector<SItem>& items) {
    std::set<std::uint64_t> kept;
    for (const auto& item : items) {
        const auto newer =
            std::count_if(items.begin(), items.end(), [&](const auto& other) { return IsNewer(other, item); });
        if (static_cast<std::uint64_t>(newer) < rules.last) {
            kept.insert(item.id);
        }
        for (const auto& list : rules.tags) {
            const std::set<std::string> own(item.tags.begin(), item.tags.end());
            const std::set<std::string> wanted(list.begin(), list.end());
            if (std::includes(own.begin(), own.end(), wanted.begin(), wanted.end())) {
                kept.insert(item.id);
            }
        }
    }
    for (const auto& [period, count] : rules.periods) {
        kept.merge(NewestOfPeriods(period, count, items));
    }
    for (const auto& within : rules.within) {
        for (const auto& item : Within(within, items)) {
            kept.insert(item.id);
        }
    }
    for (const auto& [period, within] : rules.withinPeriods) {
        kept.merge(NewestOfPeriods(period, keepAll, Within(within, items)));
    }
    return kept;
}

class CMaker {
public:
    explicit CMaker(std::uint64_t seed) : random_(seed) {}

    std::vector<SItem> Items() {
        std::vector<SItem> items;
        // From a few days to some years, so that every kind of period gets both crowded and sparse.
        const std::int64_t span = std::int64_t{1} << (10 + Below(18));
        const std::int64_t base = At(2020, 1, 1).seconds + static_cast<std::int64_t>(Below(200'000'000));
        const std::uint64_t count = 1 + Below(40);
        for (std::uint64_t id = 1; id <= count; ++id) {
            items.push_back(
                {id, {base + static_cast<std::int64_t>(Below(static_cast<std::uint64_t>(span))), 0}, Tags()});
        }
        return items;
    }

    SRules Rules() {
        SRules rules;
        rules.last = Count();
        for (const auto period : allPeriods) {
            if (Below(2) == 0) {
                rules.periods[period] = Below(8) == 0 ? keepAll : Count();
            }
            if (Below(6) == 0) {
                rules.withinPeriods[period] = Duration();
            }
        }
        if (Below(5) == 0) {
            rules.within.push_back(Duration());
        }
        if (Below(4) == 0) {
            auto tags = Tags();
            rules.tags.push_back(tags.empty() ? std::vector<std::string>{"a"} : tags);
        }
        return rules;
    }

private:
    std::uint64_t Below(std::uint64_t limit) { return random_() % limit; }
    std::uint64_t Count() { return Below(3) == 0 ? 0 : Below(8); }
    SDuration Duration() {
        return {static_cast<int>(Below(2)), static_cast<int>(Below(4)), static_cast<int>(Below(20)),
                static_cast<int>(1 + Below(30))};
    }
    std::vector<std::string> Tags() {
        std::vector<std::string> tags;
        for (const auto* tag : {"a", "b", "c"}) {
            if (Below(4) == 0) {
                tags.emplace_back(tag);
            }
        }
        return tags;
    }

    std::mt19937_64 random_;
};

void Compare(const std::string& zoneName) {
    const CZone zone(zoneName);
    const char* given = std::getenv("SEED");  // NOLINT: one thread
    const std::uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device{}();
    SCOPED_TRACE("SEED=" + std::to_string(seed));
    CMaker maker(seed);
    for (int round = 0; round < 1500 && !testing::Test::HasFailure(); ++round) {
        const auto items = maker.Items();
        const auto rules = maker.Rules();
        std::set<std::uint64_t> kept;
        for (const auto& decision : Decide(rules, items)) {
            if (decision.keep) {
                kept.insert(decision.id);
            }
        }
        EXPECT_EQ(kept, Reference(rules, items)) << "round " << round;
    }
}

TEST(PolicyProperty, AsEachRuleSaysInBerlin) { Compare("Europe/Berlin"); }
TEST(PolicyProperty, AsEachRuleSaysInAZoneOfHalfHours) { Compare("Australia/Lord_Howe"); }
TEST(PolicyProperty, AsEachRuleSaysInUtc) { Compare("UTC"); }

}  // namespace
}  // namespace agent::retention
