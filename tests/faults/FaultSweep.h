#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "clients/memory/MemoryClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"

namespace test {

/// For sweeps that take minutes: every call fails in the first way, and in each further way every third. The optimised
/// build takes them all.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::uint64_t longSweepStep = 3;
#else
constexpr std::uint64_t longSweepStep = 1;
#endif

/// One way in which a call fails.
struct SFaultWay {
    cloudclientlib::EFaultMode mode;
    bool crash;

    [[nodiscard]] std::string ToAStr() const {
        return std::string(cloudclientlib::ToStr(mode)) + (crash ? ", then crash" : "");
    }
};

/// All ways: not done, done but reported failed, done in part; each alone, and with nothing after it reaching the
/// store.
inline std::vector<SFaultWay> AllFaultWays() {
    using enum cloudclientlib::EFaultMode;
    return {{notDone, false}, {doneButFailed, false}, {doneInPart, false},
            {notDone, true},  {doneButFailed, true},  {doneInPart, true}};
}

using store_ptr = std::shared_ptr<clients::CMemoryClient>;
using faults_ptr = std::shared_ptr<cloudclientlib::CFaultClient>;

/// What a sweep does. Each step starts from a copy of the same store.
struct SSweep {
    /// Opens what the operation works on, through the client that will fail, and returns the operation.
    std::function<std::function<void()>(const faults_ptr&)> prepare;
    /// After the fault, on a client that works: what must hold, whatever happened.
    std::function<void(const store_ptr&)> check;
    /// Does the operation again, from scratch; must succeed.
    std::function<void(const store_ptr&)> retry;
    /// What must hold in the end, both after a retry and without any fault.
    std::function<void(const store_ptr&)> checkDone;
    /// The calls that fail.
    cloudclientlib::operation_set kinds = cloudclientlib::StoreOperations();
    /// In all ways but the first only every so manyth call fails.
    std::uint64_t step = 1;
};

/// What a sweep has met.
struct SSweepResult {
    /// How many calls the operation makes when none fails.
    std::uint64_t calls = 0;
    /// How many of the faults the operation reported, over all ways.
    std::uint64_t reported = 0;
};

/// Fails the first call, then the second, and so on until the operation meets no fault any more; in every way.
inline SSweepResult RunSweep(const store_ptr& base, const SSweep& sweep) {
    SSweepResult result;
    const auto ways = AllFaultWays();
    for (std::size_t number = 0; number != ways.size(); ++number) {
        const SFaultWay& way = ways[number];
        const std::uint64_t step = number == 0 ? 1 : sweep.step;
        bool reached = true;
        for (std::uint64_t call = 1 + number % step; reached; call += step) {
            SCOPED_TRACE("call " + std::to_string(call) + ", " + way.ToAStr());
            const store_ptr store = base->Clone();
            const auto faults = std::make_shared<cloudclientlib::CFaultClient>(store);
            const auto operation = sweep.prepare(faults);
            faults->Arm({.call = call, .mode = way.mode, .kinds = sweep.kinds, .crash = way.crash});
            try {
                operation();
            } catch (const std::exception&) {
                ++result.reported;
            }
            reached = faults->IsReached();
            sweep.check(store->Reopen());
            if (reached) {
                EXPECT_NO_THROW(sweep.retry(store->Reopen()));
                sweep.check(store->Reopen());
            } else if (step == 1) {
                result.calls = call - 1;
            }
            sweep.checkDone(store->Reopen());
            if (testing::Test::HasFailure()) {
                return result;  // one broken step says enough
            }
        }
    }
    return result;
}

}  // namespace test
