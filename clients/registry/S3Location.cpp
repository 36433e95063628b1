#include "clients/registry/S3Location.h"

#include "clients/http/Uri.h"
#include "clients/registry/RefuseLocation.h"
#include "common/exc.h"

namespace clients {

namespace {

/// The address itself is not told: somebody may have written a password into it.
http::SEndpoint ReadAddress(const std::string& address) {
    try {
        return http::ReadEndpoint(address);
    } catch (const exc::CExc& failure) {
        RefuseLocation("s3:", std::string("it is written 's3:https://host[:port]/bucket': ") + failure.what());
    }
}

std::string FirstOf(const environment_t& environment, std::initializer_list<const char*> names, const char* otherwise) {
    for (const char* name : names) {
        if (std::string value = environment(name); !value.empty()) {
            return value;
        }
    }
    return otherwise;
}

std::string Required(const environment_t& environment, const char* name) {
    std::string value = environment(name);
    if (value.empty()) {
        RefuseLocation("s3:", std::string("the environment variable ") + name + " is not set");
    }
    return value;
}

crypto::sec_bytes_t Keep(std::string secret) {
    const crypto::erase_at_end_t erased(secret);
    return {secret.begin(), secret.end()};
}

}  // namespace

SS3Location ReadS3Location(const std::string& address, const environment_t& environment) {
    const http::SEndpoint endpoint = ReadAddress(address);
    if (endpoint.path.empty()) {
        RefuseLocation("s3:", "the bucket is missing: it is written 's3:https://host[:port]/bucket'");
    }
    const std::string path = endpoint.path.substr(1);
    const std::size_t slash = path.find('/');

    SS3Location location;
    location.options.bucket.endpoint = endpoint.scheme + endpoint.host;
    location.options.bucket.name = path.substr(0, slash);
    location.options.bucket.region = FirstOf(environment, {"AWS_REGION", "AWS_DEFAULT_REGION"}, "us-east-1");
    location.options.prefix = slash == std::string::npos ? "" : path.substr(slash + 1);
    location.options.http.caFile = environment("AWS_CA_BUNDLE");

    s3::SCredentials credentials;
    credentials.accessKeyId = Required(environment, "AWS_ACCESS_KEY_ID");
    credentials.secretAccessKey = Keep(Required(environment, "AWS_SECRET_ACCESS_KEY"));
    credentials.sessionToken = Keep(environment("AWS_SESSION_TOKEN"));
    location.credentials = std::make_shared<s3::CStaticCredentials>(std::move(credentials));
    return location;
}

}  // namespace clients
