#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "cloudclientlib/conformance/Conformance.h"

namespace cloudclientlib::conformance {

/// Runs one check as a GoogleTest.
class CConformanceTest : public testing::Test {
public:
    CConformanceTest(const SCheck& check, factory_t factory, SSettings settings)
        : check_(check), factory_(std::move(factory)), settings_(settings) {}

    void TestBody() override {
        const SResult result = RunCheck(check_, factory_, settings_);
        if (result.outcome == EOutcome::failed) {
            FAIL() << result.text;
        } else if (result.outcome == EOutcome::deviated) {
            RecordProperty("deviation", std::string(Name(check_.deviation)));
        }
    }

private:
    const SCheck& check_;  // of AllChecks, which stays
    const factory_t factory_;
    const SSettings settings_;
};

/// Registers every check as a test of its own: SUITE.CHECK. To be called before RUN_ALL_TESTS, from main or a
/// static initialiser, which wants a value: it is always true.
inline bool RegisterConformance(const std::string& suite, const factory_t& factory, const SSettings& settings = {}) {
    for (const SCheck& check : AllChecks()) {
        if (check.large && !settings.large) {
            continue;
        }
        // GoogleTest takes over what the function returns.
        testing::RegisterTest(
            suite.c_str(), check.name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
            [&check, factory, settings]() -> testing::Test* { return new CConformanceTest(check, factory, settings); });
    }
    return true;
}

}  // namespace cloudclientlib::conformance
