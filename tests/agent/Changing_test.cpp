#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "tests/agent/AgentFixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

/// Sources that change under the run's hands.
class Changing : public AgentTest {
protected:
    Changing() { backup_.sources = {Source()}; }

    SBackupResult Run() {
        troubles_.clear();
        return RunBackup(
            options_, backup_,
            {[&](const STrouble& trouble) { troubles_.push_back(trouble.path + ": " + trouble.reason); }, {}, {}});
    }
    /// What a restored file holds; empty when it is not there.
    std::string Restored(std::uint64_t checkpoint, const std::string& path) {
        std::ifstream file(Restore(checkpoint) + "/" + path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// Calls `change` after each of the first `times` readings of the file.
    void ChangeAfterReading(const std::string& path, int times, std::function<void(int)> change) {
        backup_.afterRead = [this, path, times, change, count = 0](const std::string& read) mutable {
            if (read == Source(path) && count < times) {
                change(count++);
            }
        };
    }

    SBackupOptions backup_;
    std::vector<std::string> troubles_;
};

constexpr std::size_t largeSize = 3U << 20U;  // more than is read in one piece

TEST_F(Changing, AFileThatChangesOnceIsReadOnceMore) {
    for (const std::string& content : {std::string("first"), RandomBytes(largeSize, 1)}) {
        const std::string changed = content + " and more";
        WriteFile("file", content);
        ChangeAfterReading("file", 1, [&](int) { WriteFile("file", changed); });
        const auto result = Run();
        EXPECT_THAT(troubles_, IsEmpty());
        EXPECT_TRUE(Restored(result.checkpoint, "file") == changed);
        backup_.afterRead = nullptr;
        EXPECT_EQ(Statistics(Run()).filesRead, 0U) << "it is known as it is";
    }
}

TEST_F(Changing, AFileThatKeepsChangingIsSavedAsReadNamedAndReadAgainByTheNextRun) {
    for (const std::string& content : {std::string("first"), RandomBytes(largeSize, 1)}) {
        WriteFile("file", content);
        ChangeAfterReading("file", 2, [&](int count) { WriteFile("file", content + std::to_string(count)); });
        const auto result = Run();
        EXPECT_THAT(troubles_,
                    ElementsAre(Source("file") + ": changed while it was read; what was saved may be a mixture"));
        EXPECT_EQ(result.troubles, 1U);
        EXPECT_TRUE(Restored(result.checkpoint, "file") == content + "0");
        backup_.afterRead = nullptr;
        const auto next = Run();
        EXPECT_THAT(troubles_, IsEmpty());
        EXPECT_EQ(Statistics(next).filesRead, 1U);
        EXPECT_TRUE(Restored(next.checkpoint, "file") == content + "1");
    }
}

TEST_F(Changing, AChangeThatKeepsSizeAndDateIsSeen) {
    WriteFile("file", "1234");
    struct stat before {};
    ASSERT_EQ(::stat(Source("file").c_str(), &before), 0);
    ChangeAfterReading("file", 1, [&](int) {
        WriteFile("file", "5678");
        const timespec times[] = {before.st_atim, before.st_mtim};
        ASSERT_EQ(::utimensat(AT_FDCWD, Source("file").c_str(), times, 0), 0);
    });
    const auto result = Run();
    EXPECT_EQ(Restored(result.checkpoint, "file"), "5678");
}

TEST_F(Changing, AFileThatIsReplacedGivesTheNewOne) {
    WriteFile("file", "old");
    ChangeAfterReading("file", 1, [&](int) {
        WriteFile("file.new", "new");
        fs::rename(Source("file.new"), Source("file"));
    });
    const auto result = Run();
    EXPECT_THAT(troubles_, IsEmpty());
    EXPECT_EQ(Restored(result.checkpoint, "file"), "new");
}

TEST_F(Changing, AFileIsReadWhenAFurtherChangeWouldShow) {
    WriteFile("file", "1234");
    std::int64_t age = -1;
    ChangeAfterReading("file", 2, [&](int count) {
        if (count == 0) {
            WriteFile("file", "5678");
            return;
        }
        struct stat info {};
        ASSERT_EQ(::stat(Source("file").c_str(), &info), 0);
        const STime now = Now();
        age = (now.seconds - info.st_ctim.tv_sec) * 1'000'000'000 + now.nanoseconds - info.st_ctim.tv_nsec;
    });
    Run();
    EXPECT_GE(age, 20'000'000) << "the times advance in steps of up to 10 ms";
}

TEST_F(Changing, NamesOfAFileThatWasReplacedKeepIt) {
    WriteFile("a", "old");
    fs::create_hard_link(Source("a"), Source("b"));
    fs::create_hard_link(Source("a"), Source("c"));
    ChangeAfterReading("a", 1, [&](int) {
        WriteFile("new", "new");
        fs::rename(Source("new"), Source("a"));
    });
    const auto result = Run();
    EXPECT_EQ(Restored(result.checkpoint, "a"), "new");
    EXPECT_EQ(Restored(result.checkpoint, "b"), "old");
    EXPECT_EQ(Restored(result.checkpoint, "c"), "old");
}

TEST_F(Changing, ASparseFileThatIsCutWhileItIsReadIsNamedAndTheRestSaved) {
    constexpr std::uint64_t size = 6U << 20U;
    const std::string begin = RandomBytes(1U << 20U, 4);
    const auto fill = [&] {
        WriteFile("sparse", begin);
        fs::resize_file(Source("sparse"), size);
    };
    fill();
    WriteFile("zz", "after it");
    ChangeAfterReading("sparse", 2, [&](int) { fill(); });
    troubles_.clear();
    const auto result =
        RunBackup(options_, backup_,
                  {[&](const STrouble& trouble) { troubles_.push_back(trouble.path + ": " + trouble.reason); },
                   [&](const SProgress& progress) {
                       if (progress.currentPath == Source("sparse") && progress.filesDone == 0) {
                           fs::resize_file(Source("sparse"), 100);
                       }
                   },
                   {}});
    EXPECT_THAT(troubles_,
                ElementsAre(Source("sparse") + ": changed while it was read; what was saved may be a mixture"));
    EXPECT_EQ(Restored(result.checkpoint, "zz"), "after it");
    EXPECT_TRUE(Restored(result.checkpoint, "sparse") == begin);
}

TEST_F(Changing, APathThatIsTooLongIsNamedAndTheRestSaved) {
    WriteFile("file", "1234");
    MakeFolder("deep");
    const std::string name(250, 'n');
    posix::fd_t at(::open(Source("deep").c_str(), O_PATH | O_DIRECTORY));
    std::string path = "deep";
    while (path.size() <= 65535) {
        ASSERT_EQ(::mkdirat(at.Get(), name.c_str(), 0755), 0);
        at = posix::fd_t(::openat(at.Get(), name.c_str(), O_PATH | O_DIRECTORY));
        path += "/" + name;
    }
    ASSERT_EQ(::mkdirat(at.Get(), "in it", 0755), 0);
    const auto result = Run();
    ASSERT_THAT(troubles_, testing::SizeIs(1));
    EXPECT_TRUE(troubles_[0] ==
                Source(path) + ": cannot be kept: a path of " + std::to_string(path.size()) + " bytes is too long")
        << troubles_[0].substr(troubles_[0].size() - 80);
    EXPECT_EQ(Statistics(result).files, 1U);
    EXPECT_EQ(Statistics(result).folders, 2U + (65535 - 4) / 251);
}

TEST_F(Changing, AFileThatVanishesIsNamedAndLeftOut) {
    WriteFile("a", "a");
    WriteFile("b", "b");
    Run();
    WriteFile("a", "changed");
    WriteFile("b", "changed");
    // One while it is read, the other between the folder and the file.
    ChangeAfterReading("a", 1, [&](int) {
        fs::remove(Source("a"));
        fs::remove(Source("b"));
    });
    const auto result = Run();
    EXPECT_THAT(troubles_, ElementsAre(Source("a") + ": vanished while the folder was read",
                                       Source("b") + ": vanished while the folder was read"));
    const std::string restored = Restore(result.checkpoint);
    EXPECT_FALSE(fs::exists(restored + "/a"));
    EXPECT_FALSE(fs::exists(restored + "/b"));
    EXPECT_EQ(Statistics(result).removed, 2U);
}

TEST_F(Changing, ACtimeOrInodeCanBeLeftOutOfTheSigns) {
    WriteFile("file", "1234");
    Run();
    ASSERT_EQ(::chmod(Source("file").c_str(), 0600), 0);
    ASSERT_EQ(::chmod(Source("file").c_str(), 0644), 0);  // nothing but a new ctime
    backup_.signs.ignoreCtime = true;
    EXPECT_EQ(Statistics(Run()).filesRead, 0U);
    ASSERT_EQ(::chmod(Source("file").c_str(), 0600), 0);
    EXPECT_EQ(Statistics(Run()).changed, 1U) << "a new mode counts";

    struct stat before {};
    ASSERT_EQ(::stat(Source("file").c_str(), &before), 0);
    fs::copy_file(Source("file"), Source("copy"));
    fs::rename(Source("copy"), Source("file"));
    const timespec times[] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, Source("file").c_str(), times, 0), 0);
    backup_.signs.ignoreInode = true;
    EXPECT_EQ(Statistics(Run()).filesRead, 0U);
    backup_.signs.ignoreInode = false;
    EXPECT_EQ(Statistics(Run()).filesRead, 1U);
}

