#include "clients/registry/NetworkClient.h"

#include "cloudclientlib/wrappers/LimitClient.h"
#include "cloudclientlib/wrappers/RetryClient.h"
#include "cloudclientlib/wrappers/TraceClient.h"
#include "common/logging.h"

namespace clients {

std::shared_ptr<cloudclientlib::ICloudClient> OpenOverNetwork(
    const SNetworkOptions& limits, const std::function<std::shared_ptr<cloudclientlib::ICloudClient>()>& open) {
    std::shared_ptr<cloudclientlib::ICloudClient> client;
    cloudclientlib::CRetryClient::Retry({}, [&] { client = open(); });
    if (limits.bytesPerSecondUp != 0 || limits.bytesPerSecondDown != 0) {
        client = std::make_shared<cloudclientlib::CLimitClient>(
            client, cloudclientlib::SLimits{0, limits.bytesPerSecondUp, limits.bytesPerSecondDown});
    }
    if (logging::Library().IsEnabled(logging::level_t::dbg)) {
        client = std::make_shared<cloudclientlib::CTraceClient>(client);
    }
    return std::make_shared<cloudclientlib::CRetryClient>(client);
}

}  // namespace clients
