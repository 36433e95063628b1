#include "clients/directory/DirectoryClient.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>

#include "clients/directory/FolderTree.h"
#include "clients/directory/TestRoot.h"

namespace clients::directory {
namespace {

namespace fs = std::filesystem;
using cloudclientlib::CObjectNotFoundExc;

mode_t ModeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777U;
}

std::vector<std::string> NamesOf(const std::vector<cloudclientlib::SCloudObjectInfo>& infos) {
    std::vector<std::string> names;
    for (const auto& info : infos) {
        names.push_back(info.name);
    }
    return names;
}

TEST(DirectoryClient, MissingRootIsNamed) {
    const CTestRoot base;
    const std::string root = base.In("none");
    EXPECT_EQ(FailureOf([&] { CDirectoryClient client(root); }),
              "not found|OpenRoot '" + root + "': it or a folder above it does not exist");
    EXPECT_FALSE(fs::exists(root));
}

TEST(DirectoryClient, FileAsRootIsAConflict) {
    const CTestRoot base;
    const std::string root = base.In("file");
    WritePlain(root, "x");
    const std::string expected = "conflict|OpenRoot '" + root + "': an object stands where a folder is needed";
    EXPECT_EQ(FailureOf([&] { CDirectoryClient client(root); }), expected);
    EXPECT_EQ(FailureOf([&] { CDirectoryClient client(root, ERoot::createMissing); }), expected);
    EXPECT_EQ(ReadPlain(root), "x");
}

TEST(DirectoryClient, EmptyRootPathAndNulAreRefused) {
    EXPECT_EQ(FailureOf([] { CDirectoryClient client(""); }),
              "not found|OpenRoot '': it or a folder above it does not exist");
    EXPECT_EQ(FailureOf([] { CDirectoryClient client("", ERoot::createMissing); }),
              "not found|OpenRoot '': it or a folder above it does not exist");
    const std::string nul("/tmp\0/x", 7);
    for (const auto mode : {ERoot::existing, ERoot::createMissing}) {
        EXPECT_EQ(FailureOf([&] { CDirectoryClient client(nul, mode); }).substr(0, 16), "other|OpenRoot '");
    }
}

TEST(DirectoryClient, CreatesTheRootWithItsParentsForTheOwnerAlone) {
    const CTestRoot base;
    const std::string root = base.In("a//b/c/");
    {
        CDirectoryClient client(root, ERoot::createMissing);
        Upload(client, "x/y", "content");
    }
    EXPECT_EQ(ModeOf(base.In("a")), 0700U);
    EXPECT_EQ(ModeOf(base.In("a/b/c")), 0700U);
    EXPECT_EQ(ModeOf(base.In("a/b/c/x")), 0700U);
    EXPECT_EQ(ModeOf(base.In("a/b/c/x/y")), 0600U);
    CDirectoryClient again(root, ERoot::createMissing);
    EXPECT_EQ(Download(again, "x/y"), "content");
}

TEST(DirectoryClient, RelativeRootIsHeldWhenTheProcessMovesAway) {
    const CTestRoot base;
    const auto before = fs::current_path();
    fs::current_path(base.GetPath());
    CDirectoryClient client("rel", ERoot::createMissing);
    fs::current_path(before);
    Upload(client, "x", "content");
    EXPECT_EQ(ReadPlain(base.In("rel/x")), "content");
}

TEST(DirectoryClient, RootsOwnPathMayRunThroughALink) {
    const CTestRoot base;
    fs::create_directory(base.In("real"));
    fs::create_symlink("real", base.In("link"));
    CDirectoryClient client(base.In("link"));
    Upload(client, "x", "content");
    EXPECT_EQ(ReadPlain(base.In("real/x")), "content");
}

TEST(DirectoryClient, ObjectsAreFilesAtTheirPaths) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    Upload(client, "//a/b/", "content");
    EXPECT_EQ(ReadPlain(root.In("a/b")), "content");
    WritePlain(root.In("a/c"), "from outside");
    EXPECT_EQ(Download(client, "/a/c"), "from outside");
}

TEST(DirectoryClient, ListingIsSortedByBytes) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    for (const char* name : {"b", "B", "a", "\xC3\xA4", "\xFF", "10", "9", "a.b"}) {
        Upload(client, name, name);
    }
    client.CreateFolderAsync("aa")->Wait();
    EXPECT_EQ(NamesOf(client.QueryFolder("")),
              (std::vector<std::string>{"10", "9", "B", "a", "a.b", "aa", "b", "\xC3\xA4", "\xFF"}));
}

