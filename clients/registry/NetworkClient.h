#pragma once

#include <functional>
#include <memory>

#include "clients/registry/ClientRegistry.h"

namespace clients {

/// A client as every store behind a network is used: within the limits, traced when the log is at dbg level, and tried
/// again on failures that may pass. `open` is tried again too.
[[nodiscard]] std::shared_ptr<cloudclientlib::ICloudClient> OpenOverNetwork(
    const SNetworkOptions& network, const std::function<std::shared_ptr<cloudclientlib::ICloudClient>()>& open);

}  // namespace clients
