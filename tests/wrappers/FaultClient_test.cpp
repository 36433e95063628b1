#include "cloudclientlib/wrappers/FaultClient.h"

#include <gmock/gmock.h>

#include <thread>

#include "tests/wrappers/WrapperFixture.h"

namespace cloudclientlib {

namespace {

class CFaultClientTest : public testing::Test {
protected:
    CFaultClientTest() {
        store->UploadFileAsync("a/object", Share("0123456789"))->Wait();
        store->ClearCalls();
    }
    void Arm(std::uint64_t call, EFaultMode mode, operation_set kinds = StoreOperations(), bool crash = false) {
        client.Arm({.call = call, .mode = mode, .kinds = std::move(kinds), .crash = crash});
    }

    const std::shared_ptr<clients::CMemoryClient> store = RecordingStore();
    CFaultClient client{store};
};

TEST_F(CFaultClientTest, FailureSaysThatItIsInjected) {
    Arm(1, EFaultMode::notDone);
    const auto upload = client.UploadFileAsync("/b//object", Share("text"));
    try {
        upload->Wait();
        FAIL() << "expected a failure";
    } catch (const CCloudExc& failure) {
        EXPECT_EQ(failure.GetKind(), EFailure::transient);
        EXPECT_TRUE(failure.IsRetryable());
        EXPECT_EQ(failure.GetOperation(), "UploadFile");
        EXPECT_EQ(failure.GetPath(), "/b//object");
        EXPECT_STREQ(failure.what(), "UploadFile '/b//object': injected fault at call 1, not done");
    }
    EXPECT_THROW(upload->Wait(), CCloudExc) << "the same at every Wait";
}

TEST_F(CFaultClientTest, ModesHaveNames) {
    EXPECT_EQ(ToStr(EFaultMode::notDone), "not done");
    EXPECT_EQ(ToStr(EFaultMode::doneButFailed), "done but failed");
    EXPECT_EQ(ToStr(EFaultMode::doneInPart), "done in part");
}

TEST_F(CFaultClientTest, NotDoneNeverReachesTheStore) {
    for (const auto& call : OneCallOfEach()) {
        if (!StoreOperations().contains(call.operation)) {
            continue;
        }
        Arm(1, EFaultMode::notDone);
        const std::string message = MessageOf([&] { call.run(client); });
        EXPECT_TRUE(message.starts_with(std::string(FailureName(call.operation)) + " '")) << message;
        EXPECT_TRUE(message.ends_with("': injected fault at call 1, not done")) << message;
        EXPECT_TRUE(client.IsReached());
    }
    EXPECT_THAT(store->GetCalls(), testing::IsEmpty());
}

TEST_F(CFaultClientTest, DoneButFailedIsDone) {
    for (const auto& call : OneCallOfEach()) {
        if (!StoreOperations().contains(call.operation)) {
            continue;
        }
        store->ClearCalls();
        Arm(1, EFaultMode::doneButFailed);
        const std::string message = MessageOf([&] { call.run(client); });
        EXPECT_TRUE(message.ends_with("': injected fault at call 1, done but failed")) << message;
        ASSERT_EQ(store->GetCalls().size(), 1U) << ToStr(call.operation);
        EXPECT_EQ(store->GetCalls().front().operation, FailureName(call.operation));
    }
}

TEST_F(CFaultClientTest, LimitAndUtilsNeverFail) {
    Arm(1, EFaultMode::notDone, StoreOperations(), true);
    EXPECT_THROW(client.GetFileSize("a/object"), CCloudExc);
    EXPECT_EQ(client.GetConcurrentTaskLimit(), 8U);
    EXPECT_NO_THROW(client.CreateAsyncTaskUtils());
}

TEST_F(CFaultClientTest, OnlyTheNthCallFails) {
    Arm(3, EFaultMode::notDone);
    std::string outcome;
    for (int i = 0; i < 6; ++i) {
        outcome += MessageOf([&] { client.GetFileSize("a/object"); }).empty() ? '.' : 'X';
        EXPECT_EQ(client.IsReached(), i >= 2);
    }
    EXPECT_EQ(outcome, "..X...");
    EXPECT_EQ(client.GetCallCount(), 6U);
}

TEST_F(CFaultClientTest, OnlyTheGivenKindsAreCounted) {
    Arm(2, EFaultMode::notDone, ChangingOperations());
    client.UploadFileAsync("b", Share())->Wait();
    EXPECT_EQ(client.GetFileSize("b"), 0U);
    client.QueryFolder("");
    EXPECT_EQ(client.GetCallCount(), 1U);
    EXPECT_EQ(MessageOf([&] { client.DeleteFileAsync("b")->Wait(); }),
              "DeleteFile 'b': injected fault at call 2, not done");
    EXPECT_TRUE(store->IsFileExist("b"));
}

TEST_F(CFaultClientTest, CallZeroOnlyCounts) {
    Arm(0, EFaultMode::notDone, {EOperation::uploadFile});
    for (int i = 0; i < 4; ++i) {
        client.UploadFileAsync("b", Share())->Wait();
        client.IsFileExist("b");
    }
    EXPECT_EQ(client.GetCallCount(), 4U);
    EXPECT_FALSE(client.IsReached());
}

TEST_F(CFaultClientTest, ArmingBeginsAnew) {
    Arm(1, EFaultMode::notDone);
    EXPECT_THROW(client.GetFileSize("a/object"), CCloudExc);
    Arm(2, EFaultMode::notDone);
    EXPECT_FALSE(client.IsReached());
    EXPECT_EQ(client.GetCallCount(), 0U);
    EXPECT_NO_THROW(client.GetFileSize("a/object"));
    client.Disarm();
    EXPECT_NO_THROW(client.GetFileSize("a/object"));
    EXPECT_FALSE(client.IsReached());
}

TEST_F(CFaultClientTest, AfterACrashNothingReachesTheStore) {
    Arm(2, EFaultMode::notDone, {EOperation::uploadFile}, true);
    client.UploadFileAsync("1", Share())->Wait();
    EXPECT_THROW(client.UploadFileAsync("2", Share())->Wait(), CCloudExc);
    const std::size_t before = store->GetCalls().size();
    for (const auto& call : OneCallOfEach()) {
        if (!StoreOperations().contains(call.operation)) {
            continue;
        }
        const std::string message = MessageOf([&] { call.run(client); });
        EXPECT_TRUE(message.ends_with("': injected crash: the store is out of reach")) << message;
    }
    EXPECT_EQ(store->GetCalls().size(), before);
    EXPECT_EQ(client.GetCallCount(), 3U) << "uploads are counted all the same";
    client.Disarm();
    EXPECT_EQ(Read(client, "a/object"), "0123456789");
    EXPECT_FALSE(client.IsFileExist("2"));
}

TEST_F(CFaultClientTest, CrashAfterTheCallWasDone) {
    Arm(1, EFaultMode::doneButFailed, ChangingOperations(), true);
    EXPECT_THROW(client.UploadFileAsync("b", Share("text"))->Wait(), CCloudExc);
    EXPECT_THROW(client.IsFileExist("b"), CCloudExc);
    EXPECT_EQ(Read(*store, "b"), "text");
}

TEST_F(CFaultClientTest, RealFailureOfTheFailingCallPasses) {
    Arm(1, EFaultMode::doneButFailed);
    EXPECT_THROW(client.DownloadFileAsync("missing", Share())->Wait(), CObjectNotFoundExc);
    EXPECT_TRUE(client.IsReached());
}

TEST_F(CFaultClientTest, FailedTaskLetGoWasDone) {
    Arm(1, EFaultMode::doneButFailed);
    client.UploadFileAsync("b", Share("text"));
    EXPECT_EQ(Read(*store, "b"), "text");
}

TEST_F(CFaultClientTest, UploadInPartMakesTheParents) {
    Arm(1, EFaultMode::doneInPart);
    EXPECT_EQ(MessageOf([&] { client.UploadFileAsync("//b/c//object", Share("text"))->Wait(); }),
              "UploadFile '//b/c//object': injected fault at call 1, done in part");
    EXPECT_TRUE(store->IsFolderExist("b/c"));
    EXPECT_FALSE(store->IsFileExist("b/c/object"));
}

TEST_F(CFaultClientTest, UploadInPartLeavesTheOldObject) {
    Arm(1, EFaultMode::doneInPart);
    EXPECT_THROW(client.UploadFileAsync("a/object", Share("new"))->Wait(), CCloudExc);
    EXPECT_EQ(Read(*store, "a/object"), "0123456789");
    Arm(1, EFaultMode::doneInPart);
    EXPECT_THROW(client.UploadFileAsync("object", Share("new"))->Wait(), CCloudExc);
    EXPECT_FALSE(store->IsFileExist("object"));
}

TEST_F(CFaultClientTest, CopyInPartMakesTheTargetsParents) {
    Arm(1, EFaultMode::doneInPart);
    EXPECT_THROW(client.CopyFileAsync("a/object", "b/c/object")->Wait(), CCloudExc);
    EXPECT_TRUE(store->IsFolderExist("b/c"));
    EXPECT_FALSE(store->IsFileExist("b/c/object"));
}

TEST_F(CFaultClientTest, FolderInPartIsItsParents) {
    Arm(1, EFaultMode::doneInPart);
    EXPECT_THROW(client.CreateFolderAsync("b/c/d")->Wait(), CCloudExc);
    EXPECT_TRUE(store->IsFolderExist("b/c"));
    EXPECT_FALSE(store->IsFolderExist("b/c/d"));
}

TEST_F(CFaultClientTest, DownloadInPartBringsHalf) {
    Arm(1, EFaultMode::doneInPart);
    const auto buffer = Share("old");
    EXPECT_THROW(client.DownloadFileAsync("a/object", buffer)->Wait(), CCloudExc);
    EXPECT_EQ(TextOf(buffer), "01234");
    Arm(1, EFaultMode::doneInPart);
    EXPECT_THROW(client.DownloadFileAsync("a/object", buffer, 2, 4)->Wait(), CCloudExc);
    EXPECT_EQ(TextOf(buffer), "23");
}

class CRecordedProgress : public progress::progress_base_t {
public:
    void SetProgress(std::uint64_t done, std::uint64_t total) override {
        calls.push_back(std::to_string(done) + '/' + std::to_string(total));
    }
    std::vector<std::string> calls;
};

TEST_F(CFaultClientTest, FolderDeletedInPartLosesTheFirstHalf) {
    for (const char* path : {"b/1", "b/2", "b/sub/3", "b/sub/4", "b/z"}) {
        store->UploadFileAsync(path, Share())->Wait();
    }
    Arm(1, EFaultMode::doneInPart);
    const auto progress = std::make_shared<CRecordedProgress>();
    EXPECT_THROW(client.DeleteFolderAsync("/b/", progress)->Wait(), CCloudExc);
    EXPECT_THAT(progress->calls, testing::ElementsAre("1/5", "2/5"));
    EXPECT_EQ(store->GetObjectCount("b"), 3U);
    EXPECT_FALSE(store->IsFileExist("b/1"));
    EXPECT_FALSE(store->IsFileExist("b/2"));
    EXPECT_TRUE(store->IsFileExist("a/object"));
}

TEST_F(CFaultClientTest, FolderOfOneObjectDeletedInPartIsWhole) {
    Arm(1, EFaultMode::doneInPart);
    EXPECT_THROW(client.DeleteFolderAsync("a", nullptr)->Wait(), CCloudExc);
    EXPECT_TRUE(store->IsFileExist("a/object"));
}

TEST_F(CFaultClientTest, RootDeletedInPart) {
    store->UploadFileAsync("b", Share())->Wait();
    Arm(1, EFaultMode::doneInPart);
    EXPECT_THROW(client.DeleteFolderAsync("", nullptr)->Wait(), CCloudExc);
    EXPECT_FALSE(store->IsFileExist("a/object"));
    EXPECT_TRUE(store->IsFileExist("b"));
}

TEST_F(CFaultClientTest, WhatHasNoPartsIsNotDone) {
    for (const EOperation operation : {EOperation::deleteFile, EOperation::getFileSize, EOperation::queryFolder,
                                       EOperation::startUpload, EOperation::retrieveArchive}) {
        store->ClearCalls();
        Arm(1, EFaultMode::doneInPart);
        const auto call = OneCallOfEach()[static_cast<std::size_t>(operation)];
        EXPECT_TRUE(MessageOf([&] { call.run(client); }).ends_with("injected fault at call 1, done in part"));
        EXPECT_THAT(store->GetCalls(), testing::IsEmpty()) << ToStr(operation);
    }
}

TEST_F(CFaultClientTest, OneOfManyThreadsMeetsTheFault) {
    Arm(150, EFaultMode::notDone);
    std::atomic<int> failed = 0;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                failed += MessageOf([&] { client.GetFileSize("a/object"); }).empty() ? 0 : 1;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(failed, 1);
    EXPECT_EQ(client.GetCallCount(), 400U);
}

}  // namespace

}  // namespace cloudclientlib
