#include "cloudbackuplib/RestrictedCloudClient.h"

#include <gmock/gmock.h>

#include "cloudclientlib/CloudExc.h"
#include "tests/support/MockCloudClient.h"

namespace cloudclientlib {
namespace {

using testing::Ref;
using testing::Return;

class NoProgress : public progress::progress_base_t {
    void SetProgress(std::uint64_t, std::uint64_t) override {}
};

class RestrictedCloudClient : public testing::Test {
protected:
    std::shared_ptr<testing::StrictMock<test::MockCloudClient>> inner_ =
        std::make_shared<testing::StrictMock<test::MockCloudClient>>();
    CRestrictedCloudClient client_{inner_, "/R"};
    ICloudClient::buffer_ptr buffer_ = std::make_shared<cnt::array_t<char>>();
    task::task_ptr task_ = task::RunNow([] {});
};

TEST_F(RestrictedCloudClient, PutsItsRootInFront) {
    EXPECT_EQ(client_.ToRealPath("a/b"), "/R/a/b");
    EXPECT_EQ(client_.ToRealPath("/a/b"), "/R/a/b");
    EXPECT_EQ(client_.ToRealPath(""), "/R");
    EXPECT_EQ(client_.ToRealPath("/"), "/R/");
}

TEST_F(RestrictedCloudClient, DoesNotMergeSeparators) {
    EXPECT_EQ(CRestrictedCloudClient(inner_, "/R/").ToRealPath("a"), "/R//a");
    EXPECT_EQ(CRestrictedCloudClient(inner_, "/R/").ToRealPath("/a"), "/R//a");
    EXPECT_EQ(CRestrictedCloudClient(inner_, "/").ToRealPath("a"), "//a");
}

TEST_F(RestrictedCloudClient, WithAnEmptyRootLeavesPathsAlone) {
    const CRestrictedCloudClient open(inner_, "");
    EXPECT_EQ(open.ToRealPath(""), "");
    EXPECT_EQ(open.ToRealPath("a"), "a");
    EXPECT_EQ(open.ToRealPath("/a"), "/a");
}

TEST_F(RestrictedCloudClient, MapsAndNeverJudges) {
    EXPECT_EQ(client_.ToRealPath("../x"), "/R/../x");
    EXPECT_EQ(client_.ToRealPath("//a//./"), "/R//a//./");
    EXPECT_EQ(client_.ToRealPath(std::string("a\0b", 3)), std::string("/R/a\0b", 6));
}

TEST_F(RestrictedCloudClient, MapsThePathsOfTransfers) {
    EXPECT_CALL(*inner_, DownloadFileAsync("/R/a", buffer_)).WillOnce(Return(task_));
    EXPECT_EQ(client_.DownloadFileAsync("a", buffer_), task_);
    EXPECT_CALL(*inner_, DownloadFileAsync("/R/a", buffer_, 3UL, 5UL)).WillOnce(Return(task_));
    EXPECT_EQ(client_.DownloadFileAsync("a", buffer_, 3, 5), task_);
    EXPECT_CALL(*inner_, UploadFileAsync("/R/a", buffer_)).WillOnce(Return(task_));
    EXPECT_EQ(client_.UploadFileAsync("/a", buffer_), task_);
    EXPECT_CALL(*inner_, CopyFileAsync("/R/a", "/R/b")).WillOnce(Return(task_));
    EXPECT_EQ(client_.CopyFileAsync("a", "/b"), task_);
}

TEST_F(RestrictedCloudClient, MapsThePathsOfFiles) {
    EXPECT_CALL(*inner_, DeleteFileAsync("/R/a")).WillOnce(Return(task_));
    EXPECT_EQ(client_.DeleteFileAsync("a"), task_);
    EXPECT_CALL(*inner_, GetFileSize("/R/a")).WillOnce(Return(std::uint64_t{1} << 40U));
    EXPECT_EQ(client_.GetFileSize("a"), std::uint64_t{1} << 40U);
    EXPECT_CALL(*inner_, IsFileExist("/R/a")).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_TRUE(client_.IsFileExist("a"));
    EXPECT_FALSE(client_.IsFileExist("a"));
}

TEST_F(RestrictedCloudClient, MapsThePathsOfFolders) {
    const auto progress = std::make_shared<NoProgress>();
    EXPECT_CALL(*inner_, CreateFolderAsync("/R")).WillOnce(Return(task_));
    EXPECT_EQ(client_.CreateFolderAsync(""), task_);
    EXPECT_CALL(*inner_, DeleteFolderAsync("/R/a", test::MockCloudClient::progress_ptr(progress)))
        .WillOnce(Return(task_));
    EXPECT_EQ(client_.DeleteFolderAsync("a", progress), task_);
    EXPECT_CALL(*inner_, GetFolderSize("/R/a")).WillOnce(Return(7U));
    EXPECT_EQ(client_.GetFolderSize("a"), 7U);
    EXPECT_CALL(*inner_, IsFolderExist("/R")).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_TRUE(client_.IsFolderExist(""));
    EXPECT_FALSE(client_.IsFolderExist(""));
}

TEST_F(RestrictedCloudClient, ReturnsListingsAsTheyAre) {
    SCloudObjectInfo object;
    object.name = "/R/a/inner";
    object.size = 5;
    object.modified = std::chrono::system_clock::time_point(std::chrono::seconds(7));
    object.md5 = digest::Md5(std::string_view("x"));
    object.tier = EStorageTier::archive;
    SCloudObjectInfo folder;
    folder.name = "R";
    folder.isFolder = true;
    EXPECT_CALL(*inner_, QueryFolder("/R/a")).WillOnce(Return(std::vector<SCloudObjectInfo>{object, folder}));
    const auto entries = client_.QueryFolder("a");
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].name, "/R/a/inner");
    EXPECT_FALSE(entries[0].isFolder);
    EXPECT_EQ(entries[0].size, 5U);
    EXPECT_EQ(entries[0].modified, object.modified);
    EXPECT_EQ(entries[0].md5, object.md5);
    EXPECT_EQ(entries[0].tier, EStorageTier::archive);
    EXPECT_EQ(entries[1].name, "R");
    EXPECT_TRUE(entries[1].isFolder);
}

