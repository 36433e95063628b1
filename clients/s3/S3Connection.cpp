#include "clients/s3/S3Connection.h"

#include <algorithm>
#include <array>
#include <future>
#include <optional>

#include "clients/http/Unprotected.h"
#include "clients/http/Uri.h"
#include "clients/s3/S3Documents.h"
#include "clients/s3/Signature.h"
#include "cloudclientlib/CloudExc.h"
#include "common/digest.h"
#include "common/util.h"

namespace clients::s3 {

namespace {

/// A mistake in the endpoint is told with it; what it is is checked by whoever reads it.
http::SEndpoint EndpointOf(const SBucket& bucket) {
    const auto refuse = [&](const std::string& why) {
        throw cloudclientlib::CCloudExc(
            {cloudclientlib::EFailure::other, false, "OpenBucket", bucket.name, "the endpoint: " + why});
    };
    http::SEndpoint endpoint;
    try {
        endpoint = http::ReadEndpoint(bucket.endpoint);
    } catch (const std::exception& failure) {
        refuse(failure.what());
    }
    if (!endpoint.path.empty()) {
        refuse("it is a host and perhaps a port, nothing else");
    }
    if (bucket.name.empty()) {
        refuse("the bucket has no name");
    }
    return endpoint;
}

std::string HashOf(const http::buffer_ptr& body) {
    return digest::Sha256(body ? std::span<const char>(*body) : std::span<const char>()).ToAStr();
}

/// Whether a request was refused for its credentials, or may have been.
std::optional<ERefusal> RefusalOf(const http::SHttpAnswer& answer) {
    constexpr std::array<long, 3> statuses = {400, 401, 403};
    constexpr std::array<std::string_view, 5> codes = {"ExpiredToken", "InvalidAccessKeyId", "InvalidToken",
                                                       "InvalidClientTokenId", "TokenRefreshRequired"};
    if (std::find(statuses.begin(), statuses.end(), answer.status) == statuses.end()) {
        return std::nullopt;
    }
    const std::string code = ReadError(answer.body).value_or(SServiceError{}).code;
    if (std::find(codes.begin(), codes.end(), code) != codes.end()) {
        return ERefusal::ofCredentials;
    }
    return code.empty() ? std::optional(ERefusal::untold) : std::nullopt;
}

}  // namespace

CS3Connection::CS3Connection(SBucket bucket, std::shared_ptr<ICredentials> credentials, http::SHttpOptions options,
                             clock_t clock)
    : bucket_(std::move(bucket)),
      credentials_(std::move(credentials)),
      clock_(std::move(clock)),
      engine_(std::move(options)) {
    auto endpoint = EndpointOf(bucket_);
    http::WarnIfUnprotected(endpoint);
    scheme_ = std::move(endpoint.scheme);
    host_ = std::move(endpoint.host);
    if (bucket_.virtualHosted) {
        host_ = bucket_.name + "." + host_;
    }
}

http::SHttpRequest CS3Connection::Sign(const SRequest& request, const SCredentials& credentials) const {
    const auto now = clock_();
    const std::string date = AmzDate(now);
    SSignedParts parts;
    parts.method = request.method;
    parts.path = (bucket_.virtualHosted ? "/" : "/" + bucket_.name + (request.key.empty() ? "" : "/")) + request.key;
    parts.query = request.query;
    parts.payloadHash = HashOf(request.body);
    parts.headers = request.headers;
    parts.headers.emplace_back("host", host_);
    parts.headers.emplace_back("x-amz-date", date);
    parts.headers.emplace_back("x-amz-content-sha256", parts.payloadHash);
    if (!credentials.sessionToken.empty()) {
        parts.headers.emplace_back("x-amz-security-token",
                                   std::string(credentials.sessionToken.begin(), credentials.sessionToken.end()));
    }

    http::SHttpRequest signedRequest;
    signedRequest.method = parts.method;
    const std::string query = CanonicalQuery(parts.query);
    signedRequest.url = scheme_ + host_ + UriEncode(parts.path, true) + (query.empty() ? "" : "?" + query);
    signedRequest.headers = parts.headers;
    signedRequest.headers.emplace_back("authorization", Authorization(parts, credentials, bucket_.region, "s3", date));
    signedRequest.body = request.body;
    signedRequest.target = request.target;
    signedRequest.signedAt = now;
    signedRequest.range = request.range;
    return signedRequest;
}

void CS3Connection::Start(const SRequest& request, http::CHttpEngine::done_t done) {
    const auto used = credentials_->Get();
    engine_.Start(Sign(request, *used), [used, source = credentials_, done = std::move(done)](auto result) {
        if (const auto refusal = RefusalOf(result.answer)) {
            result.answer.otherCredentials = source->Refused(*used, *refusal);
        }
        done(std::move(result));
    });
}

http::SHttpResult CS3Connection::Run(const SRequest& request) {
    std::promise<http::SHttpResult> promise;
    auto result = promise.get_future();
    Start(request, [&](http::SHttpResult answer) { promise.set_value(std::move(answer)); });
    return result.get();
}

}  // namespace clients::s3
