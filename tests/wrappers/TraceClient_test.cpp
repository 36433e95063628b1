#include "cloudclientlib/wrappers/TraceClient.h"

#include <gmock/gmock.h>

#include <future>
#include <thread>

#include "cloudclientlib/wrappers/GateClient.h"
#include "tests/support/RecordingSink.h"
#include "tests/wrappers/RetryFixture.h"

namespace cloudclientlib {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class CTraceClientTest : public testing::Test {
protected:
    CTraceClientTest() { store->UploadFileAsync("a/object", Share("0123456789"))->Wait(); }

    std::vector<std::string> Lines() const { return sink.GetTexts(logging::level_t::dbg); }

    const std::shared_ptr<clients::CMemoryClient> store = std::make_shared<clients::CMemoryClient>();
    const std::shared_ptr<CFakeTimer> timer = std::make_shared<CFakeTimer>();
    const test::RecordingSink sink;
    /// Every operation takes a little over a second.
    CTraceClient client{
        std::make_shared<CScriptedClient>(store, [this](const SInterceptedCall&) { timer->Advance(1234ms); }), timer};
};

TEST_F(CTraceClientTest, EveryCallIsALine) {
    timer->Advance(1h);
    for (const auto& call : OneCallOfEach()) {
        call.run(client);
    }
    EXPECT_THAT(
        Lines(),
        ElementsAre("DownloadFile 'a/object': 10 bytes in 1.2 s", "DownloadFileRange 'a/object': 3 bytes in 1.2 s",
                    "UploadFile 'a/object': 10 bytes in 1.2 s", "CopyFile 'a/object' to 'a/copy': 1.2 s",
                    "DeleteFile 'a/copy': 1.2 s", "GetFileSize 'a/object': 1.2 s", "IsFileExist 'a/object': 1.2 s",
                    "CreateFolder 'b': 1.2 s", "DeleteFolder 'b': 1.2 s", "GetFolderSize 'a': 1.2 s",
                    "IsFolderExist 'a': 1.2 s", "QueryFolder 'a': 1.2 s", "GetObjectCount 'a': 1.2 s",
                    "GetStorageQuota: 1.2 s", "GetConcurrentTaskLimit: 1.2 s", "CreateAsyncTaskUtils: 1.2 s",
                    "StartDownload 'a/object': 1.2 s", "StartUpload 'a/stream': 1.2 s",
                    "RetrieveArchive 'a/object': 1.2 s", "GetArchiveRetrievalStatus 'a/object': 1.2 s"));
    EXPECT_EQ(sink.GetEntries().front().section, "TraceClient");
}

TEST_F(CTraceClientTest, CallsOfStreamsAreLines) {
    const auto up = client.StartUpload("b", 3);
    up->Write(*Share("ab"));
    timer->Advance(1min);  // between the calls
    up->Write(*Share("c"));
    up->Finish();
    const auto down = client.StartDownload("b");
    bytes_t buffer(10);
    while (down->Read(buffer) != 0) {
    }
    EXPECT_THAT(Lines(),
                ElementsAre("StartUpload 'b': 1.2 s", "StreamWrite 'b': 2 bytes in 0 ms",
                            "StreamWrite 'b': 1 bytes in 0 ms", "StreamFinish 'b': 0 ms", "StartDownload 'b': 1.2 s",
                            "StreamRead 'b': 3 bytes in 0 ms", "StreamRead 'b': 0 bytes in 0 ms"));
}

TEST_F(CTraceClientTest, FailuresAreLinesToo) {
    EXPECT_THROW(client.GetFileSize("missing"), CObjectNotFoundExc);
    EXPECT_THROW(client.DownloadFileAsync("missing", Share("old"))->Wait(), CObjectNotFoundExc);
    const auto up = client.StartUpload("b", 3);
    EXPECT_THROW(up->Finish(), CCloudExc);
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], "GetFileSize 'missing': failed in 1.2 s: GetFileSize 'missing': object not found");
    EXPECT_EQ(lines[1], "DownloadFile 'missing': failed in 1.2 s: DownloadFile 'missing': object not found");
    EXPECT_TRUE(lines[3].starts_with("StreamFinish 'b': failed in 0 ms: ")) << lines[3];
    const auto totals = client.GetTotals();
    EXPECT_EQ(totals.Of(EOperation::downloadFile),
              (STraceTotals::SKind{.calls = 1, .failures = 1, .bytesUp = 0, .bytesDown = 0, .time = 1234ms}));
    EXPECT_EQ(totals.Sum().failures, 3U);
}

/// A client that fails from the call itself.
class CThrowingClient : public CForwardingClient {
public:
    using CForwardingClient::CForwardingClient;
    task::task_ptr DeleteFileAsync(const std::string&) override { throw exc::CRuntimeExc("at once"); }
};

TEST_F(CTraceClientTest, CallThatThrowsIsNotedAndThrows) {
    CTraceClient throwing(std::make_shared<CThrowingClient>(store), timer);
    EXPECT_THROW(throwing.DeleteFileAsync("a/object"), exc::CRuntimeExc);
    EXPECT_THAT(Lines(), ElementsAre("DeleteFile 'a/object': failed in 0 ms: at once"));
    EXPECT_EQ(throwing.GetTotals().Of(EOperation::deleteFile).failures, 1U);
}

