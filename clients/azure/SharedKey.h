#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/crypto/sec_allocator.h"

namespace clients::azure {

/// A request as it is signed.
struct SSignedParts {
    std::string method;
    /// As it stands in the address: encoded, begins with "/".
    std::string path;
    /// Plain, in any order; a name may be there several times.
    std::vector<std::pair<std::string, std::string>> query;
    /// Names in lower case, each once.
    std::vector<std::pair<std::string, std::string>> headers;
    /// Of the body; no header says it, since the HTTP engine sends that one itself.
    std::uint64_t contentLength = 0;
};

/// The text that a signature is made of (learn.microsoft.com, "Authorize with Shared Key", for the Blob service).
[[nodiscard]] std::string StringToSign(const SSignedParts& request, const std::string& account);

/// The value of the header "authorization": "SharedKey account:signature".
[[nodiscard]] std::string Authorization(const SSignedParts& request, const std::string& account,
                                        const crypto::sec_bytes_t& key);

}  // namespace clients::azure
