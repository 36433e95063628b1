#include "cloudclientlib/conformance/Conformance.h"

#include <array>
#include <utility>

#include "cloudclientlib/conformance/Checks.h"

namespace cloudclientlib::conformance {

namespace {

checks_t MakeChecks() {
    checks_t checks;
    AddObjectChecks(checks);
    AddFailureChecks(checks);
    AddRangeChecks(checks);
    AddCopyChecks(checks);
    AddFolderChecks(checks);
    AddListingChecks(checks);
    AddPathChecks(checks);
    AddNameChecks(checks);
    AddNameLimitChecks(checks);
    AddUploadStreamChecks(checks);
    AddDownloadStreamChecks(checks);
    AddTaskChecks(checks);
    AddConcurrencyChecks(checks);
    AddPartChecks(checks);
    AddScaleChecks(checks);
    AddQuotaChecks(checks);
    AddArchiveChecks(checks);
    return checks;
}

/// The failure's text; empty when the check passed.
std::string TextOfRun(const SCheck& check, const factory_t& factory, const SSettings& settings) {
    try {
        CContext context(factory(), settings);
        check.run(context);
        return {};
    } catch (const CConformanceFailure& failure) {
        return failure.what();
    } catch (const std::exception& failure) {
        return std::string("unexpected failure: ") + failure.what();
    } catch (...) {
        return "unexpected failure that is no std::exception";
    }
}

}  // namespace

std::string_view Name(deviation_ptr deviation) {
    static constexpr std::array<std::pair<deviation_ptr, std::string_view>, 7> names{{
        {&SDeviations::objectAndFolderShareAPath, "objectAndFolderShareAPath"},
        {&SDeviations::emptyFoldersDoNotExist, "emptyFoldersDoNotExist"},
        {&SDeviations::caseIsFolded, "caseIsFolded"},
        {&SDeviations::quotaIsUnknown, "quotaIsUnknown"},
        {&SDeviations::archiveIsRefused, "archiveIsRefused"},
        {&SDeviations::failuresNameInnerPaths, "failuresNameInnerPaths"},
        {&SDeviations::objectCountIsNotConfined, "objectCountIsNotConfined"},
    }};
    for (const auto& [member, name] : names) {
        if (member == deviation) {
            return name;
        }
    }
    return "none";
}

CContext::CContext(place_t place, SSettings settings)
    : place_(std::move(place)), settings_(settings), client_(place_()) {}

void CContext::Reopen() {
    client_.reset();
    client_ = place_();
}

const std::vector<SCheck>& AllChecks() {
    static const checks_t checks = MakeChecks();
    return checks;
}

SResult RunCheck(const SCheck& check, const factory_t& factory, const SSettings& settings) {
    std::string text = TextOfRun(check, factory, settings);
    const bool mustFail = check.deviation != nullptr && settings.deviations.*check.deviation;
    if (mustFail) {
        return text.empty()
                   ? SResult{EOutcome::failed, "the client keeps this promise: the deviation '" +
                                                   std::string(Name(check.deviation)) + "' must not be declared"}
                   : SResult{EOutcome::deviated, std::move(text)};
    }
    return {text.empty() ? EOutcome::passed : EOutcome::failed, std::move(text)};
}

SSummary RunConformance(const factory_t& factory, const SSettings& settings, const report_t& report) {
    SSummary summary;
    for (const SCheck& check : AllChecks()) {
        if (check.large && !settings.large) {
            continue;
        }
        const SResult result = RunCheck(check, factory, settings);
        summary.passed += result.outcome == EOutcome::passed ? 1 : 0;
        summary.failed += result.outcome == EOutcome::failed ? 1 : 0;
        summary.deviated += result.outcome == EOutcome::deviated ? 1 : 0;
        report(check, result);
    }
    return summary;
}

}  // namespace cloudclientlib::conformance
