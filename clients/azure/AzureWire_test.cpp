// What is sent, and what is made of answers that no real server gives when it is asked for them.

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>

#include "clients/azure/AzureClient.h"
#include "clients/http/FakeServer.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/conformance/Tools.h"
#include "common/util.h"

namespace clients {
namespace {

using namespace cloudclientlib;
using http::SFakeAnswer;
using http::SFakeRequest;

std::string Md5Text(const std::string& bytes) { return azure::WriteMd5(digest::Md5(bytes)); }

SFakeAnswer Error(int status, const std::string& code, const std::string& message = "") {
    return {status,
            {{"x-ms-request-id", "id-1"}},
            "<Error><Code>" + code + "</Code><Message>" + message + "</Message></Error>"};
}

/// A server that gives its answers in order, and a client of it.
class AzureWire : public testing::Test {
protected:
    void Expect(SFakeAnswer answer) { answers_.push_back(std::move(answer)); }

    std::shared_ptr<CAzureClient> Client(const std::string& secret = "AccountName=a;AccountKey=c2VjcmV0") {
        SAzureClientOptions options;
        options.container = "c";
        options.sizes = {.threshold = 4, .block = 2};
        options.clock = [] { return std::chrono::system_clock::from_time_t(784111777); };
        options.wait = [this](std::chrono::milliseconds time) { waits_.push_back(time.count()); };
        return std::make_shared<CAzureClient>(
            options, azure::ReadConnectionString("BlobEndpoint=" + server_.GetEndpoint() + "/p;" + secret));
    }

    std::vector<std::string> Targets() {
        std::vector<std::string> targets;
        for (const auto& request : requests_) {
            targets.push_back(request.method + " " + request.target);
        }
        return targets;
    }

