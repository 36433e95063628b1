#pragma once

#include <memory>
#include <string>

#include "cloudclientlib/ICloudClient.h"

/// The clients that reach stores, and the one registry that turns a location into a client.
namespace clients {

/// What a location is opened for.
enum class ELocation {
    existing,       ///< it must be there
    createMissing,  ///< its outermost folder (or bucket) is made when it is missing
};

/// Opens the client of a location. A location is "SCHEME:REST", or the plain path of a folder:
///
///     dir:PATH    objects are files under the folder PATH
///     PATH        the same; a relative path with a colon in its first element is written "./PATH" or "dir:PATH"
///
/// Safe from any thread. Throws CCloudExc: kind other for an empty location and for a scheme that nothing is registered
/// for, else what the client's constructor throws. Of a refused location only the scheme is told, since the rest may
/// hold a secret.
[[nodiscard]] std::shared_ptr<cloudclientlib::ICloudClient> OpenLocation(const std::string& location, ELocation mode);

}  // namespace clients
