// What the client sends, and what it makes of answers that no real store gives at wish.

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <memory>

#include "clients/http/FakeServer.h"
#include "clients/http/HttpDate.h"
#include "clients/s3/S3Store.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/RetryClient.h"
#include "common/digest.h"
#include "tests/support/RecordingSink.h"

namespace clients {
namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::EArchiveRetrievalStatus;
using cloudclientlib::EFailure;
using http::CFakeServer;
using http::SFakeAnswer;
using http::SFakeRequest;

constexpr const char* secret = "the-secret-access-key";
constexpr const char* sessionToken = "the-session-token";

std::string ErrorBody(const std::string& code) {
    return "<Error><Code>" + code + "</Code><Message>what happened</Message><RequestId>r-1</RequestId></Error>";
}

SFakeAnswer Failed(int status, const std::string& code) { return {status, {}, ErrorBody(code)}; }

/// Takes note of what was refused.
class CCredentials : public s3::CStaticCredentials {
public:
    using CStaticCredentials::CStaticCredentials;
    [[nodiscard]] bool Refused(const s3::SCredentials& /*credentials*/, s3::ERefusal refusal) override {
        ++(refusal == s3::ERefusal::ofCredentials ? refused : untold);
        return hasOthers;
    }
    std::atomic<unsigned> refused = 0;
    std::atomic<unsigned> untold = 0;
    std::atomic<bool> hasOthers = false;
};

/// A store that answers with what stands next in `answers`, and at the end with an empty success.
class S3Wire : public testing::Test {
protected:
    SFakeAnswer Answer(const SFakeRequest& request) {
        requests.push_back(request);
        if (answers.empty()) {
            return {};
        }
        SFakeAnswer answer = answers.front();
        answers.pop_front();
        return answer;
    }

    SS3ClientOptions Options() {
        SS3ClientOptions options;
        options.bucket = {server.GetEndpoint(), "eu-1", "bucket", false};
        options.http.stallTimeout = std::chrono::seconds(1);
        return options;
    }

    std::shared_ptr<CS3Client> Make(SS3ClientOptions options) {
        return std::make_shared<CS3Client>(std::move(options), credentials);
    }
    std::shared_ptr<CS3Client> Make() { return Make(Options()); }

    CCloudExc Download(const std::string& path = "a/b") {
        try {
            Make()->DownloadFileAsync(path, buffer)->Wait();
        } catch (const CCloudExc& failure) {
            return failure;
        }
        ADD_FAILURE() << "no failure";
        return CCloudExc({EFailure::other, false, "", "", ""});
    }

    std::deque<SFakeAnswer> answers;
    std::vector<SFakeRequest> requests;
    std::shared_ptr<cnt::array_t<char>> buffer = std::make_shared<cnt::array_t<char>>();
    std::shared_ptr<CCredentials> credentials = std::make_shared<CCredentials>(s3::SCredentials{
        "KEY", {secret, secret + std::strlen(secret)}, {sessionToken, sessionToken + std::strlen(sessionToken)}});
    CFakeServer server{[this](const SFakeRequest& request) { return Answer(request); }};
};

TEST_F(S3Wire, RequestsAreSignedAndCarryTheToken) {
    Make()->DownloadFileAsync("a b/c+d", buffer)->Wait();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].target, "/bucket/a%20b/c%2Bd");
    EXPECT_EQ(requests[0].headers["x-amz-security-token"], sessionToken);
    EXPECT_EQ(requests[0].headers["x-amz-content-sha256"], digest::Sha256({}).ToAStr());
    EXPECT_TRUE(requests[0].headers["authorization"].starts_with("AWS4-HMAC-SHA256 Credential=KEY/"));
    EXPECT_NE(requests[0].headers["authorization"].find("/eu-1/s3/aws4_request"), std::string::npos);
}

