#pragma once

#include <memory>
#include <string>
#include <utility>

#include "common/crypto/sec_allocator.h"

namespace clients::s3 {

/// What requests are signed with. The secrets are erased when they are let go; what a request is made of
/// holds the token in plain, as it is sent.
struct SCredentials {
    std::string accessKeyId;
    /// A secret.
    crypto::sec_bytes_t secretAccessKey;
    /// A secret; empty for keys that do not expire.
    crypto::sec_bytes_t sessionToken;
};

/// What a service says when it refuses a request.
enum class ERefusal {
    ofCredentials,  ///< it does not know them, or they have expired
    untold,         ///< nothing (as to a HEAD request): also the rights may be missing
};

/// Where credentials come from. Safe from any thread.
class ICredentials {
public:
    virtual ~ICredentials() = default;
    /// Credentials that hold now; may ask a service. Throws exc::CExc when there are none.
    [[nodiscard]] virtual std::shared_ptr<const SCredentials> Get() = 0;
    /// The service refused a request for its credentials: others are wanted. Whether Get may give others from now on.
    [[nodiscard]] virtual bool Refused(const SCredentials& /*credentials*/, ERefusal /*refusal*/) { return false; }
};

/// The same credentials always.
class CStaticCredentials : public ICredentials {
public:
    explicit CStaticCredentials(SCredentials credentials)
        : credentials_(std::make_shared<const SCredentials>(std::move(credentials))) {}
    [[nodiscard]] std::shared_ptr<const SCredentials> Get() override { return credentials_; }

private:
    const std::shared_ptr<const SCredentials> credentials_;
};

}  // namespace clients::s3
