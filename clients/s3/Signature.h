#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "clients/http/Uri.h"
#include "clients/s3/Credentials.h"

namespace clients::s3 {

/// A request as it is signed: everything in its plain, unencoded form.
struct SSignedParts {
    std::string method;
    /// Begins with "/".
    std::string path;
    /// In any order.
    std::vector<std::pair<std::string, std::string>> query;
    /// All headers that are sent, "host" included; names in lower case.
    std::vector<std::pair<std::string, std::string>> headers;
    /// SHA-256 of the body in lower-case hexadecimal.
    std::string payloadHash;
};

using http::UriEncode;

/// "a=1&b=2", encoded and sorted, as it stands in the address and in the signature.
[[nodiscard]] std::string CanonicalQuery(const std::vector<std::pair<std::string, std::string>>& query);
/// "20130524T000000Z"
[[nodiscard]] std::string AmzDate(std::chrono::system_clock::time_point time);

/// The value of the header "authorization": AWS Signature Version 4 (docs.aws.amazon.com, "Create a signed AWS API
/// request") for a request at `date` (as AmzDate gives it, and as the header "x-amz-date" says).
[[nodiscard]] std::string Authorization(const SSignedParts& request, const SCredentials& credentials,
                                        const std::string& region, const std::string& service, const std::string& date);

}  // namespace clients::s3