TEST_F(S3Wire, VirtualHostedBucketsStandInTheHostsName) {
    auto options = Options();
    const std::string host = "localhost" + server.GetHost().substr(server.GetHost().find(':'));
    options.bucket.endpoint = "http://" + host;
    options.bucket.virtualHosted = true;
    Make(options)->DownloadFileAsync("a/b", buffer)->Wait();
    EXPECT_EQ(requests.at(0).target, "/a/b");
    EXPECT_EQ(requests.at(0).headers["host"], "bucket." + host);
}

TEST_F(S3Wire, UploadsCarryTheirDigests) {
    const std::string text = "content";
    Make()->UploadFileAsync("a", std::make_shared<cnt::array_t<char>>(text.begin(), text.end()))->Wait();
    EXPECT_EQ(requests.at(0).method, "PUT");
    EXPECT_EQ(requests.at(0).body, text);
    EXPECT_EQ(requests.at(0).headers["content-md5"], "mgNkuembtIDdJeHwKEyFVQ==");
    EXPECT_EQ(requests.at(0).headers["x-amz-content-sha256"], digest::Sha256(text).ToAStr());
    EXPECT_FALSE(requests.at(0).headers.contains("x-amz-storage-class"));
}

TEST_F(S3Wire, InfrequentAccessIsAskedForWhereItIsWanted) {
    auto options = Options();
    options.isInfrequentlyAccessed = [](const std::string& path) { return path.starts_with("blocks/"); };
    const auto client = Make(options);
    const auto data = std::make_shared<cnt::array_t<char>>(1, 'x');
    client->UploadFileAsync("blocks/1", data)->Wait();
    client->UploadFileAsync("other", data)->Wait();
    EXPECT_EQ(requests.at(0).headers["x-amz-storage-class"], "STANDARD_IA");
    EXPECT_FALSE(requests.at(1).headers.contains("x-amz-storage-class"));
}

TEST_F(S3Wire, AFailureTellsAllThatIsKnown) {
    answers = {Failed(403, "AccessDenied")};
    const auto failure = Download();
    EXPECT_EQ(failure.GetMessage(),
              "DownloadFile 'a/b': HTTP 403 AccessDenied: what happened (the key needs rights on this bucket) "
              "[request r-1]");
    EXPECT_EQ(failure.GetKind(), EFailure::accessDenied);
    EXPECT_FALSE(failure.IsRetryable());
}

TEST_F(S3Wire, TheRegionIsToldWhereTheServiceKnowsIt) {
    answers = {{301, {{"x-amz-bucket-region", "us-2"}, {"x-amz-request-id", "r-2"}}, ""}};
    EXPECT_EQ(Download().GetMessage(),
              "DownloadFile 'a/b': HTTP 301, region us-2 (the bucket lies in another region or at another endpoint) "
              "[request r-2]");
}

struct SMeaning {
    int status;
    const char* code;
    EFailure kind;
    bool retryable;
    const char* advice;
};

TEST_F(S3Wire, FailuresMeanWhatTheyMean) {
    const std::vector<SMeaning> meanings{
        {404, "NoSuchKey", EFailure::notFound, false, ""},
        {404, "NoSuchBucket", EFailure::other, false, "make the bucket, or correct its name"},
        {403, "InvalidAccessKeyId", EFailure::accessDenied, false, "the service does not know this access key"},
        {403, "SignatureDoesNotMatch", EFailure::accessDenied, false, "check the secret key"},
        {403, "RequestTimeTooSkewed", EFailure::accessDenied, false, "set this machine's clock"},
        {400, "ExpiredToken", EFailure::accessDenied, false, "the session token has expired"},
        {400, "AuthorizationHeaderMalformed", EFailure::other, false, "check the region"},
        {403, "InvalidObjectState", EFailure::conflict, false, "the object is archived: ask for its retrieval first"},
        {400, "BadDigest", EFailure::corrupt, true, "the bytes changed on their way"},
        {503, "SlowDown", EFailure::transient, true, ""},
        {500, "InternalError", EFailure::transient, true, ""},
        {409, "OperationAborted", EFailure::conflict, true, ""},
        {403, "QuotaExceeded", EFailure::quota, false, ""},
        {500, "SomethingNew", EFailure::transient, true, ""},
        {502, "", EFailure::transient, true, ""},
        {429, "", EFailure::transient, true, ""},
        {400, "SomethingNew", EFailure::other, false, ""},
        {401, "", EFailure::accessDenied, false, ""},
    };
    for (const auto& meaning : meanings) {
        answers = {Failed(meaning.status, meaning.code)};
        const auto failure = Download();
        const std::string text = failure.GetMessage();
        EXPECT_EQ(failure.GetKind(), meaning.kind) << text;
        EXPECT_EQ(failure.IsRetryable(), meaning.retryable) << text;
        EXPECT_NE(text.find(*meaning.advice == '\0' ? "" : "(" + std::string(meaning.advice) + ")"), std::string::npos)
            << text;
    }
}

