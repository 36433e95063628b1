#include "agent/fs/TargetRemoval.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
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

void RemoveContent(int parent, const std::string& name, const std::string& shownPath, dev_t device) {
    const posix::fd_t folder(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!folder || ::fstat(folder.Get(), &info) != 0) {
        throw posix::CPosixExc("open the folder", shownPath, errno);
    }
    if (info.st_dev != device) {
        throw posix::CPosixExc("remove the mounted folder", shownPath, EXDEV);
    }
    for (const auto& child : NamesInFolder(folder, shownPath)) {
        RemoveItem(folder.Get(), child, shownPath + "/" + child, true);
    }
}

}  // namespace

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
        struct stat above {};
        if (::fstat(parent, &above) != 0) {
            throw posix::CPosixExc("look at the folder of", shownPath, errno);
        }
        RemoveContent(parent, name, shownPath, above.st_dev);
    }
    if (::unlinkat(parent, name.c_str(), isFolder ? AT_REMOVEDIR : 0) != 0) {
        throw posix::CPosixExc("remove", shownPath, errno);
    }
}

}  // namespace agent
