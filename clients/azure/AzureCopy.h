#pragma once

#include "clients/azure/AzureStreams.h"

namespace clients::azure {

/// Copies an object within the container. The service may need its time: it is asked how far it is, ever more seldom,
/// and after an hour of waiting the copy is given up. A copy that comes to nothing leaves no object behind: neither the
/// target's old one, which the service has let go by then, nor an empty one.
void CopyObject(CAzureConnection& connection, const SPlace& source, const SPlace& target, const headers_t& headers,
                const wait_t& wait);

}  // namespace clients::azure
