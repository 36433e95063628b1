#include "clients/s3/RoleCredentials.h"

#include <nlohmann/json.hpp>

#include "clients/http/Uri.h"
#include "clients/s3/S3Documents.h"
#include "common/exc.h"
#include "common/logging.h"

namespace clients::s3 {

namespace {

constexpr auto renewBefore = std::chrono::minutes(5);
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

struct SRoleAnswer {
    SCredentials credentials;
    std::chrono::system_clock::time_point expiry;
};

/// What stands in the document is a secret, so that a failure does not tell it.
SRoleAnswer ReadAnswer(const std::string& text) {
    const auto document = nlohmann::json::parse(text, nullptr, false);
    if (!document.is_object()) {
        throw exc::CRuntimeExc("the instance-metadata service's answer is no JSON object");
    }
    if (const std::string code = Text(document, "Code"); !code.empty() && code != "Success") {
        throw exc::CRuntimeExc("the instance-metadata service says '%1'", code);
    }
    SRoleAnswer answer;
    answer.credentials.accessKeyId = Text(document, "AccessKeyId");
    const std::string secret = Text(document, "SecretAccessKey");
    answer.credentials.secretAccessKey.assign(secret.begin(), secret.end());
    answer.credentials.sessionToken = Text(document, "Token");
    answer.expiry = ParseTime(Text(document, "Expiration"));
    if (answer.credentials.accessKeyId.empty() || secret.empty() ||
        answer.expiry == std::chrono::system_clock::time_point()) {
        throw exc::CRuntimeExc(
            "the instance-metadata service's answer lacks 'AccessKeyId', 'SecretAccessKey' or 'Expiration'");
    }
    return answer;
}

std::string FirstLine(const std::string& text) { return text.substr(0, text.find_first_of("\r\n")); }

}  // namespace

CRoleCredentials::CRoleCredentials(std::string host, std::string role, clock_t clock)
    : endpoint_(host.find("://") == std::string::npos ? "http://" + host : std::move(host)),
      role_(std::move(role)),
      clock_(std::move(clock)),
      engine_(Options()) {}

std::shared_ptr<const SCredentials> CRoleCredentials::Get() {
    const std::lock_guard lock(mutex_);
    const auto now = clock_();
    if (current_ && !wasRefused_ && now < expiry_ - renewBefore) {
        return current_;
    }
    try {
        Renew();
    } catch (const std::exception& failure) {
        if (!current_ || wasRefused_ || now >= expiry_) {
            exc::RegenTraceExc(failure, "Cannot get the credentials of role '%1'", role_);
        }
        logging::Library().Warn("The credentials of role '%1' cannot be renewed yet: %2", role_, failure.what());
    }
    return current_;
}

void CRoleCredentials::Refused(const SCredentials& credentials) {
    const std::lock_guard lock(mutex_);
    wasRefused_ = wasRefused_ || (current_ && credentials.accessKeyId == current_->accessKeyId &&
                                  credentials.sessionToken == current_->sessionToken);
}

void CRoleCredentials::Renew() {
    const std::string token = AskToken();
    const std::string role = role_.empty() ? FirstLine(Ask(rolesPath, token)) : role_;
    if (role.empty()) {
        throw exc::CRuntimeExc("the machine has no role");
    }
    auto answer = ReadAnswer(Ask(rolesPath + http::UriEncode(role, false), token));
    current_ = std::make_shared<const SCredentials>(std::move(answer.credentials));
    expiry_ = answer.expiry;
    wasRefused_ = false;
}

std::string CRoleCredentials::AskToken() {
    http::SHttpRequest request;
    request.method = "PUT";
    request.url = endpoint_ + "/latest/api/token";
    request.headers = {{"x-aws-ec2-metadata-token-ttl-seconds", "21600"}};
    const auto result = engine_.Run(std::move(request));
    if (result.failure) {
        throw exc::CRuntimeExc("the instance-metadata service at %1 does not answer: %2", endpoint_,
                               result.failure->text);
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
    const auto result = engine_.Run(std::move(request));
    if (result.failure || !result.answer.IsSuccess()) {
        throw exc::CRuntimeExc("the instance-metadata service at %1 gives no '%2': %3", endpoint_, path,
                               result.failure ? result.failure->text : exc::Format("HTTP %1", result.answer.status));
    }
    return result.answer.body;
}

}  // namespace clients::s3
