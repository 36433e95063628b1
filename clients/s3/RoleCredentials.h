#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "clients/http/HttpEngine.h"
#include "clients/s3/Credentials.h"

namespace clients::s3 {

/// Credentials that a cloud machine gets for its role from the instance-metadata service (docs.aws.amazon.com,
/// "Retrieve security credentials from instance metadata"): by a session token (version 2), or plainly when the service
/// knows no tokens.
///
/// They are kept and renewed five minutes before they expire. While a renewal fails, those that still hold are used.
/// Safe from any thread: while one asks, the others wait.
class CRoleCredentials : public ICredentials {
public:
    using clock_t = std::function<std::chrono::system_clock::time_point()>;

    /// `host` is "169.254.169.254" or the like, also with "http://" and a port. Without a role's name the service's
    /// first role is taken.
    CRoleCredentials(std::string host, std::string role, clock_t clock);

    [[nodiscard]] std::shared_ptr<const SCredentials> Get() override;
    void Refused(const SCredentials& credentials) override;

private:
    void Renew();
    [[nodiscard]] std::string AskToken();
    [[nodiscard]] std::string Ask(const std::string& path, const std::string& token);

    const std::string endpoint_;
    const std::string role_;
    const clock_t clock_;
    http::CHttpEngine engine_;

    std::mutex mutex_;
    std::shared_ptr<const SCredentials> current_;   // guarded by mutex_
    std::chrono::system_clock::time_point expiry_;  // guarded by mutex_
    bool wasRefused_ = false;                       // guarded by mutex_
};

}  // namespace clients::s3
