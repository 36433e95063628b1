#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <set>

#include "cloudclientlib/conformance/Conformance.h"
#include "tests/conformance/HookedClient.h"

namespace cloudclientlib::conformance {

namespace {

const SBroken sound{.name = "Sound", .hooks = [] { return SHooks{}; }, .caughtBy = {}};

SBroken WithoutQuota() {
    return {.name = "WithoutQuota",
            .hooks =
                [] {
                    SHooks hooks;
                    hooks.quota = [](ICloudClient&) -> SStorageQuota { Fail("GetStorageQuota", ""); };
                    return hooks;
                },
            .caughtBy = {}};
}

SSettings QuotaUnknown() {
    SSettings settings{.rounds = 2};
    settings.deviations.quotaIsUnknown = true;
    return settings;
}

SCheck Throwing(const std::function<void()>& action) {
    return {"Throwing", [action](CContext&) { action(); }};
}

TEST(Conformance, ChecksHaveUniqueNamesFitForATest) {
    std::set<std::string> names;
    for (const SCheck& check : AllChecks()) {
        EXPECT_TRUE(names.insert(check.name).second) << check.name;
        EXPECT_TRUE(std::all_of(check.name.begin(), check.name.end(), [](char c) { return std::isalnum(c) != 0; }))
            << check.name;
    }
    EXPECT_EQ(&AllChecks(), &AllChecks());
}

TEST(Conformance, EveryDeviationHasItsNameAndACheck) {
    std::set<std::string_view> used;
    for (const SCheck& check : AllChecks()) {
        if (check.deviation != nullptr) {
            used.insert(Name(check.deviation));
        }
    }
    EXPECT_THAT(used, testing::UnorderedElementsAre("objectAndFolderShareAPath", "emptyFoldersDoNotExist",
                                                    "caseIsFolded", "quotaIsUnknown", "archiveIsRefused",
                                                    "failuresNameInnerPaths", "objectCountIsNotConfined"));
    EXPECT_EQ(Name(nullptr), "none");
}

TEST(Conformance, CheckThatReturnsHasPassed) {
    const SResult result = RunCheck(Throwing([] {}), FactoryOf(sound), {});
    EXPECT_EQ(result.outcome, EOutcome::passed);
    EXPECT_EQ(result.text, "");
}

TEST(Conformance, FailureIsToldByItsText) {
    const SResult kept = RunCheck(Throwing([] { throw CConformanceFailure("a promise"); }), FactoryOf(sound), {});
    EXPECT_EQ(kept.outcome, EOutcome::failed);
    EXPECT_EQ(kept.text, "a promise");
    const SResult other = RunCheck(Throwing([] { throw std::runtime_error("a surprise"); }), FactoryOf(sound), {});
    EXPECT_EQ(other.outcome, EOutcome::failed);
    EXPECT_EQ(other.text, "unexpected failure: a surprise");
    const SResult odd = RunCheck(Throwing([] { throw 1; }), FactoryOf(sound), {});
    EXPECT_EQ(odd.outcome, EOutcome::failed);
    EXPECT_EQ(odd.text, "unexpected failure that is no std::exception");
}

TEST(Conformance, FactoryThatFailsFailsTheCheck) {
    const auto factory = []() -> place_t { throw std::runtime_error("no store"); };
    const SResult result = RunCheck(Throwing([] {}), factory, {});
    EXPECT_EQ(result.outcome, EOutcome::failed);
    EXPECT_EQ(result.text, "unexpected failure: no store");
}

TEST(Conformance, RunGoesOnAfterFailures) {
    std::size_t reported = 0;
    std::vector<std::string> failed;
    const SSummary summary =
        RunConformance(FactoryOf(WithoutQuota()), {.rounds = 2}, [&](const SCheck& check, const SResult& result) {
            ++reported;
            if (result.outcome == EOutcome::failed) {
                failed.push_back(check.name + ": " + result.text);
            }
        });
    EXPECT_THAT(failed, testing::ElementsAre("QuotaIsTold: unexpected failure: GetStorageQuota '': broken on purpose"));
    EXPECT_EQ(summary.failed, 1U);
    EXPECT_EQ(summary.deviated, 0U);
    EXPECT_EQ(summary.passed + 1, reported);
}

TEST(Conformance, LargeChecksRunOnlyWhenAskedFor) {
    const auto count = [](bool isLarge) {
        std::size_t large = 0;
        RunConformance(FactoryOf(sound), {.large = isLarge, .rounds = 1},
                       [&](const SCheck& check, const SResult&) { large += check.large ? 1 : 0; });
        return large;
    };
    EXPECT_EQ(count(false), 0U);
    EXPECT_EQ(count(true), 13U);
}

TEST(Conformance, DeclaredDeviationIsAccepted) {
    const SSummary summary =
        RunConformance(FactoryOf(WithoutQuota()), QuotaUnknown(), [](const SCheck& check, const SResult& result) {
            EXPECT_EQ(result.outcome, check.name == "QuotaIsTold" ? EOutcome::deviated : EOutcome::passed)
                << check.name << ": " << result.text;
        });
    EXPECT_EQ(summary.failed, 0U);
    EXPECT_EQ(summary.deviated, 1U);
}

TEST(Conformance, DeviationThatDoesNotShowIsAFailure) {
    const SSummary summary =
        RunConformance(FactoryOf(sound), QuotaUnknown(), [](const SCheck& check, const SResult& result) {
            if (check.name == "QuotaIsTold") {
                EXPECT_EQ(result.outcome, EOutcome::failed);
                EXPECT_EQ(result.text,
                          "the client keeps this promise: the deviation 'quotaIsUnknown' must not be declared");
            } else {
                EXPECT_EQ(result.outcome, EOutcome::passed) << check.name;
            }
        });
    EXPECT_EQ(summary.failed, 1U);
}

TEST(Conformance, ReopenLetsTheClientGoFirst) {
    int open = 0;
    int mostOpen = 0;
    const place_t place = [&]() -> client_ptr {
        mostOpen = std::max(mostOpen, ++open);
        const auto store = FactoryOf(sound)()();
        return {store.get(), [&open, store](ICloudClient*) { --open; }};
    };
    {
        CContext context(place, {});
        context.Reopen();
        EXPECT_EQ(open, 1);
        EXPECT_EQ(mostOpen, 1);
        const auto second = context.OpenSecond();
        EXPECT_EQ(open, 2);
    }
    EXPECT_EQ(open, 0);
}

}  // namespace

}  // namespace cloudclientlib::conformance