TEST(DirectoryClient, ListingTellsSizeTimeAndKind) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    Upload(client, "f/object", "12345");
    client.CreateFolderAsync("f/sub")->Wait();
    struct stat info {};
    ASSERT_EQ(::stat(root.In("f/object").c_str(), &info), 0);
    const auto infos = client.QueryFolder("f");
    ASSERT_EQ(infos.size(), 2U);
    EXPECT_FALSE(infos[0].isFolder);
    EXPECT_EQ(infos[0].size, 5U);
    EXPECT_EQ(infos[0].modified.time_since_epoch(),
              std::chrono::seconds(info.st_mtim.tv_sec) + std::chrono::nanoseconds(info.st_mtim.tv_nsec));
    EXPECT_FALSE(infos[0].md5.has_value());
    EXPECT_TRUE(infos[1].isFolder);
    EXPECT_EQ(infos[1].size, 0U);
}

TEST(DirectoryClient, WhatIsNeitherFileNorFolderDoesNotShowAndIsLeftAlone) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    Upload(client, "f/object", "12");
    ASSERT_EQ(::mkfifo(root.In("f/pipe").c_str(), 0600), 0);
    EXPECT_EQ(NamesOf(client.QueryFolder("f")), std::vector<std::string>{"object"});
    EXPECT_EQ(client.GetObjectCount("f"), 1U);
    EXPECT_EQ(client.GetFolderSize("f"), 2U);
    EXPECT_FALSE(client.IsFileExist("f/pipe"));
    EXPECT_FALSE(client.IsFolderExist("f/pipe"));
    EXPECT_THROW(static_cast<void>(Download(client, "f/pipe")), CObjectNotFoundExc);
    EXPECT_EQ(FailureOf([&] { Upload(client, "f/pipe", "x"); }),
              "conflict|UploadFile 'f/pipe': something else stands in the way");
    EXPECT_EQ(FailureOf([&] { client.DeleteFileAsync("f/pipe")->Wait(); }),
              "conflict|DeleteFile 'f/pipe': something else stands in the way");
    EXPECT_TRUE(fs::is_fifo(root.In("f/pipe")));
    client.DeleteFolderAsync("f", nullptr)->Wait();
    EXPECT_FALSE(fs::exists(root.In("f")));
}

TEST(DirectoryClient, QuotaIsTheFileSystems) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    struct statvfs info {};
    ASSERT_EQ(::statvfs(root.GetPath().c_str(), &info), 0);
    const auto quota = client.GetStorageQuota();
    EXPECT_EQ(quota.total, info.f_blocks * info.f_frsize);
    EXPECT_GT(quota.used, 0U);
    EXPECT_LT(quota.used, quota.total);
}

TEST(DirectoryClient, TaskLimitIsTheNumberOfThreads) {
    const CTestRoot root;
    EXPECT_EQ(CDirectoryClient(root.GetPath()).GetConcurrentTaskLimit(), 8U);
    EXPECT_EQ(CDirectoryClient(root.GetPath(), ERoot::existing, 3).GetConcurrentTaskLimit(), 3U);
}

TEST(DirectoryClient, CopyGivesAnIndependentObject) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    const std::string content(3000000, 'c');
    Upload(client, "a", content);
    client.CopyFileAsync("a", "deep/b")->Wait();
    Upload(client, "a", "changed");
    EXPECT_EQ(Download(client, "deep/b"), content);
    EXPECT_EQ(FailureOf([&] { client.CopyFileAsync("none", "deep/b")->Wait(); }),
              "not found|CopyFile 'none': object not found");
    EXPECT_EQ(Download(client, "deep/b"), content);
    EXPECT_EQ(FailureOf([&] { client.CopyFileAsync("a", "")->Wait(); }),
              "conflict|CopyFile '': the root is a folder and cannot be an object");
}

TEST(DirectoryClient, SparseObjectIsReadInRangesAtItsRealSize) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    WritePlain(root.In("huge"), "head");
    constexpr std::uint64_t size = 1ULL << 40U;
    ASSERT_EQ(::truncate(root.In("huge").c_str(), static_cast<off_t>(size)), 0);
    EXPECT_EQ(client.GetFileSize("huge"), size);
    auto buffer = Buffer("");
    client.DownloadFileAsync("huge", buffer, size - 3, ~0UL)->Wait();
    EXPECT_EQ(std::string(buffer->begin(), buffer->end()), std::string(3, '\0'));
    client.DownloadFileAsync("huge", buffer, ~0UL, ~0UL)->Wait();
    EXPECT_TRUE(buffer->empty());
    client.DownloadFileAsync("huge", buffer, 0, 4)->Wait();
    EXPECT_EQ(std::string(buffer->begin(), buffer->end()), "head");
}

TEST(DirectoryClient, StreamReadsTheOldObjectToItsEndWhenItIsReplacedOrDeleted) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    const auto readAll = [](cloudclientlib::IDownloadStream& stream) {
        std::string text;
        char piece[3];
        for (std::size_t got = 0; (got = stream.Read(piece)) > 0;) {
            text.append(piece, got);
        }
        return text;
    };
    Upload(client, "a", "old content");
    const auto first = client.StartDownload("a");
    Upload(client, "a", "new");
    const auto second = client.StartDownload("a");
    client.DeleteFileAsync("a")->Wait();
    EXPECT_EQ(readAll(*first), "old content");
    EXPECT_EQ(readAll(*second), "new");
}

