#include "clients/s3/S3Failure.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "clients/http/ClockError.h"
#include "clients/s3/S3Documents.h"
#include "cloudclientlib/CloudExc.h"
#include "common/format.h"

namespace clients::s3 {

namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::EFailure;

/// What a service's error code means.
struct SMeaning {
    std::string_view code;
    EFailure kind;
    bool retryable;
    std::string_view advice;
};

constexpr std::array<SMeaning, 24> meanings = {{
    {"NoSuchKey", EFailure::notFound, false, ""},
    {"NoSuchBucket", EFailure::other, false, "make the bucket, or correct its name"},
    {"AccessDenied", EFailure::accessDenied, false, "the key needs rights on this bucket"},
    {"InvalidAccessKeyId", EFailure::accessDenied, false, "the service does not know this access key"},
    {"SignatureDoesNotMatch", EFailure::accessDenied, false, "check the secret key"},
    {"ExpiredToken", EFailure::accessDenied, false, "the session token has expired"},
    {"InvalidToken", EFailure::accessDenied, false, "check the session token"},
    {"RequestTimeTooSkewed", EFailure::accessDenied, false, "set this machine's clock"},
    {"PermanentRedirect", EFailure::other, false, "the bucket lies in another region or at another endpoint"},
    {"AuthorizationHeaderMalformed", EFailure::other, false, "check the region"},
    {"InvalidRegion", EFailure::other, false, "check the region"},
    {"IllegalLocationConstraintException", EFailure::other, false, "check the region"},
    {"InvalidObjectState", EFailure::conflict, false, "the object is archived: ask for its retrieval first"},
    {"OperationAborted", EFailure::conflict, true, ""},
    {"PreconditionFailed", EFailure::conflict, false, ""},
    {"ConditionalRequestConflict", EFailure::conflict, true, ""},
    {"QuotaExceeded", EFailure::quota, false, ""},
    {"EntityTooLarge", EFailure::other, false, ""},
    {"BadDigest", EFailure::corrupt, true, "the bytes changed on their way"},
    {"XAmzContentSHA256Mismatch", EFailure::corrupt, true, "the bytes changed on their way"},
    {"SlowDown", EFailure::transient, true, ""},
    {"RequestTimeout", EFailure::transient, true, ""},
    {"InternalError", EFailure::transient, true, ""},
    {"ServiceUnavailable", EFailure::transient, true, ""},
}};

SMeaning ByStatus(long status) {
    switch (status) {
        case 401:
        case 403:
            return {"", EFailure::accessDenied, false, ""};
        case 404:
            return {"", EFailure::notFound, false, ""};
        case 409:
        case 412:
            return {"", EFailure::conflict, false, ""};
        case 507:
            return {"", EFailure::quota, false, ""};
        case 301:
        case 307:
            return {"", EFailure::other, false, "the bucket lies in another region or at another endpoint"};
        case 408:
        case 429:
        case 500:
        case 502:
        case 503:
        case 504:
            return {"", EFailure::transient, true, ""};
        default:
            return {"", EFailure::other, false, ""};
    }
}

SMeaning MeaningOf(long status, const std::string& code) {
    const auto* const found =
        std::find_if(meanings.begin(), meanings.end(), [&](const SMeaning& meaning) { return meaning.code == code; });
    return found == meanings.end() ? ByStatus(status) : *found;
}

std::string AdviceOf(const SMeaning& meaning, const http::SHttpAnswer& answer) {
    const bool isClock = meaning.code == "RequestTimeTooSkewed";
    const std::string error = isClock ? http::ClockError(answer, std::chrono::minutes(1)) : std::string();
    return error.empty() ? std::string(meaning.advice) : error + ": set it";
}

std::string Describe(long status, const SServiceError& error, std::string_view advice) {
    std::string text = exc::Format("HTTP %1", status);
    const auto append = [&text](std::string_view before, std::string_view part, std::string_view behind) {
        if (!part.empty()) {
            text += std::string(before) + std::string(part) + std::string(behind);
        }
    };
    append(" ", error.code, "");
    append(": ", error.message, "");
    append(", region ", error.region, "");
    append(" (", advice, ")");
    append(" [request ", error.requestId, "]");
    return text;
}

}  // namespace

void ThrowFailure(const std::string& operation, const std::string& path, const http::SHttpResult& result) {
    if (result.failure) {
        throw CCloudExc({result.failure->retryable ? EFailure::transient : EFailure::other, result.failure->retryable,
                         operation, path, result.failure->text});
    }
    const http::SHttpAnswer& answer = result.answer;
    SServiceError error = ReadError(answer.body).value_or(SServiceError{});
    if (error.requestId.empty()) {
        error.requestId = answer.Header("x-amz-request-id");
    }
    if (error.region.empty()) {
        error.region = answer.Header("x-amz-bucket-region");
    }
    const SMeaning meaning = MeaningOf(answer.status, error.code);
    if (meaning.kind == EFailure::notFound) {
        throw cloudclientlib::CObjectNotFoundExc(operation, path);
    }
    throw CCloudExc({meaning.kind, meaning.retryable || answer.otherCredentials, operation, path,
                     Describe(answer.status, error, AdviceOf(meaning, answer)), answer.RetryAfter()});
}

void CheckSuccess(const std::string& operation, const std::string& path, const http::SHttpResult& result) {
    if (result.failure || !result.answer.IsSuccess()) {
        ThrowFailure(operation, path, result);
    }
}

}  // namespace clients::s3