TEST_F(S3Wire, TheWaitThatTheServiceAsksForIsTold) {
    answers = {{503, {{"Retry-After", "7"}}, ErrorBody("SlowDown")}};
    EXPECT_EQ(Download().GetRetryAfter(), std::chrono::seconds(7));
}

TEST_F(S3Wire, ADeadConnectionIsATransientFailure) {
    SFakeAnswer reset;
    reset.reset = true;
    SFakeAnswer cut{200, {}, "half"};
    cut.claimedLength = 8;
    cut.close = true;
    SFakeAnswer stalled;
    stalled.stall = true;
    for (const auto& answer : {reset, cut, stalled}) {
        static_cast<void>(server.GetRequests());  // a reset orders nothing between threads: this does
        answers = {answer, answer};               // libcurl itself tries once more on a connection that it had kept
        const auto failure = Download();
        EXPECT_EQ(failure.GetKind(), EFailure::transient) << failure.what();
        EXPECT_TRUE(failure.IsRetryable()) << failure.what();
    }
}

TEST_F(S3Wire, ADownloadThatIsNotWhatWasRecordedIsNoticed) {
    const SFakeAnswer damaged{200, {{"ETag", "\"9a0364b9e99bb480dd25e1f0284c8555\""}}, "contemt"};
    answers = {damaged};
    const auto failure = Download();
    EXPECT_EQ(failure.GetMessage(),
              "DownloadFile 'a/b': the bytes that came do not have the MD5 that the service recorded");
    EXPECT_EQ(failure.GetKind(), EFailure::corrupt);
    EXPECT_TRUE(failure.IsRetryable());

    SFakeAnswer whole = damaged;
    whole.body = "content";
    SFakeAnswer ofParts{200, {{"ETag", "\"9a0364b9e99bb480dd25e1f0284c8555-2\""}}, "other"};
    SFakeAnswer encrypted = damaged;
    encrypted.headers.emplace_back("x-amz-server-side-encryption", "aws:kms");
    for (const auto& answer : {whole, ofParts, encrypted}) {
        answers = {answer};
        Make()->DownloadFileAsync("a", buffer)->Wait();
        EXPECT_EQ(std::string(buffer->begin(), buffer->end()), answer.body);
    }
}

TEST_F(S3Wire, RefusedCredentialsAreRetriedWhereThereAreOthers) {
    credentials->hasOthers = true;
    unsigned refused = 0;
    for (const auto& [status, code] : std::vector<std::pair<int, std::string>>{{400, "ExpiredToken"},
                                                                               {403, "ExpiredToken"},
                                                                               {403, "InvalidAccessKeyId"},
                                                                               {400, "InvalidToken"},
                                                                               {403, "InvalidClientTokenId"},
                                                                               {400, "TokenRefreshRequired"}}) {
        answers = {Failed(status, code), {200, {}, "data"}};
        cloudclientlib::CRetryClient client(Make());
        client.DownloadFileAsync("a", buffer)->Wait();
        EXPECT_EQ(std::string(buffer->begin(), buffer->end()), "data") << code;
        EXPECT_EQ(credentials->refused, ++refused) << code;
    }
    EXPECT_EQ(credentials->untold, 0U);
}

