#include "clients/azure/AzureConnection.h"

#include <algorithm>
#include <string_view>

#include "clients/http/HttpDate.h"
#include "clients/http/Unprotected.h"
#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"

namespace clients::azure {

namespace {

/// What the requests are written by.
constexpr const char* protocolVersion = "2021-08-06";

std::string_view View(const crypto::sec_bytes_t& bytes) { return {bytes.data(), bytes.size()}; }
crypto::sec_bytes_t Secret(std::string_view text) { return {text.begin(), text.end()}; }

/// The whole signature, and the part of it that nobody could make, as it stands and decoded.
std::vector<crypto::sec_bytes_t> SecretsOf(const SAccount& account) {
    const std::string_view query = View(account.signature);
    if (query.empty()) {
        return {};
    }
    std::vector<crypto::sec_bytes_t> secrets = {account.signature};
    const std::size_t found = query.starts_with("sig=") ? 0 : query.find("&sig=") + 1;
    const std::string_view value = query.substr(found + 4, query.substr(found + 4).find('&'));
    if (!value.empty()) {
        secrets.push_back(Secret(value));
        try {
            secrets.push_back(Secret(http::UriDecode(value, http::EPlus::itself)));
        } catch (const exc::CExc&) {  // not encoded: what stands there is all there is
        }
    }
    return secrets;
}

void Erase(std::string& text, std::string_view secret) {
    constexpr std::string_view mark = "...";
    for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at + mark.size())) {
        text.replace(at, secret.size(), mark);
    }
}

void CheckContainer(const std::string& container) {
    const bool isName = !container.empty() && std::all_of(container.begin(), container.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '$';
    });
    if (!isName) {
        throw cloudclientlib::CCloudExc({cloudclientlib::EFailure::other, false, "OpenContainer", container,
                                         "a container's name holds lower-case letters, digits and '-'"});
    }
}

}  // namespace

CAzureConnection::CAzureConnection(SAccount account, std::string container, http::SHttpOptions options, clock_t clock)
    : account_(std::move(account)),
      container_(std::move(container)),
      clock_(std::move(clock)),
      secrets_(SecretsOf(account_)),
      engine_(std::move(options)) {
    CheckContainer(container_);
    http::WarnIfUnprotected(account_.endpoint);
}

std::string CAzureConnection::PathOf(const std::string& blob) const {
    return account_.endpoint.path + http::UriEncode("/" + container_ + (blob.empty() ? "" : "/") + blob, true);
}

std::string CAzureConnection::QueryText(const SRequest& request) const {
    std::string text = http::UriQuery(request.query);
    if (!account_.signature.empty()) {
        text += text.empty() ? "" : "&";
        text += View(account_.signature);
    }
    return text.empty() ? text : "?" + text;
}

void CAzureConnection::Authorize(const SSignedParts& parts, headers_t& headers) const {
    if (account_.signature.empty()) {
        headers.emplace_back("authorization", Authorization(parts, account_.name, account_.key));
    }
}

http::SHttpRequest CAzureConnection::Sign(const SRequest& request) const {
    SSignedParts parts;
    parts.method = request.method;
    parts.path = PathOf(request.blob);
    parts.query = request.query;
    parts.headers = request.headers;
    const auto now = clock_();
    parts.headers.emplace_back("x-ms-date", http::HttpDate(now));
    parts.headers.emplace_back("x-ms-version", protocolVersion);
    parts.contentLength = request.body ? request.body->size() : 0;

    http::SHttpRequest signedRequest;
    signedRequest.method = parts.method;
    signedRequest.url = account_.endpoint.scheme + account_.endpoint.host + parts.path + QueryText(request);
    signedRequest.headers = parts.headers;
    Authorize(parts, signedRequest.headers);
    signedRequest.body = request.body;
    signedRequest.target = request.target;
    signedRequest.signedAt = now;
    signedRequest.range = request.range;
    return signedRequest;
}

http::SHttpResult CAzureConnection::WithoutSecrets(http::SHttpResult result) const {
    if (secrets_.empty() || (!result.failure && result.answer.IsSuccess())) {
        return result;
    }
    http::SHttpFailure failure = result.failure ? *result.failure : http::SHttpFailure{};
    for (const auto& secret : secrets_) {
        Erase(failure.text, View(secret));
        Erase(result.answer.body, View(secret));
        for (auto& [name, value] : result.answer.headers) {
            Erase(value, View(secret));
        }
    }
    if (result.failure) {
        result.failure = std::make_shared<const http::SHttpFailure>(std::move(failure));
    }
    return result;
}

void CAzureConnection::Start(const SRequest& request, http::CHttpEngine::done_t done) {
    // The engine is let go first, and waits for what it does: this stays until then.
    engine_.Start(Sign(request), [this, done = std::move(done)](http::SHttpResult result) {
        done(WithoutSecrets(std::move(result)));
    });
}

http::SHttpResult CAzureConnection::Run(const SRequest& request) { return WithoutSecrets(engine_.Run(Sign(request))); }

std::string CAzureConnection::BatchHead(const std::string& method, const std::string& blob) const {
    SSignedParts parts;
    parts.method = method;
    parts.path = PathOf(blob);
    parts.headers = {{"x-ms-date", http::HttpDate(clock_())}};  // the version is the batch's own
    headers_t headers = parts.headers;
    Authorize(parts, headers);
    std::string head = method + " " + parts.path + QueryText({}) + " HTTP/1.1\r\n";
    for (const auto& [name, value] : headers) {
        head += name + ": " + value + "\r\n";
    }
    return head + "content-length: 0\r\n";
}

std::string CAzureConnection::SourceUrl(const std::string& blob) const {
    return account_.endpoint.scheme + account_.endpoint.host + PathOf(blob) + QueryText({});
}

}  // namespace clients::azure
