#include "clients/http/HttpEngine.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <future>
#include <mutex>

#include "clients/http/FakeServer.h"

namespace clients::http {
namespace {

SHttpRequest Get(const std::string& url) {
    SHttpRequest request;
    request.url = url;
    return request;
}

SHttpResult RunOnce(const std::string& url, SHttpOptions options = {}) {
    CHttpEngine engine(std::move(options));
    return engine.Run(Get(url));
}

std::string FileWith(const std::string& name, const std::string& text) {
    const std::string path = testing::TempDir() + name;
    std::ofstream(path) << text;
    return path;
}

SFakeAnswer Echo(const SFakeRequest& request) {
    return {200, {{"X-Method", request.method}}, request.target + "|" + request.body};
}

TEST(HttpEngine, BringsAnswersWithTheirHeaders) {
    CFakeServer server(&Echo);
    const auto result = RunOnce(server.GetEndpoint() + "/a%20b?c=d");
    ASSERT_FALSE(result.failure);
    EXPECT_EQ(result.answer.status, 200);
    EXPECT_EQ(result.answer.Header("x-method"), "GET");
    EXPECT_EQ(result.answer.Header("x-other"), "");
    EXPECT_EQ(result.answer.body, "/a%20b?c=d|");
}

TEST(HttpEngine, SendsBodiesAndTheHeadersGivenAlone) {
    std::map<std::string, std::string> headers;
    CFakeServer server([&](const SFakeRequest& request) {
        headers = request.headers;
        return Echo(request);
    });
    CHttpEngine engine({});
    SHttpRequest request = Get(server.GetEndpoint() + "/");
    request.method = "PUT";
    request.headers = {{"x-one", "1"}, {"x-empty", ""}};
    const std::string body = "some bytes";
    request.body = std::make_shared<cnt::array_t<char>>(body.begin(), body.end());
    EXPECT_EQ(engine.Run(std::move(request)).answer.body, "/|some bytes");
    const std::map<std::string, std::string> expected{
        {"host", server.GetHost()}, {"accept", "*/*"}, {"x-one", "1"}, {"x-empty", ""}, {"content-length", "10"}};
    EXPECT_EQ(headers, expected);
}

TEST(HttpEngine, BodiesOfSuccessesGoToTheTargetAndThoseOfFailuresDoNot) {
    CFakeServer server([](const SFakeRequest& request) -> SFakeAnswer {
        return {request.target == "/there" ? 200 : 404, {}, "text"};
    });
    CHttpEngine engine({});
    const auto target = std::make_shared<cnt::array_t<char>>(100, 'x');
    SHttpRequest request = Get(server.GetEndpoint() + "/there");
    request.target = target;
    EXPECT_EQ(engine.Run(request).answer.body, "");
    EXPECT_EQ(std::string(target->begin(), target->end()), "text");
    request.url = server.GetEndpoint() + "/gone";
    EXPECT_EQ(engine.Run(request).answer.body, "text");
    EXPECT_TRUE(target->empty());
}

TEST(HttpEngine, KeepsConnectionsAndTheirNumber) {
    CFakeServer server(&Echo);
    SHttpOptions options;
    options.connections = 3;
    CHttpEngine engine(options);
    constexpr std::size_t requests = 100;
    std::vector<std::promise<long>> promises(requests);
    for (auto& promise : promises) {
        engine.Start(Get(server.GetEndpoint() + "/"),
                     [&promise](SHttpResult result) { promise.set_value(result.answer.status); });
    }
    for (auto& promise : promises) {
        EXPECT_EQ(promise.get_future().get(), 200);
    }
    EXPECT_EQ(server.GetRequests(), requests);
    EXPECT_LE(server.GetConnections(), 3U);
}

TEST(HttpEngine, TheDestructorWaitsForWhatWasStarted) {
    CFakeServer server(&Echo);
    std::atomic<unsigned> done = 0;
    {
        CHttpEngine engine({});
        for (unsigned i = 0; i < 50; ++i) {
            engine.Start(Get(server.GetEndpoint() + "/"), [&](const SHttpResult&) { ++done; });
        }
    }
    EXPECT_EQ(done, 50U);
}

TEST(HttpEngine, FailuresOfTheNetworkMayBeTriedAgain) {
    std::string gone;
    { gone = CFakeServer(&Echo).GetEndpoint(); }
    const auto refused = RunOnce(gone + "/");
    ASSERT_TRUE(refused.failure);
    EXPECT_TRUE(refused.failure->retryable);
    EXPECT_NE(refused.failure->text.find("Failed to connect to 127.0.0.1"), std::string::npos) << refused.failure->text;

    CFakeServer server([](const SFakeRequest& request) -> SFakeAnswer {
        SFakeAnswer answer{200, {}, "half"};
        answer.reset = request.target == "/reset";
        answer.stall = request.target == "/stall";
        answer.claimedLength = 8;
        answer.close = true;
        return answer;
    });
    SHttpOptions options;
    options.stallTimeout = std::chrono::seconds(1);
    for (const char* path : {"/reset", "/cut", "/stall"}) {
        const auto result = RunOnce(server.GetEndpoint() + path, options);
        ASSERT_TRUE(result.failure) << path;
        EXPECT_TRUE(result.failure->retryable) << path << ": " << result.failure->text;
    }
}

TEST(HttpEngine, ItsThreadLeavesSignalsToTheProgram) {
    CFakeServer server(&Echo);
    sigset_t inside;
    {
        CHttpEngine engine({});
        engine.Start(Get(server.GetEndpoint() + "/"),
                     [&](const SHttpResult&) { ::pthread_sigmask(SIG_BLOCK, nullptr, &inside); });
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
        EXPECT_EQ(::sigismember(&inside, signal), 1) << signal;
    }
}

TEST(HttpEngine, AnswersBearTheTimeOfTheSignature) {
    CFakeServer server(&Echo);
    CHttpEngine engine({});
    SHttpRequest request = Get(server.GetEndpoint() + "/");
    request.signedAt = std::chrono::system_clock::time_point(std::chrono::hours(1));
    EXPECT_EQ(engine.Run(request).answer.signedAt, request.signedAt);
    EXPECT_EQ(engine.Run(Get(server.GetEndpoint() + "/")).answer.signedAt, std::chrono::system_clock::time_point());
}

TEST(HttpEngine, AnswersLongerThanAskedForAreRefused) {
    CFakeServer server([](const SFakeRequest&) -> SFakeAnswer { return {200, {}, std::string(1001, 'x')}; });
    CHttpEngine engine({});
    SHttpRequest request = Get(server.GetEndpoint() + "/");
    request.maxAnswer = 1000;
    const auto result = engine.Run(request);
    ASSERT_TRUE(result.failure);
    EXPECT_EQ(result.failure->text, "the answer is longer than 1000 bytes");
    EXPECT_FALSE(result.failure->retryable);
}

TEST(HttpEngine, AnObjectMayBeAsLongAsTheServerAnnounces) {
    CFakeServer server([](const SFakeRequest& request) -> SFakeAnswer {
        SFakeAnswer answer{200, {}, std::string(1001, 'x')};
        answer.unannounced = request.target == "/unannounced";
        return answer;
    });
    CHttpEngine engine({});
    SHttpRequest request = Get(server.GetEndpoint() + "/");
    request.maxAnswer = 1000;
    request.target = std::make_shared<cnt::array_t<char>>();
    EXPECT_FALSE(engine.Run(request).failure);
    EXPECT_EQ(request.target->size(), 1001U);
    request.url = server.GetEndpoint() + "/unannounced";
    const auto result = engine.Run(request);
    ASSERT_TRUE(result.failure);
    EXPECT_EQ(result.failure->text, "the answer is longer than 1000 bytes");
}

/// What comes of the bytes of a range, asked for from a server that answers so.
std::string RangeOf(const SFakeAnswer& answer, std::uint64_t offset, std::uint64_t size) {
    CFakeServer server([&](const SFakeRequest&) { return answer; });
    CHttpEngine engine({});
    SHttpRequest request = Get(server.GetEndpoint() + "/");
    request.range = {offset, size};
    request.target = std::make_shared<cnt::array_t<char>>();
    const auto result = engine.Run(request);
    return result.failure ? result.failure->text : std::string(request.target->begin(), request.target->end());
}

TEST(HttpEngine, OfAWholeObjectTheRangeIsKept) {
    const SFakeAnswer whole{200, {}, "0123456789"};
    EXPECT_EQ(RangeOf(whole, 0, 3), "012");
    EXPECT_EQ(RangeOf(whole, 4, 3), "456");
    EXPECT_EQ(RangeOf(whole, 7, 3), "789");
    EXPECT_EQ(RangeOf(whole, 8, 5), "89");
    EXPECT_EQ(RangeOf(whole, 20, 5), "");
}

TEST(HttpEngine, BehindTheRangeNothingIsWaitedFor) {
    SFakeAnswer endless{200, {}, std::string(3U << 20U, 'x') + "the end"};
    endless.claimedLength = std::size_t{1} << 40U;
    endless.body.replace(1U << 20U, 5, "range");
    EXPECT_EQ(RangeOf(endless, 1U << 20U, 5), "range");
}

TEST(HttpEngine, APartWithMoreBytesThanAskedForIsRefused) {
    EXPECT_EQ(RangeOf({206, {}, "0123456789"}, 4, 10), "0123456789");
    EXPECT_EQ(RangeOf({206, {}, "0123456789!"}, 4, 10), "the answer is longer than 10 bytes");
}

TEST(HttpEngine, AFailedAnswerWithoutEndIsCutOff) {
    CFakeServer server([](const SFakeRequest&) -> SFakeAnswer {
        SFakeAnswer answer{500, {}, std::string(2U << 20U, 'x')};
        answer.claimedLength = std::size_t{1} << 40U;
        return answer;
    });
    const auto result = RunOnce(server.GetEndpoint() + "/");
    ASSERT_FALSE(result.failure) << result.failure->text;
    EXPECT_EQ(result.answer.status, 500);
    EXPECT_EQ(result.answer.body.size(), 64U << 10U);
}

TEST(HttpEngine, OfFailedAnswersOnlySoMuchIsKept) {
    CFakeServer server([](const SFakeRequest&) -> SFakeAnswer { return {500, {}, std::string(1U << 20U, 'x')}; });
    EXPECT_EQ(RunOnce(server.GetEndpoint() + "/").answer.body.size(), 64U << 10U);
}

TEST(HttpEngine, RedirectsAreNotFollowed) {
    CFakeServer server([](const SFakeRequest&) -> SFakeAnswer { return {307, {{"location", "/elsewhere"}}, ""}; });
    EXPECT_EQ(RunOnce(server.GetEndpoint() + "/").answer.status, 307);
    EXPECT_EQ(server.GetRequests(), 1U);
}

TEST(HttpEngine, CertificatesAreChecked) {
    const SFakeCertificate certificate;
    CFakeServer server(&Echo, &certificate);
    const auto refused = RunOnce(server.GetEndpoint() + "/");
    ASSERT_TRUE(refused.failure);
    EXPECT_FALSE(refused.failure->retryable) << refused.failure->text;
    EXPECT_NE(refused.failure->text.find("certificate"), std::string::npos) << refused.failure->text;

    SHttpOptions trusting;
    trusting.caFile = FileWith("trusted.pem", certificate.certificatePem);
    EXPECT_EQ(RunOnce(server.GetEndpoint() + "/", trusting).answer.status, 200);

    SHttpOptions trustingOther;
    trustingOther.caFile = FileWith("other.pem", SFakeCertificate().certificatePem);
    EXPECT_TRUE(RunOnce(server.GetEndpoint() + "/", trustingOther).failure);

    SHttpOptions careless;
    careless.dangerouslySkipCertificateChecks = true;
    EXPECT_EQ(RunOnce(server.GetEndpoint() + "/", careless).answer.status, 200);
}

TEST(HttpEngine, CertificatesAreCheckedForTheHostsName) {
    const SFakeCertificate certificate;
    CFakeServer server(&Echo, &certificate);
    SHttpOptions trusting;
    trusting.caFile = FileWith("named.pem", certificate.certificatePem);
    const std::string port = server.GetEndpoint().substr(server.GetEndpoint().rfind(':'));
    EXPECT_TRUE(RunOnce("https://127.0.0.2" + port + "/", trusting).failure);
}

TEST(HttpEngine, ProxiesAreAskedWithTheirUser) {
    SFakeRequest seen;
    CFakeServer proxy([&](const SFakeRequest& request) {
        seen = request;
        return Echo(request);
    });
    SHttpOptions options;
    options.proxy = proxy.GetEndpoint();
    options.proxyUser = "joe";
    options.proxyPassword = "p:w";
    EXPECT_EQ(RunOnce("http://store.example/x", options).answer.status, 200);
    EXPECT_EQ(seen.target, "http://store.example/x");
    EXPECT_EQ(seen.headers["proxy-authorization"], "Basic am9lOnA6dw==");
}

// Neither a tunnel nor what goes in clear is tried again: the same answer would come.
TEST(HttpEngine, AProxyThatRefusesIsToldAsSuch) {
    std::atomic<int> status = 407;
    CFakeServer proxy([&](const SFakeRequest&) { return SFakeAnswer{.status = status}; });
    SHttpOptions options;
    options.proxy = proxy.GetEndpoint();
    for (const char* url : {"http://store.example/x", "https://store.example/x"}) {
        const SHttpResult result = RunOnce(url, options);
        ASSERT_TRUE(result.failure) << url;
        EXPECT_EQ(result.failure->text, "the proxy wants a user and a password, or others (HTTP 407)");
        EXPECT_FALSE(result.failure->retryable);
    }
    status = 403;
    const SHttpResult refused = RunOnce("https://store.example/x", options);
    ASSERT_TRUE(refused.failure);
    EXPECT_EQ(refused.failure->text, "the proxy refuses the connection (HTTP 403)");
    EXPECT_FALSE(refused.failure->retryable);
}

TEST(HttpAnswer, TellsHowLongToWait) {
    const auto wait = [](const std::map<std::string, std::string>& headers) {
        SHttpAnswer answer;
        answer.headers = headers;
        return answer.RetryAfter().count();
    };
    EXPECT_EQ(wait({}), 0);
    EXPECT_EQ(wait({{"retry-after", "3"}}), 3000);
    EXPECT_EQ(wait({{"retry-after", "-3"}}), 0);
    EXPECT_EQ(wait({{"retry-after", "99999999999999999999"}}), 0);
    const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";
    EXPECT_EQ(wait({{"retry-after", "Sun, 06 Nov 1994 08:50:00 GMT"}, {"date", date}}), 23000);
    EXPECT_EQ(wait({{"retry-after", "Sun, 06 Nov 1994 08:49:00 GMT"}, {"date", date}}), 0);
    EXPECT_EQ(wait({{"retry-after", "Sun, 06 Nov 1994 08:50:00 GMT"}}), 0);
}

}  // namespace
}  // namespace clients::http
