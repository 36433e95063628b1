#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "clients/directory/DirectoryClient.h"
#include "clients/directory/FolderTree.h"
#include "clients/directory/TestRoot.h"

namespace clients::directory {
namespace {

namespace fs = std::filesystem;

/// Calls every operation that takes a path, and gives the different answers (their kind and reason).
std::set<std::string> AnswersTo(CDirectoryClient& client, const std::string& path) {
    const std::vector<std::function<void()>> operations = {
        [&] { static_cast<void>(Download(client, path)); },
        [&] { client.DownloadFileAsync(path, Buffer(""), 0, 1)->Wait(); },
        [&] { Upload(client, path, "intruder"); },
        [&] { client.CopyFileAsync(path, "copy-of-it")->Wait(); },
        [&] { client.CopyFileAsync("inside", path)->Wait(); },
        [&] { client.DeleteFileAsync(path)->Wait(); },
        [&] { static_cast<void>(client.GetFileSize(path)); },
        [&] { static_cast<void>(client.IsFileExist(path)); },
        [&] { client.CreateFolderAsync(path)->Wait(); },
        [&] { client.DeleteFolderAsync(path, nullptr)->Wait(); },
        [&] { static_cast<void>(client.GetFolderSize(path)); },
        [&] { static_cast<void>(client.IsFolderExist(path)); },
        [&] { static_cast<void>(client.QueryFolder(path)); },
        [&] { static_cast<void>(client.GetObjectCount(path)); },
        [&] { static_cast<void>(client.StartDownload(path)); },
        [&] { static_cast<void>(client.StartUpload(path, 1)); },
        [&] { client.RetrieveArchive(path, {}); },
        [&] { static_cast<void>(client.GetArchiveRetrievalStatus(path)); },
    };
    std::set<std::string> answers;
    for (const auto& operation : operations) {
        const auto text = FailureOf(operation);
        const auto reason = text.find("': ");
        answers.insert(reason == std::string::npos ? text
                                                   : text.substr(0, text.find('|') + 1) + text.substr(reason + 3));
    }
    return answers;
}

const std::set<std::string> linkRefused = {"other|a symbolic link stands in the path, and links are never followed"};
const std::set<std::string> dotsRefused = {"other|invalid path: element '.' or '..'"};

/// A root with something outside that no path may reach.
class DirectoryHostile : public testing::Test {
protected:
    DirectoryHostile() {
        fs::create_directories(base_.In("outside/sub"));
        WritePlain(base_.In("outside/secret"), "secret");
        fs::create_directory(root_);
        WritePlain(root_ + "/inside", "inside");
    }
    ~DirectoryHostile() override {
        EXPECT_EQ(ReadPlain(base_.In("outside/secret")), "secret");
        EXPECT_EQ(CountEntries(base_.In("outside")), 2U);
        EXPECT_EQ(CountEntries(base_.In("outside/sub")), 0U);
    }

