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
/// They are kept and renewed five minutes before they expire, or when the store refuses them; for a refusal that does
/// not say whether it is for the credentials, once. While a renewal fails, those that still hold are used, and the
/// service is asked every 30 seconds. What may pass (the service does not answer, or is busy) is thrown as a CCloudExc
/// that says so, else exc::CRuntimeExc. Safe from any thread: while one asks, the others wait.
class CRoleCredentials : public ICredentials {
public:
    using clock_t = std::function<std::chrono::system_clock::time_point()>;

    /// `host` is "169.254.169.254" or the like, also with "http://" and a port. Without a role's name the service's
    /// first role is taken.
    CRoleCredentials(std::string host, std::string role, clock_t clock);

    [[nodiscard]] std::shared_ptr<const SCredentials> Get() override;
    [[nodiscard]] bool Refused(const SCredentials& credentials, ERefusal refusal) override;

private:
    void Renew();
    [[nodiscard]] bool AreGoodAt(std::chrono::system_clock::time_point time);
    [[nodiscard]] std::string AskToken();
    [[nodiscard]] std::string Ask(const std::string& path, const std::string& token);
    [[noreturn]] void Fail(const std::string& path, const http::SHttpResult& result) const;

    const std::string endpoint_;
    const std::string role_;
    const clock_t clock_;
    http::CHttpEngine engine_;

    std::mutex renewal_;                             // held while the service is asked; taken before mutex_
    std::chrono::system_clock::time_point nextTry_;  // guarded by renewal_
    std::mutex mutex_;  // never held for long: a refusal is told by the thread that moves all data
    std::shared_ptr<const SCredentials> current_;   // written under both, read under either
    std::chrono::system_clock::time_point expiry_;  // guarded by mutex_
    bool wasRefused_ = false;                       // guarded by mutex_
    bool wasDoubted_ = false;                       // guarded by mutex_; current_ was refused, and nothing told why
};

}  // namespace clients::s3
