#include "clients/registry/NetworkClient.h"

#include <algorithm>

#include "cloudclientlib/wrappers/LimitClient.h"
#include "cloudclientlib/wrappers/RetryClient.h"
#include "cloudclientlib/wrappers/TraceClient.h"
#include "common/logging.h"

namespace clients {

void ApplyNetwork(const SNetworkOptions& network, http::SHttpOptions& options) {
    const std::chrono::seconds timeout(std::max(network.timeoutSeconds, 1U));
    options.connections = network.connections;
    options.stallTimeout = timeout;
    options.connectTimeout = std::min<std::chrono::milliseconds>(options.connectTimeout, timeout);
    if (!network.caFile.empty()) {
        options.caFile = network.caFile;
    }
}

std::shared_ptr<cloudclientlib::ICloudClient> WithinLimits(std::shared_ptr<cloudclientlib::ICloudClient> client,
                                                           const SNetworkOptions& network) {
    const bool isNarrower = network.connections < client->GetConcurrentTaskLimit();
    if (network.bytesPerSecondUp == 0 && network.bytesPerSecondDown == 0 && !isNarrower) {
        return client;
    }
    return std::make_shared<cloudclientlib::CLimitClient>(
        std::move(client), cloudclientlib::SLimits{isNarrower ? network.connections : 0, network.bytesPerSecondUp,
                                                   network.bytesPerSecondDown});
}

std::shared_ptr<cloudclientlib::ICloudClient> OpenOverNetwork(
    const SNetworkOptions& network, const std::function<std::shared_ptr<cloudclientlib::ICloudClient>()>& open) {
    std::shared_ptr<cloudclientlib::ICloudClient> client;
    cloudclientlib::CRetryClient::Retry({}, [&] { client = open(); });
    client = WithinLimits(std::move(client), network);
    if (logging::Library().IsEnabled(logging::level_t::dbg)) {
        client = std::make_shared<cloudclientlib::CTraceClient>(client);
    }
    return std::make_shared<cloudclientlib::CRetryClient>(client);
}

}  // namespace clients
