#include "cloudclientlib/wrappers/CountingClient.h"

#include <gmock/gmock.h>

#include <thread>

#include "tests/wrappers/ThrowingClient.h"
#include "tests/wrappers/WrapperFixture.h"

namespace cloudclientlib {

namespace {

class CCountingClientTest : public testing::Test {
protected:
    CCountingClientTest() { store->UploadFileAsync("a/object", Share("0123456789"))->Wait(); }

    const std::shared_ptr<clients::CMemoryClient> store = std::make_shared<clients::CMemoryClient>();
    CCountingClient client{store};
};

TEST_F(CCountingClientTest, StartsWithNothing) {
    EXPECT_EQ(client.GetCounts(), SCallCounts{});
    EXPECT_EQ(client.GetCounts().Total(), 0U);
    EXPECT_EQ(client.GetCounts().ToAStr(), "0 bytes up, 0 bytes down, 0 tasks in flight, at most 0");
}

TEST_F(CCountingClientTest, CountsEachOperationByItsKind) {
    for (const auto& call : OneCallOfEach()) {
        const SCallCounts before = client.GetCounts();
        call.run(client);
        const SCallCounts made = client.GetCounts() - before;
        EXPECT_EQ(made.Of(call.operation), 1U) << ToStr(call.operation);
        EXPECT_EQ(made.Total(), 1U) << ToStr(call.operation);
    }
    EXPECT_EQ(client.GetCounts().Of(ChangingOperations()), 5U);
}

TEST_F(CCountingClientTest, CountsBytesUpWhenHandedOver) {
    client.UploadFileAsync("a/other", Share("01234"));
    EXPECT_EQ(client.GetCounts().bytesUp, 5U);
    EXPECT_EQ(client.GetCounts().bytesDown, 0U);
    client.UploadFileAsync("a", Share("012"));  // fails
    EXPECT_EQ(client.GetCounts().bytesUp, 8U);
    client.CopyFileAsync("a/object", "a/copy")->Wait();
    EXPECT_EQ(client.GetCounts().bytesUp, 8U);
}

TEST_F(CCountingClientTest, CountsBytesDownOnceAtTheFirstWait) {
    const auto whole = client.DownloadFileAsync("a/object", Share());
    EXPECT_EQ(client.GetCounts().bytesDown, 0U);
    whole->Wait();
    whole->Wait();
    EXPECT_EQ(client.GetCounts().bytesDown, 10U);
    client.DownloadFileAsync("a/object", Share(), 8, 100)->Wait();
    EXPECT_EQ(client.GetCounts().bytesDown, 12U);
}

TEST_F(CCountingClientTest, CountsNoBytesOfFailedDownloads) {
    const auto failed = client.DownloadFileAsync("missing", Share("old bytes"));
    EXPECT_THROW(failed->Wait(), CObjectNotFoundExc);
    EXPECT_THROW(failed->Wait(), CObjectNotFoundExc);
    EXPECT_EQ(client.GetCounts().bytesDown, 0U);
    EXPECT_EQ(client.GetCounts().Of(EOperation::downloadFile), 1U);
}

TEST_F(CCountingClientTest, CountsTasksUntilWaitedFor) {
    auto first = client.DownloadFileAsync("a/object", Share());
    auto second = client.DownloadFileAsync("missing", Share());
    EXPECT_EQ(client.GetCounts().tasksInFlight, 2U);
    first->Wait();
    first->Wait();
    EXPECT_EQ(client.GetCounts().tasksInFlight, 1U);
    EXPECT_THROW(second->Wait(), CObjectNotFoundExc);
    EXPECT_EQ(client.GetCounts().tasksInFlight, 0U);
    first.reset();
    second.reset();
    EXPECT_EQ(client.GetCounts().tasksInFlight, 0U);
    EXPECT_EQ(client.GetCounts().mostTasksInFlight, 2U);
}

TEST_F(CCountingClientTest, CountsTasksUntilLetGo) {
    auto task = client.DeleteFileAsync("a/object");
    EXPECT_EQ(client.GetCounts().tasksInFlight, 1U);
    task.reset();
    EXPECT_EQ(client.GetCounts().tasksInFlight, 0U);
    EXPECT_EQ(client.GetCounts().mostTasksInFlight, 1U);
}

TEST_F(CCountingClientTest, SeesTheWindowThatACallerKeeps) {
    task::RunWindow(
        20, 4, [&](std::size_t i) { return client.UploadFileAsync("b/" + std::to_string(i), Share("0")); },
        [](std::size_t) {});
    EXPECT_EQ(client.GetCounts().mostTasksInFlight, 4U);
    EXPECT_EQ(client.GetCounts().tasksInFlight, 0U);
    EXPECT_EQ(client.GetCounts().Of(EOperation::uploadFile), 20U);
}

TEST_F(CCountingClientTest, CallThatThrowsLeavesNoTaskInFlight) {
    CCountingClient counting(std::make_shared<CThrowingClient>(store));
    EXPECT_THROW(counting.DeleteFileAsync("object"), CCloudExc);
    EXPECT_EQ(counting.GetCounts().tasksInFlight, 0U);
    EXPECT_EQ(counting.GetCounts().Of(EOperation::deleteFile), 1U);
}

TEST_F(CCountingClientTest, CountsStreams) {
    const auto up = client.StartUpload("b", 5);
    up->Write(*Share("012"));
    up->Write(*Share("34"));
    up->Finish();
    const auto down = client.StartDownload("b");
    bytes_t buffer(4);
    while (down->Read(buffer) != 0) {
    }
    EXPECT_EQ(client.GetCounts().ToAStr(),
              "StartDownload 1, StartUpload 1, StreamRead 3, StreamWrite 2, StreamFinish 1, 5 bytes up, 5 bytes down, "
              "0 tasks in flight, at most 0");
}

TEST_F(CCountingClientTest, FailedStreamOperationsCountToo) {
    const auto up = client.StartUpload("b", 5);
    EXPECT_THROW(up->Finish(), CCloudExc);
    EXPECT_EQ(client.GetCounts().Of(EOperation::streamFinish), 1U);
    EXPECT_THROW(client.StartDownload("missing"), CObjectNotFoundExc);
    EXPECT_EQ(client.GetCounts().Of(EOperation::startDownload), 1U);
}

TEST_F(CCountingClientTest, ResetKeepsTasksInFlight) {
    const auto first = client.DownloadFileAsync("a/object", Share());
    auto second = client.DownloadFileAsync("a/object", Share());
    second->Wait();
    client.ResetCounts();
    SCallCounts expected;
    expected.tasksInFlight = 1;
    expected.mostTasksInFlight = 1;
    EXPECT_EQ(client.GetCounts(), expected);
    first->Wait();
    EXPECT_EQ(client.GetCounts().tasksInFlight, 0U);
    EXPECT_EQ(client.GetCounts().bytesDown, 10U);
}

TEST_F(CCountingClientTest, TasksAndStreamsOutliveTheClient) {
    auto counting = std::make_unique<CCountingClient>(store);
    const auto task = counting->DownloadFileAsync("a/object", Share());
    const auto stream = counting->StartDownload("a/object");
    counting.reset();
    EXPECT_NO_THROW(task->Wait());
    bytes_t buffer(100);
    EXPECT_EQ(stream->Read(buffer), 10U);
}

TEST_F(CCountingClientTest, CountsFromManyThreads) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                client.DownloadFileAsync("a/object", Share())->Wait();
                client.GetFileSize("a/object");
            }
        });
    }
    threads.clear();
    const SCallCounts counts = client.GetCounts();
    EXPECT_EQ(counts.Of(EOperation::downloadFile), 800U);
    EXPECT_EQ(counts.Of(EOperation::getFileSize), 800U);
    EXPECT_EQ(counts.bytesDown, 8000U);
    EXPECT_EQ(counts.tasksInFlight, 0U);
    EXPECT_LE(counts.mostTasksInFlight, 4U);
}

}  // namespace

}  // namespace cloudclientlib