TEST_F(Changing, ForceReadsEverything) {
    WriteFile("small", "1234");
    WriteFile("large", RandomBytes(largeSize, 2));
    Run();
    EXPECT_EQ(Statistics(Run()).filesRead, 0U);
    backup_.force = true;
    const auto result = Run();
    EXPECT_EQ(Statistics(result).filesRead, 2U);
    EXPECT_EQ(Statistics(result).newBytes, 0U);
    EXPECT_EQ(DescribeTree(Restore(result.checkpoint)), DescribeTree(Source()));
}

TEST_F(Changing, TheRootsOwnExtendedAttributesAreKept) {
    ASSERT_EQ(::setxattr(Source().c_str(), "user.test", "value", 5, 0), 0);
    const auto result = Run();
    char value[16] = {};
    EXPECT_EQ(::getxattr(Restore(result.checkpoint).c_str(), "user.test", value, sizeof(value)), 5);
    EXPECT_STREQ(value, "value");
}

/// A machine that was cloned, with its state folder.
class Cloned : public Changing {
protected:
    Cloned() {
        WriteFile("file", "1");
        Run();
        fs::copy(options_.stateFolder, dir_ / "clone", fs::copy_options::recursive);
        clone_ = options_;
        clone_.stateFolder = dir_ / "clone";
    }

