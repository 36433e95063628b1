#include "agent/select/Selection.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>

#include "common/exc.h"
#include "tests/support/TempDir.h"

namespace agent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct SRecorder : ITreeVisitor {
    void OnItem(const SSourceItem& item) override { paths.push_back(item.path); }
    void OnError(const std::string& path, bool, const std::exception& failure) override {
        errors.push_back(path + ": " + failure.what());
    }

    std::vector<std::string> paths;
    std::vector<std::string> errors;
};

class Selection : public testing::Test {
protected:
    void MakeFolder(const std::string& path) const { ASSERT_EQ(::mkdir((dir_ / path).c_str(), 0755), 0) << path; }
    void WriteFile(const std::string& path, const std::string& content = "x") const {
        std::ofstream(dir_ / path) << content;
    }
    void Exclude(const std::string& pattern) { selection_.patterns.push_back({pattern, false, ECase::exact}); }
    void Include(const std::string& pattern) { selection_.patterns.push_back({pattern, true, ECase::exact}); }

    /// What a walk visits, the root aside.
    std::vector<std::string> Walk(const CPathTree* wanted = nullptr) {
        CSelector selector(selection_, dir_.GetPath(), wanted, [&](const std::string& path, const std::exception& e) {
            failures_.push_back(path + ": " + e.what());
        });
        SRecorder recorder;
        WalkTree(dir_.GetPath(), recorder, &selector);
        EXPECT_THAT(recorder.errors, IsEmpty());
        EXPECT_EQ(recorder.paths.front(), "");
        recorder.paths.erase(recorder.paths.begin());
        return recorder.paths;
    }

    const test::TempDir dir_;
    SSelection selection_;
    std::vector<std::string> failures_;
};

TEST_F(Selection, WhatLiesInAFolderThatIsLeftOutCannotBeTakenBack) {
    MakeFolder("a");
    WriteFile("a/keep");
    WriteFile("b.o");
    WriteFile("c.o");
    Exclude("a");
    Exclude("*.o");
    Include("a/keep");
    Include("c.o");
    EXPECT_THAT(Walk(), ElementsAre("c.o"));
}

TEST_F(Selection, AFullPathBeginsWithTheRoot) {
    MakeFolder("a");
    MakeFolder("a/a");
    Exclude(dir_ / "a/a");
    EXPECT_THAT(Walk(), ElementsAre("a"));
    selection_.patterns.clear();
    Exclude("/a");
    Include(dir_ / "a");
    EXPECT_THAT(Walk(), ElementsAre("a", "a/a"));
}

TEST_F(Selection, IgnoreFilesCountWhereTheyLieDeeperOnesFirst) {
    MakeFolder("a");
    MakeFolder("b");
    WriteFile(".ignore", "*.log\n/b/x\n");
    WriteFile("a/.ignore", "!keep.log\n/only\n");
    for (const char* file : {"1.log", "a/2.log", "a/keep.log", "a/only", "b/keep.log", "b/only", "b/x"}) {
        WriteFile(file);
    }
    selection_.ignoreFiles = {".ignore"};
    EXPECT_THAT(Walk(), ElementsAre(".ignore", "a", "a/.ignore", "a/keep.log", "b", "b/only"));
    Exclude("keep.log");
    Include("1.log");
    EXPECT_THAT(Walk(), ElementsAre(".ignore", "1.log", "a", "a/.ignore", "b", "b/only"))
        << "what the user says goes before what files say";
    EXPECT_THAT(failures_, IsEmpty());
}

TEST_F(Selection, AnIgnoreFileThatIsTooLargeIsToldAndDoesNotCountAtAll) {
    const std::string lines = "*.log\n" + std::string((1U << 20U) - 9, '#') + "\n";
    WriteFile(".ignore", lines + "*c");  // 1 MiB
    WriteFile("1.log");
    WriteFile("c.c");
    selection_.ignoreFiles = {".ignore"};
    EXPECT_THAT(Walk(), ElementsAre(".ignore"));
    EXPECT_THAT(failures_, IsEmpty());
    WriteFile(".ignore", lines + "*.c");  // cut off, it would say other things than it does
    EXPECT_THAT(Walk(), ElementsAre(".ignore", "1.log", "c.c"));
    EXPECT_THAT(failures_, ElementsAre(".ignore: it has more than 1048576 bytes, so none of its patterns counts"));
}