    std::deque<SFakeAnswer> answers_;
    std::vector<SFakeRequest> requests_;
    std::vector<long> waits_;
    http::CFakeServer server_{[this](const SFakeRequest& request) {
        requests_.push_back(request);
        if (answers_.empty()) {
            return Error(500, "NothingPlanned");
        }
        SFakeAnswer answer = answers_.front();
        answers_.pop_front();
        return answer;
    }};
};

using list_t = std::vector<std::string>;

TEST_F(AzureWire, SendsWhatItSigns) {
    Expect({201});
    conformance::Upload(*Client(), "x y", {'a', 'b', 'c'});
    ASSERT_EQ(Targets(), (list_t{"PUT /p/c/x%20y"}));
    const std::map<std::string, std::string>& headers = requests_[0].headers;
    const std::string md5 = Md5Text("abc");
    const azure::SSignedParts parts{"PUT",
                                    "/p/c/x%20y",
                                    {},
                                    {{"x-ms-blob-type", "BlockBlob"},
                                     {"content-md5", md5},
                                     {"x-ms-date", "Sun, 06 Nov 1994 08:49:37 GMT"},
                                     {"x-ms-version", "2021-08-06"}},
                                    3};
    std::map<std::string, std::string> expected(parts.headers.begin(), parts.headers.end());
    expected["authorization"] = azure::Authorization(parts, "a", {'s', 'e', 'c', 'r', 'e', 't'});
    expected["content-length"] = "3";
    expected["host"] = server_.GetHost();
    expected["accept"] = "*/*";
    EXPECT_EQ(headers, expected);
    EXPECT_EQ(requests_[0].body, "abc");
}

TEST_F(AzureWire, UploadsInBlocksAndRecordsTheWholesMd5) {
    for (int i = 0; i < 4; ++i) {
        Expect({201});
    }
    conformance::Upload(*Client(), "o", {'a', 'b', 'c', 'd', 'e'});
    ASSERT_EQ(requests_.size(), 4U);
    std::map<std::string, std::string> bodies;  // by the block's number, since they travel side by side
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(requests_[i].target.starts_with("/p/c/o?comp=block&blockid=")) << requests_[i].target;
        const auto id = http::UriDecode(requests_[i].target.substr(26), http::EPlus::itself);
        const auto name = util::fromBase64(id);
        bodies[std::string(name.end() - 6, name.end())] = requests_[i].body;
        EXPECT_EQ(requests_[i].headers["content-md5"], Md5Text(requests_[i].body));
        EXPECT_NE(requests_[3].body.find("<Uncommitted>" + id + "</Uncommitted>"), std::string::npos);
    }
    EXPECT_EQ(bodies, (std::map<std::string, std::string>{{"-00000", "ab"}, {"-00001", "cd"}, {"-00002", "e"}}));
    EXPECT_EQ(requests_[3].target, "/p/c/o?comp=blocklist");
    EXPECT_EQ(requests_[3].headers["x-ms-blob-content-md5"], Md5Text("abcde"));
}

TEST_F(AzureWire, AFailedBlockFailsTheUpload) {
    for (int i = 0; i < 3; ++i) {
        Expect(Error(503, "ServerBusy"));
    }
    conformance::ExpectFailure(EFailure::transient, "an upload whose blocks are refused",
                               [&] { conformance::Upload(*Client(), "o", conformance::MakeBytes(1, 5)); });
    for (const auto& request : requests_) {
        EXPECT_EQ(request.target.find("blocklist"), std::string::npos);
    }
}

TEST_F(AzureWire, BytesThatAreNotTheRecordedOnesAreRefused) {
    Expect({200, {{"Content-MD5", Md5Text("abc")}}, "abd"});
    const CCloudExc failure = conformance::FailureOf("a download of changed bytes",
                                                     [&] { static_cast<void>(conformance::Download(*Client(), "o")); });
    EXPECT_EQ(failure.GetKind(), EFailure::corrupt);
    EXPECT_TRUE(failure.IsRetryable());
    Expect({200, {{"Content-MD5", Md5Text("abc")}}, "abc"});
    EXPECT_EQ(conformance::Download(*Client(), "o"), (conformance::bytes_t{'a', 'b', 'c'}));
    Expect({200, {{"Content-MD5", Md5Text("abc")}}, "abd"});  // the whole, where a range was asked for
    conformance::ExpectFailure(EFailure::corrupt, "a range of changed bytes",
                               [&] { static_cast<void>(conformance::DownloadRange(*Client(), "o", 0, 1)); });
    Expect({200, {{"Content-MD5", Md5Text("abc")}}, "abc"});
    EXPECT_EQ(conformance::DownloadRange(*Client(), "o", 1, 5), (conformance::bytes_t{'b', 'c'}));
}

/// An object "abc", as HEAD tells it.
SFakeAnswer HeadOf(const std::string& md5) { return {200, {{"ETag", "\"1\""}, {"Content-MD5", md5}}, "", 3}; }

TEST_F(AzureWire, AStreamIsPinnedAndCompared) {
    Expect(HeadOf(Md5Text("abc")));
    Expect({206, {}, "abc"});
    EXPECT_EQ(conformance::StreamDown(*Client(), "o", 2), (conformance::bytes_t{'a', 'b', 'c'}));
    ASSERT_EQ(requests_.size(), 2U);
    EXPECT_EQ(requests_[1].headers["if-match"], "\"1\"");
    EXPECT_EQ(requests_[1].headers["range"], "bytes=0-2");
    Expect(HeadOf(Md5Text("abc")));
    Expect({206, {}, "abd"});
    conformance::ExpectFailure(EFailure::corrupt, "a stream of changed bytes",
                               [&] { static_cast<void>(conformance::StreamDown(*Client(), "o", 2)); });
    Expect(HeadOf(""));
    Expect(Error(412, "ConditionNotMet"));
    conformance::ExpectFailure(EFailure::conflict, "a stream of a replaced object",
                               [&] { static_cast<void>(conformance::StreamDown(*Client(), "o", 2)); });
    EXPECT_TRUE(waits_.empty());
}

TEST_F(AzureWire, AStreamTriesARangeAgain) {
    Expect(HeadOf(Md5Text("abc")));
    Expect(Error(503, "ServerBusy"));
    Expect({502});
    Expect({206, {}, "abc"});
    EXPECT_EQ(conformance::StreamDown(*Client(), "o", 2), (conformance::bytes_t{'a', 'b', 'c'}));
    EXPECT_EQ(waits_, (std::vector<long>{250, 1000}));
    Expect(HeadOf(""));
    for (int i = 0; i < 3; ++i) {
        Expect(Error(503, "ServerBusy"));
    }
    waits_.clear();
    conformance::ExpectFailure(EFailure::transient, "a stream of a busy server",
                               [&] { static_cast<void>(conformance::StreamDown(*Client(), "o", 2)); });
    EXPECT_EQ(waits_, (std::vector<long>{250, 1000}));
    EXPECT_TRUE(answers_.empty());
}

SFakeAnswer CopyState(int status, const std::string& state, const std::string& id = "7") {
    return {status, {{"ETag", "\"2\""}, {"x-ms-copy-status", state}, {"x-ms-copy-id", id}}, ""};
}

TEST_F(AzureWire, ACopyIsAwaited) {
    Expect(HeadOf(""));
    Expect(CopyState(202, "pending"));
    Expect(CopyState(200, "pending"));
    Expect(CopyState(200, "success"));
    Client()->CopyFileAsync("a b", "t")->Wait();
    EXPECT_EQ(Targets(), (list_t{"HEAD /p/c/a%20b", "PUT /p/c/t", "HEAD /p/c/t", "HEAD /p/c/t"}));
    EXPECT_EQ(requests_[1].headers["x-ms-copy-source"], server_.GetEndpoint() + "/p/c/a%20b");
    EXPECT_EQ(waits_, (std::vector<long>{100, 200}));
}

TEST_F(AzureWire, ACopyThatFailedLeavesNoObject) {
    Expect(HeadOf(""));
    Expect(CopyState(202, "pending"));
    Expect(CopyState(200, "failed"));
    Expect(Error(409, "NoPendingCopyOperation"));
    Expect(CopyState(200, "failed"));
    Expect({202});
    const auto client = Client();
    const CCloudExc failure =
        conformance::FailureOf("a copy that fails", [&] { client->CopyFileAsync("s", "t")->Wait(); });
    EXPECT_EQ(failure.GetKind(), EFailure::transient);
    EXPECT_EQ(Targets(), (list_t{"HEAD /p/c/s", "PUT /p/c/t", "HEAD /p/c/t", "PUT /p/c/t?comp=copy&copyid=7",
                                 "HEAD /p/c/t", "DELETE /p/c/t"}));
    EXPECT_EQ(requests_[3].headers["x-ms-copy-action"], "abort");
    EXPECT_EQ(requests_[5].headers["if-match"], "\"2\"");
}

TEST_F(AzureWire, ACopyThatNeverEndsIsAborted) {
    Expect(HeadOf(""));
    Expect(CopyState(202, "pending"));
    for (int i = 0; i < 725; ++i) {
        Expect(CopyState(200, "pending"));
    }
    Expect({204});
    Expect(CopyState(200, "aborted"));
    Expect({202});
    const auto client = Client();
    conformance::ExpectFailure(EFailure::transient, "a copy that never ends",
                               [&] { client->CopyFileAsync("s", "t")->Wait(); });
    EXPECT_TRUE(answers_.empty());
    EXPECT_EQ(requests_.back().method, "DELETE");
    EXPECT_EQ(waits_.back(), 5000);
}

TEST_F(AzureWire, AnObjectThatSomebodyElseWroteSinceIsLeftAlone) {
    Expect(HeadOf(""));
    Expect(CopyState(202, "pending"));
    Expect(CopyState(200, "pending", "8"));
    Expect(Error(409, "CopyIdMismatch"));
    Expect(CopyState(200, "pending", "8"));
    const auto client = Client();
    conformance::ExpectFailure(EFailure::conflict, "a copy onto an object that was replaced",
                               [&] { client->CopyFileAsync("s", "t")->Wait(); });
    EXPECT_EQ(requests_.back().method, "HEAD");
}

TEST_F(AzureWire, AHalfCopiedObjectIsNotRead) {
    for (const char* status : {"pending", "failed", "aborted"}) {
        const EFailure kind = std::string(status) == "pending" ? EFailure::transient : EFailure::corrupt;
        Expect(CopyState(200, status));
        conformance::ExpectFailure(kind, "a download",
                                   [&] { static_cast<void>(conformance::Download(*Client(), "o")); });
        Expect(CopyState(206, status));
        conformance::ExpectFailure(kind, "a range",
                                   [&] { static_cast<void>(conformance::DownloadRange(*Client(), "o", 0, 1)); });
        Expect(CopyState(200, status));
        conformance::ExpectFailure(kind, "a size", [&] { static_cast<void>(Client()->GetFileSize("o")); });
        Expect(CopyState(416, status));
        conformance::ExpectFailure(kind, "a range",
                                   [&] { static_cast<void>(conformance::DownloadRange(*Client(), "o", 0, 1)); });
        Expect(CopyState(200, status));
        conformance::ExpectFailure(kind, "a stream",
                                   [&] { static_cast<void>(conformance::StreamDown(*Client(), "o", 1)); });
    }
}

TEST_F(AzureWire, PagesMayBeEmptyAndGoOn) {
    const std::string entry =
        "<Blob><Name>f/o</Name><Properties><Content-Length>3</Content-Length></Properties></Blob>";
    const auto page = [](const std::string& blobs, const std::string& marker) {
        return SFakeAnswer{200,
                           {},
                           "<EnumerationResults><Blobs>" + blobs + "</Blobs><NextMarker>" + marker +
                               "</NextMarker></EnumerationResults>"};
    };
    Expect(page("", "m 1"));
    Expect(page(entry, ""));
    const auto client = Client();
    EXPECT_TRUE(client->IsFolderExist("f"));
    Expect(page("", "m 1"));
    Expect(page(entry, "m2"));
    Expect(page("", ""));
    EXPECT_EQ(client->GetFolderSize("f"), 3U);
    EXPECT_EQ(Targets(), (list_t{"GET /p/c?restype=container&comp=list&prefix=f%2F&maxresults=1",
                                 "GET /p/c?restype=container&comp=list&prefix=f%2F&maxresults=1&marker=m%201",
                                 "GET /p/c?restype=container&comp=list&prefix=f%2F",
                                 "GET /p/c?restype=container&comp=list&prefix=f%2F&marker=m%201",
                                 "GET /p/c?restype=container&comp=list&prefix=f%2F&marker=m2"}));
    Expect(page("", "m"));
    Expect(page("", "m"));
    conformance::ExpectFailure(EFailure::corrupt, "a listing that turns in circles",
                               [&] { static_cast<void>(client->GetObjectCount("f")); });
}

/// The folder "f" with two objects, and the answer to their deletion.
SFakeAnswer TwoObjects() {
    return {200,
            {},
            "<EnumerationResults><Blobs>"
            "<Blob><Name>f/a</Name><Properties><Content-Length>3</Content-Length></Properties></Blob>"
            "<Blob><Name>f/b</Name><Properties><Content-Length>3</Content-Length></Properties></Blob>"
            "</Blobs></EnumerationResults>"};
}

SFakeAnswer BatchAnswer(const std::vector<std::string>& parts) {
    std::string body;
    for (const std::string& part : parts) {
        body += "--x\r\nContent-Type: application/http\r\n" + part + "\r\n\r\n";
    }
    return {202, {{"Content-Type", "multipart/mixed; boundary=x"}}, body + "--x--"};
}

TEST_F(AzureWire, EveryRequestOfABatchMustBeAnswered) {
    const auto client = Client();
    const auto deletion = [&] { client->DeleteFolderAsync("f", nullptr)->Wait(); };
    const std::string first = "Content-ID: 0\r\n\r\nHTTP/1.1 202 Accepted";
    Expect(TwoObjects());
    Expect(BatchAnswer({"Content-ID: 1\r\n\r\nHTTP/1.1 404 Gone\r\nx-ms-error-code: BlobNotFound", first}));
    EXPECT_NO_THROW(deletion());
    for (const std::vector<std::string>& parts :
         {std::vector{first}, std::vector{first, first}, std::vector<std::string>{},
          std::vector<std::string>{first, "Content-ID: 2\r\n\r\nHTTP/1.1 202 Accepted"}}) {
        Expect(TwoObjects());
        Expect(BatchAnswer(parts));
        conformance::ExpectFailure(EFailure::corrupt, "a batch with wrong answers", deletion);
    }
    Expect(TwoObjects());
    Expect(BatchAnswer({first, "Content-ID: 1\r\n\r\nHTTP/1.1 503 Busy\r\nx-ms-error-code: ServerBusy"}));
    const CCloudExc busy = conformance::FailureOf("a batch with a failure", deletion);
    EXPECT_EQ(std::string(busy.what()), "DeleteFolder 'f': 1 objects were not deleted; 'f/b': HTTP 503 ServerBusy");
    EXPECT_EQ(busy.GetKind(), EFailure::transient);
    Expect(TwoObjects());
    Expect(BatchAnswer({"\r\nHTTP/1.1 403 No\r\nx-ms-error-code: AuthenticationFailed"}));
    EXPECT_EQ(conformance::FailureOf("a refused batch", deletion).GetKind(), EFailure::accessDenied);
}

TEST_F(AzureWire, RetrievalNamesTheTierAndTheHaste) {
    const auto archived = [](const std::string& status) {
        return SFakeAnswer{200, {{"x-ms-access-tier", "Archive"}, {"x-ms-archive-status", status}}, ""};
    };
    const auto client = Client();
    Expect(archived(""));
    EXPECT_EQ(client->GetArchiveRetrievalStatus("o"), EArchiveRetrievalStatus::archived);
    Expect(archived("rehydrate-pending-to-hot"));
    EXPECT_EQ(client->GetArchiveRetrievalStatus("o"), EArchiveRetrievalStatus::inProgress);
    Expect(archived(""));
    Expect({202});
    client->RetrieveArchive("o", {.speed = SRetrieveArchiveOptions::ESpeed::expedited});
    EXPECT_EQ(requests_.back().target, "/p/c/o?comp=tier");
    EXPECT_EQ(requests_.back().headers["x-ms-access-tier"], "Hot");
    EXPECT_EQ(requests_.back().headers["x-ms-rehydrate-priority"], "High");
    Expect(archived("rehydrate-pending-to-hot"));
    client->RetrieveArchive("o", {});
    EXPECT_EQ(requests_.back().method, "HEAD");
}

// A server that repeats all it is sent, in its answer and in its headers.
TEST_F(AzureWire, NoFailureTellsTheSignature) {
    const auto client = Client("SharedAccessSignature=sv=1&sig=SECRET%2FSECRET&se=2");
    const std::string echo = "sv=1&amp;sig=SECRET%2FSECRET or SECRET/SECRET";
    const std::vector<std::function<void()>> operations = {
        [&] { conformance::Upload(*client, "o", {}); },
        [&] { static_cast<void>(conformance::Download(*client, "o")); },
        [&] { static_cast<void>(client->QueryFolder("o")); },
        [&] { static_cast<void>(client->GetFileSize("o")); },
    };
    for (const auto& operation : operations) {
        SFakeAnswer answer = Error(400, "Code-" + echo, echo);
        answer.headers = {{"x-ms-request-id", "sv=1&sig=SECRET%2FSECRET&se=2"}, {"x-ms-error-code", "SECRET/SECRET"}};
        Expect(answer);
        const CCloudExc failure = conformance::FailureOf("a refused request", operation);
        EXPECT_EQ(std::string(failure.what()).find("SECRET"), std::string::npos) << failure.what();
        EXPECT_NE(std::string(failure.what()).find("HTTP 400"), std::string::npos) << failure.what();
        EXPECT_NE(requests_.back().target.find("sv=1&sig=SECRET%2FSECRET&se=2"), std::string::npos);
        EXPECT_EQ(requests_.back().headers.count("authorization"), 0U);
        Expect({.reset = true});
        const CCloudExc broken = conformance::FailureOf("a broken connection", operation);
        EXPECT_EQ(std::string(broken.what()).find("SECRET"), std::string::npos) << broken.what();
    }
}

}  // namespace
}  // namespace clients