TEST_F(RestrictedCloudClient, HandsThePathOfTheObjectCountOnUnmapped) {
    EXPECT_CALL(*inner_, GetObjectCount("x")).WillOnce(Return(3U));
    EXPECT_EQ(client_.GetObjectCount("x"), 3U);
    EXPECT_CALL(*inner_, GetObjectCount("")).WillOnce(Return(4U));
    EXPECT_EQ(client_.GetObjectCount(""), 4U);
}

TEST_F(RestrictedCloudClient, PassesThroughWhatHasNoPath) {
    EXPECT_CALL(*inner_, GetStorageQuota()).WillOnce(Return(SStorageQuota{10, 4}));
    EXPECT_EQ(client_.GetStorageQuota(), (SStorageQuota{10, 4}));
    EXPECT_CALL(*inner_, GetConcurrentTaskLimit()).WillOnce(Return(17U));
    EXPECT_EQ(client_.GetConcurrentTaskLimit(), 17U);
    const auto utils = task::CreateTaskUtils();
    EXPECT_CALL(*inner_, CreateAsyncTaskUtils()).WillOnce(Return(utils));
    EXPECT_EQ(client_.CreateAsyncTaskUtils(), utils);
}

TEST_F(RestrictedCloudClient, MapsThePathsOfStreams) {
    class CEmptyDownload : public IDownloadStream {
        std::size_t Read(std::span<char>) override { return 0; }
    };
    class CNoUpload : public IUploadStream {
        void Write(std::span<const char>) override {}
        void Finish() override {}
    };
    const auto download = std::make_shared<CEmptyDownload>();
    const auto upload = std::make_shared<CNoUpload>();
    EXPECT_CALL(*inner_, StartDownload("/R/a")).WillOnce(Return(download));
    EXPECT_EQ(client_.StartDownload("a"), download);
    EXPECT_CALL(*inner_, StartUpload("/R/a", 9UL)).WillOnce(Return(upload));
    EXPECT_EQ(client_.StartUpload("a", 9), upload);
}

TEST_F(RestrictedCloudClient, MapsThePathsOfTheArchive) {
    const SRetrieveArchiveOptions options{SRetrieveArchiveOptions::ESpeed::bulk, 3};
    EXPECT_CALL(*inner_, RetrieveArchive("/R/a", Ref(options)));
    client_.RetrieveArchive("a", options);
    EXPECT_CALL(*inner_, GetArchiveRetrievalStatus("/R/a")).WillOnce(Return(EArchiveRetrievalStatus::inProgress));
    EXPECT_EQ(client_.GetArchiveRetrievalStatus("a"), EArchiveRetrievalStatus::inProgress);
}

TEST_F(RestrictedCloudClient, PassesFailuresThroughUnchanged) {
    EXPECT_CALL(*inner_, GetFileSize("/R/a")).WillOnce(testing::Throw(CObjectNotFoundExc("GetFileSize", "/R/a")));
    try {
        static_cast<void>(client_.GetFileSize("a"));
        FAIL() << "the failure is lost";
    } catch (const CObjectNotFoundExc& e) {
        EXPECT_EQ(e.GetPath(), "/R/a");
    }
}

TEST_F(RestrictedCloudClient, HandsOutTheTasksFailureAsItIs) {
    const task::task_ptr failing = task::RunNow([] { throw CObjectNotFoundExc("DownloadFile", "/R/a"); });
    EXPECT_CALL(*inner_, DownloadFileAsync("/R/a", buffer_)).WillOnce(Return(failing));
    const task::task_ptr one = client_.DownloadFileAsync("a", buffer_);
    EXPECT_THROW(one->Wait(), CObjectNotFoundExc);
}

TEST_F(RestrictedCloudClient, MapsTheEmptyPathOfACopyToItsRoot) {
    EXPECT_CALL(*inner_, CopyFileAsync("/R", "/R")).WillOnce(Return(task_));
    EXPECT_EQ(client_.CopyFileAsync("", ""), task_);
}

TEST_F(RestrictedCloudClient, MayStandInsideAnother) {
    const auto outer = std::make_shared<CRestrictedCloudClient>(inner_, "/R");
    CRestrictedCloudClient nested(outer, "Clients/1");
    EXPECT_CALL(*inner_, IsFileExist("/R/Clients/1/b")).WillOnce(Return(true));
    EXPECT_TRUE(nested.IsFileExist("/b"));
}

TEST_F(RestrictedCloudClient, KeepsItsClientAlive) {
    std::weak_ptr<ICloudClient> watched;
    {
        auto other = std::make_shared<test::MockCloudClient>();
        watched = other;
        const CRestrictedCloudClient restricted(std::move(other), "");
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace cloudclientlib
