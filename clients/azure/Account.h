#pragma once

#include <string>
#include <string_view>

#include "clients/http/Uri.h"
#include "common/crypto/sec_allocator.h"

namespace clients::azure {

/// A storage account: where it is, and what opens it, which is a key or a shared access signature. Secrets are erased
/// when they are let go.
struct SAccount {
    http::SEndpoint endpoint;
    /// Empty when a shared access signature comes with an endpoint of its own.
    std::string name;
    /// A secret, decoded; empty when there is a signature instead.
    crypto::sec_bytes_t key;
    /// A secret: the query of a shared access signature ("sv=...&sig=..."), as it goes into an address.
    crypto::sec_bytes_t signature;
};

/// Reads a connection string, as the portal gives it: "DefaultEndpointsProtocol=...;AccountName=...;AccountKey=...;
/// EndpointSuffix=...", with "BlobEndpoint=..." for an endpoint of one's own, with "SharedAccessSignature=..." in place
/// of the key. Settings of the other services of an account mean nothing. Throws exc::CRuntimeExc, whose text never
/// holds anything of the string.
[[nodiscard]] SAccount ReadConnectionString(std::string_view text);

}  // namespace clients::azure
