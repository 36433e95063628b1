#include "clients/azure/AzureFailure.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "clients/azure/AzureDocuments.h"
#include "clients/http/ClockError.h"
#include "cloudclientlib/CloudExc.h"
#include "common/format.h"

namespace clients::azure {

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

constexpr std::array<SMeaning, 42> meanings = {{
    {"BlobNotFound", EFailure::notFound, false, ""},
    {"ContainerNotFound", EFailure::other, false, "make the container, or correct its name"},
    {"ContainerBeingDeleted", EFailure::conflict, true, "wait until the container is gone, and make it anew"},
    {"ContainerDisabled", EFailure::accessDenied, false, ""},
    {"AuthenticationFailed", EFailure::accessDenied, false,
     "check the account key or the shared access signature, and this machine's clock"},
    {"AuthorizationFailure", EFailure::accessDenied, false,
     "check the account key, the rights of the shared access signature, and the account's network rules"},
    {"AuthorizationPermissionMismatch", EFailure::accessDenied, false,
     "the shared access signature lacks a permission"},
    {"AuthorizationResourceTypeMismatch", EFailure::accessDenied, false,
     "the shared access signature does not hold for containers and objects"},
    {"AuthorizationServiceMismatch", EFailure::accessDenied, false,
     "the shared access signature does not hold for the Blob service"},
    {"AuthorizationProtocolMismatch", EFailure::accessDenied, false, "the shared access signature asks for https"},
    {"AuthorizationSourceIPMismatch", EFailure::accessDenied, false,
     "the shared access signature does not hold for this machine's address"},
    {"InsufficientAccountPermissions", EFailure::accessDenied, false, ""},
    {"KeyBasedAuthenticationNotPermitted", EFailure::accessDenied, false, "the account does not allow account keys"},
    {"InvalidAuthenticationInfo", EFailure::accessDenied, false, "check the connection string"},
    {"NoAuthenticationInformation", EFailure::accessDenied, false, "check the connection string"},
    {"PublicAccessNotPermitted", EFailure::accessDenied, false, "check the connection string"},
    {"AccountIsDisabled", EFailure::accessDenied, false, ""},
    {"AccountRequiresHttps", EFailure::accessDenied, false, "the endpoint must begin with 'https://'"},
    {"AccountBeingCreated", EFailure::transient, true, ""},
    {"BlobArchived", EFailure::conflict, false, "the object is archived: ask for its retrieval first"},
    {"BlobBeingRehydrated", EFailure::conflict, false, "the object is on its way back from the archive"},
    {"BlobImmutableDueToPolicy", EFailure::accessDenied, false, "a policy of the container keeps the object as it is"},
    {"InvalidBlobType", EFailure::conflict, false, "an object of another type is there"},
    {"InvalidBlobOrBlock", EFailure::conflict, false,
     "an unfinished upload of another program is there; delete the object first"},
    {"InvalidBlockList", EFailure::conflict, true, "another upload of the object came between"},
    {"SnapshotsPresent", EFailure::conflict, false, "the object has snapshots; delete them first"},
    {"LeaseIdMissing", EFailure::conflict, false, "somebody holds a lease on it"},
    {"ConditionNotMet", EFailure::conflict, false, ""},
    {"TargetConditionNotMet", EFailure::conflict, false, ""},
    {"PendingCopyOperation", EFailure::conflict, true, "the object is being copied onto"},
    {"InvalidResourceName", EFailure::other, false, "the service cannot hold this name"},
    {"InvalidUri", EFailure::other, false, "the service cannot hold this name"},
    {"OutOfRangeInput", EFailure::other, false, "the service cannot hold this name"},
    {"InvalidHeaderValue", EFailure::other, false, ""},
    {"RequestBodyTooLarge", EFailure::other, false, ""},
    {"ResourceNotFound", EFailure::other, false, "check the account's name and endpoint"},
    {"Md5Mismatch", EFailure::corrupt, true, "the bytes changed on their way"},
    {"Crc64Mismatch", EFailure::corrupt, true, "the bytes changed on their way"},
    {"ServerBusy", EFailure::transient, true, ""},
    {"OperationTimedOut", EFailure::transient, true, ""},
    {"InternalError", EFailure::transient, true, ""},
    {"IncompleteBody", EFailure::transient, true, ""},
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

/// The service says no more than that it could not authenticate; it takes requests that are up to 15 minutes off.
std::string AdviceOf(const SMeaning& meaning, const http::SHttpAnswer& answer) {
    const bool mayBeClock = meaning.code == "AuthenticationFailed";
    const std::string error = mayBeClock ? http::ClockError(answer, std::chrono::minutes(15)) : std::string();
    return error.empty() ? std::string(meaning.advice) : error + ": set it";
}

/// Of a failed request: what stands in the body, or, where there is none, in the headers.
SBatchAnswer Summary(const http::SHttpAnswer& answer) {
    SServiceError error = ReadError(answer.body).value_or(SServiceError{});
    if (error.code.empty()) {
        error.code = answer.Header("x-ms-error-code");
    }
    return {SBatchAnswer::noRequest, answer.status, std::move(error.code), std::move(error.message),
            answer.Header("x-ms-request-id")};
}

std::string Describe(const SBatchAnswer& answer, std::string_view advice) {
    std::string text = exc::Format("HTTP %1", answer.status);
    const auto append = [&text](std::string_view before, std::string_view part, std::string_view behind) {
        if (!part.empty()) {
            text += std::string(before) + std::string(part) + std::string(behind);
        }
    };
    append(" ", answer.code, "");
    append(": ", answer.message, "");
    append(" (", advice, ")");
    append(" [request ", answer.requestId, "]");
    return text;
}

}  // namespace

void ThrowFailure(const std::string& operation, const std::string& path, const http::SHttpResult& result) {
    if (result.failure) {
        throw CCloudExc({result.failure->retryable ? EFailure::transient : EFailure::other, result.failure->retryable,
                         operation, path, result.failure->text});
    }
    const SBatchAnswer answer = Summary(result.answer);
    const SMeaning meaning = MeaningOf(answer.status, answer.code);
    if (meaning.kind == EFailure::notFound) {
        throw cloudclientlib::CObjectNotFoundExc(operation, path);
    }
    throw CCloudExc({meaning.kind, meaning.retryable, operation, path,
                     Describe(answer, AdviceOf(meaning, result.answer)), result.answer.RetryAfter()});
}

void ThrowBatchFailure(const std::string& operation, const std::string& path, const SBatchAnswer& answer,
                       const std::string& what) {
    const SMeaning meaning = MeaningOf(answer.status, answer.code);
    throw CCloudExc({meaning.kind, meaning.retryable, operation, path, what + ": " + Describe(answer, meaning.advice)});
}

void CheckSuccess(const std::string& operation, const std::string& path, const http::SHttpResult& result) {
    if (result.failure || !result.answer.IsSuccess()) {
        ThrowFailure(operation, path, result);
    }
}

bool IsNotFound(const http::SHttpResult& result) {
    constexpr long notFound = 404;
    return !result.failure && result.answer.status == notFound &&
           MeaningOf(notFound, Summary(result.answer).code).kind == EFailure::notFound;
}

bool IsGone(const SBatchAnswer& answer) {
    constexpr long notFound = 404;
    return (answer.status >= 200 && answer.status < 300) ||
           (answer.status == notFound && MeaningOf(notFound, answer.code).kind == EFailure::notFound);
}

}  // namespace clients::azure
