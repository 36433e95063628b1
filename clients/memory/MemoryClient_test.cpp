#include "clients/memory/MemoryClient.h"

#include <gmock/gmock.h>

#include <thread>

#include "cloudclientlib/CloudExc.h"
#include "common/digest.h"

namespace clients {

namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::EArchiveRetrievalStatus;
using cloudclientlib::EFailure;
using cloudclientlib::EStorageTier;
using cloudclientlib::SCloudObjectInfo;
using cloudclientlib::SStorageQuota;
using testing::ElementsAre;
using testing::IsEmpty;
using bytes_t = cnt::array_t<char>;

std::shared_ptr<bytes_t> Share(std::string_view text) { return std::make_shared<bytes_t>(text.begin(), text.end()); }

void Put(CMemoryClient& client, const std::string& path, std::string_view text) {
    client.UploadFileAsync(path, Share(text))->Wait();
}

std::string Get(CMemoryClient& client, const std::string& path) {
    const auto buffer = Share("");
    client.DownloadFileAsync(path, buffer)->Wait();
    return {buffer->begin(), buffer->end()};
}

/// The kind and the message of the failure that the action must end with.
std::pair<EFailure, std::string> FailureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const CCloudExc& failure) {
        return {failure.GetKind(), failure.what()};
    }
    ADD_FAILURE() << "expected a failure";
    return {EFailure::other, {}};
}

TEST(MemoryClient, LimitIsAsConfigured) {
    EXPECT_EQ(CMemoryClient().GetConcurrentTaskLimit(), 8U);
    EXPECT_EQ(CMemoryClient({.concurrentTaskLimit = 3}).GetConcurrentTaskLimit(), 3U);
    EXPECT_EQ(CMemoryClient({.concurrentTaskLimit = 0}).GetConcurrentTaskLimit(), 1U);
}

TEST(MemoryClient, TasksAreDoneWhenTheCallReturns) {
    CMemoryClient client;
    client.UploadFileAsync("object", Share("text"));
    EXPECT_TRUE(client.IsFileExist("object"));
    const auto buffer = Share("");
    client.DownloadFileAsync("object", buffer);
    EXPECT_EQ(*buffer, *Share("text"));
}

TEST(MemoryClient, ListingsAreInTheOrderOfNames) {
    CMemoryClient client;
    for (const char* path : {"b/object", "a b", "a/deep/object", "a!", "c", "a0", "a/object"}) {
        Put(client, path, "");
    }
    std::vector<std::string> names;
    for (const auto& entry : client.QueryFolder("")) {
        names.push_back(entry.name + (entry.isFolder ? "/" : ""));
    }
    EXPECT_THAT(names, ElementsAre("a/", "a b", "a!", "a0", "b/", "c"));
}

TEST(MemoryClient, EntriesTellTimeDigestAndTier) {
    CMemoryClient client;
    Put(client, "first", "");
    Put(client, "second", "text");
    client.SetTier("second", EStorageTier::infrequentAccess);
    const auto entries = client.QueryFolder("");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].modified.time_since_epoch(), std::chrono::seconds(1));
    EXPECT_EQ(entries[1].modified.time_since_epoch(), std::chrono::seconds(2));
    EXPECT_EQ(entries[1].md5, digest::Md5(*Share("text")));
    EXPECT_EQ(entries[0].tier, EStorageTier::standard);
    EXPECT_EQ(entries[1].tier, EStorageTier::infrequentAccess);
}

TEST(MemoryClient, ClockCanBeGiven) {
    const std::chrono::system_clock::time_point now(std::chrono::hours(1000));
    CMemoryClient client({.clock = [&] { return now; }});
    Put(client, "object", "");
    client.CopyFileAsync("object", "copy")->Wait();
    for (const auto& entry : client.QueryFolder("")) {
        EXPECT_EQ(entry.modified, now);
    }
}

TEST(MemoryClient, FoldersStayWhenTheyBecomeEmpty) {
    CMemoryClient client;
    Put(client, "a/b/object", "");
    client.DeleteFileAsync("a/b/object")->Wait();
    EXPECT_TRUE(client.IsFolderExist("a/b"));
    client.DeleteFolderAsync("a", nullptr)->Wait();
    EXPECT_FALSE(client.IsFolderExist("a"));
}

TEST(MemoryClient, NothingIsRecordedUnlessAskedFor) {
    CMemoryClient client;
    Put(client, "object", "");
    EXPECT_THAT(client.GetCalls(), IsEmpty());
}

