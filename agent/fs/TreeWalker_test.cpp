#include "agent/fs/TreeWalker.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "agent/model/PathOrder.h"
#include "tests/support/TempDir.h"

namespace agent {
namespace {

using testing::ElementsAre;

struct SRecorder : ITreeVisitor {
    void OnItem(const SSourceItem& item) override {
        paths.push_back(item.path);
        items.push_back(item);
    }
    void OnError(const std::string& path, bool isFolder, const std::exception& failure) override {
        errors.push_back(path + (isFolder ? " (folder): " : ": ") + failure.what());
    }

    std::vector<std::string> paths;
    std::vector<SSourceItem> items;
    std::vector<std::string> errors;
};

void WriteFile(const std::string& path, const std::string& content) { std::ofstream(path) << content; }

TEST(TreeWalker, VisitsAFolderBeforeItsContentInTheOrderOfBytes) {
    const test::TempDir dir;
    for (const char* folder : {"b", "b/z", "a", "a-b", "empty"}) {
        ASSERT_EQ(::mkdir((dir / folder).c_str(), 0755), 0);
    }
    for (const char* file : {"a/2", "a/1", "a/10", "b/z/deep", "a-b/x", "c", "\xff"}) {
        WriteFile(dir / file, "x");
    }
    SRecorder recorder;
    WalkTree(dir.GetPath(), recorder);
    EXPECT_THAT(recorder.paths, ElementsAre("", "a", "a/1", "a/10", "a/2", "a-b", "a-b/x", "b", "b/z", "b/z/deep", "c",
                                            "empty", "\xff"));
    EXPECT_TRUE(std::is_sorted(recorder.paths.begin(), recorder.paths.end(), SPathLess{}));
    EXPECT_TRUE(recorder.errors.empty());
}

TEST(TreeWalker, DoesNotFollowLinksAndTellsTypes) {
    const test::TempDir dir;
    ASSERT_EQ(::mkdir((dir / "folder").c_str(), 0750), 0);
    WriteFile(dir / "folder/file", "12345");
    ASSERT_EQ(::symlink("folder", (dir / "link").c_str()), 0);
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (dir / "socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ::close(socket);

    SRecorder recorder;
    WalkTree(dir.GetPath(), recorder);
    ASSERT_THAT(recorder.paths, ElementsAre("", "folder", "folder/file", "link", "pipe", "socket"));
    EXPECT_EQ(recorder.items[0].entry.type, EEntryType::directory);
    EXPECT_EQ(recorder.items[1].entry.mode, 0750U);
    EXPECT_EQ(recorder.items[2].entry.type, EEntryType::file);
    EXPECT_EQ(recorder.items[2].entry.size, 5U);
    EXPECT_EQ(recorder.items[3].entry.type, EEntryType::symlink);
    EXPECT_EQ(recorder.items[4].entry.type, EEntryType::fifo);
    EXPECT_TRUE(IsSocket(recorder.items[5]));
}

TEST(TreeWalker, ASingleFileIsASourceOfItsOwn) {
    const test::TempDir dir;
    WriteFile(dir / "file", "abc");
    SRecorder recorder;
    WalkTree(dir / "file", recorder);
    ASSERT_THAT(recorder.paths, ElementsAre(""));
    EXPECT_EQ(recorder.items[0].entry.size, 3U);
    EXPECT_EQ(recorder.items[0].name, "file");
}

TEST(TreeWalker, AMissingRootIsAnException) {
    SRecorder recorder;
    EXPECT_THROW(WalkTree("/no/such/folder", recorder), posix::CPosixExc);
}

TEST(SourceItem, AnyChangeOfSizeTimesOrInodeCounts) {
    SEntry known;
    known.size = 10;
    known.mtime = {5, 6};
    known.ctime = {7, 8};
    known.inode = 9;
    EXPECT_TRUE(IsUnchanged(known, known));
    const auto changed = [&](const auto& change) {
        SEntry now = known;
        change(now);
        return !IsUnchanged(known, now);
    };
    EXPECT_TRUE(changed([](SEntry& e) { e.size = 11; }));
    EXPECT_TRUE(changed([](SEntry& e) { e.mtime.nanoseconds = 7; }));
    EXPECT_TRUE(changed([](SEntry& e) { e.ctime.seconds = 8; }));
    EXPECT_TRUE(changed([](SEntry& e) { e.inode = 10; }));
    EXPECT_TRUE(changed([](SEntry& e) { e.type = EEntryType::symlink; }));
    SEntry recheck = known;
    recheck.recheck = true;
    EXPECT_FALSE(IsUnchanged(recheck, known));
}

TEST(SourceItem, CtimeAndInodeCanBeLeftOutOfTheSigns) {
    SEntry known;
    SEntry now = known;
    now.ctime = {1, 0};
    EXPECT_TRUE(IsUnchanged(known, now, {.ignoreCtime = true}));
    EXPECT_FALSE(IsUnchanged(known, now, {.ignoreInode = true}));
    now.inode = 1;
    EXPECT_FALSE(IsUnchanged(known, now, {.ignoreCtime = true}));
    EXPECT_TRUE(IsUnchanged(known, now, {.ignoreCtime = true, .ignoreInode = true}));
    for (const auto& change : std::vector<std::function<void(SEntry&)>>{
             [](SEntry& e) { e.mode = 1; }, [](SEntry& e) { e.uid = 1; }, [](SEntry& e) { e.gid = 1; },
             [](SEntry& e) { e.mtime.seconds = 1; }, [](SEntry& e) { e.size = 1; }}) {
        SEntry changed = now;
        change(changed);
        EXPECT_FALSE(IsUnchanged(known, changed, {.ignoreCtime = true, .ignoreInode = true}));
    }
}

}  // namespace
}  // namespace agent
