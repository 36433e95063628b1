#include "cloudclientlib/wrappers/LimitClient.h"

#include <gmock/gmock.h>

#include <future>
#include <thread>

#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/GateClient.h"
#include "tests/wrappers/FakeTimer.h"
#include "tests/wrappers/ThrowingClient.h"
#include "tests/wrappers/WrapperFixture.h"

namespace cloudclientlib {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

bool IsReady(const std::future<void>& future) { return future.wait_for(0s) == std::future_status::ready; }

/// A gate around a store, and what arrives at the store.
class CLimitClientTest : public testing::Test {
protected:
    CLimitClientTest() {
        store->UploadFileAsync("object", Share("0123456789"))->Wait();
        store->ClearCalls();
    }
    std::vector<std::string> Arrived() const {
        std::vector<std::string> calls;
        for (const clients::SCall& call : store->GetCalls()) {
            if (call.operation != "GetConcurrentTaskLimit") {
                calls.push_back(call.operation + ' ' + call.path);
            }
        }
        return calls;
    }

    const std::shared_ptr<clients::CMemoryClient> store = RecordingStore();
    const std::shared_ptr<CCountingClient> counting = std::make_shared<CCountingClient>(store);
    const std::shared_ptr<CGateClient> gate = std::make_shared<CGateClient>(counting);
};

TEST_F(CLimitClientTest, LimitOfTasksIsTheSmallerOne) {
    EXPECT_EQ(CLimitClient(store, {.operationsInFlight = 3}).GetConcurrentTaskLimit(), 3U);
    EXPECT_EQ(CLimitClient(store, {.operationsInFlight = 100}).GetConcurrentTaskLimit(), 8U);
    EXPECT_EQ(CLimitClient(store, {}).GetConcurrentTaskLimit(), 8U);
}

TEST_F(CLimitClientTest, EveryOperationPasses) {
    store->UploadFileAsync("a/object", Share("0123456789"))->Wait();
    for (const std::size_t operations : {0U, 1U, 4U}) {
        CLimitClient client(store, {.operationsInFlight = operations});
        for (const auto& call : OneCallOfEach()) {
            EXPECT_EQ(MessageOf([&] { call.run(client); }), "") << ToStr(call.operation);
        }
    }
}

TEST_F(CLimitClientTest, NeverMoreInFlightThanAllowed) {
    const auto inFlight = std::make_shared<CCountingClient>(gate);
    CLimitClient client(inFlight, {.operationsInFlight = 3});
    gate->Close();
    std::vector<task::task_ptr> tasks;
    for (int i = 0; i < 10; ++i) {
        tasks.push_back(client.UploadFileAsync(std::to_string(i), Share("x")));
    }
    for (int released = 0; released < 8; ++released) {
        gate->WaitHeld(3);
        EXPECT_EQ(gate->GetHeld(), 3U);
        EXPECT_EQ(counting->GetCounts().Total() - counting->GetCounts().Of(EOperation::getConcurrentTaskLimit),
                  static_cast<std::uint64_t>(released));
        gate->Release();
    }
    gate->Open();
    for (const auto& task : tasks) {
        task->Wait();
    }
    EXPECT_EQ(inFlight->GetCounts().mostTasksInFlight, 3U);
    EXPECT_EQ(inFlight->GetCounts().Of(EOperation::uploadFile), 10U);
}

TEST_F(CLimitClientTest, BeginsInTheOrderOfArrival) {
    CLimitClient client(gate, {.operationsInFlight = 1});
    gate->Close();
    client.UploadFileAsync("1", Share());
    client.DeleteFileAsync("2");
    client.CopyFileAsync("object", "3");
    const auto last = client.CreateFolderAsync("4");
    gate->Open();
    last->Wait();
    EXPECT_THAT(Arrived(), ElementsAre("UploadFile 1", "DeleteFile 2", "CopyFile object", "CreateFolder 4"));
}

TEST_F(CLimitClientTest, SynchronousOperationTakesAPlaceToo) {
    CLimitClient client(gate, {.operationsInFlight = 1});
    gate->Close();
    const auto upload = client.UploadFileAsync("new", Share());
    gate->WaitHeld(1);
    auto size = std::async(std::launch::async, [&] { client.GetFileSize("object"); });
    EXPECT_EQ(gate->GetHeld(), 1U);
    gate->Release();
    gate->WaitHeld(1);
    EXPECT_FALSE(IsReady(size));
    const auto later = client.DeleteFileAsync("object");
    EXPECT_EQ(gate->GetHeld(), 1U) << "the place is the synchronous operation's";
    gate->Release();
    gate->Release();
    later->Wait();
    size.get();
    EXPECT_THAT(Arrived(), ElementsAre("UploadFile new", "GetFileSize object", "DeleteFile object"));
}

TEST_F(CLimitClientTest, EveryStoreOperationTakesAPlace) {
    store->UploadFileAsync("a/object", Share("0123456789"))->Wait();
    for (const auto& call : OneCallOfEach()) {
        if (!StoreOperations().contains(call.operation)) {
            continue;
        }
        CLimitClient client(gate, {.operationsInFlight = 1});
        gate->Close();
        auto done = std::async(std::launch::async, [&] { call.run(client); });
        gate->WaitHeld(1);  // with the only place
        const auto later = client.CreateFolderAsync("later");
        EXPECT_EQ(gate->GetHeld(), 1U) << ToStr(call.operation);
        gate->Release();
        done.get();
        gate->Open();
        later->Wait();
    }
}

TEST_F(CLimitClientTest, FailedOperationsLeaveTheirPlaces) {
    CLimitClient client(store, {.operationsInFlight = 1});
    for (int i = 0; i < 3; ++i) {
        EXPECT_THROW(client.DownloadFileAsync("missing", Share())->Wait(), CObjectNotFoundExc);
        EXPECT_THROW(client.GetFileSize("missing"), CObjectNotFoundExc);
        EXPECT_THROW(client.StartDownload("missing"), CObjectNotFoundExc);
    }
    EXPECT_EQ(client.GetFileSize("object"), 10U);
}

TEST_F(CLimitClientTest, CallThatThrowsFailsTheTask) {
    CLimitClient client(std::make_shared<CThrowingClient>(store), {.operationsInFlight = 1});
    const auto deletion = client.DeleteFileAsync("object");
    EXPECT_THROW(deletion->Wait(), CObjectNotFoundExc);
    EXPECT_THROW(deletion->Wait(), CObjectNotFoundExc);
    EXPECT_EQ(client.GetFileSize("object"), 10U);
}

TEST_F(CLimitClientTest, OpenStreamsHoldNoPlace) {
    CLimitClient client(store, {.operationsInFlight = 1});
    const auto down = client.StartDownload("object");
    const auto up = client.StartUpload("new", 4);
    client.DeleteFileAsync("object")->Wait();
    up->Write(*Share("text"));
    EXPECT_FALSE(client.IsFileExist("new"));
    up->Finish();
    EXPECT_EQ(Read(client, "new"), "text");
}

TEST_F(CLimitClientTest, CallsOfStreamsTakeAPlace) {
    CLimitClient client(gate, {.operationsInFlight = 1});
    const auto up = client.StartUpload("new", 4);
    gate->Close();
    const auto deletion = client.DeleteFileAsync("object");
    gate->WaitHeld(1);
    auto written = std::async(std::launch::async, [&] {
        up->Write(*Share("text"));
        up->Finish();
    });
    EXPECT_EQ(gate->GetHeld(), 1U);
    gate->Release(3);
    written.get();
    EXPECT_EQ(Read(*store, "new"), "text");
}

TEST_F(CLimitClientTest, TasksLetGoAreDoneWhenTheClientIsGone) {
    auto client = std::make_unique<CLimitClient>(gate, SLimits{.operationsInFlight = 2});
    gate->Close();
    for (int i = 0; i < 20; ++i) {
        client->UploadFileAsync(std::to_string(i), Share("x"));
    }
    auto destroyed = std::async(std::launch::async, [&] { client.reset(); });
    gate->WaitHeld(2);
    EXPECT_FALSE(IsReady(destroyed));
    gate->Open();
    destroyed.get();
    EXPECT_EQ(store->GetObjectCount(""), 21U);
}

TEST_F(CLimitClientTest, TasksAndStreamsOutliveTheClient) {
    auto client = std::make_unique<CLimitClient>(store, SLimits{.operationsInFlight = 1});
    const auto task = client->UploadFileAsync("new", Share("text"));
    const auto missing = client->DownloadFileAsync("missing", Share());
    const auto down = client->StartDownload("object");
    const auto up = client->StartUpload("streamed", 1);
    client.reset();
    EXPECT_NO_THROW(task->Wait());
    EXPECT_THROW(missing->Wait(), CObjectNotFoundExc);
    bytes_t buffer(100);
    EXPECT_EQ(down->Read(buffer), 10U);
    up->Write(*Share("x"));
    up->Finish();
    EXPECT_EQ(Read(*store, "streamed"), "x");
}

TEST_F(CLimitClientTest, BuffersAreLetGoWhenTheTaskIsDone) {
    CLimitClient client(gate, {.operationsInFlight = 1});
    gate->Close();
    const auto first = client.DeleteFileAsync("object");
    auto buffer = Share("text");
    const std::weak_ptr<bytes_t> seen = buffer;
    const auto queued = client.UploadFileAsync("new", std::move(buffer));
    EXPECT_FALSE(seen.expired());
    gate->Open();
    queued->Wait();
    store->DeleteFileAsync("new")->Wait();
    EXPECT_TRUE(seen.expired());
}

TEST_F(CLimitClientTest, ManyThreadsNeverExceedTheLimitNorHang) {
    const auto inFlight = std::make_shared<CCountingClient>(store);
    auto client = std::make_unique<CLimitClient>(inFlight, SLimits{.operationsInFlight = 2});
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 6; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 60; ++i) {
                const std::string path = exc::Format("t%1/%2", thread, i);
                const auto task = client->UploadFileAsync(path, Share(path));
                client->CreateFolderAsync("let go");
                if (i % 2 == 0) {
                    task->Wait();
                    EXPECT_EQ(client->GetFileSize(path), path.size());
                }
            }
        });
    }
    threads.clear();
    client.reset();
    EXPECT_EQ(store->GetObjectCount(""), 361U);
    EXPECT_LE(inFlight->GetCounts().mostTasksInFlight, 2U);
    EXPECT_EQ(inFlight->GetCounts().tasksInFlight, 0U);
}

