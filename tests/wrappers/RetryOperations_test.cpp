#include <gmock/gmock.h>

#include <future>
#include <thread>

#include "cloudclientlib/wrappers/GateClient.h"
#include "tests/wrappers/RetryFixture.h"

namespace cloudclientlib {

namespace {

using testing::ElementsAre;

std::shared_ptr<clients::CMemoryClient> FilledStore() {
    auto store = std::make_shared<clients::CMemoryClient>();
    for (const char* path : {"a/object", "a/copy", "b/1", "b/2", "b/sub/3", "b/sub/4", "b/z"}) {
        store->UploadFileAsync(path, Share("0123456789"))->Wait();
    }
    return store;
}

/// Everything that lies under the folder, with its content.
std::string Dump(ICloudClient& client, const std::string& folder = {}) {
    std::string text;
    for (const auto& entry : client.QueryFolder(folder)) {
        const std::string path = folder + '/' + entry.name;
        text += entry.isFolder ? path + "/ " + Dump(client, path) : path + '=' + Read(client, path) + ' ';
    }
    return text;
}

/// An operation, with its answer as a text.
struct SAnswer {
    EOperation operation;
    std::function<std::string(ICloudClient&)> ask;
};

template <class Change>
std::function<std::string(ICloudClient&)> Done(Change change) {
    return [change](ICloudClient& client) {
        change(client)->Wait();
        return std::string();
    };
}

template <class Get>
std::function<std::string(ICloudClient&)> Number(Get get) {
    return [get](ICloudClient& client) { return std::to_string(get(client)); };
}

std::string ReadStream(ICloudClient& client) {
    bytes_t buffer(100);
    const auto stream = client.StartDownload("a/object");
    buffer.resize(stream->Read(buffer));
    return {buffer.begin(), buffer.end()};
}

std::string WriteStream(ICloudClient& client) {
    const auto stream = client.StartUpload("new/stream", 3);
    stream->Write(*Share("abc"));
    stream->Finish();
    return {};
}

std::string ReadRange(ICloudClient& client) {
    const auto buffer = Share("old");
    client.DownloadFileAsync("a/object", buffer, 2, 5)->Wait();
    return TextOf(buffer);
}

using Client = ICloudClient;

/// All operations that reach the store but those of streams.
std::vector<SAnswer> Answers() {
    return {
        {EOperation::downloadFile, [](Client& client) { return Read(client, "a/object"); }},
        {EOperation::downloadFileRange, ReadRange},
        {EOperation::uploadFile, Done([](Client& client) { return client.UploadFileAsync("c/d/e", Share("new")); })},
        {EOperation::copyFile, Done([](Client& client) { return client.CopyFileAsync("a/object", "c/d/e"); })},
        {EOperation::deleteFile, Done([](Client& client) { return client.DeleteFileAsync("a/copy"); })},
        {EOperation::getFileSize, Number([](Client& client) { return client.GetFileSize("a/object"); })},
        {EOperation::isFileExist, Number([](Client& client) { return client.IsFileExist("a/object"); })},
        {EOperation::createFolder, Done([](Client& client) { return client.CreateFolderAsync("c/d"); })},
        {EOperation::deleteFolder, Done([](Client& client) { return client.DeleteFolderAsync("b", nullptr); })},
        {EOperation::getFolderSize, Number([](Client& client) { return client.GetFolderSize("b"); })},
        {EOperation::isFolderExist, Number([](Client& client) { return client.IsFolderExist("b"); })},
        {EOperation::queryFolder, Number([](Client& client) { return client.QueryFolder("b").size(); })},
        {EOperation::getObjectCount, Number([](Client& client) { return client.GetObjectCount("b"); })},
        {EOperation::getStorageQuota, Number([](Client& client) { return client.GetStorageQuota().used; })},
        {EOperation::startDownload, ReadStream},
        {EOperation::startUpload, WriteStream},
        {EOperation::retrieveArchive,
         [](Client& client) {
             client.RetrieveArchive("a/object", {});
             return std::string();
         }},
        {EOperation::getArchiveRetrievalStatus,
         Number([](Client& client) { return static_cast<int>(client.GetArchiveRetrievalStatus("a/object")); })},
    };
}

TEST(RetryOperations, EveryOneIsRetriedAndComesToTheSame) {
    const auto answers = Answers();
    ASSERT_EQ(answers.size(), StoreOperations().size() - 3) << "without the calls of streams";
    for (const EFaultMode mode : {EFaultMode::notDone, EFaultMode::doneButFailed, EFaultMode::doneInPart}) {
        for (const auto& answer : answers) {
            const std::string what = exc::Format("%1, %2", ToStr(answer.operation), ToStr(mode));
            const auto sound = FilledStore();
            const std::string expected = answer.ask(*sound);
            const auto store = FilledStore();
            const auto timer = std::make_shared<CFakeTimer>();
            CRetryClient client(FailingFirst(store, 3, mode, {answer.operation}), FastRetries(timer));
            EXPECT_EQ(answer.ask(client), expected) << what;
            EXPECT_EQ(timer->GetWaits().size(), 3U) << what;
            EXPECT_EQ(Dump(*store), Dump(*sound)) << what;
        }
    }
}

TEST(RetryOperations, CallsOfStreamsAreNotRetried) {
    for (const EOperation operation : {EOperation::streamRead, EOperation::streamWrite, EOperation::streamFinish}) {
        const auto timer = std::make_shared<CFakeTimer>();
        const auto faults = std::make_shared<CFaultClient>(FilledStore());
        faults->Arm({.call = 1, .mode = EFaultMode::notDone, .kinds = {operation}});
        CRetryClient client(faults, FastRetries(timer));
        const std::string message = MessageOf([&] {
            ReadStream(client);
            WriteStream(client);
        });
        EXPECT_TRUE(message.ends_with("': injected fault at call 1, not done")) << message;
        EXPECT_EQ(timer->GetWaits().size(), 0U);
    }
}

std::vector<std::string> ProgressOfDeletion(std::shared_ptr<ICloudClient> inner) {
    CRetryClient client(std::move(inner), FastRetries());
    const auto progress = std::make_shared<CRecordedProgress>();
    client.DeleteFolderAsync("b", progress)->Wait();
    return progress->calls;
}

TEST(RetryProgress, DeletionInPartGoesOnWhereItWas) {
    EXPECT_THAT(ProgressOfDeletion(FailingFirst(FilledStore(), 1, EFaultMode::doneInPart, {EOperation::deleteFolder})),
                ElementsAre("1/5", "2/5", "3/5", "4/5", "5/5"));
    EXPECT_THAT(ProgressOfDeletion(FailingFirst(FilledStore(), 3, EFaultMode::doneInPart, {EOperation::deleteFolder})),
                ElementsAre("1/5", "2/5", "3/5", "4/5", "5/5"));
}

TEST(RetryProgress, DeletionDoneAtOnceTellsNothingTwice) {
    EXPECT_THAT(
        ProgressOfDeletion(FailingFirst(FilledStore(), 1, EFaultMode::doneButFailed, {EOperation::deleteFolder})),
        ElementsAre("1/5", "2/5", "3/5", "4/5", "5/5"));
    EXPECT_THAT(ProgressOfDeletion(FailingFirst(FilledStore(), 2, EFaultMode::notDone, {EOperation::deleteFolder})),
                ElementsAre("1/5", "2/5", "3/5", "4/5", "5/5"));
}

/// A client whose first deletion tells of two objects out of five, deletes `deleted` of them and fails.
class CSilentDeletion : public CForwardingClient {
public:
    CSilentDeletion(std::shared_ptr<ICloudClient> inner, std::vector<std::string> deleted)
        : CForwardingClient(std::move(inner)), deleted_(std::move(deleted)) {}