    const CTestRoot base_;
    const std::string root_ = base_.In("root");
};

TEST_F(DirectoryHostile, DotElementsAreRefusedByEveryOperation) {
    CDirectoryClient client(root_);
    for (const char* path : {"..", ".", "../outside/secret", "a/../../outside/secret", "/..", "a/..", "./a", "a/./b"}) {
        EXPECT_EQ(AnswersTo(client, path), dotsRefused) << path;
    }
}

TEST_F(DirectoryHostile, NulIsRefusedByEveryOperation) {
    CDirectoryClient client(root_);
    for (const std::string& path : {std::string("a\0b", 3), std::string("\0", 1), std::string("inside\0", 7)}) {
        EXPECT_EQ(AnswersTo(client, path), std::set<std::string>{"other|invalid path: NUL byte"});
    }
}

TEST_F(DirectoryHostile, AbsolutePathsLieInTheRoot) {
    CDirectoryClient client(root_);
    const std::string path = base_.In("outside/secret");
    EXPECT_FALSE(client.IsFileExist(path));
    Upload(client, path, "inner");
    EXPECT_EQ(ReadPlain(root_ + path), "inner");
    EXPECT_EQ(Download(client, path), "inner");
}

TEST_F(DirectoryHostile, ReservedNameIsRefusedOrShowsNothing) {
    CDirectoryClient client(root_);
    const auto stream = client.StartUpload("x", 1);  // so that the folder is there
    ASSERT_TRUE(fs::is_directory(root_ + "/.cloudbackup-tmp"));
    const std::set<std::string> refused = {"no failure", "other|invalid path: the name '.cloudbackup-tmp' is reserved"};
    for (const std::string path : {"/.cloudbackup-tmp", ".cloudbackup-tmp/", "//.cloudbackup-tmp/a/b"}) {
        EXPECT_EQ(AnswersTo(client, path), refused) << path;
        EXPECT_FALSE(client.IsFolderExist(path));
        EXPECT_FALSE(client.IsFileExist(path));
        EXPECT_TRUE(client.QueryFolder(path).empty());
        EXPECT_EQ(client.GetObjectCount(path), 0U);
        EXPECT_EQ(client.GetFolderSize(path), 0U);
        EXPECT_NE(FailureOf([&] { Upload(client, path, "x"); }), "no failure");
        EXPECT_NE(FailureOf([&] { client.DeleteFolderAsync(path, nullptr)->Wait(); }), "no failure");
        EXPECT_NE(FailureOf([&] { client.CreateFolderAsync(path)->Wait(); }), "no failure");
        EXPECT_NE(FailureOf([&] { client.DeleteFileAsync(path)->Wait(); }), "no failure");
    }
    Upload(client, "a/.cloudbackup-tmp", "deeper it is a name like any other");
    EXPECT_EQ(client.GetObjectCount(""), 2U);
}

TEST_F(DirectoryHostile, LinkInAnObjectsPlaceIsRefused) {
    fs::create_symlink("../outside/secret", root_ + "/link");
    fs::create_symlink("inside", root_ + "/inner-link");
    fs::create_symlink("nowhere", root_ + "/dangling");
    CDirectoryClient client(root_);
    for (const char* path : {"link", "inner-link", "dangling"}) {
        EXPECT_EQ(AnswersTo(client, path), linkRefused) << path;
        EXPECT_TRUE(fs::is_symlink(root_ + "/" + path));
    }
}

TEST_F(DirectoryHostile, LinkInAFoldersPlaceIsRefused) {
    fs::create_symlink("../outside", root_ + "/folder");
    fs::create_symlink(base_.In("outside"), root_ + "/absolute");
    fs::create_symlink("/proc/self/cwd", root_ + "/magic");
    CDirectoryClient client(root_);
    for (const char* path : {"folder", "absolute", "magic", "folder/secret", "folder/new", "folder/sub/new",
                             "absolute/sub", "magic/new"}) {
        EXPECT_EQ(AnswersTo(client, path), linkRefused) << path;
    }
}

TEST_F(DirectoryHostile, LinksDoNotShowAndAreDeletedAsLinksWithTheirFolder) {
    fs::create_directory(root_ + "/f");
    fs::create_symlink("../../outside", root_ + "/f/folder");
    fs::create_symlink("../../outside/secret", root_ + "/f/object");
    CDirectoryClient client(root_);
    EXPECT_TRUE(client.QueryFolder("f").empty());
    EXPECT_EQ(client.GetObjectCount(""), 1U);
    EXPECT_EQ(client.GetFolderSize(""), 6U);
    client.DeleteFolderAsync("f", nullptr)->Wait();
    EXPECT_FALSE(client.IsFolderExist("f"));
}

TEST_F(DirectoryHostile, LinkInTheTempFoldersPlaceIsRefusedAtOpening) {
    fs::create_symlink("../outside", root_ + "/.cloudbackup-tmp");
    EXPECT_EQ(FailureOf([&] { CDirectoryClient client(root_); }),
              "other|OpenRoot '" + root_ + "': a symbolic link stands in the path, and links are never followed");
}

TEST_F(DirectoryHostile, LinkPlantedLaterInTheTempFoldersPlaceIsRefusedAtTheUpload) {
    CDirectoryClient client(root_);
    fs::create_symlink("../outside", root_ + "/.cloudbackup-tmp");
    EXPECT_EQ(FailureOf([&] { Upload(client, "a", "x"); }),
              "other|UploadFile 'a': a symbolic link stands in the path, and links are never followed");
}

TEST_F(DirectoryHostile, FileInTheTempFoldersPlaceIsRefusedAtOpening) {
    WritePlain(root_ + "/.cloudbackup-tmp", "x");
    EXPECT_EQ(FailureOf([&] { CDirectoryClient client(root_); }),
              "conflict|OpenRoot '" + root_ + "': an object stands where a folder is needed");
}

TEST_F(DirectoryHostile, LinksInTheTempFolderAreSweptAsLinks) {
    fs::create_directories(root_ + "/.cloudbackup-tmp/left");
    fs::create_symlink("../../outside", root_ + "/.cloudbackup-tmp/link");
    fs::create_symlink("../../../outside", root_ + "/.cloudbackup-tmp/left/link");
    const CDirectoryClient client(root_);
    EXPECT_EQ(CountEntries(root_ + "/.cloudbackup-tmp"), 0U);
}

TEST_F(DirectoryHostile, NamesUpTo255BytesAreStored) {
    CDirectoryClient client(root_);
    const std::string longest(255, 'n');
    Upload(client, longest + "/" + longest, "long");
    EXPECT_EQ(Download(client, longest + "/" + longest), "long");
    EXPECT_EQ(client.QueryFolder(longest).at(0).name, longest);
}

TEST_F(DirectoryHostile, LongerNamesAndPathsAreRefusedInClearWords) {
    CDirectoryClient client(root_);
    const std::set<std::string> refused = {"other|the name, or the whole path, is too long for the file system"};
    std::string deep;
    while (deep.size() < 5000) {
        deep += "d/";
    }
    for (const std::string& path :
         {std::string(256, 'n'), std::string(256, 'n') + "/a", std::string(5000, 'n'), deep}) {
        EXPECT_EQ(AnswersTo(client, path), refused) << path.size();
    }
}

TEST_F(DirectoryHostile, NamesAreBytes) {
    CDirectoryClient client(root_);
    const std::vector<std::string> names = {"\x01\n\t", " ", "...", "\\", "a b", "\x80\xFF\xFE", "\xC3\x28"};
    for (const auto& name : names) {
        Upload(client, "bytes/" + name, name);
        EXPECT_EQ(Download(client, "bytes/" + name), name);
    }
    std::vector<std::string> listed;
    for (const auto& info : client.QueryFolder("bytes")) {
        listed.push_back(info.name);
    }
    EXPECT_EQ(listed, names);
}

TEST_F(DirectoryHostile, ObjectAndFolderDoNotShareAPath) {
    CDirectoryClient client(root_);
    client.CreateFolderAsync("folder/sub")->Wait();
    EXPECT_EQ(FailureOf([&] { Upload(client, "folder", "x"); }),
              "conflict|UploadFile 'folder': a folder stands where an object is needed");
    EXPECT_EQ(FailureOf([&] { Upload(client, "inside/x", "x"); }),
              "conflict|UploadFile 'inside/x': an object stands where a folder is needed");
    EXPECT_EQ(FailureOf([&] { client.CreateFolderAsync("inside")->Wait(); }),
              "conflict|CreateFolder 'inside': an object stands where a folder is needed");
    EXPECT_EQ(FailureOf([&] { Upload(client, "/", "x"); }),
              "conflict|UploadFile '/': the root is a folder and cannot be an object");
    EXPECT_EQ(FailureOf([&] { static_cast<void>(Download(client, "folder")); }),
              "not found|DownloadFile 'folder': object not found");
    EXPECT_EQ(FailureOf([&] { static_cast<void>(Download(client, "inside/x")); }),
              "not found|DownloadFile 'inside/x': object not found");
    EXPECT_EQ(FailureOf([&] { client.DeleteFileAsync("folder")->Wait(); }), "no failure");
    EXPECT_EQ(FailureOf([&] { client.DeleteFolderAsync("inside", nullptr)->Wait(); }), "no failure");
    EXPECT_TRUE(client.IsFolderExist("folder/sub"));
    EXPECT_TRUE(client.IsFileExist("inside"));
}

}  // namespace
}  // namespace clients::directory