TEST_F(S3Wire, RefusedCredentialsFailWhereThereAreNoOthers) {
    answers = {Failed(403, "InvalidAccessKeyId")};
    EXPECT_FALSE(Download().IsRetryable());
    EXPECT_EQ(credentials->refused, 1U);
    EXPECT_EQ(requests.size(), 1U);
}

TEST_F(S3Wire, ARefusalWithoutACodeMayBeOfTheCredentials) {
    credentials->hasOthers = true;
    answers = {{403, {}, ""}, {200, {{"Content-Length", "0"}}, ""}};
    cloudclientlib::CRetryClient client(Make());
    EXPECT_TRUE(client.IsFileExist("a"));
    EXPECT_EQ(credentials->untold, 1U);
    EXPECT_EQ(credentials->refused, 0U);
}

TEST_F(S3Wire, OtherRefusalsAreNotOfTheCredentials) {
    credentials->hasOthers = true;
    for (const char* code : {"AccessDenied", "SignatureDoesNotMatch", "RequestTimeTooSkewed"}) {
        answers = {Failed(403, code)};
        EXPECT_FALSE(Download().IsRetryable()) << code;
    }
    EXPECT_EQ(credentials->refused + credentials->untold, 0U);
}

TEST_F(S3Wire, AWrongClockIsToldWithItsError) {
    auto options = Options();
    options.clock = [] { return http::ParseHttpDate("Sun, 06 Nov 1994 11:54:00 GMT"); };
    answers = {{403, {{"Date", "Sun, 06 Nov 1994 08:49:00 GMT"}}, ErrorBody("RequestTimeTooSkewed")}};
    try {
        Make(options)->DownloadFileAsync("a/b", buffer)->Wait();
        ADD_FAILURE() << "no failure";
    } catch (const CCloudExc& failure) {
        EXPECT_EQ(failure.GetMessage(),
                  "DownloadFile 'a/b': HTTP 403 RequestTimeTooSkewed: what happened (this machine's clock is 3 h 5 min "
                  "ahead of the service's: set it) [request r-1]");
    }
}

TEST_F(S3Wire, AFailedUploadInPartsIsAborted) {
    auto options = Options();
    options.sizes.threshold = 10;
    options.sizes.part = 10;
    answers = {{200, {}, "<InitiateMultipartUploadResult><UploadId>u-1</UploadId></InitiateMultipartUploadResult>"},
               {200, {{"ETag", "\"1\""}}, ""},
               Failed(403, "AccessDenied"),
               {204, {}, ""}};
    options.http.connections = 1;
    const auto client = Make(options);
    EXPECT_THROW(client->UploadFileAsync("a", std::make_shared<cnt::array_t<char>>(20, 'x'))->Wait(), CCloudExc);
    EXPECT_EQ(requests.back().method, "DELETE");
    EXPECT_EQ(requests.back().target, "/bucket/a?uploadId=u-1");
}

TEST_F(S3Wire, ACompletionThatFailsInASuccessIsAFailure) {
    auto options = Options();
    options.sizes.threshold = 10;
    options.sizes.part = 20;
    answers = {{200, {}, "<InitiateMultipartUploadResult><UploadId>u-1</UploadId></InitiateMultipartUploadResult>"},
               {200, {{"ETag", "\"1\""}}, ""},
               {200, {{"ETag", "\"2\""}}, ""},
               {200, {}, ErrorBody("InternalError")}};
    const auto client = Make(options);
    EXPECT_THROW(client->UploadFileAsync("a", std::make_shared<cnt::array_t<char>>(30, 'x'))->Wait(), CCloudExc);
    EXPECT_EQ(requests.back().method, "DELETE");
}

