#include "clients/directory/BeneathRoot.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace clients::directory {

using posix::CPosixExc;
using posix::fd_t;

namespace {

int OpenAt2(int folder, const char* path, int flags) {
    open_how how{};
    how.flags = static_cast<unsigned>(flags) | static_cast<unsigned>(O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    while (true) {
        const long fd = ::syscall(SYS_openat2, folder, path, &how, sizeof(how));
        if (fd >= 0 || errno != EINTR) {
            return static_cast<int>(fd);
        }
    }
}

fd_t OpenOutside(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        throw CPosixExc("open the folder", path, EINVAL);
    }
    fd_t fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) {
        throw CPosixExc("open the folder", path, errno);
    }
    return fd;
}

/// "a/b" of "a/b/c" and of "a/b/c/"; "/" of "/a"; "." of "a".
std::string ParentOf(const std::string& path) {
    const auto end = path.find_last_not_of('/');
    const auto slash = end == std::string::npos ? end : path.find_last_of('/', end);
    if (slash == std::string::npos) {
        return ".";
    }
    const auto parentEnd = path.find_last_not_of('/', slash);
    return parentEnd == std::string::npos ? "/" : path.substr(0, parentEnd + 1);
}

}  // namespace

CBeneathRoot::CBeneathRoot(const std::string& path) : path_(path), root_(OpenOutside(path)) {
    const fd_t probe(OpenAt2(root_.Get(), ".", O_PATH | O_DIRECTORY));
    if (!probe) {
        // Some sandboxes refuse calls they do not know with EPERM; opening "." of an open folder has no other reason
        // to be refused so.
        throw CPosixExc("use openat2 (Linux 5.6 or newer) in", path, errno == EPERM ? ENOSYS : errno);
    }
}

fd_t CBeneathRoot::Open(const std::string& relative, int flags) const {
    return OpenBeneath(root_.Get(), relative, flags, relative);
}

fd_t CBeneathRoot::TryOpen(const std::string& relative, int flags) const {
    fd_t fd(OpenAt2(root_.Get(), relative.empty() ? "." : relative.c_str(), flags));
    if (!fd && errno != ENOENT && errno != ENOTDIR) {
        throw CPosixExc("open", relative, errno);
    }
    return fd;
}

std::optional<struct stat> CBeneathRoot::Stat(const std::string& relative) const {
    const fd_t fd = TryOpen(relative, O_PATH | O_NOFOLLOW);
    if (!fd) {
        return std::nullopt;
    }
    struct stat info {};
    if (::fstat(fd.Get(), &info) != 0) {
        throw CPosixExc("look at", relative, errno);
    }
    if (S_ISLNK(info.st_mode)) {
        throw CPosixExc("look at", relative, ELOOP);
    }
    return info;
}

fd_t OpenBeneath(int folder, const std::string& name, int flags, const std::string& shown) {
    fd_t fd(OpenAt2(folder, name.empty() ? "." : name.c_str(), flags));
    if (!fd) {
        throw CPosixExc("open", shown, errno);
    }
    return fd;
}

std::optional<struct stat> StatElement(int folder, const std::string& name) {
    struct stat info {};
    if (::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
        return info;
    }
    if (errno == ENOENT) {
        return std::nullopt;
    }
    throw CPosixExc("look at", name, errno);
}

void SyncFolder(int folder, const std::string& shown) {
    if (::fsync(folder) != 0) {
        throw CPosixExc("sync the folder", shown, errno);
    }
}

void CreateFolders(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        throw CPosixExc("create the folder", path, EINVAL);
    }
    const std::string parent = ParentOf(path);
    int result = ::mkdir(path.c_str(), newFolderMode);
    if (result != 0 && errno == ENOENT && parent != path && !path.empty()) {
        CreateFolders(parent);
        result = ::mkdir(path.c_str(), newFolderMode);
    }
    if (result == 0) {
        SyncFolder(OpenOutside(parent).Get(), parent);
    } else if (errno != EEXIST) {
        throw CPosixExc("create the folder", path, errno);
    }
}

}  // namespace clients::directory
