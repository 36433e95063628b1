#pragma once

#include <functional>
#include <memory>

#include "clients/http/HttpEngine.h"
#include "clients/registry/ClientRegistry.h"

namespace clients {

/// What of the options concerns connections; certificates stay as they are when the options name none.
void ApplyNetwork(const SNetworkOptions& network, http::SHttpOptions& options);

/// The client within the limits of the options: as it is when they set none that it does not keep by itself.
[[nodiscard]] std::shared_ptr<cloudclientlib::ICloudClient> WithinLimits(
    std::shared_ptr<cloudclientlib::ICloudClient> client, const SNetworkOptions& network);

/// A client as every store behind a network is used: within the limits, traced when the log is at dbg level, and tried
/// again on failures that may pass. `open` is tried again too.
[[nodiscard]] std::shared_ptr<cloudclientlib::ICloudClient> OpenOverNetwork(
    const SNetworkOptions& network, const std::function<std::shared_ptr<cloudclientlib::ICloudClient>()>& open);

}  // namespace clients
