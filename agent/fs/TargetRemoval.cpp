#include "agent/fs/TargetRemoval.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace agent {

namespace {

struct stat StatOf(int parent, const std::string& name, const std::string& shownPath) {
    struct stat info {};
    if (::fstatat(parent, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        throw posix::CPosixExc("look at", shownPath, errno);
    }
    return info;
}

void RemoveContent(int parent, const std::string& name, const std::string& shownPath) {
    const posix::fd_t folder = OpenOnSameFileSystem(parent, name, O_RDONLY);
    if (!folder) {
        throw posix::CPosixExc(errno == EXDEV ? "remove the mounted folder" : "open the folder", shownPath, errno);
    }
    for (const auto& child : NamesInFolder(folder, shownPath)) {
        RemoveItem(folder.Get(), child, shownPath + "/" + child, true);
    }
}

}  // namespace

posix::fd_t OpenOnSameFileSystem(int parent, const std::string& path, int flags) {
    struct open_how how {};
    how.flags = static_cast<unsigned>(flags | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
    posix::fd_t folder(static_cast<int>(::syscall(SYS_openat2, parent, path.c_str(), &how, sizeof(how))));
    struct stat above {};
    struct stat info {};
    if (!folder || ::fstat(parent, &above) != 0 || ::fstat(folder.Get(), &info) != 0) {
        return {};
    }
    if (info.st_dev != above.st_dev) {  // what looks like another file system without being mounted
        folder = {};
        errno = EXDEV;
    }
    return folder;
}

std::vector<std::string> NamesInFolder(const posix::fd_t& folder, const std::string& shownPath) {
    struct SClose {
        void operator()(DIR* dir) const { ::closedir(dir); }
    };
    const int copy = ::openat(folder.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, SClose> dir(copy < 0 ? nullptr : ::fdopendir(copy));
    if (!dir) {
        throw posix::CPosixExc("list the folder", shownPath, errno);
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(dir.get())) {  // NOLINT: a stream of its own
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    if (errno != 0) {
        throw posix::CPosixExc("list the folder", shownPath, errno);
    }
    std::sort(names.begin(), names.end());
    return names;
}

void RemoveItem(int parent, const std::string& name, const std::string& shownPath, bool withContent) {
    const struct stat info = StatOf(parent, name, shownPath);
    const bool isFolder = S_ISDIR(info.st_mode);
    if (isFolder && withContent) {
        RemoveContent(parent, name, shownPath);
    }
    if (::unlinkat(parent, name.c_str(), isFolder ? AT_REMOVEDIR : 0) != 0) {
        throw posix::CPosixExc("remove", shownPath, errno);
    }
}

}  // namespace agent
