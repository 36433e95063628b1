#pragma once

#include <string>

#include "clients/azure/AzureClient.h"
#include "clients/registry/Environment.h"

namespace clients {

/// What "azure:CONTAINER" and the environment say of a container.
struct SAzureLocation {
    SAzureClientOptions options;
    azure::SAccount account;
};

/// Reads "CONTAINER[/folder...]" and AZURE_STORAGE_CONNECTION_STRING. Throws CCloudExc of operation "OpenLocation", in
/// which no secret stands.
[[nodiscard]] SAzureLocation ReadAzureLocation(const std::string& container, const environment_t& environment);

}  // namespace clients
