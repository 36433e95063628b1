#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "cloudclientlib/ICloudClient.h"

/// The suite that every cloud client must pass: a check for each promise of ICloudClient.
///
/// A host that writes a client of its own runs it, with any test framework (Run, or GTest.h for GoogleTest).
namespace cloudclientlib::conformance {

/// One empty place in a store. Each call opens another client, confined to that place, and they all see the same
/// objects. The place may be cleaned up when the last copy of the function is let go.
using place_t = std::function<std::shared_ptr<ICloudClient>()>;

/// Makes a fresh place, empty and shared with nobody, at each call.
using factory_t = std::function<place_t()>;

/// Where a store cannot keep a promise. A client declares what its store forces upon it and nothing else; a declared
/// deviation that does not show is a failure too.
struct SDeviations {
    /// A flat store keeps keys, not folders: an object "a" and an object "a/b" can both be there.
    bool objectAndFolderShareAPath = false;
    /// A flat store without markers: a folder exists only while an object lies under it.
    bool emptyFoldersDoNotExist = false;
    /// The store takes upper and lower case for the same.
    bool caseIsFolded = false;
    /// The service does not tell how much is used.
    bool quotaIsUnknown = false;
    /// There is no archive, and the client refuses to be asked about it.
    bool archiveIsRefused = false;
    /// A client that maps paths lets failures through unchanged: they name the path inside.
    bool failuresNameInnerPaths = false;
    /// A client that maps paths hands the path of GetObjectCount through as it is.
    bool objectCountIsNotConfined = false;
};

using deviation_ptr = bool SDeviations::*;

/// The deviation's name, as the field is called.
[[nodiscard]] std::string_view Name(deviation_ptr deviation);

/// How hard the suite tries.
struct SSettings {
    SDeviations deviations = {};
    /// Also the checks marked large: tens of MiB, thousands of objects.
    bool large = false;
    /// How often each thread of a concurrent check does its work.
    unsigned rounds = 40;
    /// What the data is made from; it stands in the failures.
    std::uint64_t seed = 1;
};

/// A promise that is not kept.
class CConformanceFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What a check works with: its own place and clients on it. Used by the check's thread; the clients by any.
class CContext {
public:
    CContext(place_t place, SSettings settings);

    /// The check's client.
    [[nodiscard]] ICloudClient& Client() const { return *client_; }
    /// Another client on the same place, beside it.
    [[nodiscard]] std::shared_ptr<ICloudClient> OpenSecond() const { return place_(); }
    /// Lets the check's client go and opens a new one on the same place.
    void Reopen();
    [[nodiscard]] const SSettings& Settings() const { return settings_; }

private:
    const place_t place_;
    const SSettings settings_;
    std::shared_ptr<ICloudClient> client_;
};

/// One promise and the code that tests it; throws CConformanceFailure, or whatever the client throws, when it fails.
struct SCheck {
    /// UpperCamelCase, unique.
    std::string name;
    std::function<void(CContext&)> run;
    /// The deviation under which the check must fail; null for none.
    deviation_ptr deviation = nullptr;
    bool large = false;
};

/// All checks, in a fixed order.
[[nodiscard]] const std::vector<SCheck>& AllChecks();

enum class EOutcome {
    passed,
    failed,
    /// Failed as the declared deviation says: accepted.
    deviated,
};

struct SResult {
    EOutcome outcome = EOutcome::passed;
    /// What went wrong, in words; empty when passed.
    std::string text;
};

/// Runs one check on a fresh place. Never throws.
[[nodiscard]] SResult RunCheck(const SCheck& check, const factory_t& factory, const SSettings& settings);

struct SSummary {
    std::size_t passed = 0;
    std::size_t failed = 0;
    std::size_t deviated = 0;
};

using report_t = std::function<void(const SCheck&, const SResult&)>;

/// Runs all checks (the large ones when the settings say so), whatever their outcomes, and reports each.
SSummary RunConformance(const factory_t& factory, const SSettings& settings, const report_t& report);

}  // namespace cloudclientlib::conformance
