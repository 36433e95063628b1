#include "clients/s3/RoleCredentials.h"

#include <nlohmann/json.hpp>

#include "clients/http/Uri.h"
#include "clients/s3/S3Documents.h"
#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"
#include "common/logging.h"

namespace clients::s3 {

namespace {

constexpr auto renewBefore = std::chrono::minutes(5);
/// After a renewal that failed: every request would wait for a service that does not answer.
constexpr auto renewalPause = std::chrono::seconds(30);
constexpr const char* rolesPath = "/latest/meta-data/iam/security-credentials/";

/// The service is on the machine or beside it: it answers at once, or is not there.
http::SHttpOptions Options() {
    http::SHttpOptions options;
    options.connections = 1;
    options.connectTimeout = std::chrono::seconds(2);
    options.stallTimeout = std::chrono::seconds(5);
    return options;
}

std::string Text(const nlohmann::json& document, const char* name) {
    const auto found = document.find(name);
    return found != document.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/// Also the document's own copy is erased.
crypto::sec_bytes_t TakeSecret(nlohmann::json& document, const char* name) {
    const auto found = document.find(name);
    if (found == document.end() || !found->is_string()) {
        return {};
    }
    auto& text = found->get_ref<std::string&>();
    const crypto::erase_at_end_t erased(text);
    return {text.begin(), text.end()};
}

struct SRoleAnswer {
    SCredentials credentials;
    std::chrono::system_clock::time_point expiry;
};

/// What stands in the document is a secret, so that a failure does not tell it.
SRoleAnswer ReadAnswer(const std::string& text) {
    auto document = nlohmann::json::parse(text, nullptr, false);
    if (!document.is_object()) {
        throw exc::CRuntimeExc("the instance-metadata service's answer is no JSON object");
    }
    if (const std::string code = Text(document, "Code"); !code.empty() && code != "Success") {
        throw exc::CRuntimeExc("the instance-metadata service says '%1'", code);
    }
    SRoleAnswer answer;
    answer.credentials.accessKeyId = Text(document, "AccessKeyId");
    answer.credentials.secretAccessKey = TakeSecret(document, "SecretAccessKey");
    answer.credentials.sessionToken = TakeSecret(document, "Token");
    answer.expiry = ParseTime(Text(document, "Expiration"));
    if (answer.credentials.accessKeyId.empty() || answer.credentials.secretAccessKey.empty() ||
        answer.expiry == std::chrono::system_clock::time_point()) {
        throw exc::CRuntimeExc(
            "the instance-metadata service's answer lacks 'AccessKeyId', 'SecretAccessKey' or 'Expiration'");
    }
    return answer;
}

/// The service is busy, or in trouble of its own.
bool MayPass(long status) { return status == 429 || status >= 500; }

/// A secret that was replaced has another key id, or another token.
bool AreSame(const SCredentials& one, const SCredentials& other) {
    return one.accessKeyId == other.accessKeyId && one.sessionToken == other.sessionToken;
}

std::string FirstLine(const std::string& text) { return text.substr(0, text.find_first_of("\r\n")); }

}  // namespace

CRoleCredentials::CRoleCredentials(std::string host, std::string role, clock_t clock)
    : endpoint_(host.find("://") == std::string::npos ? "http://" + host : std::move(host)),
      role_(std::move(role)),
      clock_(std::move(clock)),
      engine_(Options()) {}

std::shared_ptr<const SCredentials> CRoleCredentials::Get() {
    const std::lock_guard renewal(renewal_);
    const auto now = clock_();
    if (AreGoodAt(now + renewBefore) || (now < nextTry_ && AreGoodAt(now))) {
        return current_;
    }
    try {
        Renew();
    } catch (const std::exception& failure) {
        if (!AreGoodAt(now)) {
            if (dynamic_cast<const cloudclientlib::CCloudExc*>(&failure) != nullptr) {
                throw;  // so that it is tried again
            }
            exc::RegenTraceExc(failure, "Cannot get the credentials of role '%1'", role_);
        }
        nextTry_ = now + renewalPause;
        logging::Library().Warn("The credentials of role '%1' cannot be renewed yet: %2", role_, failure.what());
    }
    return current_;
}

bool CRoleCredentials::AreGoodAt(std::chrono::system_clock::time_point time) {
    const std::lock_guard lock(mutex_);
    return current_ && !wasRefused_ && time < expiry_;
}

bool CRoleCredentials::Refused(const SCredentials& credentials, ERefusal refusal) {
    const std::lock_guard lock(mutex_);
    if (wasRefused_ || !current_ || !AreSame(credentials, *current_)) {
        return true;  // told late: a renewal is to come, or has been
    }
    if (refusal == ERefusal::untold && wasDoubted_) {
        return false;  // the service has been asked, and gave the same ones
    }
    wasDoubted_ = refusal == ERefusal::untold;
    wasRefused_ = true;
    return true;
}

void CRoleCredentials::Renew() {
    const std::string token = AskToken();
    const std::string role = role_.empty() ? FirstLine(Ask(rolesPath, token)) : role_;
    if (role.empty()) {
        throw exc::CRuntimeExc("the machine has no role");
    }
    std::string text = Ask(rolesPath + http::UriEncode(role, false), token);
    const crypto::erase_at_end_t erased(text);
    auto answer = ReadAnswer(text);
    const std::lock_guard lock(mutex_);
    wasDoubted_ = wasDoubted_ && AreSame(answer.credentials, *current_);
    current_ = std::make_shared<const SCredentials>(std::move(answer.credentials));
    expiry_ = answer.expiry;
    wasRefused_ = false;
}

std::string CRoleCredentials::AskToken() {
    http::SHttpRequest request;
    request.method = "PUT";
    const std::string path = "/latest/api/token";
    request.url = endpoint_ + path;
    request.headers = {{"x-aws-ec2-metadata-token-ttl-seconds", "21600"}};
    const auto result = engine_.Run(std::move(request));
    if (result.failure || MayPass(result.answer.status)) {
        Fail(path, result);
    }
    return result.answer.IsSuccess() ? FirstLine(result.answer.body) : std::string();  // else it knows no tokens
}

std::string CRoleCredentials::Ask(const std::string& path, const std::string& token) {
    http::SHttpRequest request;
    request.url = endpoint_ + path;
    request.maxAnswer = 64U << 10U;
    if (!token.empty()) {
        request.headers = {{"x-aws-ec2-metadata-token", token}};
    }
    auto result = engine_.Run(std::move(request));
    if (result.failure || !result.answer.IsSuccess()) {
        Fail(path, result);
    }
    return std::move(result.answer.body);
}

void CRoleCredentials::Fail(const std::string& path, const http::SHttpResult& result) const {
    const bool mayPass = result.failure ? result.failure->retryable : MayPass(result.answer.status);
    const std::string text =
        exc::Format("the instance-metadata service at %1 gives no '%2': %3", endpoint_, path,
                    result.failure ? result.failure->text : exc::Format("HTTP %1", result.answer.status));
    if (mayPass) {
        throw cloudclientlib::CCloudExc(
            {cloudclientlib::EFailure::transient, true, "GetCredentials", role_, text, result.answer.RetryAfter()});
    }
    throw exc::CRuntimeExc("%1", text);
}

}  // namespace clients::s3
