#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "cloudclientlib/wrappers/InterceptingClient.h"

namespace cloudclientlib {

/// What a failing call has done to the store before it fails.
enum class EFaultMode {
    /// Nothing: it never reached the store.
    notDone,
    /// All of it; only the answer is lost.
    doneButFailed,
    /// A part, where the contract allows one; else as notDone. A deleted folder has lost the first half of its objects
    /// (by path; never the last one); an upload, a copy and a created folder have made the parent folders only; a
    /// streamed write passed on its first half; a download and a streamed read brought half of their bytes.
    doneInPart,
};

[[nodiscard]] std::string_view ToStr(EFaultMode mode);

/// Which call fails, and how.
struct SFaultPlan {
    /// From 1, among the calls whose kind is in `kinds`, counted from the moment the plan is armed. 0: none fails, the
    /// calls are only counted.
    std::uint64_t call = 0;
    EFaultMode mode = EFaultMode::notDone;
    operation_set kinds = StoreOperations();
    /// After the failing call every call fails and none reaches the store, as when the machine crashes.
    bool crash = false;
};

/// A client that fails on demand: for tests of what failures leave behind.
///
/// The failure is a CCloudExc of kind transient, may be retried, and says that it is injected. Asynchronous calls fail
/// through their task; what the failing call does to the store is done, in the caller's thread, when the call returns.
/// A stream that failed stays failed. Safe from any thread; with several, the order in which they arrive decides who
/// meets the fault. Never armed, it changes nothing. Streams may outlive the client.
class CFaultClient : public CInterceptingClient {
public:
    explicit CFaultClient(std::shared_ptr<ICloudClient> inner);

    /// Replaces the plan, and begins to count anew; ends a crash.
    void Arm(SFaultPlan plan);
    /// No more faults; the count and IsReached begin anew.
    void Disarm();
    /// Whether the failing call came.
    [[nodiscard]] bool IsReached() const;
    /// How many calls of the plan's kinds came since it was armed.
    [[nodiscard]] std::uint64_t GetCallCount() const;

    class CFaults;

private:
    CFaultClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CFaults> faults);

    const std::shared_ptr<CFaults> faults_;
};

}  // namespace cloudclientlib
