#include <gmock/gmock.h>

#include "agent/retention/PolicyTestKit.h"

namespace agent::retention {
namespace {

using namespace test_kit;
using testing::ElementsAre;
using testing::IsEmpty;

class Policy : public testing::Test {
protected:
    void Add(const STime& time, const std::vector<std::string>& tags = {}) {
        items_.push_back({items_.size() + 1, time, tags});
    }

    /// What is kept, as "ID: reason; reason", the newest first.
    [[nodiscard]] std::vector<std::string> Kept(const SRules& rules) const {
        std::vector<std::string> kept;
        for (const auto& decision : Decide(rules, items_)) {
            EXPECT_EQ(decision.keep, !decision.reasons.empty());
            if (decision.keep) {
                std::string text = std::to_string(decision.id) + ":";
                for (const auto& reason : decision.reasons) {
                    text += " " + reason + ";";
                }
                kept.push_back(text);
            }
        }
        return kept;
    }

    static SRules Periods(EPeriod period, std::uint64_t count) {
        SRules rules;
        rules.periods[period] = count;
        return rules;
    }

    const CZone zone_{"Europe/Berlin"};
    std::vector<SItem> items_;
};

TEST_F(Policy, NothingToDecide) { EXPECT_THAT(Decide(Periods(EPeriod::daily, 1), {}), IsEmpty()); }

TEST_F(Policy, WithoutRulesNothingIsKept) {
    Add(At(2026, 11, 20));
    EXPECT_TRUE(SRules{}.IsEmpty());
    EXPECT_TRUE(Periods(EPeriod::daily, 0).IsEmpty());
    EXPECT_FALSE(Periods(EPeriod::daily, 1).IsEmpty());
    EXPECT_THAT(Kept({}), IsEmpty());
}

TEST_F(Policy, Last) {
    Add(At(2026, 11, 18));
    Add(At(2026, 11, 20));
    Add(At(2026, 11, 19));
    SRules rules;
    rules.last = 2;
    EXPECT_THAT(Kept(rules), ElementsAre("2: last;", "3: last;"));
    rules.last = keepAll;
    EXPECT_THAT(Kept(rules), ElementsAre("2: last;", "3: last;", "1: last;"));
}

TEST_F(Policy, OfEqualTimesTheHigherIdIsNewer) {
    Add(At(2026, 11, 20));
    Add(At(2026, 11, 20));
    SRules rules;
    rules.last = 1;
    EXPECT_THAT(Kept(rules), ElementsAre("2: last;"));
}

TEST_F(Policy, TheNewestOfEachDay) {
    Add(At(2026, 11, 17, 23, 59));
    Add(At(2026, 11, 18, 0, 0));
    Add(At(2026, 11, 18, 23, 59));
    Add(At(2026, 11, 20, 8));
    Add(At(2026, 11, 20, 9));
    EXPECT_THAT(Kept(Periods(EPeriod::daily, 2)), ElementsAre("5: daily 2026-11-20;", "3: daily 2026-11-18;"))
        << "days without a checkpoint do not count";
    EXPECT_THAT(Kept(Periods(EPeriod::daily, keepAll)),
                ElementsAre("5: daily 2026-11-20;", "3: daily 2026-11-18;", "1: daily 2026-11-17;"));
}

TEST_F(Policy, DaysAreLocal) {
    items_ = {{1, {At(2026, 11, 20, 0, 30).seconds, 0}, {}}, {2, {At(2026, 11, 20, 23, 30).seconds, 0}, {}}};
    EXPECT_THAT(Kept(Periods(EPeriod::daily, 5)), ElementsAre("2: daily 2026-11-20;"));
    const CZone utc("UTC");  // where the first was made the evening before
    EXPECT_THAT(Kept(Periods(EPeriod::daily, 5)), ElementsAre("2: daily 2026-11-20;", "1: daily 2026-11-19;"));
}

TEST_F(Policy, EachKindOfPeriod) {
    Add(At(2024, 12, 31));    // in the first week of 2025
    Add(At(2025, 1, 1));      // the same week, another month and year
    Add(At(2025, 1, 31, 9));  //
    Add(At(2025, 1, 31, 9, 30));
    Add(At(2025, 1, 31, 10));
    EXPECT_THAT(Kept(Periods(EPeriod::hourly, 2)),
                ElementsAre("5: hourly 2025-01-31 10h;", "4: hourly 2025-01-31 09h;"));
    EXPECT_THAT(Kept(Periods(EPeriod::weekly, 9)), ElementsAre("5: weekly 2025-W05;", "2: weekly 2025-W01;"));
    EXPECT_THAT(Kept(Periods(EPeriod::monthly, 9)), ElementsAre("5: monthly 2025-01;", "1: monthly 2024-12;"));
    EXPECT_THAT(Kept(Periods(EPeriod::yearly, 1)), ElementsAre("5: yearly 2025;"));
}

TEST_F(Policy, RulesAddUp) {
    Add(At(2025, 6, 1));
    Add(At(2026, 10, 31));
    Add(At(2026, 11, 19));
    Add(At(2026, 11, 20));
    SRules rules;
    rules.last = 1;
    rules.periods = {{EPeriod::daily, 2}, {EPeriod::monthly, 2}, {EPeriod::yearly, 2}};
    EXPECT_THAT(Kept(rules), ElementsAre("4: last; daily 2026-11-20; monthly 2026-11; yearly 2026;",
                                         "3: daily 2026-11-19;", "2: monthly 2026-10;", "1: yearly 2025;"));
}

TEST_F(Policy, WithinCountsFromTheNewest) {
    Add(At(2026, 11, 13, 11));
    Add(At(2026, 11, 13, 12));
    Add(At(2026, 11, 13, 13));
    Add(At(2026, 11, 20, 12));
    SRules rules;
    rules.within.push_back(SDuration::FromText("7d"));
    EXPECT_THAT(Kept(rules), ElementsAre("4: within 7d;", "3: within 7d;")) << "the border itself is outside";
}

TEST_F(Policy, PeriodsWithin) {
    Add(At(2026, 11, 1));
    Add(At(2026, 11, 18, 8));
    Add(At(2026, 11, 18, 9));
    Add(At(2026, 11, 20));
    SRules rules;
    rules.withinPeriods[EPeriod::daily] = SDuration::FromText("1w");
    EXPECT_THAT(Kept(rules), ElementsAre("4: daily 2026-11-20 within 7d;", "3: daily 2026-11-18 within 7d;"));
}

TEST_F(Policy, Tags) {
    Add(At(2026, 11, 1), {"a", "b"});
    Add(At(2026, 11, 2), {"a"});
    Add(At(2026, 11, 3), {"b", "c"});
    Add(At(2026, 11, 4));
    SRules rules;
    rules.tags = {{"a", "b"}, {"c"}};
    EXPECT_THAT(Kept(rules), ElementsAre("3: tag c;", "1: tags a,b;"));
}

}  // namespace
}  // namespace agent::retention
