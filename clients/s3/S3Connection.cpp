#include "clients/s3/S3Connection.h"

#include <algorithm>
#include <cctype>
#include <future>

#include "clients/s3/Signature.h"
#include "cloudclientlib/CloudExc.h"
#include "common/digest.h"
#include "common/util.h"

namespace clients::s3 {

namespace {

[[noreturn]] void ThrowBadEndpoint(const std::string& endpoint, const char* why) {
    throw cloudclientlib::CCloudExc({cloudclientlib::EFailure::other, false, "OpenBucket", endpoint, why});
}

/// The scheme with "://", and the host with its port unless it is the scheme's own.
std::pair<std::string, std::string> SplitEndpoint(std::string endpoint) {
    const std::size_t colon = endpoint.find("://");
    if (colon == std::string::npos) {
        ThrowBadEndpoint(endpoint, "an endpoint is written 'https://host[:port]'");
    }
    const std::string scheme = endpoint.substr(0, colon + 3);
    std::string host = endpoint.substr(colon + 3);
    if (!host.empty() && host.back() == '/') {
        host.pop_back();
    }
    if (scheme != "https://" && scheme != "http://") {
        ThrowBadEndpoint(endpoint, "an endpoint begins with 'https://' or 'http://'");
    }
    if (host.empty() || host.find_first_of("/?#@ \r\n\t") != std::string::npos) {
        ThrowBadEndpoint(endpoint, "an endpoint is a host and perhaps a port, nothing else");
    }
    std::transform(host.begin(), host.end(), host.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const std::string own = scheme == "https://" ? ":443" : ":80";
    if (host.ends_with(own)) {  // libcurl leaves it out of the header, and the signature holds for the header
        host.resize(host.size() - own.size());
    }
    return {scheme, host};
}

std::string HashOf(const http::buffer_ptr& body) {
    return digest::Sha256(body ? std::span<const char>(*body) : std::span<const char>()).ToAStr();
}

}  // namespace

CS3Connection::CS3Connection(SBucket bucket, std::shared_ptr<ICredentials> credentials, http::SHttpOptions options,
                             clock_t clock)
    : bucket_(std::move(bucket)),
      credentials_(std::move(credentials)),
      clock_(std::move(clock)),
      engine_(std::move(options)) {
    std::tie(scheme_, host_) = SplitEndpoint(bucket_.endpoint);
    if (bucket_.name.empty()) {
        ThrowBadEndpoint(bucket_.endpoint, "the bucket has no name");
    }
    if (bucket_.virtualHosted) {
        host_ = bucket_.name + "." + host_;
    }
}

http::SHttpRequest CS3Connection::Sign(const SRequest& request) const {
    const auto credentials = credentials_->Get();
    const std::string date = AmzDate(clock_());
    SSignedParts parts;
    parts.method = request.method;
    parts.path = (bucket_.virtualHosted ? "/" : "/" + bucket_.name + (request.key.empty() ? "" : "/")) + request.key;
    parts.query = request.query;
    parts.payloadHash = HashOf(request.body);
    parts.headers = request.headers;
    parts.headers.emplace_back("host", host_);
    parts.headers.emplace_back("x-amz-date", date);
    parts.headers.emplace_back("x-amz-content-sha256", parts.payloadHash);
    if (!credentials->sessionToken.empty()) {
        parts.headers.emplace_back("x-amz-security-token", credentials->sessionToken);
    }

    http::SHttpRequest signedRequest;
    signedRequest.method = parts.method;
    const std::string query = CanonicalQuery(parts.query);
    signedRequest.url = scheme_ + host_ + UriEncode(parts.path, true) + (query.empty() ? "" : "?" + query);
    signedRequest.headers = parts.headers;
    signedRequest.headers.emplace_back("authorization", Authorization(parts, *credentials, bucket_.region, "s3", date));
    signedRequest.body = request.body;
    signedRequest.target = request.target;
    if (request.target) {
        signedRequest.maxAnswer = ~std::uint64_t{0};  // an object is as long as it is
    }
    return signedRequest;
}

void CS3Connection::Start(const SRequest& request, http::CHttpEngine::done_t done) {
    engine_.Start(Sign(request), std::move(done));
}

http::SHttpResult CS3Connection::Run(const SRequest& request) { return engine_.Run(Sign(request)); }

}  // namespace clients::s3
