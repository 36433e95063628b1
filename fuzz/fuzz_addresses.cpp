#include <cstdint>
#include <string>
#include <string_view>

#include "clients/azure/Account.h"
#include "clients/http/HttpDate.h"
#include "clients/http/Uri.h"
#include "common/util.h"
#include "fuzz/Readers.h"

// Where a service is, what opens it, and the small texts in its headers: each reader refuses a text or takes it whole,
// and what it takes prints to a text that reads the same.

using fuzz::Require;
using fuzz::Try;

namespace {

using namespace clients;

std::string TextOf(const http::SEndpoint& endpoint) { return endpoint.scheme + endpoint.host + endpoint.path; }

void CheckEndpoint(const http::SEndpoint& endpoint) {
    Require(endpoint.scheme == "https://" || endpoint.scheme == "http://");
    Require(!endpoint.host.empty() && endpoint.host.find('/') == std::string::npos);
    Require(endpoint.path.empty() || (endpoint.path.front() == '/' && endpoint.path.back() != '/'));
    for (const char c : TextOf(endpoint)) {
        Require(c > ' ' && c < 0x7F && c != '@' && c != '?' && c != '#');
    }
    Require(TextOf(http::ReadEndpoint(TextOf(endpoint))) == TextOf(endpoint));
}

void ReadEndpoint(std::string_view text) { CheckEndpoint(http::ReadEndpoint(text)); }

void ReadEncoded(std::string_view text) {
    for (const auto plus : {http::EPlus::itself, http::EPlus::blank}) {
        const std::string decoded = http::UriDecode(text, plus);
        for (const bool keepSlash : {false, true}) {
            Require(http::UriDecode(http::UriEncode(decoded, keepSlash), plus) == decoded);
        }
    }
}

void ReadDate(std::string_view text) {
    const auto time = http::ParseHttpDate(text);
    Require(time.time_since_epoch().count() >= 0);
    Require(http::ParseHttpDate(http::HttpDate(time)) == time);
}

std::string TextOf(const azure::SAccount& account) {
    std::string text = "BlobEndpoint=" + TextOf(account.endpoint);
    text += account.name.empty() ? "" : ";AccountName=" + account.name;
    text += account.key.empty()
                ? ";SharedAccessSignature=" + std::string(account.signature.begin(), account.signature.end())
                : ";AccountKey=" + util::toBase64({account.key.data(), account.key.size()});
    return text;
}

/// "%" in an address is what it is; only a ";" in one's path could not be written in a connection string.
void ReadConnectionString(std::string_view text) {
    const auto account = azure::ReadConnectionString(text);
    CheckEndpoint(account.endpoint);
    Require(account.key.empty() != account.signature.empty());
    Require(TextOf(azure::ReadConnectionString(TextOf(account))) == TextOf(account));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const auto reader : {ReadEndpoint, ReadEncoded, ReadDate, ReadConnectionString}) {
        Try([&] { reader(text); });
    }
    return 0;
}