TEST(MemoryClient, EveryCallIsRecordedAsMade) {
    CMemoryClient client({.recordCalls = true});
    Put(client, "/a//object", "text");
    client.DownloadFileAsync("a/object", Share(""));
    client.DownloadFileAsync("a/object", Share(""), 1, 2);
    client.CopyFileAsync("a/object", "b");
    client.DeleteFileAsync("../b");  // refused, and recorded all the same
    client.GetFileSize("a/object");
    client.IsFileExist("b");
    client.CreateFolderAsync("c");
    client.DeleteFolderAsync("c", nullptr);
    client.GetFolderSize("a");
    client.IsFolderExist("a");
    client.QueryFolder("a");
    client.GetObjectCount("a");
    client.GetStorageQuota();
    client.GetConcurrentTaskLimit();
    client.CreateAsyncTaskUtils();
    client.StartDownload("a/object");
    client.StartUpload("d", 1);
    client.RetrieveArchive("a/object", {});
    client.GetArchiveRetrievalStatus("a/object");
    EXPECT_THAT(
        client.GetCalls(),
        ElementsAre(SCall{"UploadFile", "/a//object"}, SCall{"DownloadFile", "a/object"},
                    SCall{"DownloadFile", "a/object"}, SCall{"CopyFile", "a/object", "b"}, SCall{"DeleteFile", "../b"},
                    SCall{"GetFileSize", "a/object"}, SCall{"IsFileExist", "b"}, SCall{"CreateFolder", "c"},
                    SCall{"DeleteFolder", "c"}, SCall{"GetFolderSize", "a"}, SCall{"IsFolderExist", "a"},
                    SCall{"QueryFolder", "a"}, SCall{"GetObjectCount", "a"}, SCall{"GetStorageQuota", {}},
                    SCall{"GetConcurrentTaskLimit", {}}, SCall{"CreateAsyncTaskUtils", {}},
                    SCall{"StartDownload", "a/object"}, SCall{"StartUpload", "d"}, SCall{"RetrieveArchive", "a/object"},
                    SCall{"GetArchiveRetrievalStatus", "a/object"}));
    client.ClearCalls();
    EXPECT_THAT(client.GetCalls(), IsEmpty());
}

TEST(MemoryClient, ReopenedClientRecordsItsOwnCalls) {
    CMemoryClient client({.recordCalls = true});
    const auto second = client.Reopen();
    Put(*second, "object", "text");
    EXPECT_THAT(client.GetCalls(), IsEmpty());
    EXPECT_THAT(second->GetCalls(), ElementsAre(SCall{"UploadFile", "object"}));
    EXPECT_EQ(Get(client, "object"), "text");
}

TEST(MemoryClient, CloneIsIndependent) {
    CMemoryClient client({.concurrentTaskLimit = 5, .quota = 100});
    Put(client, "a/object", "old");
    const auto clone = client.Clone();
    Put(client, "a/object", "newer");
    Put(*clone, "b", "other");
    EXPECT_EQ(Get(*clone, "a/object"), "old");
    EXPECT_FALSE(client.IsFileExist("b"));
    EXPECT_EQ(clone->GetStorageQuota(), (SStorageQuota{.total = 100, .used = 8}));
    EXPECT_EQ(clone->GetConcurrentTaskLimit(), 5U);
}

TEST(MemoryClient, CopiedStateReplacesEverything) {
    CMemoryClient before;
    Put(before, "a/object", "old");
    before.CreateFolderAsync("empty")->Wait();
    before.SetQuota(50);
    before.SetTier("a/object", EStorageTier::archive);
    CMemoryClient client;
    const auto second = client.Reopen();
    Put(client, "gone", "gone");
    client.CopyState(before);
    EXPECT_FALSE(second->IsFileExist("gone"));
    EXPECT_TRUE(second->IsFolderExist("empty"));
    EXPECT_EQ(second->GetStorageQuota(), (SStorageQuota{.total = 50, .used = 3}));
    EXPECT_EQ(second->GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::archived);
    Put(client, "a/object", "new");
    EXPECT_EQ(before.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::archived);
    client.CopyState(client);
    EXPECT_EQ(Get(client, "a/object"), "new");
}

TEST(MemoryClient, StoreOutlivesItsFirstClient) {
    auto client = std::make_unique<CMemoryClient>();
    const auto second = client->Reopen();
    const auto stream = client->StartUpload("object", 4);
    client.reset();
    stream->Write(*Share("text"));
    stream->Finish();
    EXPECT_EQ(Get(*second, "object"), "text");
}