    SRepositoryOptions clone_;
};

TEST_F(Cloned, ARunThatAnotherOvertakesIsRefusedAndNothingIsOverwritten) {
    WriteFile("file", "22");
    ChangeAfterReading(
        "file", 1, [&](int) { EXPECT_EQ(RunBackup(clone_, std::vector<std::string>{Source()}, {}).checkpoint, 2U); });
    try {
        Run();
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ(failure.what(),
                     "Another run has made checkpoint 2 of set 'default' while this one was under way, which began on "
                     "checkpoint 1: nothing was saved, run it again (is there another machine with a copy of this "
                     "one's state folder?)");
    }
    EXPECT_EQ(Restored(2, "file"), "22");
    WriteFile("file", "333");
    backup_.afterRead = nullptr;
    EXPECT_EQ(Run().checkpoint, 3U);
    EXPECT_EQ(Restored(3, "file"), "333");
    EXPECT_EQ(Restored(2, "file"), "22");
}

TEST_F(Cloned, TwoRunsForOneCheckpointNeverWriteTheSameMetadata) {
    const auto before = Objects("/Metadata/");
    // What the check just before the commit cannot see: the other run's metadata is there, its checkpoint not yet.
    WriteFile("file", "22");
    (void)RunBackup(clone_, std::vector<std::string>{Source()}, {});
    const auto first = Objects("/Metadata/");
    ASSERT_GT(first.size(), before.size());
    for (const auto& path : Objects("/Metadata/Checkpoint/2")) {
        fs::remove(path);
    }
    Run();
    for (const auto& path : first) {
        if (path.find("/Checkpoint/") == std::string::npos) {
            EXPECT_TRUE(fs::exists(path)) << path;
        }
    }
    // The other's objects and this one's own, none of them the same.
    EXPECT_EQ(Objects("/Metadata/").size(), first.size() + (first.size() - before.size()) - 1);
}

TEST_F(Changing, ProgressIsToldAtEachFileAndEachMebibyte) {
    WriteFile("a", "1234");
    WriteFile("large", RandomBytes(largeSize, 3));
    std::vector<SProgress> told;
    const auto run = [&] {
        told.clear();
        (void)RunBackup(options_, backup_, {{}, [&](const SProgress& progress) { told.push_back(progress); }, {}});
    };
    run();
    ASSERT_GE(told.size(), 2U + largeSize / (1U << 20U));
    EXPECT_EQ(told.front(), (SProgress{"file", Source("a"), 1, 4, 0, 0, 0, false}));
    EXPECT_EQ(told.back(), (SProgress{"file", Source("large"), 2, 4 + largeSize, 0, 0, 0, false}));
    for (std::size_t i = 1; i < told.size(); ++i) {
        EXPECT_GE(told[i].bytesDone, told[i - 1].bytesDone);
        EXPECT_LE(told[i].bytesDone - told[i - 1].bytesDone, 1U << 20U);
    }
    run();
    EXPECT_EQ(told.back(), (SProgress{"file", Source("large"), 2, 4 + largeSize, 2, 4 + largeSize, 0, true}));
}

}  // namespace
}  // namespace agent
