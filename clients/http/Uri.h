#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Addresses as HTTP services write them. Pure functions, safe from any thread.
namespace clients::http {

/// Everything but letters, digits and "-._~" as "%XX" in upper case (RFC 3986); "/" is kept when `keepSlash`.
[[nodiscard]] std::string UriEncode(std::string_view text, bool keepSlash);

/// What a "+" stands for in an encoded text.
enum class EPlus { itself, blank };
/// The bytes of an encoded text. Throws exc::CRuntimeExc, with the text, for a broken "%".
[[nodiscard]] std::string UriDecode(std::string_view text, EPlus plus);

/// "a=1&b=2", encoded, in the order given; empty for no parameters.
[[nodiscard]] std::string UriQuery(const std::vector<std::pair<std::string, std::string>>& query);

/// Where a service is.
struct SEndpoint {
    /// "https://" or "http://".
    std::string scheme;
    /// In lower case, with the port unless it is the scheme's own: as it stands in the header "host".
    std::string host;
    /// Empty, or begins with "/" and does not end with it.
    std::string path;
};

/// Reads "https://host[:port][/path]". Throws exc::CRuntimeExc, without the text, for anything else: also for one with
/// a user, a query or a fragment, where secrets may stand.
[[nodiscard]] SEndpoint ReadEndpoint(std::string_view text);

}  // namespace clients::http
