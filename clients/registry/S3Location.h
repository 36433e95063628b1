#pragma once

#include <memory>
#include <string>

#include "clients/registry/Environment.h"
#include "clients/s3/S3Client.h"

namespace clients {

/// What "s3:ADDRESS" and the environment say of a bucket.
struct SS3Location {
    SS3ClientOptions options;
    std::shared_ptr<s3::ICredentials> credentials;
};

/// Reads "https://host[:port]/bucket[/folder...]" and AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY, AWS_SESSION_TOKEN,
/// AWS_REGION (or AWS_DEFAULT_REGION; us-east-1 without either) and AWS_CA_BUNDLE. Throws CCloudExc of operation
/// "OpenLocation" that names what is missing.
[[nodiscard]] SS3Location ReadS3Location(const std::string& address, const environment_t& environment);

}  // namespace clients
