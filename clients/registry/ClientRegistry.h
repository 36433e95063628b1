#pragma once

#include <cstddef>
#include <cstdint>
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

/// How a store is used; what is said of time and certificates counts for those behind a network.
struct SNetworkOptions {
    /// At once.
    std::size_t connections = 16;
    /// 0 for no limit.
    std::uint64_t bytesPerSecondUp = 0;
    std::uint64_t bytesPerSecondDown = 0;
    /// A connection on which next to nothing moves for so long is given up, and what it was for is tried again.
    unsigned timeoutSeconds = 60;
    /// Certificates to trust instead of the system's; empty for what the location's environment says.
    std::string caFile = {};
};

/// Opens the client of a location. A location is "SCHEME:REST", or the plain path of a folder:
///
///     dir:PATH                             objects are files under the folder PATH
///     PATH                                 the same; a relative path with a colon in its first element is written
///                                          "./PATH" or "dir:PATH"
///     s3:https://HOST[:PORT]/BUCKET        an S3 bucket; the keys are in AWS_ACCESS_KEY_ID and AWS_SECRET_ACCESS_KEY,
///                                          further settings in AWS_SESSION_TOKEN, AWS_REGION, AWS_CA_BUNDLE
///     azure:CONTAINER                      a container of the account in AZURE_STORAGE_CONNECTION_STRING
///
/// Behind a bucket or a container may stand "/FOLDER": everything is then kept below it. Stores behind a network are
/// asked once at opening, and failures of theirs that may pass are tried again.
///
/// Safe from any thread. Throws CCloudExc: kind other for an empty location and for a scheme that nothing is registered
/// for, else what the client's constructor throws. Of a refused location only the scheme is told, since the rest may
/// hold a secret.
[[nodiscard]] std::shared_ptr<cloudclientlib::ICloudClient> OpenLocation(const std::string& location, ELocation mode,
                                                                         const SNetworkOptions& network = {});

}  // namespace clients