/// Rates, with a clock that stands still unless somebody waits.
class CRateTest : public CLimitClientTest {
protected:
    static ICloudClient::buffer_ptr Bytes(std::size_t count) { return Share(std::string(count, 'x')); }

    const std::shared_ptr<CFakeTimer> timer = std::make_shared<CFakeTimer>();
    CLimitClient client{store, {.bytesPerSecondUp = 1000, .bytesPerSecondDown = 500}, timer};
};

TEST_F(CRateTest, UploadsWaitForTheirBytes) {
    client.UploadFileAsync("1", Bytes(600))->Wait();
    EXPECT_THAT(timer->GetWaits(), IsEmpty());
    client.UploadFileAsync("2", Bytes(600))->Wait();
    EXPECT_THAT(timer->GetWaits(), ElementsAre(200ms));
    client.UploadFileAsync("3", Bytes(5000))->Wait();
    client.UploadFileAsync("4", Bytes(100))->Wait();
    EXPECT_THAT(timer->GetWaits(), ElementsAre(200ms, 1s, 4100ms));
}

TEST_F(CRateTest, WholeDownloadsAreTakenWhenDone) {
    store->UploadFileAsync("large", Bytes(2000))->Wait();
    EXPECT_EQ(Read(client, "large").size(), 2000U);
    EXPECT_THAT(timer->GetWaits(), IsEmpty());
    EXPECT_EQ(Read(client, "object").size(), 10U);
    EXPECT_THAT(timer->GetWaits(), ElementsAre(3s));
    client.DownloadFileAsync("object", Share(), 0, 5)->Wait();
    EXPECT_THAT(timer->GetWaits(), ElementsAre(3s, 30ms));
}