TEST_F(Selection, AnIgnoreFileThatIsALinkOrAFolderDoesNotCount) {
    MakeFolder("a");
    MakeFolder("a/.ignore");
    ASSERT_EQ(::symlink("/etc/passwd", (dir_ / ".ignore").c_str()), 0);
    selection_.ignoreFiles = {".ignore"};
    EXPECT_THAT(Walk(), ElementsAre(".ignore", "a", "a/.ignore"));
    EXPECT_THAT(failures_, IsEmpty());
}

TEST_F(Selection, AMarkedFolderKeepsItsMarkerAlone) {
    for (const char* folder : {"cache", "fake", "nobackup"}) {
        MakeFolder(folder);
        WriteFile(std::string(folder) + "/data");
    }
    MakeFolder("cache/deep");
    WriteFile("cache/CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc55\n# by a test\n");
    WriteFile("fake/CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc5x");
    WriteFile("nobackup/.nobackup", "");
    selection_.markers = {CacheMarker(), {".nobackup", ""}};
    EXPECT_THAT(Walk(), ElementsAre("cache", "cache/CACHEDIR.TAG", "fake", "fake/CACHEDIR.TAG", "fake/data", "nobackup",
                                    "nobackup/.nobackup"));
}

TEST_F(Selection, LargeFilesAreLeftOut) {
    WriteFile("large", "1234");
    WriteFile("small", "123");
    selection_.largestFile = 3;
    EXPECT_THAT(Walk(), ElementsAre("small"));
    selection_.largestFile = 0;
    EXPECT_THAT(Walk(), IsEmpty());
}

TEST_F(Selection, WantedPathsAloneAreVisitedWithTheFoldersThatLeadThere) {
    for (const char* folder : {"a", "a/b", "a/c", "d"}) {
        MakeFolder(folder);
    }
    for (const char* file : {"a/1", "a/2", "a/b/3", "a/c/4", "d/5"}) {
        WriteFile(file);
    }
    CPathTree wanted;
    wanted.Add("a/b/3");
    wanted.Add("/a/b");
    wanted.Add("a/b/none");
    wanted.Add("a/2");
    EXPECT_THAT(Walk(&wanted), ElementsAre("a", "a/2", "a/b", "a/b/3"));
    Exclude("3");
    EXPECT_THAT(Walk(&wanted), ElementsAre("a", "a/2", "a/b"));
    CPathTree all;
    all.Add("/");
    EXPECT_EQ(Walk(&all).size(), 8U);
}

TEST_F(Selection, OneFileSystemKeepsBordersEmpty) {
    // What a walk asks, with devices that a test cannot mount.
    selection_.oneFileSystem = true;
    CSelector selector(selection_, "/", nullptr, {});
    const auto item = [](const std::string& path, EEntryType type, std::uint64_t device) {
        SSourceItem made;
        made.path = path;
        made.name = path;
        made.entry.type = type;
        made.entry.device = device;
        return made;
    };
    std::vector<std::string> names;
    selector.EnterFolder(item("", EEntryType::directory, 1), -1, names);
    EXPECT_TRUE(selector.Takes(item("here", EEntryType::file, 1)));
    EXPECT_FALSE(selector.Takes(item("bound", EEntryType::file, 2)));
    const auto mounted = item("mounted", EEntryType::directory, 2);
    EXPECT_TRUE(selector.Takes(mounted));
    EXPECT_EQ(selector.NamesOf(mounted), std::vector<std::string>());
    EXPECT_EQ(selector.NamesOf(item("folder", EEntryType::directory, 1)), std::nullopt);
    selection_.oneFileSystem = false;
    EXPECT_EQ(selector.NamesOf(mounted), std::nullopt);
}

TEST_F(Selection, PatternsThatAreNoneAreRefused) {
    const auto refusal = [&] {
        try {
            CheckPatterns(selection_);
            return std::string("none");
        } catch (const exc::CRuntimeExc& failure) {
            return std::string(failure.what());
        }
    };
    EXPECT_EQ(refusal(), "none");
    Exclude("# x");
    EXPECT_EQ(refusal(), "'# x' is no pattern: blank lines and comments mean nothing ('\\#' begins a name with #)");
    selection_.patterns.clear();
    Include("!x");
    EXPECT_EQ(refusal(), "'!x' takes back what is taken back: leave the '!' away");
}

}  // namespace
}  // namespace agent
