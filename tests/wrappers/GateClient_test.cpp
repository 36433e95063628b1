#include "cloudclientlib/wrappers/GateClient.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <thread>

#include "tests/wrappers/ThrowingClient.h"
#include "tests/wrappers/WrapperFixture.h"

namespace cloudclientlib {

namespace {

using clients::SCall;

class CGateClientTest : public testing::Test {
protected:
    CGateClientTest() {
        store->UploadFileAsync("object", Share("0123456789"))->Wait();
        store->ClearCalls();
    }
    std::vector<std::string> Arrived() const {
        std::vector<std::string> calls;
        for (const SCall& call : store->GetCalls()) {
            calls.push_back(call.operation + ' ' + call.path);
        }
        return calls;
    }

    const std::shared_ptr<clients::CMemoryClient> store = RecordingStore();
    CGateClient client{store};
};

TEST_F(CGateClientTest, AsynchronousOperationsAreHeldAndReturned) {
    client.Close();
    const auto upload = client.UploadFileAsync("new", Share("text"));
    const auto deletion = client.DeleteFileAsync("object");
    EXPECT_EQ(client.GetHeld(), 2U);
    EXPECT_THAT(Arrived(), testing::IsEmpty());
    client.Open();
    EXPECT_EQ(client.GetHeld(), 0U);
    EXPECT_THAT(Arrived(), testing::ElementsAre("UploadFile new", "DeleteFile object"));
    upload->Wait();
    deletion->Wait();
    EXPECT_EQ(Read(*store, "new"), "text");
}

TEST_F(CGateClientTest, OpenGateHoldsNothing) {
    client.Close();
    client.Open();
    client.DeleteFileAsync("object");
    EXPECT_EQ(client.GetHeld(), 0U);
    EXPECT_THAT(Arrived(), testing::ElementsAre("DeleteFile object"));
}

TEST_F(CGateClientTest, ReleaseLetsTheFirstThrough) {
    client.Close();
    const auto first = client.UploadFileAsync("1", Share());
    const auto second = client.UploadFileAsync("2", Share());
    const auto third = client.UploadFileAsync("3", Share());
    client.Release();
    EXPECT_THAT(Arrived(), testing::ElementsAre("UploadFile 1"));
    first->Wait();
    EXPECT_EQ(client.GetHeld(), 2U);
    client.Release(2);
    EXPECT_THAT(Arrived(), testing::ElementsAre("UploadFile 1", "UploadFile 2", "UploadFile 3"));
    const auto fourth = client.UploadFileAsync("4", Share());  // still closed
    EXPECT_EQ(client.GetHeld(), 1U);
    client.Release(0);
    EXPECT_EQ(client.GetHeld(), 1U);
}

TEST_F(CGateClientTest, TaskWaitsUntilItsOperationIsDone) {
    client.Close();
    const auto upload = client.UploadFileAsync("new", Share("text"));
    std::promise<void> waited;
    const std::jthread waiter([&] {
        upload->Wait();
        waited.set_value();
    });
    EXPECT_FALSE(store->IsFileExist("new"));
    EXPECT_EQ(waited.get_future().wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    client.Release();
}

TEST_F(CGateClientTest, FailureOfAHeldOperationIsKept) {
    client.Close();
    const auto download = client.DownloadFileAsync("missing", Share());
    client.Open();
    EXPECT_THROW(download->Wait(), CObjectNotFoundExc);
    EXPECT_THROW(download->Wait(), CObjectNotFoundExc);
}

TEST_F(CGateClientTest, CallThatThrowsFailsAHeldTask) {
    CGateClient gate(std::make_shared<CThrowingClient>(store));
    gate.Close();
    const auto deletion = gate.DeleteFileAsync("object");
    EXPECT_NO_THROW(gate.Release());
    EXPECT_THROW(deletion->Wait(), CObjectNotFoundExc);
    gate.Open();
    EXPECT_THROW(gate.DeleteFileAsync("object"), CObjectNotFoundExc);
}

TEST_F(CGateClientTest, TaskLetGoIsDoneAllTheSame) {
    client.Close();
    client.UploadFileAsync("new", Share("text"));
    client.Open();
    EXPECT_EQ(Read(*store, "new"), "text");
}

TEST_F(CGateClientTest, HeldOperationHasItsOwnPathAndBuffer) {
    client.Close();
    {
        std::string path = "new";
        client.UploadFileAsync(path, Share("text"));
        path = "other";
    }
    client.Open();
    EXPECT_EQ(Read(*store, "new"), "text");
}

TEST_F(CGateClientTest, SynchronousOperationsBlockTheirCaller) {
    client.Close();
    auto size = std::async(std::launch::async, [&] { return client.GetFileSize("object"); });
    client.WaitHeld(1);
    EXPECT_THAT(Arrived(), testing::IsEmpty());
    client.Release();
    EXPECT_EQ(size.get(), 10U);
}

TEST_F(CGateClientTest, EveryStoreOperationIsHeld) {
    for (const auto& call : OneCallOfEach()) {
        if (!StoreOperations().contains(call.operation)) {
            continue;
        }
        const auto inner = std::make_shared<clients::CMemoryClient>();
        inner->UploadFileAsync("a/object", Share("0123456789"))->Wait();
        CGateClient gate(inner);
        gate.Close();
        auto done = std::async(std::launch::async, [&] { call.run(gate); });
        gate.WaitHeld(1);
        EXPECT_EQ(done.wait_for(std::chrono::seconds(0)), std::future_status::timeout) << ToStr(call.operation);
        gate.Release();
        EXPECT_NO_THROW(done.get()) << ToStr(call.operation);
    }
}

TEST_F(CGateClientTest, LimitAndUtilsAreNeverHeld) {
    client.Close();
    EXPECT_EQ(client.GetConcurrentTaskLimit(), 8U);
    EXPECT_NO_THROW(client.CreateAsyncTaskUtils()->WaitAll({}));
}

TEST_F(CGateClientTest, OnlyTheGivenKindsAreHeld) {
    CGateClient gate(store, {EOperation::uploadFile});
    gate.Close();
    const auto upload = gate.UploadFileAsync("new", Share("text"));
    EXPECT_EQ(Read(gate, "object"), "0123456789");
    EXPECT_FALSE(gate.IsFileExist("new"));
    EXPECT_EQ(gate.GetHeld(), 1U);
    gate.Open();
    EXPECT_TRUE(gate.IsFileExist("new"));
}

TEST_F(CGateClientTest, StreamsAreHeldAtEachStep) {
    const auto up = client.StartUpload("streamed", 4);
    client.Close();
    const std::jthread writer([&] {
        up->Write(*Share("text"));
        up->Finish();
    });
    client.Release();  // the write
    client.WaitHeld(1);
    EXPECT_FALSE(store->IsFileExist("streamed"));
    client.Release();
}

TEST_F(CGateClientTest, StreamedReadsAreHeld) {
    const auto down = client.StartDownload("object");
    client.Close();
    bytes_t buffer(4);
    auto count = std::async(std::launch::async, [&] { return down->Read(buffer); });
    client.WaitHeld(1);
    client.Release();
    EXPECT_EQ(count.get(), 4U);
}

TEST_F(CGateClientTest, ReleaseWaitsForWhatComes) {
    client.Close();
    std::jthread releaser([&] { client.Release(3); });
    for (const char* path : {"1", "2", "3"}) {
        client.UploadFileAsync(path, Share())->Wait();
    }
    releaser.join();
    EXPECT_EQ(client.GetHeld(), 0U);
    EXPECT_EQ(Arrived().size(), 3U);
}

TEST_F(CGateClientTest, OrderOfArrivalIsKeptAcrossThreads) {
    client.Close();
    std::vector<std::jthread> callers;
    for (std::size_t i = 0; i < 5; ++i) {
        callers.emplace_back([&, i] { client.UploadFileAsync(std::to_string(i), Share()); });
        client.WaitHeld(i + 1);
    }
    callers.clear();
    client.Open();
    EXPECT_THAT(Arrived(),
                testing::ElementsAre("UploadFile 0", "UploadFile 1", "UploadFile 2", "UploadFile 3", "UploadFile 4"));
}

TEST_F(CGateClientTest, DestructionStartsWhatIsHeld) {
    task::task_ptr upload;
    task::task_ptr download;
    {
        CGateClient gate(store);
        gate.Close();
        upload = gate.UploadFileAsync("new", Share("text"));
        download = gate.DownloadFileAsync("missing", Share());
    }
    upload->Wait();
    EXPECT_EQ(Read(*store, "new"), "text");
    EXPECT_THROW(download->Wait(), CObjectNotFoundExc);
}

TEST_F(CGateClientTest, StreamsOutliveTheClient) {
    auto gate = std::make_unique<CGateClient>(store);
    const auto down = gate->StartDownload("object");
    gate->Close();
    gate.reset();
    bytes_t buffer(100);
    EXPECT_EQ(down->Read(buffer), 10U);
}

}  // namespace

}  // namespace cloudclientlib
