#pragma once

#include <string>

#include "common/export.h"
#include "common/optional.h"

/// How an S3 store is reached. Plain values.
namespace cloudclientlib::s3 {

/// The proxy in front of a store.
struct CB_EXPORT SS3ProxyConfig {
    std::string endpoint;
    /// Empty for a proxy that asks for no name.
    std::string userName;
    /// A secret.
    std::string password;

    bool operator==(const SS3ProxyConfig&) const = default;
};

struct CB_EXPORT SS3BucketAddr {
    std::string apiEndpoint;
    std::string region;
    std::string bucketName;
    COptionalParameter<SS3ProxyConfig> proxy;

    bool operator==(const SS3BucketAddr&) const = default;
};

struct CB_EXPORT SS3CredentialsKeys {
    std::string accessKeyId;
    /// A secret.
    std::string secretAccessKey;
    /// A secret; empty for keys that do not expire.
    std::string sessionToken;

    bool operator==(const SS3CredentialsKeys&) const = default;
};

/// Credentials that the cloud hands to a machine by its role.
struct CB_EXPORT SS3RoleAuth {
    std::string roleName;
    /// The address of the endpoint that gives the role's credentials.
    std::string metadataHost;

    bool operator==(const SS3RoleAuth&) const = default;
};

struct CB_EXPORT SS3Options {
    bool useIAStorageClassForBlockObjects = false;
    bool useVirtualHostedStyle = false;

    bool operator==(const SS3Options&) const = default;
};

}  // namespace cloudclientlib::s3
