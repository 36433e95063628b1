#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "cloudclientlib/conformance/Conformance.h"
#include "common/exc.h"
#include "tests/conformance/HookedClient.h"

/// The suite tells wrong clients from right ones: each of the clients here breaks one promise, and the checks named for
/// it must fail.
namespace cloudclientlib::conformance {

namespace {

std::vector<SBroken> AllBroken() {
    std::vector<SBroken> all;
    for (const auto& make : {BrokenInFolders, BrokenInNames, BrokenInObjects, BrokenInReading, BrokenInSize,
                             BrokenInStreams, BrokenInTasks, BrokenUnderConcurrency}) {
        for (auto& broken : make()) {
            all.push_back(std::move(broken));
        }
    }
    return all;
}

const SCheck& CheckOf(const std::string& name) {
    const auto& checks = AllChecks();
    const auto found =
        std::find_if(checks.begin(), checks.end(), [&](const SCheck& check) { return check.name == name; });
    if (found == checks.end()) {
        throw exc::CRuntimeExc("no check is named '%1'", name);
    }
    return *found;
}

class CBrokenClientTest : public testing::TestWithParam<SBroken> {};

TEST_P(CBrokenClientTest, IsCaught) {
    for (const std::string& name : GetParam().caughtBy) {
        const SResult result = RunCheck(CheckOf(name), FactoryOf(GetParam()), {.rounds = 10});
        EXPECT_EQ(result.outcome, EOutcome::failed) << name << " does not see it";
        EXPECT_NE(result.text, "") << name;
    }
}

/// What the wrong clients are made with does not make them wrong.
TEST(BrokenClients, AreSoundWithoutTheirFault) {
    const SBroken sound{.name = "Sound", .hooks = [] { return SHooks{}; }, .caughtBy = {}};
    RunConformance(FactoryOf(sound), {.large = true, .rounds = 10}, [](const SCheck& check, const SResult& result) {
        EXPECT_EQ(result.outcome, EOutcome::passed) << check.name << ": " << result.text;
    });
}

INSTANTIATE_TEST_SUITE_P(Suite, CBrokenClientTest, testing::ValuesIn(AllBroken()),
                         [](const auto& broken) { return broken.param.name; });

TEST(BrokenClients, ShowThatEveryCheckCanFail) {
    std::set<std::string> unproven;
    for (const SCheck& check : AllChecks()) {
        unproven.insert(check.name);
    }
    for (const SBroken& broken : AllBroken()) {
        for (const std::string& name : broken.caughtBy) {
            unproven.erase(name);
        }
    }
    EXPECT_THAT(unproven, testing::IsEmpty());
}

}  // namespace

}  // namespace cloudclientlib::conformance
