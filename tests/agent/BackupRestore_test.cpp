#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "common/exc.h"
#include "common/options.h"
#include "common/posix.h"
#include "tests/agent/AgentFixture.h"
#include "tests/support/SingleFileOption.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using BackupRestore = AgentTest;

void SetTime(const std::string& path, std::int64_t seconds, long nanoseconds) {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

TEST_F(BackupRestore, EveryKindOfFileComesBack) {
    MakeFolder("folder");
    MakeFolder("folder/deeper");
    MakeFolder("empty folder");
    WriteFile("text", "hello\n");
    WriteFile("empty", "");
    WriteFile("folder/large", RandomBytes(5'000'000, 1));
    WriteFile("folder/deeper/just one chunk", RandomBytes(1'048'576, 2));
    WriteFile(std::string("odd \n\t\\ name \xff\xfe"), "odd");
    WriteFile(std::string(255, 'n'), "long name");
    ASSERT_EQ(::symlink("/nowhere/at all", Source("dangling").c_str()), 0);
    ASSERT_EQ(::symlink("../text", Source("folder/relative").c_str()), 0);
    ASSERT_EQ(::link(Source("text").c_str(), Source("folder/deeper/other name of text").c_str()), 0);
    ASSERT_EQ(::link(Source("folder/large").c_str(), Source("a-large").c_str()), 0);
    ASSERT_EQ(::mkfifo(Source("pipe").c_str(), 0620), 0);
    if (::getuid() == 0) {
        ASSERT_EQ(::mknod(Source("null").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
        ASSERT_EQ(::lchown(Source("dangling").c_str(), 1234, 5678), 0);
        ASSERT_EQ(::chown(Source("empty").c_str(), 4321, 8765), 0);
    }
    {
        auto sparse = posix::posix_file_t::OpenOrCreate4Write(Source("sparse"), true, 0);
        sparse.Truncate(300'000'000);
        sparse.WriteAt(100'000'000, RandomBytes(200'000, 3));
    }
    ASSERT_EQ(::chmod(Source("empty").c_str(), 06751), 0);
    ASSERT_EQ(::chmod(Source("empty folder").c_str(), 01700), 0);
    ASSERT_EQ(::setxattr(Source("text").c_str(), "user.note", "a\0b", 3, 0), 0);
    ASSERT_EQ(::setxattr(Source("folder").c_str(), "user.of a folder", "", 0, 0), 0);
    SetTime(Source("text"), 123'456'789, 987'654'321);
    SetTime(Source("dangling"), 1, 1);
    SetTime(Source("folder/deeper"), -5, 7);  // before 1970
    SetTime(Source(), 2'000'000'000, 0);

    const auto result = Backup();
    EXPECT_EQ(result.checkpoint, 1U);
    EXPECT_EQ(result.troubles, 0U);
    const std::string restored = Restore(1);
    EXPECT_THAT(Troubles(), IsEmpty());
    EXPECT_EQ(DescribeTree(restored), DescribeTree(Source()));
    struct stat info {};
    ASSERT_EQ(::stat((restored + "/sparse").c_str(), &info), 0);
    EXPECT_LT(info.st_blocks * 512, 2'000'000) << "holes came back as zeros";
}

TEST_F(BackupRestore, ASecondRunOverAnUnchangedSourceUploadsAHeaderAndADocument) {
    MakeFolder("folder");
    for (int i = 0; i < 50; ++i) {
        WriteFile("folder/" + std::to_string(i), RandomBytes(10'000, static_cast<std::uint64_t>(i)));
    }
    Backup();
    const auto before = Objects("");
    const auto result = Backup();
    auto after = Objects("");
    std::vector<std::string> added;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(added));
    ASSERT_THAT(added, testing::UnorderedElementsAre(testing::ContainsRegex("/Metadata/[0-9a-f-]{36}\\.[0-9]+$"),
                                                     testing::EndsWith("/Checkpoint/2")));
    const auto header = added[0].ends_with("/Checkpoint/2") ? added[1] : added[0];
    EXPECT_EQ(fs::file_size(header), 8192U);
    EXPECT_EQ(Statistics(result).filesRead, 0U);
    EXPECT_EQ(Statistics(result).unchanged, 52U);
    EXPECT_EQ(DescribeTree(Restore(2)), DescribeTree(Source()));
}

TEST_F(BackupRestore, EveryCheckpointKeepsItsState) {
    MakeFolder("folder");
    WriteFile("stays", "as it is");
    WriteFile("changes", "first");
    WriteFile("goes", RandomBytes(2'000'000, 1));
    WriteFile("becomes a folder", "x");
    MakeFolder("becomes a file");
    WriteFile("becomes a file/inside", "y");
    WriteFile("folder/moves", RandomBytes(3'000'000, 2));
    WriteFile("is copied", RandomBytes(100'000, 3));
    WriteFile("large is copied", RandomBytes(3'000'000, 4));
    Backup();
    const auto first = DescribeTree(Source());

    WriteFile("changes", "second, longer");
    fs::remove(Source("goes"));
    fs::remove(Source("becomes a folder"));
    MakeFolder("becomes a folder");
    WriteFile("becomes a folder/now", "z");
    fs::remove_all(Source("becomes a file"));
    WriteFile("becomes a file", "w");
    fs::rename(Source("folder/moves"), Source("moved"));
    fs::copy_file(Source("is copied"), Source("folder/copy"));
    fs::copy_file(Source("large is copied"), Source("folder/large copy"));
    ASSERT_EQ(::chmod(Source("stays").c_str(), 0600), 0);
    const auto second = Backup();
    const auto s = Statistics(second);
    EXPECT_EQ(s.added, 4U) << "one in a new folder, one moved, two copied";
    EXPECT_EQ(s.removed, 3U);
    EXPECT_LT(s.newBytes, 1000U) << "moved and copied content is known";
    const auto secondTree = DescribeTree(Source());

    WriteFile("changes", "third");
    Backup();
    EXPECT_EQ(DescribeTree(Restore(1)), first);
    EXPECT_EQ(DescribeTree(Restore(2)), secondTree);
    EXPECT_EQ(DescribeTree(Restore(3)), DescribeTree(Source()));
}

TEST_F(BackupRestore, WhatIsInAMovedFolderIsNotReadAgain) {
    MakeFolder("folder");
    WriteFile("folder/name", RandomBytes(3'000'000, 1));
    Backup();
    fs::rename(Source("folder"), Source("other name"));
    EXPECT_EQ(Statistics(Backup()).filesRead, 0U);
    EXPECT_EQ(DescribeTree(Restore(2)), DescribeTree(Source()));
}

TEST_F(BackupRestore, ARenamedFileIsReadAndStoredOnce) {
    WriteFile("name", RandomBytes(3'000'000, 1));
    Backup();
    fs::rename(Source("name"), Source("other name"));
    const auto s = Statistics(Backup());
    EXPECT_EQ(s.filesRead, 1U);
    EXPECT_EQ(s.newBytes, 0U);
    EXPECT_EQ(DescribeTree(Restore(2)), DescribeTree(Source()));
}

TEST_F(BackupRestore, ARenamedFileThatWasEditedAndKeptItsTimeIsRead) {
    WriteFile("name", RandomBytes(1000, 1));
    Backup();
    const auto time = fs::last_write_time(Source("name"));
    {
        auto file = posix::posix_file_t::OpenOrCreate4Write(Source("name"), false, 0);
        file.WriteAt(500, std::string_view("edited"));
    }
    fs::last_write_time(Source("name"), time);
    fs::rename(Source("name"), Source("other name"));
    Backup();
    EXPECT_EQ(DescribeTree(Restore(2)), DescribeTree(Source()));
}

TEST_F(BackupRestore, AnEditInTheMiddleCostsAChunk) {
    std::string content = RandomBytes(20'000'000, 1);
    WriteFile("file", content);
    Backup();
    content.insert(10'000'000, "inserted");
    WriteFile("file", content);
    const auto s = Statistics(Backup());
    EXPECT_EQ(s.bytesRead, content.size());
    EXPECT_LT(s.newBytes, 3U << 20U);
    EXPECT_EQ(DescribeTree(Restore(2)), DescribeTree(Source()));
}

TEST_F(BackupRestore, RootsThatARunDoesNotNameAreCarriedOn) {
    MakeFolder("a");
    MakeFolder("b");
    WriteFile("a/file", "a");
    WriteFile("b/file", "b");
    WriteFile("single", "a source of its own");
    Backup({Source("a"), Source("single")});
    WriteFile("a/file", "changed, but not backed up again");
    const auto result = Backup({Source("b")});
    ASSERT_EQ(result.document.roots.size(), 3U);
    EXPECT_EQ(result.document.FindRoot(Source("a"))->checkpoint, 1U);
    EXPECT_EQ(result.document.FindRoot(Source("b"))->checkpoint, 2U);
    const std::string a = Restore("latest", Source("a"));
    std::ifstream file(a + "/file");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "a");
    EXPECT_TRUE(fs::exists(fs::path(a).parent_path() / "b/file"));
    EXPECT_EQ(DescribeTree((fs::path(a).parent_path() / "single").string()), DescribeTree(Source("single")));
}

TEST_F(BackupRestore, ALostOrDamagedLocalStateCostsADownload) {
    WriteFile("file", RandomBytes(100'000, 1));
    Backup();
    const auto local = FilesUnder(dir_ / "state", ".meta");
    ASSERT_EQ(local.size(), 1U);

    fs::remove(local[0]);
    EXPECT_EQ(Statistics(Backup()).filesRead, 0U);

    auto file = posix::posix_file_t::OpenOrCreate4Write(local[0], false, 0);
    char byte = 0;
    file.ReadAt(8192 + 5, &byte, 1);
    byte = static_cast<char>(byte ^ 1);
    file.WriteAt(8192 + 5, {&byte, 1});
    EXPECT_EQ(Statistics(Backup()).filesRead, 0U);

    fs::resize_file(local[0], 100);
    EXPECT_EQ(Statistics(Backup()).filesRead, 0U);
    EXPECT_EQ(DescribeTree(Restore(4)), DescribeTree(Source()));
}

TEST_F(BackupRestore, AnotherMachineRestores) {
    WriteFile("file", "content");
    Backup();
    options_.stateFolder = dir_ / "another state";
    EXPECT_EQ(DescribeTree(Restore(1)), DescribeTree(Source()));
}

TEST_F(BackupRestore, ASecondRunAtTheSameTimeIsRefused) {
    WriteFile("file", "content");
    Backup();
    const auto lockFile = FilesUnder(dir_ / "state", "/lock");
    ASSERT_EQ(lockFile.size(), 1U);
    const std::string setFolder = fs::path(lockFile[0]).parent_path();
    const CSetLock lock(setFolder, "default");
    try {
        Backup();
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(failure.GetMessage(), "Another run of set 'default' is under way on this machine");
    }
}

TEST_F(BackupRestore, WholeFileMetadataWorksToo) {
    const test::SingleFileOption singleFile(true);
    WriteFile("file", "first");
    Backup();
    const auto first = DescribeTree(Source());
    WriteFile("file", "second");
    Backup();
    EXPECT_THAT(Objects("_metaparts"), IsEmpty());
    EXPECT_EQ(DescribeTree(Restore(1)), first);
    EXPECT_EQ(DescribeTree(Restore(2)), DescribeTree(Source()));
}

TEST_F(BackupRestore, ASourceThatIsMissingIsToldBeforeAnythingIsDone) {
    WriteFile("file", "content");
    EXPECT_THROW(Backup({Source(), Source("missing")}), posix::CPosixExc);
    EXPECT_THAT(Objects("Metadata"), IsEmpty());
}

TEST_F(BackupRestore, ADamagedBlockCostsTheFilesThatNeedIt) {
    WriteFile("a", RandomBytes(20'000'000, 1));
    WriteFile("b", RandomBytes(20'000'000, 2));
    WriteFile("small", "content");
    ASSERT_EQ(::symlink("a", Source("link").c_str()), 0);
    Backup();
    const auto blocks = Objects("/BlockStore/");
    ASSERT_GT(blocks.size(), 4U);
    auto block = posix::posix_file_t::OpenOrCreate4Write(blocks[0], false, 0);
    char byte = 0;
    block.ReadAt(1000, &byte, 1);
    byte = static_cast<char>(byte ^ 0x40);
    block.WriteAt(1000, {&byte, 1});

    const std::string restored = Restore(1);
    ASSERT_EQ(Troubles().size(), 1U);
    EXPECT_THAT(Troubles()[0], HasSubstr(fs::path(blocks[0]).filename().string()));
    EXPECT_EQ(restored_.statistics.errors, 1U);
    EXPECT_EQ(restored_.statistics.files, 2U);
    EXPECT_FALSE(fs::exists(restored + "/a") && fs::exists(restored + "/b"));
    EXPECT_TRUE(fs::exists(restored + "/a") || fs::exists(restored + "/b"));
    EXPECT_TRUE(fs::exists(restored + "/small"));
}

TEST_F(BackupRestore, MetadataThatIsNotTheCheckpointsIsRefused) {
    WriteFile("file", "content");
    Backup();
    options_.stateFolder = dir_ / "another state";  // no local copy
    for (const auto& object : Objects("_metaparts/")) {
        fs::resize_file(object, fs::file_size(object) - 1);
    }
    try {
        Restore(1);
        FAIL() << "no exception";
    } catch (const std::exception& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("Downloaded storage size differs from declared"));
    }
}

}  // namespace
}  // namespace agent