TEST_F(CTraceClientTest, TotalsAddUp) {
    EXPECT_EQ(client.GetTotals(), STraceTotals{});
    EXPECT_EQ(client.GetTotals().ToAStr(), "");
    client.UploadFileAsync("b", Share("01234"))->Wait();
    client.UploadFileAsync("c", Share("012"))->Wait();
    EXPECT_THROW(client.UploadFileAsync("a", Share("0123"))->Wait(), CCloudExc);
    EXPECT_EQ(Read(client, "b"), "01234");
    client.DownloadFileAsync("b", Share(), 3, 100)->Wait();
    client.IsFileExist("b");
    EXPECT_EQ(client.GetTotals().ToAStr(),
              "DownloadFile: calls 1, bytes down 5, time 1.2 s\n"
              "DownloadFileRange: calls 1, bytes down 2, time 1.2 s\n"
              "UploadFile: calls 3, failed 1, bytes up 8, time 3.7 s\n"
              "IsFileExist: calls 1, time 1.2 s");
    EXPECT_EQ(client.GetTotals().Sum(),
              (STraceTotals::SKind{.calls = 6, .failures = 1, .bytesUp = 8, .bytesDown = 7, .time = 6 * 1234ms}));
}

TEST_F(CTraceClientTest, TheTimeOfATaskEndsWhenItIsDoneNotWhenItIsWaitedFor) {
    const auto gate = std::make_shared<CGateClient>(store);
    CTraceClient traced(gate, timer);
    gate->Close();
    auto upload = traced.UploadFileAsync("b", Share("01234"));
    timer->Advance(250ms);
    EXPECT_EQ(traced.GetTotals(), STraceTotals{});
    gate->Open();
    upload->Wait();
    timer->Advance(1h);
    upload->Wait();
    EXPECT_THAT(Lines(), ElementsAre("UploadFile 'b': 5 bytes in 250 ms"));
}

TEST_F(CTraceClientTest, TasksLetGoAreNotedBeforeTheClientIsGone) {
    const auto gate = std::make_shared<CGateClient>(store);
    auto traced = std::make_unique<CTraceClient>(gate, timer);
    gate->Close();
    traced->UploadFileAsync("b", Share("01234"));
    auto destroyed = std::async(std::launch::async, [&] { traced.reset(); });
    EXPECT_EQ(destroyed.wait_for(0s), std::future_status::timeout);
    gate->Open();
    destroyed.get();
    EXPECT_THAT(Lines(),
                ElementsAre("UploadFile 'b': 5 bytes in 0 ms", "in all: UploadFile: calls 1, bytes up 5, time 0 ms"));
}

TEST_F(CTraceClientTest, TheEndTellsTheTotalsOnce) {
    auto traced = std::make_unique<CTraceClient>(store, timer);
    traced->UploadFileAsync("b", Share("01234"))->Wait();
    EXPECT_THROW(traced->GetFileSize("missing"), CObjectNotFoundExc);
    ASSERT_EQ(Lines().size(), 2U);
    traced.reset();
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[2], "in all: UploadFile: calls 1, bytes up 5, time 0 ms");
    EXPECT_EQ(lines[3], "in all: GetFileSize: calls 1, failed 1, time 0 ms");
}

TEST_F(CTraceClientTest, TasksAndStreamsOutliveTheClient) {
    auto traced = std::make_unique<CTraceClient>(store, timer);
    const auto task = traced->DownloadFileAsync("missing", Share());
    const auto stream = traced->StartDownload("a/object");
    traced.reset();
    EXPECT_THROW(task->Wait(), CObjectNotFoundExc);
    bytes_t buffer(100);
    EXPECT_EQ(stream->Read(buffer), 10U);
}

TEST_F(CTraceClientTest, BufferIsLetGoWhenTheTaskIsDone) {
    auto buffer = Share("text");
    const std::weak_ptr<bytes_t> seen = buffer;
    const auto task = client.UploadFileAsync("new", std::move(buffer));
    task->Wait();
    EXPECT_TRUE(seen.expired());
}

TEST(TraceClient, WithoutDbgNothingIsWrittenAndTotalsAreKept) {
    const test::RecordingSink sink(logging::level_t::tr);
    CTraceClient client(std::make_shared<clients::CMemoryClient>());
    client.UploadFileAsync("b", Share("01234"))->Wait();
    EXPECT_THROW(client.GetFileSize("missing"), CObjectNotFoundExc);
    EXPECT_THAT(sink.GetEntries(), IsEmpty());
    EXPECT_EQ(client.GetTotals().Sum().calls, 2U);
    EXPECT_EQ(client.GetTotals().Of(EOperation::uploadFile).bytesUp, 5U);
}

TEST(TraceClient, CountsFromManyThreads) {
    const test::RecordingSink sink;
    CTraceClient client(std::make_shared<clients::CMemoryClient>());
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            const std::string path = std::to_string(thread);
            for (int i = 0; i < 100; ++i) {
                client.UploadFileAsync(path, Share("0123456789"))->Wait();
                client.GetFileSize(path);
                EXPECT_GE(client.GetTotals().Sum().calls, 1U);
            }
        });
    }
    threads.clear();
    const STraceTotals totals = client.GetTotals();
    EXPECT_EQ(totals.Of(EOperation::uploadFile).calls, 400U);
    EXPECT_EQ(totals.Of(EOperation::uploadFile).bytesUp, 4000U);
    EXPECT_EQ(totals.Of(EOperation::getFileSize).calls, 400U);
    EXPECT_EQ(sink.GetEntries().size(), 800U);
}

}  // namespace

}  // namespace cloudclientlib
