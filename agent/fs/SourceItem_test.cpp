#include "agent/fs/SourceItem.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "tests/support/TempDir.h"

namespace agent {
namespace {

constexpr uid_t nobody = 65534;

/// In a process that may change what it is; false when it could not do so, or the action says so.
bool InChild(const std::function<bool()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(action() ? 0 : 1);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && status == 0;
}

TEST(SourceItem, ExtendedAttributesThatCannotBeReadAreToldAndTheOthersRead) {
    const test::TempDir dir;
    std::ofstream(dir / "file") << "x";
    ASSERT_EQ(::setxattr((dir / "file").c_str(), "user.secret", "1", 1, 0), 0);
    ASSERT_EQ(::chmod((dir / "file").c_str(), 0), 0);
    ASSERT_EQ(::chmod(dir.GetPath().c_str(), 0755), 0);
    const posix::fd_t folder(::open(dir.GetPath().c_str(), O_PATH | O_DIRECTORY));
    EXPECT_TRUE(InChild([&] {
        if (::getuid() == 0 && ::setuid(nobody) != 0) {
            return false;
        }
        const auto item = StatItem(folder.Get(), "file", "file");
        std::vector<std::string> told;
        const auto xattrs = ReadXattrs(item, [&](const auto& failure) { told.emplace_back(failure.what()); });
        bool isThrown = false;
        try {
            (void)ReadXattrs(item);
        } catch (const posix::CPosixExc& failure) {
            isThrown = failure.GetErrorNumber() == EACCES;
        }
        return isThrown && xattrs.empty() &&
               told == std::vector<std::string>{"Cannot read an extended attribute of 'file': Permission denied"};
    }));
}

TEST(SourceItem, WithoutProcItIsSaidWhatIsMissing) {
    const test::TempDir dir;
    std::ofstream(dir / "file") << "x";
    ASSERT_EQ(::setxattr((dir / "file").c_str(), "user.a", "1", 1, 0), 0);
    EXPECT_TRUE(InChild([&] {
        if ((::getuid() != 0 && ::unshare(CLONE_NEWUSER) != 0) || ::chroot(dir.GetPath().c_str()) != 0 ||
            ::chdir("/") != 0) {
            return false;
        }
        const posix::fd_t folder(::open("/", O_RDONLY | O_DIRECTORY));
        const auto item = StatItem(folder.Get(), "file", "file");
        std::vector<std::string> told;
        const auto none = ReadXattrs(item, [&](const auto& failure) { told.emplace_back(failure.what()); });
        const auto opened = ReadXattrs(OpenItem(item));
        auto gone = item;
        gone.name = "gone";
        bool isGone = false;
        try {
            (void)ReadXattrs(gone, [](const auto&) {});
        } catch (const posix::CPosixExc& failure) {
            isGone = failure.GetErrorNumber() == ENOENT;
        }
        return isGone && none.empty() && opened == std::vector<SXattr>{{"user.a", "1"}} &&
               told == std::vector<std::string>{
                           "Cannot list, for want of /proc, the extended attributes of 'file': "
                           "Function not implemented"};
    }));
}

}  // namespace
}  // namespace agent
