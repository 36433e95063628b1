#include "clients/s3/RoleCredentials.h"

#include <gtest/gtest.h>

#include "clients/http/FakeServer.h"
#include "clients/s3/S3Documents.h"
#include "cloudclientlib/CloudExc.h"

namespace clients::s3 {
namespace {

using http::CFakeServer;
using http::SFakeAnswer;
using http::SFakeRequest;

/// A metadata service on loopback, and the time.
class RoleCredentials : public testing::Test {
protected:
    SFakeAnswer Answer(const SFakeRequest& request) {
        if (isDown) {
            return {503, {}, ""};
        }
        if (request.method == "PUT") {
            return knowsTokens && request.headers.contains("x-aws-ec2-metadata-token-ttl-seconds")
                       ? SFakeAnswer{200, {}, "token-1"}
                       : SFakeAnswer{405, {}, ""};
        }
        const auto token = request.headers.find("x-aws-ec2-metadata-token");
        if (knowsTokens != (token != request.headers.end() && token->second == "token-1")) {
            return {401, {}, ""};
        }
        if (request.target == "/latest/meta-data/iam/security-credentials/") {
            return {200, {}, "backup\nother"};
        }
        if (request.target != "/latest/meta-data/iam/security-credentials/backup") {
            return {404, {}, ""};
        }
        ++given;
        return {200, {}, document.empty() ? Document() : document};
    }

    [[nodiscard]] std::string Document() const {
        return R"({"Code":"Success","AccessKeyId":"key-)" + std::to_string(given) +
               R"(","SecretAccessKey":"secret","Token":"session","Expiration":")" + expiration + "\"}";
    }

    std::string FailureOf(CRoleCredentials& credentials) {
        try {
            static_cast<void>(credentials.Get());
        } catch (const std::exception& failure) {
            return failure.what();
        }
        return "none";
    }

    CRoleCredentials Make(const std::string& role = "backup") {
        return {server.GetHost(), role, [this] { return now; }};
    }