    task::task_ptr DeleteFolderAsync(const std::string& path,
                                     std::shared_ptr<progress::progress_base_t> progress) override {
        if (std::exchange(isPast_, true)) {
            return CForwardingClient::DeleteFolderAsync(path, progress);
        }
        return task::RunNow([&] {
            progress->SetProgress(1, 5);
            progress->SetProgress(2, 5);
            for (const auto& object : deleted_) {
                DeleteFileAsync(object)->Wait();
            }
            throw CCloudExc({EFailure::transient, true, "DeleteFolder", path, "lost"});
        });
    }

private:
    const std::vector<std::string> deleted_;
    bool isPast_ = false;
};

TEST(RetryProgress, EndsWithAllWhenMoreWasDeletedThanTold) {
    EXPECT_THAT(ProgressOfDeletion(std::make_shared<CSilentDeletion>(
                    FilledStore(), std::vector<std::string>{"b/1", "b/2", "b/sub/3", "b/sub/4"})),
                ElementsAre("1/5", "2/5", "3/5", "5/5"));
    EXPECT_THAT(ProgressOfDeletion(std::make_shared<CSilentDeletion>(
                    FilledStore(), std::vector<std::string>{"b/1", "b/2", "b/sub/3", "b/sub/4", "b/z"})),
                ElementsAre("1/5", "2/5", "5/5"));
}

TEST(RetryProgress, GrowsWhenMoreIsFoundThanWasToldBefore) {
    EXPECT_THAT(ProgressOfDeletion(std::make_shared<CSilentDeletion>(FilledStore(), std::vector<std::string>{"b/1"})),
                ElementsAre("1/5", "2/5", "3/6", "4/6", "5/6", "6/6"));
}

TEST(RetryTasks, CompleteWithoutAWait) {
    const auto store = FilledStore();
    std::promise<void> secondCame;
    std::atomic<int> calls = 0;
    CRetryClient client(
        std::make_shared<CScriptedClient>(store,
                                          [&](const SInterceptedCall& call) {
                                              if (call.operation != EOperation::uploadFile) {
                                                  return;
                                              }
                                              if (++calls == 1) {
                                                  throw CCloudExc({EFailure::transient, true, "U", "p", "busy"});
                                              }
                                              secondCame.set_value();
                                          }),
        FastRetries());
    client.UploadFileAsync("new", Share("text"));
    secondCame.get_future().get();
    EXPECT_EQ(calls, 2);
}

TEST(RetryTasks, DestructorWaitsForRetries) {
    const auto store = FilledStore();
    const auto gate = std::make_shared<CGateClient>(store);
    gate->Close();
    auto client = std::make_unique<CRetryClient>(FailingFirst(gate, 2, EFaultMode::notDone, {EOperation::uploadFile}),
                                                 FastRetries());
    const auto task = client->UploadFileAsync("new", Share("text"));
    client->DeleteFileAsync("a/copy");
    auto destroyed = std::async(std::launch::async, [&] { client.reset(); });
    gate->WaitHeld(2);
    EXPECT_EQ(destroyed.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    gate->Open();
    destroyed.get();
    EXPECT_EQ(Read(*store, "new"), "text");
    EXPECT_FALSE(store->IsFileExist("a/copy"));
    EXPECT_NO_THROW(task->Wait());
}

TEST(RetryTasks, BufferIsLetGoWhenTheTaskIsDone) {
    CRetryClient client(FailingFirst(FilledStore(), 2, EFaultMode::notDone, {EOperation::uploadFile}), FastRetries());
    auto buffer = Share("text");
    const std::weak_ptr<bytes_t> seen = buffer;
    const auto task = client.UploadFileAsync("new", std::move(buffer));
    task->Wait();
    EXPECT_TRUE(seen.expired());
}

TEST(RetryTasks, StreamsOutliveTheClient) {
    auto client = std::make_unique<CRetryClient>(FilledStore(), FastRetries());
    const auto stream = client->StartDownload("a/object");
    client.reset();
    bytes_t buffer(100);
    EXPECT_EQ(stream->Read(buffer), 10U);
}

TEST(RetryTasks, ManyThreadsOverAStoreThatOftenFails) {
    const auto store = FilledStore();
    std::atomic<unsigned> arrived = 0;
    SRetryOptions options = FastRetries();
    options.attempts = 1000;
    options.base = options.cap = std::chrono::milliseconds(1);
    options.random = nullptr;
    CRetryClient client(
        std::make_shared<CScriptedClient>(store,
                                          [&](const SInterceptedCall& call) {
                                              if (StoreOperations().contains(call.operation) && ++arrived % 3 != 0) {
                                                  throw CCloudExc({EFailure::transient, true, "Op", call.path, "busy"});
                                              }
                                          }),
        options);
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 50; ++i) {
                const std::string path = exc::Format("t%1/%2", thread, i);
                client.UploadFileAsync(path, Share(path))->Wait();
                EXPECT_EQ(Read(client, path), path);
                EXPECT_EQ(client.GetFileSize(path), path.size());
            }
        });
    }
    threads.clear();
    EXPECT_EQ(store->GetObjectCount(""), 207U);
}

}  // namespace

}  // namespace cloudclientlib
