#pragma once

#include <memory>

#include "clients/azure/AzureClient.h"

namespace clients {

/// Opens a container: asks the service once, so that a mistake in the address or the keys is told at once and not in
/// the midst of work. With `make`, a container that is not there is made. Throws CCloudExc of operation
/// "OpenContainer".
[[nodiscard]] std::shared_ptr<CAzureClient> OpenAzureContainer(SAzureClientOptions options, azure::SAccount account,
                                                               bool make);

}  // namespace clients
