#include "agent/fs/RestoreTarget.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "agent/fs/Attributes.h"
#include "agent/fs/SourceItem.h"
#include "agent/fs/TargetRemoval.h"
#include "common/exc.h"

namespace agent {

namespace {

constexpr mode_t workingFolderMode = 0700;
constexpr mode_t workingFileMode = 0600;

void MakeFoldersTo(const std::string& folder) {
    for (std::size_t at = folder.find('/', 1); at != std::string::npos; at = folder.find('/', at + 1)) {
        ::mkdir(folder.substr(0, at).c_str(), 0755);
    }
    if (::mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) {
        throw posix::CPosixExc("make the folder", folder, errno);
    }
}

std::string FdPath(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

bool GivesAcl(const posix::fd_t& folder) {
    return ::getxattr(FdPath(folder.Get()).c_str(), "system.posix_acl_default", nullptr, 0) > 0;
}

/// No two files of a program bear it; one of a run that was killed may be in the way.
std::string MakeTemporaryName() {
    static std::atomic<std::uint64_t> count{0};
    return ".cloudbackup-unfinished-" + std::to_string(::getpid()) + "-" + std::to_string(++count);
}

bool KnowsNoNamelessFiles(int error) { return error == EOPNOTSUPP || error == EISDIR || error == EINVAL; }

/// Gives an open file without a name that name.
int LinkOpenFile(int fd, int folder, const std::string& name) {
    if (::linkat(fd, "", folder, name.c_str(), AT_EMPTY_PATH) == 0) {
        return 0;
    }
    // Without the right to search everywhere the empty path is refused.
    return errno == ENOENT || errno == EPERM
               ? ::linkat(AT_FDCWD, FdPath(fd).c_str(), folder, name.c_str(), AT_SYMLINK_FOLLOW)
               : -1;
}

/// The mode to make a file with: its own where nobody can get more rights by it than in the end.
mode_t NewFileMode(const SEntry& entry) {
    const bool isOwn = entry.uid == ::geteuid() && entry.gid == ::getegid() && entry.xattrs.empty();
    return isOwn ? entry.mode & 0777U : workingFileMode;
}

}  // namespace

CRestoreTarget::CRestoreTarget(const std::string& folder, ETargetUse use) : folder_(folder) {
    if (use != ETargetUse::onlyLook) {
        MakeFoldersTo(folder);
    }
    posix::fd_t root(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!root && (use != ETargetUse::onlyLook || errno != ENOENT)) {
        throw posix::CPosixExc("open the folder", folder, errno);
    }
    root_ = std::make_shared<const posix::fd_t>(std::move(root));
    if (use == ETargetUse::mustBeEmpty && !ListNames({}).empty()) {
        throw exc::CRuntimeExc("Cannot restore into '%1': the folder is not empty", folder);
    }
}

std::string CRestoreTarget::FullPath(const std::string& path) const {
    return path.empty() ? folder_ : (folder_ == "/" ? "" : folder_) + "/" + path;
}

posix::fd_t CRestoreTarget::OpenBeneath(const std::string& path, int flags) const {
    struct open_how how {};
    how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    const char* const relative = path.empty() ? "." : path.c_str();
    posix::fd_t fd(static_cast<int>(::syscall(SYS_openat2, root_->Get(), relative, &how, sizeof(how))));
    if (!fd) {
        throw posix::CPosixExc("open", FullPath(path), *root_ ? errno : ENOENT);
    }
    return fd;
}

CRestoreTarget::SPlace CRestoreTarget::Locate(const std::string& path) {
    const auto slash = path.find_last_of('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.empty() || name == "." || name == ".." || path.find('\0') != std::string::npos) {
        throw exc::CRuntimeExc("Cannot restore '%1': it is no valid path", path);
    }
    std::string parent = slash == std::string::npos ? std::string() : path.substr(0, slash);
    if (!last_ || last_->path != parent) {
        posix::fd_t fd = OpenBeneath(parent, O_PATH | O_DIRECTORY);
        const bool givesAcl = GivesAcl(fd);
        last_ = std::make_shared<const STargetFolder>(STargetFolder{std::move(parent), std::move(fd), givesAcl});
    }
    return {last_, std::move(name)};
}

std::optional<SEntry> CRestoreTarget::Find(const std::string& path, bool withXattrs) {
    try {
        const SPlace place = path.empty() ? SPlace{nullptr, "."} : Locate(path);
        const int parent = place.folder ? place.folder->fd.Get() : root_->Get();
        SSourceItem item = StatItem(parent, place.name, FullPath(path));
        if (withXattrs) {
            item.entry.xattrs = ReadXattrs(item);
        }
        return std::move(item.entry);
    } catch (const posix::CPosixExc& failure) {
        const int error = failure.GetErrorNumber();
        const bool isRootMissing = !*root_ && error == EBADF;
        if (error == ENOENT || error == ENOTDIR || error == ELOOP || isRootMissing) {
            return std::nullopt;
        }
        throw;
    }
}

std::string CRestoreTarget::ReadLink(const std::string& path) {
    const SPlace place = Locate(path);
    return ReadLinkTarget(StatItem(place.folder->fd.Get(), place.name, FullPath(path)));
}

std::vector<std::string> CRestoreTarget::ListNames(const std::string& path) const {
    return NamesInFolder(OpenBeneath(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW), FullPath(path));
}

bool CRestoreTarget::IsMountedUnder(const std::string& base, const std::string& path) const {
    if (path == base) {
        return false;
    }
    const posix::fd_t above = OpenBeneath(base, O_PATH | O_DIRECTORY);
    const std::string relative = base.empty() ? path : path.substr(base.size() + 1);
    if (OpenOnSameFileSystem(above.Get(), relative, O_PATH)) {
        return false;
    }
    if (errno != EXDEV) {
        throw posix::CPosixExc("open the folder", FullPath(path), errno);
    }
    return true;
}

posix::posix_file_t CRestoreTarget::OpenFile(const std::string& path) const {
    posix::fd_t fd = OpenBeneath(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    struct stat info {};
    if (::fstat(fd.Get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        throw exc::CRuntimeExc("'%1' is no file", FullPath(path));
    }
    return {std::move(fd), FullPath(path)};
}

bool CRestoreTarget::MakeFolder(const std::string& path) {
    bool isNew = false;
    for (std::size_t end = 0; end != std::string::npos && !path.empty();) {
        end = path.find('/', end + 1);
        const SPlace place = Locate(path.substr(0, end));
        isNew = ::mkdirat(place.folder->fd.Get(), place.name.c_str(), workingFolderMode) == 0;
        if (!isNew && errno != EEXIST) {
            throw posix::CPosixExc("make the folder", FullPath(path), errno);
        }
    }
    if (!isNew) {
        const posix::fd_t folder = OpenBeneath(path, O_PATH | O_DIRECTORY);
        struct stat info {};
        if (::fstat(folder.Get(), &info) == 0 && (info.st_mode & workingFolderMode) != workingFolderMode) {
            if (::chmod(FdPath(folder.Get()).c_str(), (info.st_mode & 07777U) | workingFolderMode) == 0) {
                formerModes_.emplace(path, info.st_mode & 07777U);
            }
        }
    }
    return isNew;
}

void CRestoreTarget::GiveModesBack() {
    for (auto folder = formerModes_.rbegin(); folder != formerModes_.rend(); ++folder) {  // the deeper ones first
        const posix::fd_t handle = OpenBeneath(folder->first, O_PATH | O_DIRECTORY | O_NOFOLLOW);
        if (::chmod(FdPath(handle.Get()).c_str(), folder->second) != 0) {
            throw posix::CPosixExc("set the mode of", FullPath(folder->first), errno);
        }
    }
    formerModes_.clear();
}

STargetFile CRestoreTarget::CreateFile(const std::string& path, std::uint64_t size) {
    SPlace place = Locate(path);
    const int folder = place.folder->fd.Get();
    std::string temporaryName;
    posix::fd_t fd(::openat(folder, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, workingFileMode));
    for (int error = errno; !fd && (KnowsNoNamelessFiles(error) || (error == EEXIST && !temporaryName.empty()));) {
        temporaryName = MakeTemporaryName();
        fd = posix::fd_t(::openat(folder, temporaryName.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW,
                                  workingFileMode));
        error = errno == EEXIST ? EEXIST : 0;
    }
    if (!fd) {
        throw posix::CPosixExc("create", FullPath(path), errno);
    }
    posix::posix_file_t file(std::move(fd), FullPath(path));
    if (size != 0) {
        file.Truncate(size);
    }
    return {std::move(place.folder), std::move(place.name), std::move(temporaryName), std::move(file)};
}

void CRestoreTarget::FinishFile(STargetFile target, const SEntry& entry, EReplace replace) {
    std::optional<CAttributesExc> fault;
    try {
        ApplyNewFileAttributes(target.file.GetFd(), target.file.GetPath(), entry, target.folder->givesAcl);
    } catch (const CAttributesExc& failure) {
        fault = failure;
    }
    const int folder = target.folder->fd.Get();
    int result = 0;
    if (target.temporaryName.empty()) {
        std::string name = target.name;
        if (replace == EReplace::yes) {
            target.temporaryName = MakeTemporaryName();
            name = target.temporaryName;
        }
        result = LinkOpenFile(target.file.GetFd(), folder, name);
    }
    if (result == 0 && !target.temporaryName.empty()) {
        const unsigned flags = replace == EReplace::yes ? 0 : RENAME_NOREPLACE;
        result = ::renameat2(folder, target.temporaryName.c_str(), folder, target.name.c_str(), flags);
        if (result != 0) {
            const int error = errno;
            ::unlinkat(folder, target.temporaryName.c_str(), 0);
            errno = error;
        }
    }
    if (result != 0) {
        throw posix::CPosixExc("give its name to", target.file.GetPath(), errno);
    }
    if (fault) {
        throw CAttributesExc(*fault);
    }
}

void CRestoreTarget::WriteFile(const std::string& path, std::uint64_t offset, std::span<const char> content,
                               const SEntry& entry) {
    const SPlace place = Locate(path);
    const int folder = place.folder->fd.Get();
    posix::fd_t fd(
        ::openat(folder, place.name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, NewFileMode(entry)));
    if (!fd) {
        throw posix::CPosixExc("create", FullPath(path), errno);
    }
    posix::posix_file_t file(std::move(fd), FullPath(path));
    try {
        file.WriteAt(offset, content);
        if (offset + content.size() != entry.size) {
            file.Truncate(entry.size);
        }
        ApplyNewFileAttributes(file.GetFd(), file.GetPath(), entry, place.folder->givesAcl);
    } catch (const CAttributesExc&) {
        throw;
    } catch (...) {
        ::unlinkat(folder, place.name.c_str(), 0);
        throw;
    }
}

void CRestoreTarget::CopyRange(const posix::posix_file_t& from, const STargetFile& to, const SFileRange& range) {
    off_t in = static_cast<off_t>(range.offset);
    off_t out = in;
    const off_t end = static_cast<off_t>(range.offset + range.length);
    while (in < end) {
        const ssize_t copied =
            ::copy_file_range(from.GetFd(), &in, to.file.GetFd(), &out, static_cast<std::size_t>(end - in), 0);
        if (copied <= 0) {
            throw posix::CPosixExc("copy", from.GetPath(), copied == 0 ? EIO : errno);
        }
    }
}

void CRestoreTarget::CopyContent(const std::string& from, STargetFile& to) {
    const posix::posix_file_t source = OpenFile(from);
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
        CopyRange(source, to, {static_cast<std::uint64_t>(data), static_cast<std::uint64_t>(end - data)});
        position = end;
    }
}

void CRestoreTarget::MakeSymlink(const std::string& path, const SEntry& entry) {
    const SPlace place = Locate(path);
    if (::symlinkat(entry.target.c_str(), place.folder->fd.Get(), place.name.c_str()) != 0) {
        throw posix::CPosixExc("make the link", FullPath(path), errno);
    }
    ApplyAttributes(FdPath(place.folder->fd.Get()) + "/" + place.name, FullPath(path), entry, ELinks::noFollow);
}

void CRestoreTarget::MakeHardLink(const std::string& path, const std::string& existing) {
    const SPlace from = Locate(existing);
    const SPlace to = Locate(path);
    if (::linkat(from.folder->fd.Get(), from.name.c_str(), to.folder->fd.Get(), to.name.c_str(), 0) != 0) {
        throw posix::CPosixExc("make the hard link", FullPath(path), errno);
    }
}

void CRestoreTarget::MakeNode(const std::string& path, const SEntry& entry) {
    const SPlace place = Locate(path);
    const mode_t type = entry.type == EEntryType::fifo         ? S_IFIFO
                        : entry.type == EEntryType::charDevice ? S_IFCHR
                                                               : S_IFBLK;
    if (::mknodat(place.folder->fd.Get(), place.name.c_str(), type | workingFileMode, entry.rdev) != 0) {
        throw posix::CPosixExc("make the special file", FullPath(path), errno);
    }
    // By a handle, since a mode is set through links otherwise.
    const posix::fd_t node = OpenBeneath(path, O_PATH | O_NOFOLLOW);
    ApplyAttributes(FdPath(node.Get()), FullPath(path), entry, ELinks::follow);
}

void CRestoreTarget::FinishFolder(const std::string& path, const SEntry& entry) {
    formerModes_.erase(path);
    const posix::fd_t folder = OpenBeneath(path, O_PATH | O_DIRECTORY | O_NOFOLLOW);
    ApplyAttributes(FdPath(folder.Get()), FullPath(path), entry, ELinks::follow);
}

bool CRestoreTarget::UpdateAttributes(const std::string& path, const SEntry& entry) {
    formerModes_.erase(path);
    const auto now = Find(path, true);
    if (!now || now->type != entry.type) {
        throw exc::CRuntimeExc("'%1' is not what it was when the restore began", FullPath(path));
    }
    const bool sameMode = entry.type == EEntryType::symlink || now->mode == entry.mode;
    if (sameMode && now->uid == entry.uid && now->gid == entry.gid && now->mtime == entry.mtime &&
        now->xattrs == entry.xattrs) {
        return false;
    }
    const bool isLink = entry.type == EEntryType::symlink;
    const SPlace place = path.empty() ? SPlace{} : Locate(path);
    const posix::fd_t handle = isLink ? posix::fd_t() : OpenBeneath(path, O_PATH | O_NOFOLLOW);
    const std::string itself = isLink ? FdPath(place.folder->fd.Get()) + "/" + place.name : FdPath(handle.Get());
    for (const auto& xattr : now->xattrs) {
        const auto isSame = [&](const SXattr& wanted) { return wanted.name == xattr.name; };
        if (IsRestoredXattr(xattr.name) && std::none_of(entry.xattrs.begin(), entry.xattrs.end(), isSame)) {
            isLink ? ::lremovexattr(itself.c_str(), xattr.name.c_str())
                   : ::removexattr(itself.c_str(), xattr.name.c_str());
        }
    }
    ApplyAttributes(itself, FullPath(path), entry, isLink ? ELinks::noFollow : ELinks::follow);
    return true;
}

void CRestoreTarget::Remove(const std::string& path, bool withContent) {
    const SPlace place = Locate(path);
    last_ = nullptr;  // it may be what goes
    RemoveItem(place.folder->fd.Get(), place.name, FullPath(path), withContent);
}

void CRestoreTarget::Sync() const {
    const posix::fd_t root = OpenBeneath({}, O_RDONLY | O_DIRECTORY);
    if (::syncfs(root.Get()) != 0) {
        throw posix::CPosixExc("write to the device what is in", folder_, errno);
    }
}

}  // namespace agent