TEST_F(S3Wire, LargeObjectsAreCopiedInParts) {
    auto options = Options();
    options.sizes.largestCopy = 15;
    answers = {{200, {{"ETag", "\"e\""}}, std::string(20, 'x')},  // the source's size
               {200, {}, "<InitiateMultipartUploadResult><UploadId>u-1</UploadId></InitiateMultipartUploadResult>"},
               {200, {}, "<CopyPartResult><ETag>\"1\"</ETag></CopyPartResult>"},
               {200, {}, "<CopyPartResult><ETag>\"2\"</ETag></CopyPartResult>"},
               {200, {}, "<CompleteMultipartUploadResult/>"}};
    options.http.connections = 1;
    Make(options)->CopyFileAsync("from", "to")->Wait();
    ASSERT_EQ(requests.size(), 5U);
    EXPECT_EQ(requests[2].headers["x-amz-copy-source"], "/bucket/from");
    EXPECT_EQ(requests[2].headers["x-amz-copy-source-range"], "bytes=0-14");
    EXPECT_EQ(requests[3].headers["x-amz-copy-source-range"], "bytes=15-19");
    EXPECT_NE(requests[4].body.find("<ETag>&quot;2&quot;</ETag>"), std::string::npos) << requests[4].body;
}

TEST_F(S3Wire, MalformedListingsAreFailuresThatMayPass) {
    for (const char* text :
         {"", "no xml", "<Other/>", "<ListBucketResult><Contents><Key>a</Key></Contents></ListBucketResult>",
          "<ListBucketResult><Contents><Key>a</Key><Size>-1</Size></Contents></ListBucketResult>"}) {
        answers = {{200, {}, text}};
        try {
            static_cast<void>(Make()->QueryFolder("a"));
            ADD_FAILURE() << text;
        } catch (const CCloudExc& failure) {
            EXPECT_EQ(failure.GetMessage(), "QueryFolder 'a': the service's answer is malformed") << text;
            EXPECT_EQ(failure.GetKind(), EFailure::corrupt);
            EXPECT_TRUE(failure.IsRetryable());
        }
    }
}

TEST_F(S3Wire, AListingThatDoesNotGetAheadEnds) {
    const SFakeAnswer page{200,
                           {},
                           "<ListBucketResult><IsTruncated>true</IsTruncated>"
                           "<NextContinuationToken>same</NextContinuationToken></ListBucketResult>"};
    answers = {page, page, page};
    EXPECT_THROW(static_cast<void>(Make()->QueryFolder("a")), CCloudExc);
    EXPECT_EQ(requests.size(), 2U);
}

TEST_F(S3Wire, TheArchiveIsAskedAndTold) {
    const auto head = [](const std::string& storageClass, const std::string& restore) {
        SFakeAnswer answer{200, {{"x-amz-storage-class", storageClass}}, "x"};
        if (!restore.empty()) {
            answer.headers.emplace_back("x-amz-restore", restore);
        }
        return answer;
    };
    const auto client = Make();
    const auto status = [&](const SFakeAnswer& answer) {
        answers = {answer};
        return client->GetArchiveRetrievalStatus("a");
    };
    EXPECT_EQ(status(head("STANDARD", "")), EArchiveRetrievalStatus::online);
    EXPECT_EQ(status(head("GLACIER", "")), EArchiveRetrievalStatus::archived);
    EXPECT_EQ(status(head("DEEP_ARCHIVE", "ongoing-request=\"true\"")), EArchiveRetrievalStatus::inProgress);
    EXPECT_EQ(status(head("GLACIER", "ongoing-request=\"false\", expiry-date=\"Fri, 21 Dec 2012 00:00:00 GMT\"")),
              EArchiveRetrievalStatus::retrieved);

    cloudclientlib::SRetrieveArchiveOptions options;
    options.days = 3;
    options.speed = cloudclientlib::SRetrieveArchiveOptions::ESpeed::bulk;
    answers = {head("GLACIER", ""), {202, {}, ""}};
    client->RetrieveArchive("a", options);
    EXPECT_EQ(requests.back().target, "/bucket/a?restore=");
    EXPECT_NE(requests.back().body.find("<Days>3</Days>"), std::string::npos);
    EXPECT_NE(requests.back().body.find("<Tier>Bulk</Tier>"), std::string::npos);
    answers = {head("GLACIER", ""), Failed(409, "RestoreAlreadyInProgress")};
    client->RetrieveArchive("a", options);
    answers = {head("GLACIER", ""), Failed(501, "NotImplemented")};
    EXPECT_THROW(client->RetrieveArchive("a", options), CCloudExc);
}