TEST(DirectoryClient, StreamNoticesAFileChangedInPlace) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    Upload(client, "a", "0123456789");
    const auto shrunk = client.StartDownload("a");
    char piece[10];
    ASSERT_EQ(shrunk->Read({piece, 4}), 4U);
    ASSERT_EQ(::truncate(root.In("a").c_str(), 5), 0);
    EXPECT_EQ(FailureOf([&] { static_cast<void>(shrunk->Read(piece)); }),
              "corrupt|StartDownload 'a': the object's file ended before its size");
    const auto grown = client.StartDownload("a");
    ASSERT_EQ(::truncate(root.In("a").c_str(), 9), 0);
    EXPECT_EQ(FailureOf([&] { static_cast<void>(grown->Read(piece)); }),
              "corrupt|StartDownload 'a': the object's file was changed while it was read");
}

TEST(DirectoryClient, FailedUploadStreamStaysFailedAndLeavesTheOldObject) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    Upload(client, "a", "old");
    const auto tooMuch = client.StartUpload("a", 3);
    tooMuch->Write(std::string_view("12"));
    EXPECT_EQ(FailureOf([&] { tooMuch->Write(std::string_view("34")); }),
              "other|StartUpload 'a': more bytes than the 3 announced");
    EXPECT_EQ(FailureOf([&] { tooMuch->Finish(); }), "other|StartUpload 'a': the stream has failed or is finished");
    const auto tooLittle = client.StartUpload("a", 3);
    tooLittle->Write(std::string_view("12"));
    EXPECT_EQ(FailureOf([&] { tooLittle->Finish(); }), "other|StartUpload 'a': only 2 of the 3 bytes announced");
    EXPECT_EQ(Download(client, "a"), "old");
    const auto right = client.StartUpload("a", 3);
    right->Write(std::string_view("new"));
    right->Finish();
    EXPECT_EQ(Download(client, "a"), "new");
    EXPECT_EQ(FailureOf([&] { right->Finish(); }), "other|StartUpload 'a': the stream has failed or is finished");
}

TEST(DirectoryClient, StreamsOutliveTheClient) {
    const CTestRoot root;
    auto client = std::make_unique<CDirectoryClient>(root.GetPath());
    Upload(*client, "a", "content");
    const auto reading = client->StartDownload("a");
    auto writing = client->StartUpload("b", 3);
    writing->Write(std::string_view("abc"));
    client.reset();
    char piece[20];
    EXPECT_EQ(reading->Read(piece), 7U);
    writing->Finish();
    EXPECT_EQ(ReadPlain(root.In("b")), "abc");
    writing.reset();
}

TEST(DirectoryClient, DeletionToleratesWhatOthersDeleteAndTellsProgress) {
    struct SProgress : progress::progress_base_t {
        void SetProgress(std::uint64_t done, std::uint64_t total) override {
            EXPECT_EQ(done, ++calls);
            EXPECT_LE(done, total);
            last = total;
            if (onCall) {
                onCall();
            }
        }
        std::uint64_t calls = 0;
        std::uint64_t last = 0;
        std::function<void()> onCall;
    };
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    for (int i = 0; i < 10; ++i) {
        Upload(client, "f/" + std::to_string(i), "x");
        Upload(client, "f/sub/" + std::to_string(i), "x");
    }
    const auto progress = std::make_shared<SProgress>();
    // Once the deletion runs, everything it has not reached yet vanishes under it.
    progress->onCall = [&] { fs::remove_all(root.In("f")); };
    client.DeleteFolderAsync("f", progress)->Wait();
    EXPECT_FALSE(fs::exists(root.In("f")));
    EXPECT_EQ(progress->calls, 10U);  // the sub-folder was gone before it was looked at
    EXPECT_EQ(progress->last, 10U);
    client.DeleteFolderAsync("f", progress)->Wait();
    EXPECT_EQ(progress->calls, 10U);
}

TEST(DirectoryClient, DeletingTheRootEmptiesItAndKeepsTempFilesInFlight) {
    const CTestRoot root;
    CDirectoryClient client(root.GetPath());
    Upload(client, "a/b", "x");
    Upload(client, "c", "x");
    const auto stream = client.StartUpload("later", 1);
    client.DeleteFolderAsync("", nullptr)->Wait();
    EXPECT_TRUE(client.QueryFolder("").empty());
    EXPECT_TRUE(client.IsFolderExist(""));
    stream->Write(std::string_view("x"));
    stream->Finish();
    EXPECT_EQ(Download(client, "later"), "x");
}

}  // namespace
}  // namespace clients::directory
