#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "agent/run/SourceRestore.h"
#include "clients/memory/MemoryClient.h"
#include "tests/support/TempDir.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

SEntry EntryOf(EEntryType type, std::string target = {}) {
    SEntry entry;
    entry.type = type;
    entry.mode = type == EEntryType::directory ? 0755 : 0644;
    entry.uid = ::getuid();
    entry.gid = ::getgid();
    entry.mtime = {1'000'000'000, 5};
    entry.target = std::move(target);
    return entry;
}

/// Metadata that no backup would write, restored into a folder beside which something lies that must stay as it is.
class RestoreHostile : public testing::Test {
protected:
    RestoreHostile() {
        fs::create_directory(dir_ / "outside");
        std::ofstream(dir_ / "outside/precious") << "untouched";
        Put("", EntryOf(EEntryType::directory));
    }

    void Put(const std::string& path, const SEntry& entry) { state_.PutEntry(path, CPackedEntry(entry)); }

    SRestoreStatistics Restore(EOverwrite overwrite = EOverwrite::refuse) {
        SRestoreSinks sinks;
        sinks.onTrouble = [&](const STrouble& trouble) { troubles_.push_back(trouble.path + ": " + trouble.reason); };
        SProgress progress;
        const auto use = overwrite == EOverwrite::refuse ? ETargetUse::mustBeEmpty : ETargetUse::mayHoldFiles;
        SSourceRestoreOptions options;
        options.overwrite = overwrite;
        CSourceRestore restore(state_, CRestoreTarget(dir_ / "target", use), {}, CRestoreFilter({}, "/"), options,
                               sinks, progress);
        restore.Run({std::make_shared<clients::CMemoryClient>(clients::SMemoryOptions()), "backup", {}, {}});
        return restore.GetStatistics();
    }

    void ExpectNothingOutside() const {
        std::ifstream file(dir_ / "outside/precious");
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "untouched");
        struct stat info {};
        ASSERT_EQ(::stat((dir_ / "outside/precious").c_str(), &info), 0);
        EXPECT_NE(info.st_mtim.tv_sec, 1'000'000'000);
        EXPECT_EQ(std::distance(fs::directory_iterator(dir_ / "outside"), {}), 1);
        EXPECT_EQ(std::distance(fs::directory_iterator(dir_.GetPath()), {}), 2) << "something lies beside the target";
    }

    const test::TempDir dir_;
    CMetaState state_;
    std::vector<std::string> troubles_;
};

TEST_F(RestoreHostile, MetadataTakesNoNameThatLeadsOut) {
    const std::vector<std::string> names{"..",   "../outside/x", "a/../../x", "/etc/x", "//x",
                                         "a//b", "a/",           "a/./b",     ".",      std::string("a\0b", 3)};
    for (const auto& name : names) {
        EXPECT_THROW(Put(name, EntryOf(EEntryType::file)), exc::CRuntimeExc) << name;
        EXPECT_THROW(CPackedEntry(EntryOf(EEntryType::hardLink, name)), exc::CRuntimeExc) << name;
    }
    EXPECT_THROW(CPackedEntry(EntryOf(EEntryType::hardLink, "")), exc::CRuntimeExc);
}

TEST_F(RestoreHostile, TheTargetOpensNoNameThatLeadsOut) {
    CRestoreTarget target(dir_ / "target");
    const SEntry file = EntryOf(EEntryType::file);
    for (const std::string path :
         {"..", "../outside/x", "a/../../outside/x", "/etc/x", ".", "", "x/..", "a//../../x"}) {
        EXPECT_ANY_THROW(target.WriteFile(path, 0, std::string("x"), file)) << path;
        EXPECT_ANY_THROW(target.FinishFile(target.CreateFile(path, 0), file)) << path;
        EXPECT_ANY_THROW(target.MakeSymlink(path, EntryOf(EEntryType::symlink, "x"))) << path;
        EXPECT_ANY_THROW(target.MakeNode(path, EntryOf(EEntryType::fifo))) << path;
        EXPECT_ANY_THROW(target.MakeHardLink("link", path)) << path;
        EXPECT_ANY_THROW(target.Remove(path, true)) << path;
    }
    for (const std::string path : {"..", "../outside", "../made", "a/../../made"}) {
        EXPECT_ANY_THROW(target.MakeFolder(path)) << path;
        EXPECT_ANY_THROW(target.FinishFolder(path, EntryOf(EEntryType::directory))) << path;
        EXPECT_ANY_THROW((void)target.ListNames(path)) << path;
    }
    EXPECT_ANY_THROW(target.WriteFile(std::string("a\0b", 3), 0, std::string("x"), file));
    ExpectNothingOutside();
}

TEST_F(RestoreHostile, ALinkPlantedByAnEarlierEntryIsNotFollowed) {
    // The link stands before what lies under it; no folder of that name is in the metadata.
    Put("way", EntryOf(EEntryType::symlink, dir_ / "outside"));
    Put("way/precious", EntryOf(EEntryType::file));
    Put("way/new", EntryOf(EEntryType::file));
    Put("way/link", EntryOf(EEntryType::symlink, "x"));
    Put("way/pipe", EntryOf(EEntryType::fifo));
    Put("way/folder", EntryOf(EEntryType::directory));
    for (const auto rule : {EOverwrite::refuse, EOverwrite::always, EOverwrite::ifChanged, EOverwrite::never}) {
        Restore(rule);
        ExpectNothingOutside();
    }
}

TEST_F(RestoreHostile, ALinkThatStoodThereIsNotFollowed) {
    Put("folder", EntryOf(EEntryType::directory));
    Put("folder/precious", EntryOf(EEntryType::file));
    fs::create_directory(dir_ / "target");
    fs::create_symlink(dir_ / "outside", dir_ / "target/folder");
    Restore(EOverwrite::never);
    EXPECT_THAT(troubles_, testing::Not(IsEmpty()));
    ExpectNothingOutside();
    troubles_.clear();
    Restore(EOverwrite::ifChanged);
    EXPECT_THAT(troubles_, IsEmpty());
    EXPECT_FALSE(fs::is_symlink(dir_ / "target/folder"));
    ExpectNothingOutside();
}

TEST_F(RestoreHostile, AFileLinkThatStoodThereIsReplacedNotWrittenThrough) {
    Put("file", EntryOf(EEntryType::file));
    fs::create_directory(dir_ / "target");
    fs::create_symlink(dir_ / "outside/precious", dir_ / "target/file");
    for (const auto rule : {EOverwrite::never, EOverwrite::ifChanged}) {
        Restore(rule);
        ExpectNothingOutside();
    }
    EXPECT_FALSE(fs::is_symlink(dir_ / "target/file"));
    fs::remove(dir_ / "target/file");
    fs::create_hard_link(dir_ / "outside/precious", dir_ / "target/file");
    Restore(EOverwrite::always);
    ExpectNothingOutside();
}

TEST_F(RestoreHostile, AHardLinkToAPlantedLinkDoesNotReachOut) {
    Put("a", EntryOf(EEntryType::symlink, dir_ / "outside/precious"));
    Put("b", EntryOf(EEntryType::hardLink, "a"));
    Put("c", EntryOf(EEntryType::hardLink, "a/precious"));
    Put("d", EntryOf(EEntryType::hardLink, "nothing"));
    Restore();
    EXPECT_THAT(troubles_, testing::Contains(HasSubstr("/target/c: ")));
    EXPECT_THAT(troubles_, testing::Contains(HasSubstr("/target/d: ")));
    ExpectNothingOutside();
    struct stat info {};
    ASSERT_EQ(::stat((dir_ / "outside/precious").c_str(), &info), 0);
    EXPECT_EQ(info.st_nlink, 1U);
}

}  // namespace
}  // namespace agent