TEST(MemoryClientQuota, UsedIsWhatObjectsTake) {
    CMemoryClient client;
    EXPECT_EQ(client.GetStorageQuota(), (SStorageQuota{.total = SStorageQuota::unlimited, .used = 0}));
    Put(client, "a/1", "12345");
    Put(client, "a/2", "123");
    client.CopyFileAsync("a/1", "b")->Wait();
    EXPECT_EQ(client.GetStorageQuota().used, 13U);
    Put(client, "a/1", "1");
    EXPECT_EQ(client.GetStorageQuota().used, 9U);
    client.DeleteFileAsync("b")->Wait();
    EXPECT_EQ(client.GetStorageQuota().used, 4U);
    client.DeleteFolderAsync("a", nullptr)->Wait();
    EXPECT_EQ(client.GetStorageQuota().used, 0U);
}

TEST(MemoryClientQuota, FullStoreRefusesAndKeepsAll) {
    CMemoryClient client({.quota = 10});
    Put(client, "object", "12345");
    const auto [kind, message] = FailureOf([&] { Put(client, "a/other", "123456"); });
    EXPECT_EQ(kind, EFailure::quota);
    EXPECT_EQ(message, "UploadFile 'a/other': the store is full");
    EXPECT_FALSE(client.IsFolderExist("a"));
    EXPECT_EQ(FailureOf([&] { Put(client, "object", "12345678901"); }).first, EFailure::quota);
    EXPECT_EQ(Get(client, "object"), "12345");
    Put(client, "other", "12345");
    Put(client, "object", "54321");
    EXPECT_EQ(FailureOf([&] { client.CopyFileAsync("object", "copy")->Wait(); }).first, EFailure::quota);
    EXPECT_EQ(client.GetStorageQuota(), (SStorageQuota{.total = 10, .used = 10}));
}

TEST(MemoryClientQuota, StreamedUploadMeetsItAtTheEnd) {
    CMemoryClient client({.quota = 10});
    const auto stream = client.StartUpload("object", 11);
    stream->Write(*Share("12345678901"));
    const auto [kind, message] = FailureOf([&] { stream->Finish(); });
    EXPECT_EQ(kind, EFailure::quota);
    EXPECT_EQ(message, "StartUpload 'object': the store is full");
    EXPECT_FALSE(client.IsFileExist("object"));
}

TEST(MemoryClientQuota, CanShrinkBelowWhatIsUsed) {
    CMemoryClient client;
    Put(client, "object", "12345");
    client.SetQuota(3);
    EXPECT_EQ(client.GetStorageQuota(), (SStorageQuota{.total = 3, .used = 5}));
    EXPECT_EQ(FailureOf([&] { Put(client, "other", "1"); }).first, EFailure::quota);
    EXPECT_EQ(FailureOf([&] { Put(client, "object", "123456"); }).first, EFailure::quota);
    Put(client, "object", "1234");  // less than before
    Put(client, "empty", "");
    client.SetQuota(SStorageQuota::unlimited);
    Put(client, "other", "12345");
}

TEST(MemoryClientConflict, TextsSayWhatIsInTheWay) {
    CMemoryClient client;
    Put(client, "a/object", "");
    EXPECT_EQ(FailureOf([&] { Put(client, "/a/", ""); }).second,
              "UploadFile '/a/': a folder lies at the object's path");
    EXPECT_EQ(FailureOf([&] { Put(client, "", ""); }).second, "UploadFile '': a folder lies at the object's path");
    EXPECT_EQ(FailureOf([&] { Put(client, "a/object/b/c", ""); }).second,
              "UploadFile 'a/object/b/c': a parent in the path is an object");
    EXPECT_EQ(FailureOf([&] { client.CreateFolderAsync("a/object")->Wait(); }).second,
              "CreateFolder 'a/object': an object lies at the folder's path");
    EXPECT_EQ(FailureOf([&] { client.CopyFileAsync("a/object", "a")->Wait(); }).second,
              "CopyFile 'a': a folder lies at the object's path");
}

TEST(MemoryClientStream, TextsSayWhatIsWrong) {
    CMemoryClient client;
    const auto tooMany = client.StartUpload("object", 1);
    EXPECT_EQ(FailureOf([&] { tooMany->Write(*Share("12")); }).second,
              "StartUpload 'object': more bytes than announced");
    EXPECT_EQ(FailureOf([&] { tooMany->Write(*Share("1")); }).second, "StartUpload 'object': the upload is over");
    EXPECT_EQ(FailureOf([&] { tooMany->Finish(); }).second, "StartUpload 'object': the upload is over");
    const auto tooFew = client.StartUpload("object", 1);
    EXPECT_EQ(FailureOf([&] { tooFew->Finish(); }).second, "StartUpload 'object': fewer bytes than announced");
    const auto finished = client.StartUpload("object", 0);
    finished->Finish();
    EXPECT_EQ(FailureOf([&] { finished->Finish(); }).second, "StartUpload 'object': the upload is over");
}

