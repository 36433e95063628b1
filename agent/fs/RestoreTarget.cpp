#include "agent/fs/RestoreTarget.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "agent/fs/Attributes.h"
#include "common/exc.h"

namespace agent {

namespace {

constexpr mode_t workingFolderMode = 0700;
constexpr mode_t workingFileMode = 0600;

bool IsEmptyFolder(int fd) {
    struct SClose {
        void operator()(DIR* dir) const { ::closedir(dir); }
    };
    const int copy = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, SClose> dir(copy < 0 ? nullptr : ::fdopendir(copy));
    while (const dirent* entry = dir ? ::readdir(dir.get()) : nullptr) {  // NOLINT: a stream of its own
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            return false;
        }
    }
    return dir != nullptr;
}

void MakeFoldersTo(const std::string& folder) {
    for (std::size_t at = folder.find('/', 1); at != std::string::npos; at = folder.find('/', at + 1)) {
        ::mkdir(folder.substr(0, at).c_str(), 0755);
    }
    if (::mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) {
        throw posix::CPosixExc("make the folder", folder, errno);
    }
}

std::string FdPath(const posix::fd_t& fd) { return "/proc/self/fd/" + std::to_string(fd.Get()); }

}  // namespace

CRestoreTarget::CRestoreTarget(const std::string& folder) : folder_(folder) {
    MakeFoldersTo(folder);
    root_ = posix::fd_t(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!root_) {
        throw posix::CPosixExc("open the folder", folder, errno);
    }
    if (!IsEmptyFolder(root_.Get())) {
        throw exc::CRuntimeExc("Cannot restore into '%1': the folder is not empty", folder);
    }
}

posix::fd_t CRestoreTarget::OpenBeneath(const std::string& path, int flags) const {
    struct open_how how {};
    how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    const char* const relative = path.empty() ? "." : path.c_str();
    posix::fd_t fd(static_cast<int>(::syscall(SYS_openat2, root_.Get(), relative, &how, sizeof(how))));
    if (!fd) {
        throw posix::CPosixExc("open", folder_ + "/" + path, errno);
    }
    return fd;
}

CRestoreTarget::SPlace CRestoreTarget::Locate(const std::string& path) const {
    const auto slash = path.find_last_of('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.empty() || name == "." || name == ".." || path.find('\0') != std::string::npos) {
        throw exc::CRuntimeExc("Cannot restore '%1': it is no valid path", path);
    }
    return {OpenBeneath(slash == std::string::npos ? std::string() : path.substr(0, slash), O_PATH | O_DIRECTORY),
            std::move(name)};
}

void CRestoreTarget::MakeFolder(const std::string& path) {
    for (std::size_t end = 0; end != std::string::npos && !path.empty();) {
        end = path.find('/', end + 1);
        const SPlace place = Locate(path.substr(0, end));
        if (::mkdirat(place.folder.Get(), place.name.c_str(), workingFolderMode) != 0 && errno != EEXIST) {
            throw posix::CPosixExc("make the folder", folder_ + "/" + path, errno);
        }
    }
}

STargetFile CRestoreTarget::CreateFile(const std::string& path, std::uint64_t size) {
    SPlace place = Locate(path);
    const std::string fullPath = folder_ + "/" + path;
    std::string temporaryName;
    posix::fd_t fd(::openat(place.folder.Get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, workingFileMode));
    if (!fd && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        temporaryName = ".cloudbackup-unfinished";
        fd = posix::fd_t(::openat(place.folder.Get(), temporaryName.c_str(),
                                  O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW, workingFileMode));
    }
    if (!fd) {
        throw posix::CPosixExc("create", fullPath, errno);
    }
    posix::posix_file_t file(std::move(fd), fullPath);
    if (size != 0) {
        file.Truncate(size);
    }
    return {std::move(place.folder), std::move(place.name), std::move(temporaryName), std::move(file)};
}

void CRestoreTarget::FinishFile(STargetFile target, const SEntry& entry) {
    ApplyAttributes("/proc/self/fd/" + std::to_string(target.file.GetFd()), target.file.GetPath(), entry,
                    ELinks::follow);
    const int result = target.temporaryName.empty()
                           ? ::linkat(AT_FDCWD, ("/proc/self/fd/" + std::to_string(target.file.GetFd())).c_str(),
                                      target.folder.Get(), target.name.c_str(), AT_SYMLINK_FOLLOW)
                           : ::renameat2(target.folder.Get(), target.temporaryName.c_str(), target.folder.Get(),
                                         target.name.c_str(), RENAME_NOREPLACE);
    if (result != 0) {
        throw posix::CPosixExc("give its name to", target.file.GetPath(), errno);
    }
}

void CRestoreTarget::CopyContent(const std::string& from, STargetFile& to) {
    const posix::posix_file_t source(OpenBeneath(from, O_RDONLY | O_NOFOLLOW), folder_ + "/" + from);
    const std::uint64_t size = source.GetSize();
    off_t position = 0;
    while (static_cast<std::uint64_t>(position) < size) {
        const off_t data = ::lseek(source.GetFd(), position, SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            break;
        }
        const off_t end = ::lseek(source.GetFd(), data, SEEK_HOLE);
        if (data < 0 || end < 0) {
            throw posix::CPosixExc("copy", source.GetPath(), errno);
        }
        for (off_t in = data, out = data; in < end;) {
            const ssize_t copied =
                ::copy_file_range(source.GetFd(), &in, to.file.GetFd(), &out, static_cast<std::size_t>(end - in), 0);
            if (copied <= 0) {
                throw posix::CPosixExc("copy", source.GetPath(), copied == 0 ? EIO : errno);
            }
        }
        position = end;
    }
}

void CRestoreTarget::MakeSymlink(const std::string& path, const SEntry& entry) {
    const SPlace place = Locate(path);
    if (::symlinkat(entry.target.c_str(), place.folder.Get(), place.name.c_str()) != 0) {
        throw posix::CPosixExc("make the link", folder_ + "/" + path, errno);
    }
    ApplyAttributes(FdPath(place.folder) + "/" + place.name, folder_ + "/" + path, entry, ELinks::noFollow);
}

void CRestoreTarget::MakeHardLink(const std::string& path, const std::string& existing) {
    const SPlace from = Locate(existing);
    const SPlace to = Locate(path);
    if (::linkat(from.folder.Get(), from.name.c_str(), to.folder.Get(), to.name.c_str(), 0) != 0) {
        throw posix::CPosixExc("make the hard link", folder_ + "/" + path, errno);
    }
}

void CRestoreTarget::MakeNode(const std::string& path, const SEntry& entry) {
    const SPlace place = Locate(path);
    const mode_t type = entry.type == EEntryType::fifo         ? S_IFIFO
                        : entry.type == EEntryType::charDevice ? S_IFCHR
                                                               : S_IFBLK;
    if (::mknodat(place.folder.Get(), place.name.c_str(), type | workingFileMode, entry.rdev) != 0) {
        throw posix::CPosixExc("make the special file", folder_ + "/" + path, errno);
    }
    ApplyAttributes(FdPath(place.folder) + "/" + place.name, folder_ + "/" + path, entry, ELinks::noFollow);
}

void CRestoreTarget::FinishFolder(const std::string& path, const SEntry& entry) {
    const posix::fd_t folder = OpenBeneath(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    ApplyAttributes(FdPath(folder), folder_ + "/" + path, entry, ELinks::follow);
}

}  // namespace agent
