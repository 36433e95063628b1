#include <atomic>
#include <chrono>

#include "clients/memory/MemoryClient.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/conformance/GTest.h"
#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"
#include "cloudclientlib/wrappers/GateClient.h"
#include "cloudclientlib/wrappers/LimitClient.h"
#include "cloudclientlib/wrappers/RetryClient.h"
#include "cloudclientlib/wrappers/TraceClient.h"
#include "tests/wrappers/FakeTimer.h"

namespace cloudclientlib::conformance {

namespace {

/// A place is a store in memory, which its first client keeps alive.
place_t MemoryPlace() {
    return [store = std::make_shared<clients::CMemoryClient>()]() -> std::shared_ptr<ICloudClient> {
        return store->Reopen();
    };
}

/// The memory client behind a wrapper.
template <class Wrapper>
place_t WrappedPlace() {
    return [place = MemoryPlace()] { return std::make_shared<Wrapper>(place()); };
}

/// Every second call of a client fails, by turns before it is done and after. Calls of streams do not.
class CEverySecond : public IInterceptor {
public:
    task::task_ptr OnTask(const SInterceptedCall& call, start_t start) override {
        return task::RunNow([&] { Run(call, [&] { start()->Wait(); }); });
    }
    void OnCall(const SInterceptedCall& call, const run_t& run) override {
        if (StoreOperations().contains(call.operation)) {
            Run(call, run);
        } else {
            run();
        }
    }
    std::shared_ptr<IDownloadStream> WrapDownload(const std::string&, std::shared_ptr<IDownloadStream> inner) override {
        return inner;
    }
    std::shared_ptr<IUploadStream> WrapUpload(const std::string&, std::shared_ptr<IUploadStream> inner) override {
        return inner;
    }

private:
    void Run(const SInterceptedCall& call, const run_t& run) {
        const unsigned number = ++calls_;
        if (number % 4 != 1) {
            run();
        }
        if (number % 2 == 1) {
            throw CCloudExc({EFailure::transient, true, std::string(FailureName(call.operation)), call.path, "busy"});
        }
    }

    std::atomic<unsigned> calls_ = 0;
};

std::shared_ptr<ICloudClient> Retried(std::shared_ptr<ICloudClient> inner) {
    // With many threads one of them may meet every failure.
    return std::make_shared<CRetryClient>(std::move(inner), SRetryOptions{.attempts = 100'000,
                                                                          .cap = std::chrono::milliseconds(1),
                                                                          .deadline = std::chrono::hours(24),
                                                                          .timer = std::make_shared<CFakeTimer>()});
}

/// So low that everything waits, by a clock that takes no time.
std::shared_ptr<ICloudClient> Limited(std::shared_ptr<ICloudClient> inner) {
    return std::make_shared<CLimitClient>(
        std::move(inner), SLimits{.operationsInFlight = 2, .bytesPerSecondUp = 100'000, .bytesPerSecondDown = 100'000},
        std::make_shared<CFakeTimer>());
}

place_t FlakyRetriedPlace() {
    return [place = MemoryPlace()] {
        return Retried(std::make_shared<CInterceptingClient>(place(), std::make_shared<CEverySecond>()));
    };
}

place_t LimitedPlace() {
    return [place = MemoryPlace()] { return Limited(place()); };
}

/// As a host would have them.
place_t AllThreePlace() {
    return [place = MemoryPlace()] { return Retried(Limited(std::make_shared<CTraceClient>(place()))); };
}

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool isLargeWrapped = false;  // what is copied by the MiB shows no more than smaller ones, and takes minutes
#else
constexpr bool isLargeWrapped = true;
#endif
const SSettings plainSettings{.large = true};
const SSettings settings{.large = isLargeWrapped};

const bool isRegistered = RegisterConformance("MemoryConformance", MemoryPlace, plainSettings) &&
                          RegisterConformance("ForwardedConformance", WrappedPlace<CForwardingClient>, settings) &&
                          RegisterConformance("CountedConformance", WrappedPlace<CCountingClient>, settings) &&
                          RegisterConformance("UnarmedFaultConformance", WrappedPlace<CFaultClient>, settings) &&
                          RegisterConformance("OpenGateConformance", WrappedPlace<CGateClient>, settings) &&
                          RegisterConformance("RetriedConformance", WrappedPlace<CRetryClient>, settings) &&
                          RegisterConformance("FlakyRetriedConformance", FlakyRetriedPlace, settings) &&
                          RegisterConformance("LimitedConformance", LimitedPlace, settings) &&
                          RegisterConformance("TracedConformance", WrappedPlace<CTraceClient>, settings) &&
                          RegisterConformance("AllThreeConformance", AllThreePlace, settings);

TEST(MemoryConformanceRegistration, EveryCheckIsATest) { EXPECT_TRUE(isRegistered); }

}  // namespace

}  // namespace cloudclientlib::conformance