TEST(MemoryClientStream, DownloadKeepsTheContentItBeganWith) {
    CMemoryClient client;
    Put(client, "object", "old text");
    const auto stream = client.StartDownload("object");
    Put(client, "object", "new");
    bytes_t buffer(100);
    EXPECT_EQ(stream->Read(buffer), 8U);
    EXPECT_EQ(std::string(buffer.data(), 8), "old text");
}

class CArchiveTest : public testing::Test {
protected:
    CArchiveTest() {
        Put(client, "a/object", "text");
        client.SetTier("/a/object", EStorageTier::archive);
    }
    CMemoryClient client;
};

TEST_F(CArchiveTest, ArchivedObjectCannotBeRead) {
    const auto expectRefused = [](const char* operation, const std::function<void()>& action) {
        const auto [kind, message] = FailureOf(action);
        EXPECT_EQ(kind, EFailure::conflict);
        EXPECT_EQ(message, std::string(operation) + " 'a/object': the object is archived");
    };
    expectRefused("DownloadFile", [&] { Get(client, "a/object"); });
    expectRefused("DownloadFile", [&] { client.DownloadFileAsync("a/object", Share(""), 0, 1)->Wait(); });
    expectRefused("StartDownload", [&] { client.StartDownload("a/object"); });
    expectRefused("CopyFile", [&] { client.CopyFileAsync("a/object", "b")->Wait(); });
}

TEST_F(CArchiveTest, ArchivedObjectIsListedAndMeasured) {
    EXPECT_EQ(client.GetFileSize("a/object"), 4U);
    EXPECT_TRUE(client.IsFileExist("a/object"));
    ASSERT_EQ(client.QueryFolder("a").size(), 1U);
    EXPECT_EQ(client.QueryFolder("a").front().tier, EStorageTier::archive);
}

TEST_F(CArchiveTest, RetrievalGoesThroughItsStates) {
    EXPECT_EQ(client.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::archived);
    client.RetrieveArchive("a/object", {});
    EXPECT_EQ(client.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::inProgress);
    EXPECT_EQ(FailureOf([&] { Get(client, "a/object"); }).first, EFailure::conflict);
    client.RetrieveArchive("a/object", {});
    EXPECT_EQ(client.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::inProgress);
    client.FinishRetrievals();
    EXPECT_EQ(client.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::retrieved);
    EXPECT_EQ(Get(client, "a/object"), "text");
    client.RetrieveArchive("a/object", {});
    EXPECT_EQ(client.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::retrieved);
    client.ExpireRetrievals();
    EXPECT_EQ(client.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::archived);
    EXPECT_EQ(FailureOf([&] { Get(client, "a/object"); }).first, EFailure::conflict);
}

TEST_F(CArchiveTest, OnlyWhatWasAskedForIsRetrieved) {
    Put(client, "a/other", "text");
    client.SetTier("a/other", EStorageTier::archive);
    client.RetrieveArchive("a/object", {});
    client.FinishRetrievals();
    EXPECT_EQ(Get(client, "a/object"), "text");
    EXPECT_EQ(client.GetArchiveRetrievalStatus("a/other"), EArchiveRetrievalStatus::archived);
}

TEST_F(CArchiveTest, ArchivedObjectCanBeReplacedAndDeleted) {
    Put(client, "a/object", "new");
    EXPECT_EQ(client.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::online);
    EXPECT_EQ(Get(client, "a/object"), "new");
    client.SetTier("a/object", EStorageTier::archive);
    client.DeleteFileAsync("a/object")->Wait();
    EXPECT_FALSE(client.IsFileExist("a/object"));
}

TEST_F(CArchiveTest, TierCanBeSetBack) {
    client.SetTier("a/object", EStorageTier::standard);
    EXPECT_EQ(client.GetArchiveRetrievalStatus("a/object"), EArchiveRetrievalStatus::online);
    EXPECT_EQ(Get(client, "a/object"), "text");
    EXPECT_EQ(FailureOf([&] { client.SetTier("missing", EStorageTier::archive); }).second,
              "SetTier 'missing': object not found");
}

}  // namespace

}  // namespace clients
