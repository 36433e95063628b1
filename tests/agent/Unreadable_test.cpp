#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "tests/agent/AgentFixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

constexpr uid_t nobody = 65534;

/// Runs the action as a user whom mode bits stop, in a child process; its text result comes back.
std::string AsNobody(const std::function<std::string()>& action) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        std::string text;
        try {
            if (::getuid() == 0 && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) {
                text = "cannot change the user";
            } else {
                text = action();
            }
        } catch (const std::exception& failure) {
            text = std::string("exception: ") + failure.what();
        }
        const auto written = ::write(ends[1], text.data(), text.size());
        ::_exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    ::close(ends[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t size = ::read(ends[0], buffer, sizeof(buffer)); size > 0;
         size = ::read(ends[0], buffer, sizeof(buffer))) {
        text.append(buffer, static_cast<std::size_t>(size));
    }
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return text;
}

class Unreadable : public AgentTest {
protected:
    Unreadable() {
        // The user must reach and own everything here.
        ::chmod(fs::path(dir_.GetPath()).parent_path().c_str(), 0755);
        MakeFolder("folder");
        WriteFile("folder/inside", "inside");
        WriteFile("secret", "secret");
        WriteFile("open", "open");
        options_.location = "dir:" + (dir_ / "nobody's repository");
        options_.stateFolder = dir_ / "nobody's state";
        if (::getuid() == 0) {
            ::chmod(dir_.GetPath().c_str(), 0777);
            for (const auto* name : {"", "folder", "folder/inside", "secret", "open"}) {
                EXPECT_EQ(::chown(Source(name).c_str(), nobody, nobody), 0);
            }
        }
    }

    std::string BackUpAndTellTroubles() {
        return AsNobody([this] {
            const auto result = Backup();
            std::string text = std::to_string(result.checkpoint);
            for (const auto& trouble : Troubles()) {
                text += "\n" + trouble;
            }
            return text;
        });
    }
    /// The same for a single path.
    std::string BackUpListed(const std::string& path) {
        return AsNobody([&] {
            SBackupOptions backup;
            backup.listed = {path};
            std::string text;
            const auto tell = [&](const STrouble& trouble) { text += "\n" + trouble.path + ": " + trouble.reason; };
            const auto result = RunBackup(options_, backup, {tell, {}, {}});
            return std::to_string(result.checkpoint) + text;
        });
    }

    std::string RestoredText(std::uint64_t checkpoint, const std::string& path) {
        std::ifstream file(Restore(checkpoint) + "/" + path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

TEST_F(Unreadable, IsNamedAndStaysAsTheLastCheckpointKnewIt) {
    ASSERT_EQ(AsNobody([this] { return CreateRepository(options_).ToAStr(); }).size(), 36U);
    ASSERT_EQ(BackUpAndTellTroubles(), "1");
    const auto before = DescribeTree(Source());

    ASSERT_EQ(::chmod(Source("secret").c_str(), 0), 0);
    ASSERT_EQ(::chmod(Source("folder").c_str(), 0), 0);
    EXPECT_EQ(BackUpAndTellTroubles(), "2\n" + Source("folder") + ": Cannot open the folder '" + "folder" +
                                           "': Permission denied\n" + Source("secret") +
                                           ": Cannot open 'secret': Permission denied");
    options_.client = "";
    const std::string restored = Restore(2);
    EXPECT_TRUE(fs::exists(restored + "/folder/inside")) << "content of an unreadable folder was kept";
    EXPECT_TRUE(fs::exists(restored + "/secret"));
    EXPECT_TRUE(fs::exists(restored + "/open"));
}

TEST_F(Unreadable, IsLeftOutWhenItWasNeverRead) {
    ASSERT_EQ(AsNobody([this] { return CreateRepository(options_).ToAStr(); }).size(), 36U);
    ASSERT_EQ(::chmod(Source("secret").c_str(), 0), 0);
    EXPECT_EQ(BackUpAndTellTroubles(), "1\n" + Source("secret") + ": Cannot open 'secret': Permission denied");
    const std::string restored = Restore(1);
    EXPECT_FALSE(fs::exists(restored + "/secret"));
    EXPECT_TRUE(fs::exists(restored + "/open"));
}

TEST_F(Unreadable, AnExtendedAttributeIsNamedAndTheFolderKept) {
    ASSERT_EQ(AsNobody([this] { return CreateRepository(options_).ToAStr(); }).size(), 36U);
    ASSERT_EQ(::setxattr(Source("folder").c_str(), "user.secret", "1", 1, 0), 0);
    ASSERT_EQ(::chmod(Source("folder").c_str(), 0111), 0);
    const std::string trouble = "\n" + Source("folder") + ": Cannot read an extended attribute of '" +
                                Source("folder").substr(1) + "': Permission denied";
    EXPECT_EQ(BackUpListed(Source("folder/inside")), "1" + trouble);
    EXPECT_EQ(BackUpListed(Source("folder/inside")), "2" + trouble) << "told as long as it is so";
    EXPECT_EQ(RestoredText(2, "folder/inside"), "inside");
}

TEST_F(Unreadable, ASecondNameStaysWhenTheFirstIsGone) {
    ASSERT_EQ(AsNobody([this] { return CreateRepository(options_).ToAStr(); }).size(), 36U);
    fs::create_hard_link(Source("secret"), Source("secret too"));
    ASSERT_EQ(BackUpAndTellTroubles(), "1");
    fs::remove(Source("secret"));
    ASSERT_EQ(::chmod(Source("secret too").c_str(), 0), 0);
    EXPECT_EQ(BackUpAndTellTroubles(), "2\n" + Source("secret too") + ": Cannot open 'secret too': Permission denied");
    EXPECT_EQ(RestoredText(2, "secret too"), "secret");
}

TEST_F(Unreadable, ASecondNameKeepsItsContentWhenTheFirstIsAnotherFile) {
    ASSERT_EQ(AsNobody([this] { return CreateRepository(options_).ToAStr(); }).size(), 36U);
    WriteFile("a", "as it was");
    fs::create_hard_link(Source("a"), Source("folder/b"));
    ASSERT_EQ(BackUpAndTellTroubles(), "1");
    WriteFile("new", "another file");
    fs::rename(Source("new"), Source("a"));
    ASSERT_EQ(::chmod(Source("folder").c_str(), 0), 0);
    EXPECT_EQ(BackUpAndTellTroubles(),
              "2\n" + Source("folder") + ": Cannot open the folder 'folder': Permission denied");
    EXPECT_EQ(RestoredText(2, "a"), "another file");
    EXPECT_EQ(RestoredText(2, "folder/b"), "as it was");
}

}  // namespace
}  // namespace agent
