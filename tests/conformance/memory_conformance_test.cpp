#include "clients/memory/MemoryClient.h"
#include "cloudclientlib/conformance/GTest.h"
#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"
#include "cloudclientlib/wrappers/GateClient.h"

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

const SSettings settings{.large = true};

const bool isRegistered = RegisterConformance("MemoryConformance", MemoryPlace, settings) &&
                          RegisterConformance("ForwardedConformance", WrappedPlace<CForwardingClient>, settings) &&
                          RegisterConformance("CountedConformance", WrappedPlace<CCountingClient>, settings) &&
                          RegisterConformance("UnarmedFaultConformance", WrappedPlace<CFaultClient>, settings) &&
                          RegisterConformance("OpenGateConformance", WrappedPlace<CGateClient>, settings);

TEST(MemoryConformanceRegistration, EveryCheckIsATest) { EXPECT_TRUE(isRegistered); }

}  // namespace

}  // namespace cloudclientlib::conformance