TEST_F(CRateTest, RangesAreTakenBeforehand) {
    store->UploadFileAsync("large", Bytes(2000))->Wait();
    client.DownloadFileAsync("large", Share(), 0, 300)->Wait();
    EXPECT_THAT(timer->GetWaits(), IsEmpty());
    client.DownloadFileAsync("large", Share(), 0, 300)->Wait();
    EXPECT_THAT(timer->GetWaits(), ElementsAre(200ms));
    client.DownloadFileAsync("large", Share(), 0, 1500)->Wait();
    EXPECT_THAT(timer->GetWaits(), ElementsAre(200ms, 1s));
    client.DownloadFileAsync("large", Share(), 0, 1)->Wait();
    EXPECT_THAT(timer->GetWaits(), ElementsAre(200ms, 1s, 2002ms));
}

TEST_F(CRateTest, RangePastTheEndCostsWhatItBrought) {
    for (int i = 0; i < 5; ++i) {
        client.DownloadFileAsync("object", Share(), 0, ~0UL)->Wait();
    }
    EXPECT_THAT(timer->GetWaits(), ElementsAre(20ms, 20ms, 20ms, 20ms)) << "each waits for a full bucket";
}

TEST_F(CRateTest, DirectionsAreApart) {
    client.UploadFileAsync("large", Bytes(50'000))->Wait();
    EXPECT_EQ(Read(client, "object").size(), 10U);
    EXPECT_THAT(timer->GetWaits(), IsEmpty());
}

TEST_F(CRateTest, WhatMovesNoBytesNeverWaits) {
    client.UploadFileAsync("large", Bytes(50'000))->Wait();
    EXPECT_EQ(Read(client, "large").size(), 50'000U);
    client.CopyFileAsync("large", "copy")->Wait();
    client.DeleteFileAsync("large")->Wait();
    client.QueryFolder("");
    client.GetFileSize("copy");
    client.StartDownload("copy");
    client.StartUpload("new", 100'000);
    EXPECT_THAT(timer->GetWaits(), IsEmpty());
}

TEST_F(CRateTest, StreamsAreChargedAsTheyPass) {
    const auto up = client.StartUpload("new", 1500);
    up->Write(*Bytes(1000));
    up->Write(*Bytes(500));
    up->Finish();
    EXPECT_THAT(timer->GetWaits(), ElementsAre(500ms));
    const auto down = client.StartDownload("new");
    bytes_t buffer(1000);
    EXPECT_EQ(down->Read(buffer), 1000U);
    EXPECT_THAT(timer->GetWaits(), ElementsAre(500ms));
    EXPECT_EQ(down->Read(buffer), 500U);
    EXPECT_EQ(down->Read(buffer), 0U);
    EXPECT_THAT(timer->GetWaits(), ElementsAre(500ms, 1s, 1s));
}

TEST_F(CRateTest, FailedDownloadCostsItsRange) {
    EXPECT_THROW(client.DownloadFileAsync("missing", Share(), 0, 500)->Wait(), CObjectNotFoundExc);
    EXPECT_THROW(client.DownloadFileAsync("missing", Share())->Wait(), CObjectNotFoundExc);
    client.DownloadFileAsync("object", Share(), 0, 10)->Wait();
    EXPECT_THAT(timer->GetWaits(), ElementsAre(20ms));
}

TEST_F(CRateTest, PlacesAndRatesGoTogether) {
    const auto clock = std::make_shared<CFakeTimer>();
    CLimitClient limited(store, {.operationsInFlight = 1, .bytesPerSecondUp = 10}, clock);
    limited.UploadFileAsync("1", Bytes(1000));
    limited.UploadFileAsync("2", Bytes(1));
    limited.UploadFileAsync("3", Bytes(1))->Wait();
    EXPECT_THAT(clock->GetWaits(), ElementsAre(99'100ms, 100ms));
}

}  // namespace

}  // namespace cloudclientlib