TEST_F(S3Wire, SecretsStandInNoFailureAndNoLog) {
    const test::RecordingSink sink;
    std::string texts;
    for (const char* code : {"AccessDenied", "SignatureDoesNotMatch", "ExpiredToken", "SlowDown"}) {
        answers = {Failed(403, code)};
        texts += Download().what();
    }
    for (const auto& entry : sink.GetEntries()) {
        texts += entry.text;
    }
    EXPECT_EQ(texts.find(secret), std::string::npos);
    EXPECT_EQ(texts.find(sessionToken), std::string::npos);
}

std::string OpenFailure(const SS3ClientOptions& options, const std::shared_ptr<s3::ICredentials>& credentials,
                        bool make = false) {
    try {
        static_cast<void>(OpenS3Bucket(options, credentials, make));
    } catch (const CCloudExc& failure) {
        return failure.GetMessage();
    }
    return "opened";
}

TEST_F(S3Wire, OpeningAsksOnce) {
    EXPECT_EQ(OpenFailure(Options(), credentials), "opened");
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].target, "/bucket?list-type=2&max-keys=1");
}

TEST_F(S3Wire, OpeningAMissingBucketFailsOrMakesIt) {
    answers = {Failed(404, "NoSuchBucket")};
    EXPECT_EQ(OpenFailure(Options(), credentials),
              "OpenBucket 'bucket': HTTP 404 NoSuchBucket: what happened (make the bucket, or correct its name) "
              "[request r-1]");
    answers = {Failed(404, "NoSuchBucket"), {}};
    EXPECT_EQ(OpenFailure(Options(), credentials, true), "opened");
    EXPECT_EQ(requests.back().method, "PUT");
    EXPECT_EQ(requests.back().target, "/bucket");
    EXPECT_EQ(requests.back().body,
              "<CreateBucketConfiguration><LocationConstraint>eu-1</LocationConstraint></CreateBucketConfiguration>");
    answers = {Failed(404, "NoSuchBucket"), Failed(409, "BucketAlreadyOwnedByYou")};
    EXPECT_EQ(OpenFailure(Options(), credentials, true), "opened");
    answers = {Failed(403, "AccessDenied")};
    EXPECT_NE(OpenFailure(Options(), credentials, true), "opened");
}

TEST_F(S3Wire, EndpointsThatAreNoneAreRefused) {
    for (const char* endpoint : {"", "example.org", "ftp://example.org", "https://", "https://h/path",
                                 "https://user:word@h", "https://h?x", "https://h#x"}) {
        auto options = Options();
        options.bucket.endpoint = endpoint;
        const std::string failure = OpenFailure(options, credentials);
        EXPECT_TRUE(failure.starts_with("OpenBucket 'bucket': the endpoint: ")) << endpoint << ": " << failure;
        EXPECT_EQ(failure.find("word"), std::string::npos);
    }
}

TEST_F(S3Wire, PlainConnectionsToOthersAreWarnedOf) {
    const test::RecordingSink sink;
    auto options = Options();
    static_cast<void>(Make(options));
    EXPECT_TRUE(sink.GetTexts(logging::level_t::warn).empty());
    options.bucket.endpoint = "http://store.example";
    static_cast<void>(Make(options));
    EXPECT_EQ(sink.GetTexts(logging::level_t::warn),
              std::vector<std::string>{"The connection to 'store.example' is plain HTTP: everybody on the way can read "
                                       "and change it"});
}

}  // namespace
}  // namespace clients
