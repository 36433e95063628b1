#include "clients/azure/AzureFailure.h"

#include <gtest/gtest.h>

#include "clients/azure/AzureConnection.h"
#include "clients/azure/AzureObjects.h"
#include "clients/http/HttpDate.h"
#include "cloudclientlib/CloudExc.h"

namespace clients::azure {
namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::CObjectNotFoundExc;
using cloudclientlib::EFailure;

http::SHttpResult Answer(long status, const std::string& code, const std::string& message = "") {
    http::SHttpResult result;
    result.answer.status = status;
    result.answer.headers["x-ms-request-id"] = "id-1";
    if (!code.empty()) {
        result.answer.body = "<Error><Code>" + code + "</Code><Message>" + message + "</Message></Error>";
    }
    return result;
}

CCloudExc FailureOf(const http::SHttpResult& result) {
    try {
        CheckSuccess("UploadFile", "a/b", result);
    } catch (const CCloudExc& failure) {
        return failure;
    }
    throw std::logic_error("no failure");
}

void ExpectKind(long status, const std::string& code, EFailure kind, bool retryable) {
    const CCloudExc failure = FailureOf(Answer(status, code));
    EXPECT_EQ(failure.GetKind(), kind) << status << code;
    EXPECT_EQ(failure.IsRetryable(), retryable) << status << code;
    EXPECT_EQ(failure.GetOperation(), "UploadFile");
    EXPECT_EQ(failure.GetPath(), "a/b");
}

TEST(AzureFailure, KnowsTheServicesCodes) {
    ExpectKind(404, "BlobNotFound", EFailure::notFound, false);
    ExpectKind(404, "ContainerNotFound", EFailure::other, false);
    ExpectKind(404, "ResourceNotFound", EFailure::other, false);
    ExpectKind(409, "ContainerBeingDeleted", EFailure::conflict, true);
    ExpectKind(403, "AuthenticationFailed", EFailure::accessDenied, false);
    ExpectKind(403, "AuthorizationFailure", EFailure::accessDenied, false);
    ExpectKind(403, "AuthorizationPermissionMismatch", EFailure::accessDenied, false);
    ExpectKind(400, "InvalidAuthenticationInfo", EFailure::accessDenied, false);
    ExpectKind(409, "PublicAccessNotPermitted", EFailure::accessDenied, false);
    ExpectKind(400, "AccountRequiresHttps", EFailure::accessDenied, false);
    ExpectKind(409, "BlobArchived", EFailure::conflict, false);
    ExpectKind(409, "BlobBeingRehydrated", EFailure::conflict, false);
    ExpectKind(409, "BlobImmutableDueToPolicy", EFailure::accessDenied, false);
    ExpectKind(400, "InvalidBlockList", EFailure::conflict, true);
    ExpectKind(409, "PendingCopyOperation", EFailure::conflict, true);
    ExpectKind(412, "ConditionNotMet", EFailure::conflict, false);
    ExpectKind(400, "Md5Mismatch", EFailure::corrupt, true);
    ExpectKind(503, "ServerBusy", EFailure::transient, true);
    ExpectKind(500, "OperationTimedOut", EFailure::transient, true);
    ExpectKind(400, "OutOfRangeInput", EFailure::other, false);
}

TEST(AzureFailure, GoesByTheStatusWhereTheCodeSaysNothing) {
    for (const char* code : {"", "NeverHeardOf"}) {
        ExpectKind(401, code, EFailure::accessDenied, false);
        ExpectKind(403, code, EFailure::accessDenied, false);
        ExpectKind(404, code, EFailure::notFound, false);
        ExpectKind(409, code, EFailure::conflict, false);
        ExpectKind(412, code, EFailure::conflict, false);
        ExpectKind(507, code, EFailure::quota, false);
        for (const long status : {408, 429, 500, 502, 503, 504}) {
            ExpectKind(status, code, EFailure::transient, true);
        }
        for (const long status : {100, 301, 304, 307, 400, 405, 411, 501}) {
            ExpectKind(status, code, EFailure::other, false);
        }
    }
}

TEST(AzureFailure, SaysAllThatIsKnown) {
    EXPECT_EQ(std::string(FailureOf(Answer(409, "BlobArchived", "Not permitted on an archived blob.\nTime:1")).what()),
              "UploadFile 'a/b': HTTP 409 BlobArchived: Not permitted on an archived blob. (the object is archived: "
              "ask for its retrieval first) [request id-1]");
    EXPECT_EQ(std::string(FailureOf(Answer(502, "")).what()), "UploadFile 'a/b': HTTP 502 [request id-1]");
    http::SHttpResult head = Answer(403, "");
    head.answer.headers["x-ms-error-code"] = "AuthenticationFailed";
    EXPECT_EQ(std::string(FailureOf(head).what()),
              "UploadFile 'a/b': HTTP 403 AuthenticationFailed (check the account key or the shared access signature, "
              "and this machine's clock) [request id-1]");
}

TEST(AzureFailure, AWrongClockIsToldWithItsError) {
    http::SHttpResult answer = Answer(403, "AuthenticationFailed", "No.");
    answer.answer.headers["date"] = "Sun, 06 Nov 1994 08:49:00 GMT";
    answer.answer.signedAt = http::ParseHttpDate("Sun, 06 Nov 1994 08:00:00 GMT");
    EXPECT_EQ(std::string(FailureOf(answer).what()),
              "UploadFile 'a/b': HTTP 403 AuthenticationFailed: No. (this machine's clock is 49 min behind the "
              "service's: set it) [request id-1]");
    answer.answer.signedAt = http::ParseHttpDate("Sun, 06 Nov 1994 08:49:10 GMT");
    EXPECT_NE(std::string(FailureOf(answer).what()).find("check the account key"), std::string::npos);
}

TEST(AzureFailure, AMissingObjectHasItsOwnClass) {
    EXPECT_THROW(CheckSuccess("GetFileSize", "a", Answer(404, "BlobNotFound")), CObjectNotFoundExc);
    EXPECT_TRUE(IsNotFound(Answer(404, "BlobNotFound")));
    EXPECT_TRUE(IsNotFound(Answer(404, "")));
    EXPECT_FALSE(IsNotFound(Answer(404, "ContainerNotFound")));
    EXPECT_FALSE(IsNotFound(Answer(409, "BlobNotFound")));
    EXPECT_FALSE(IsNotFound(Answer(200, "")));
    http::SHttpResult failed = Answer(404, "");
    failed.failure = std::make_shared<http::SHttpFailure>();
    EXPECT_FALSE(IsNotFound(failed));
}

TEST(AzureFailure, FailuresOfTheNetworkMayPass) {
    for (const bool retryable : {false, true}) {
        http::SHttpResult result;
        result.failure = std::make_shared<http::SHttpFailure>(http::SHttpFailure{"no way", retryable});
        const CCloudExc failure = FailureOf(result);
        EXPECT_EQ(failure.GetKind(), retryable ? EFailure::transient : EFailure::other);
        EXPECT_EQ(failure.IsRetryable(), retryable);
        EXPECT_EQ(std::string(failure.what()), "UploadFile 'a/b': no way");
    }
    EXPECT_NO_THROW(CheckSuccess("UploadFile", "a", Answer(201, "")));
}

TEST(AzureFailure, KnowsWhatIsGone) {
    EXPECT_TRUE(IsGone({0, 202, "", "", ""}));
    EXPECT_TRUE(IsGone({0, 404, "BlobNotFound", "", ""}));
    EXPECT_FALSE(IsGone({0, 404, "ContainerNotFound", "", ""}));
    EXPECT_FALSE(IsGone({0, 403, "AuthenticationFailed", "", ""}));
    try {
        ThrowBatchFailure("DeleteFolder", "f", {0, 409, "SnapshotsPresent", "Has some.", "7"}, "'x'");
    } catch (const CCloudExc& failure) {
        EXPECT_EQ(failure.GetKind(), EFailure::conflict);
        EXPECT_EQ(std::string(failure.what()),
                  "DeleteFolder 'f': 'x': HTTP 409 SnapshotsPresent: Has some. (the object has snapshots; delete them "
                  "first) [request 7]");
    }
}

std::string PlaceRefusal(const std::string& path) {
    try {
        const SPlace place("UploadFile", path, "");
        return place.name;
    } catch (const CCloudExc& failure) {
        EXPECT_EQ(failure.GetKind(), EFailure::other);
        EXPECT_EQ(failure.GetPath(), path);
        return failure.what();
    }
}

TEST(AzurePlace, RefusesNamesThatTheServiceWouldKeepAsOthers) {
    EXPECT_EQ(PlaceRefusal("/a//b c/"), "a/b c");
    EXPECT_EQ(PlaceRefusal("a\\b"), "UploadFile 'a\\b': the store takes a backslash in a name for a slash");
    EXPECT_EQ(PlaceRefusal("a\nb"), "UploadFile 'a\nb': the store cannot hold control characters in names");
    EXPECT_EQ(PlaceRefusal("a\xFF"), "UploadFile 'a\xFF': the store holds names in UTF-8 only");
    EXPECT_EQ(PlaceRefusal("cut \xC3"), "UploadFile 'cut \xC3': the store holds names in UTF-8 only");
    EXPECT_EQ(PlaceRefusal("  "), "UploadFile '  ': the store cannot list names of blanks");
    EXPECT_EQ(PlaceRefusal("a/ "), "a/ ");
}

TEST(AzurePlace, LiesBelowThePrefix) {
    EXPECT_EQ(SPlace("X", "a", "p/q").name, "p/q/a");
    EXPECT_EQ(SPlace("X", "a", "p/q").Prefix(), "p/q/a/");
    EXPECT_EQ(SPlace("X", "/", "p/q").name, "p/q");
    EXPECT_EQ(SPlace("X", "", "").Prefix(), "");
    EXPECT_TRUE(SPlace("X", "//", "p").isRoot);
    EXPECT_FALSE(SPlace("X", "a", "p").isRoot);
}

}  // namespace
}  // namespace clients::azure
