#include "agent/fs/RestoreTarget.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "agent/fs/Attributes.h"
#include "agent/fs/SourceItem.h"
#include "common/exc.h"
#include "tests/support/TempDir.h"

namespace agent {
namespace {

SEntry FileEntry() {
    SEntry entry;
    entry.mode = 0640;
    entry.uid = ::getuid();
    entry.gid = ::getgid();
    entry.mtime = {1'000'000'000, 123'456'789};
    return entry;
}

std::string Content(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(RestoreTarget, RefusesAFolderThatIsNotEmpty) {
    const test::TempDir dir;
    std::ofstream(dir / "something") << "x";
    try {
        const CRestoreTarget target(dir.GetPath());
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(failure.GetMessage(), "Cannot restore into '" + dir.GetPath() + "': the folder is not empty");
    }
}

TEST(RestoreTarget, AFileAppearsWhenItIsFinishedWithItsAttributes) {
    const test::TempDir dir;
    CRestoreTarget target(dir / "new/folder");
    target.MakeFolder("a/b");
    STargetFile file = target.CreateFile("a/b/file", 10);
    file.file.WriteAt(2, std::string("abc"));
    EXPECT_TRUE(std::filesystem::is_empty(dir / "new/folder/a/b"));
    SEntry entry = FileEntry();
    entry.xattrs = {{"user.note", std::string("v\0lue", 5)}};
    target.FinishFile(std::move(file), entry);

    EXPECT_EQ(Content(dir / "new/folder/a/b/file"), std::string("\0\0abc\0\0\0\0\0", 10));
    struct stat info {};
    ASSERT_EQ(::stat((dir / "new/folder/a/b/file").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0640U);
    EXPECT_EQ(info.st_mtim.tv_sec, 1'000'000'000);
    EXPECT_EQ(info.st_mtim.tv_nsec, 123'456'789);
    char value[16] = {};
    EXPECT_EQ(::getxattr((dir / "new/folder/a/b/file").c_str(), "user.note", value, sizeof(value)), 5);
}

TEST(RestoreTarget, LeavesNothingOfAFileThatWasNotFinished) {
    const test::TempDir dir;
    {
        CRestoreTarget target(dir.GetPath());
        STargetFile file = target.CreateFile("file", 100);
        file.file.WriteAt(0, std::string("half"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir.GetPath()));
}

TEST(RestoreTarget, NoPathLeadsOut) {
    const test::TempDir dir;
    std::ofstream(dir / "outside") << "untouched";
    CRestoreTarget target(dir / "target");
    for (const std::string path : {"..", "../outside", "a/../../outside", "/etc/passwd", ".", "", "x/.."}) {
        EXPECT_ANY_THROW((void)target.CreateFile(path, 0)) << path;
        EXPECT_ANY_THROW(target.MakeSymlink(path, FileEntry())) << path;
    }
    EXPECT_ANY_THROW((void)target.CreateFile(std::string("a\0b", 3), 0));
    EXPECT_ANY_THROW(target.MakeFolder("../made"));
    EXPECT_FALSE(std::filesystem::exists(dir / "made"));
    EXPECT_EQ(Content(dir / "outside"), "untouched");
}

TEST(RestoreTarget, APlantedLinkIsNotFollowed) {
    const test::TempDir dir;
    ASSERT_EQ(::mkdir((dir / "outside").c_str(), 0755), 0);
    CRestoreTarget target(dir / "target");
    SEntry link = FileEntry();
    link.type = EEntryType::symlink;
    link.target = dir / "outside";
    target.MakeSymlink("way", link);
    EXPECT_ANY_THROW((void)target.CreateFile("way/file", 0));
    EXPECT_ANY_THROW(target.MakeFolder("way/folder"));
    EXPECT_ANY_THROW(target.MakeHardLink("way/link", "way"));
    EXPECT_ANY_THROW(target.FinishFolder("way", FileEntry()));
    EXPECT_TRUE(std::filesystem::is_empty(dir / "outside"));
}

TEST(RestoreTarget, DoesNotReplaceWhatIsThere) {
    const test::TempDir dir;
    CRestoreTarget target(dir.GetPath());
    target.FinishFile(target.CreateFile("file", 3), FileEntry());
    EXPECT_THROW(target.FinishFile(target.CreateFile("file", 9), FileEntry()), posix::CPosixExc);
    EXPECT_EQ(std::filesystem::file_size(dir / "file"), 3U);
}

TEST(RestoreTarget, CopiesContentWithItsHoles) {
    const test::TempDir dir;
    CRestoreTarget target(dir.GetPath());
    STargetFile first = target.CreateFile("first", 50'000'000);
    first.file.WriteAt(20'000'000, std::string(100'000, 'x'));
    target.FinishFile(std::move(first), FileEntry());
    STargetFile second = target.CreateFile("second", 50'000'000);
    target.CopyContent("first", second);
    target.FinishFile(std::move(second), FileEntry());
    EXPECT_EQ(Content(dir / "second"), Content(dir / "first"));
    struct stat info {};
    ASSERT_EQ(::stat((dir / "second").c_str(), &info), 0);
    EXPECT_LT(info.st_blocks * 512, 1'000'000);
}

TEST(RestoreTarget, MakesLinksAndFifos) {
    const test::TempDir dir;
    CRestoreTarget target(dir.GetPath());
    target.FinishFile(target.CreateFile("file", 1), FileEntry());
    target.MakeHardLink("second", "file");
    SEntry fifo = FileEntry();
    fifo.type = EEntryType::fifo;
    target.MakeNode("pipe", fifo);
    SEntry link = FileEntry();
    link.type = EEntryType::symlink;
    link.target = "no/where";
    target.MakeSymlink("link", link);

    struct stat a {};
    struct stat b {};
    ASSERT_EQ(::stat((dir / "file").c_str(), &a), 0);
    ASSERT_EQ(::stat((dir / "second").c_str(), &b), 0);
    EXPECT_EQ(a.st_ino, b.st_ino);
    ASSERT_EQ(::lstat((dir / "pipe").c_str(), &a), 0);
    EXPECT_TRUE(S_ISFIFO(a.st_mode));
    EXPECT_EQ(a.st_mode & 07777U, 0640U);
    EXPECT_EQ(std::filesystem::read_symlink(dir / "link"), "no/where");
    ASSERT_EQ(::lstat((dir / "link").c_str(), &a), 0);
    EXPECT_EQ(a.st_mtim.tv_nsec, 123'456'789);
}

/// One attribute between two others that no file system takes.
SEntry EntryWithImpossibleXattr(EEntryType type) {
    SEntry entry = FileEntry();
    entry.type = type;
    entry.mode = 0750;
    entry.xattrs = {{"user.a", "1"}, {"user." + std::string(300, 'x'), "2"}, {"user.z", "3"}};
    return entry;
}

void ExpectAllButTheImpossible(const std::string& path) {
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0750U);
    EXPECT_EQ(info.st_mtim.tv_sec, 1'000'000'000);
    char value[16] = {};
    EXPECT_EQ(::getxattr(path.c_str(), "user.a", value, sizeof(value)), 1);
    EXPECT_EQ(::getxattr(path.c_str(), "user.z", value, sizeof(value)), 1);
}

template <class Action>
void ExpectAttributesFault(const std::string& path, const Action& action) {
    try {
        action();
        FAIL() << "no exception";
    } catch (const CAttributesExc& failure) {
        EXPECT_EQ(failure.what(), "Cannot set the extended attribute user." + std::string(300, 'x') + " of '" + path +
                                      "': Numerical result out of range");
    }
}

TEST(RestoreTarget, AnAttributeThatCannotBeSetKeepsNothingElseAway) {
    const test::TempDir dir;
    CRestoreTarget target(dir.GetPath());
    const SEntry entry = EntryWithImpossibleXattr(EEntryType::file);
    for (const auto replace : {EReplace::no, EReplace::yes}) {
        STargetFile file = target.CreateFile("file", 3);
        file.file.WriteAt(0, std::string(replace == EReplace::no ? "abc" : "def"));
        ExpectAttributesFault(dir / "file", [&] { target.FinishFile(std::move(file), entry, replace); });
    }
    EXPECT_EQ(Content(dir / "file"), "def");
    ExpectAllButTheImpossible(dir / "file");

    SEntry small = entry;
    small.size = 3;
    ExpectAttributesFault(dir / "small", [&] { target.WriteFile("small", 0, std::string("abc"), small); });
    EXPECT_EQ(Content(dir / "small"), "abc");
    ExpectAllButTheImpossible(dir / "small");

    target.MakeFolder("folder");
    ExpectAttributesFault(dir / "folder",
                          [&] { target.FinishFolder("folder", EntryWithImpossibleXattr(EEntryType::directory)); });
    ExpectAllButTheImpossible(dir / "folder");
}

TEST(RestoreTarget, WhatCannotHaveItsAccessControlListGivesItsGroupNothing) {
    const test::TempDir dir;
    CRestoreTarget target(dir.GetPath());
    SEntry entry = FileEntry();
    entry.mode = 0664;
    entry.xattrs = {{"system.posix_acl_access", "no list at all"}};
    EXPECT_THROW(target.FinishFile(target.CreateFile("file", 0), entry), CAttributesExc);
    target.MakeFolder("folder");
    EXPECT_THROW(target.FinishFolder("folder", entry), CAttributesExc);
    for (const auto* name : {"file", "folder"}) {
        struct stat info {};
        ASSERT_EQ(::stat((dir / name).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777U, 0604U) << name;
    }
}

TEST(RestoreTarget, FoldersThatWereThereGetTheirModesBack) {
    const test::TempDir dir;
    CRestoreTarget target(dir.GetPath());
    for (const auto* name : {"way", "way/deep", "way/ours"}) {
        ASSERT_EQ(::mkdir((dir / name).c_str(), 0755), 0);
    }
    const auto mode = [&](const char* name) {
        struct stat info {};
        EXPECT_EQ(::stat((dir / name).c_str(), &info), 0);
        return info.st_mode & 07777U;
    };
    for (const auto* name : {"way/deep", "way/ours", "way"}) {
        ASSERT_EQ(::chmod((dir / name).c_str(), 0550), 0);
    }
    EXPECT_FALSE(target.MakeFolder("way"));
    EXPECT_FALSE(target.MakeFolder("way/deep"));
    EXPECT_FALSE(target.MakeFolder("way/ours"));
    EXPECT_EQ(mode("way"), 0750U) << "to be written in";
    SEntry entry = FileEntry();
    entry.type = EEntryType::directory;
    target.FinishFolder("way/ours", entry);
    target.GiveModesBack();
    EXPECT_EQ(mode("way"), 0550U);
    EXPECT_EQ(mode("way/deep"), 0550U);
    EXPECT_EQ(mode("way/ours"), 0640U);
}

TEST(RestoreTarget, WhatIsMountedIsKnown) {
    const CRestoreTarget root("/", ETargetUse::onlyLook);
    EXPECT_TRUE(root.IsMountedUnder("", "proc"));
    EXPECT_TRUE(root.IsMountedUnder("", "proc/" + std::to_string(::getpid()))) << "under a mount";
    EXPECT_FALSE(root.IsMountedUnder("proc", "proc")) << "the base itself may be mounted";
    const test::TempDir dir;
    CRestoreTarget target(dir.GetPath());
    target.MakeFolder("a/b");
    EXPECT_FALSE(target.IsMountedUnder("", "a/b"));
    EXPECT_FALSE(target.IsMountedUnder("a", "a/b"));
    EXPECT_THROW((void)target.IsMountedUnder("", "none"), posix::CPosixExc);
}

}  // namespace
}  // namespace agent