    bool knowsTokens = true;
    bool isDown = false;
    unsigned given = 0;
    std::string document;
    std::string expiration = "2026-01-01T12:00:00Z";
    std::chrono::system_clock::time_point now = ParseTime("2026-01-01T10:00:00Z");
    CFakeServer server{[this](const SFakeRequest& request) { return Answer(request); }};
};

TEST_F(RoleCredentials, ComeByAToken) {
    auto credentials = Make();
    const auto got = credentials.Get();
    EXPECT_EQ(got->accessKeyId, "key-1");
    EXPECT_EQ(std::string(got->secretAccessKey.begin(), got->secretAccessKey.end()), "secret");
    EXPECT_EQ(std::string(got->sessionToken.begin(), got->sessionToken.end()), "session");
}

TEST_F(RoleCredentials, ComeWithoutATokenWhereNoneIsKnown) {
    knowsTokens = false;
    EXPECT_EQ(Make().Get()->accessKeyId, "key-1");
}

TEST_F(RoleCredentials, OfTheFirstRoleWhenNoneIsNamed) { EXPECT_EQ(Make("").Get()->accessKeyId, "key-1"); }

TEST_F(RoleCredentials, AreKeptUntilFiveMinutesBeforeTheyExpire) {
    auto credentials = Make();
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-1");
    now = ParseTime("2026-01-01T11:54:59Z");
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-1");
    now = ParseTime("2026-01-01T11:55:00Z");
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-2");
}

TEST_F(RoleCredentials, AreUsedWhileTheyHoldThoughTheServiceIsDown) {
    auto credentials = Make();
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-1");
    isDown = true;
    now = ParseTime("2026-01-01T11:59:59Z");
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-1");
    now = ParseTime("2026-01-01T12:00:00Z");
    EXPECT_EQ(FailureOf(credentials), "GetCredentials 'backup': the instance-metadata service at http://" +
                                          server.GetHost() + " gives no '/latest/api/token': HTTP 503");
    isDown = false;
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-2");
}

TEST_F(RoleCredentials, AServiceThatIsDownIsNotAskedForEveryRequest) {
    auto credentials = Make();
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-1");
    isDown = true;
    now = ParseTime("2026-01-01T11:56:00Z");
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-1");
    const std::size_t asked = server.GetRequests();
    now += std::chrono::seconds(29);
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-1");
    EXPECT_EQ(server.GetRequests(), asked);
    now += std::chrono::seconds(1);
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-1");
    EXPECT_EQ(server.GetRequests(), asked + 1);
    // Refused ones are no good: the service is asked at once.
    EXPECT_TRUE(credentials.Refused(*credentials.Get(), ERefusal::ofCredentials));
    isDown = false;
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-2");
}

TEST_F(RoleCredentials, WhatMayPassIsToldAsSuch) {
    isDown = true;
    auto credentials = Make();
    for (int i = 0; i < 2; ++i) {
        try {
            static_cast<void>(credentials.Get());
            ADD_FAILURE() << "no failure";
        } catch (const cloudclientlib::CCloudExc& failure) {
            EXPECT_TRUE(failure.IsRetryable());
            EXPECT_EQ(failure.GetKind(), cloudclientlib::EFailure::transient);
        }
    }
    isDown = false;
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-1");
    EXPECT_THROW(static_cast<void>(Make("none").Get()), exc::CRuntimeExc);
}

TEST_F(RoleCredentials, AreRenewedWhenTheStoreRefusesThem) {
    auto credentials = Make();
    const auto first = credentials.Get();
    EXPECT_TRUE(credentials.Refused(*first, ERefusal::ofCredentials));
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-2");
    EXPECT_TRUE(credentials.Refused(*first, ERefusal::ofCredentials));  // told late
    EXPECT_EQ(credentials.Get()->accessKeyId, "key-2");
}

TEST_F(RoleCredentials, AreRenewedForARefusalThatDoesNotSayWhy) {
    auto credentials = Make();
    const auto first = credentials.Get();
    EXPECT_TRUE(credentials.Refused(*first, ERefusal::untold));
    EXPECT_TRUE(credentials.Refused(*first, ERefusal::untold));  // of a request beside it
    const auto second = credentials.Get();
    EXPECT_EQ(second->accessKeyId, "key-2");
    EXPECT_TRUE(credentials.Refused(*second, ERefusal::untold));  // others: they are doubted anew
}

TEST_F(RoleCredentials, AreDoubtedOnceWhileTheServiceGivesNoOthers) {
    document =
        R"({"AccessKeyId":"key","SecretAccessKey":"secret","Token":"session","Expiration":"2026-01-01T12:00:00Z"})";
    auto credentials = Make();
    const auto first = credentials.Get();
    EXPECT_TRUE(credentials.Refused(*first, ERefusal::untold));
    EXPECT_EQ(credentials.Get()->accessKeyId, "key");
    EXPECT_FALSE(credentials.Refused(*first, ERefusal::untold));
    EXPECT_EQ(credentials.Get()->accessKeyId, "key");
    EXPECT_EQ(given, 2U);
    EXPECT_TRUE(credentials.Refused(*first, ERefusal::ofCredentials));  // the service may yet give others
    EXPECT_EQ(credentials.Get()->accessKeyId, "key");
    EXPECT_EQ(given, 3U);
}

TEST_F(RoleCredentials, MalformedAnswersAreTold) {
    const std::string start = "Cannot get the credentials of role 'backup': the instance-metadata service";
    for (const auto& [text, failure] : std::vector<std::pair<std::string, std::string>>{
             {"no json", "'s answer is no JSON object"},
             {"[1]", "'s answer is no JSON object"},
             {R"({"Code":"AssumeRoleUnauthorizedAccess"})", " says 'AssumeRoleUnauthorizedAccess'"},
             {R"({"Code":"Success","AccessKeyId":7})",
              "'s answer lacks 'AccessKeyId', 'SecretAccessKey' or 'Expiration'"}}) {
        document = text;
        auto credentials = Make();
        EXPECT_EQ(FailureOf(credentials), start + failure) << text;
    }
}

TEST_F(RoleCredentials, UnknownRoleIsTold) {
    auto credentials = Make("none/such");
    EXPECT_EQ(FailureOf(credentials),
              "Cannot get the credentials of role 'none/such': the instance-metadata service at http://" +
                  server.GetHost() + " gives no '/latest/meta-data/iam/security-credentials/none%2Fsuch': HTTP 404");
}

}  // namespace
}  // namespace clients::s3
