#include "agent/fs/SourceItem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace agent {

namespace {

// No entry type: what is not kept.
constexpr EEntryType noType{};

EEntryType TypeOf(unsigned mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return EEntryType::directory;
        case S_IFREG:
            return EEntryType::file;
        case S_IFLNK:
            return EEntryType::symlink;
        case S_IFIFO:
            return EEntryType::fifo;
        case S_IFCHR:
            return EEntryType::charDevice;
        case S_IFBLK:
            return EEntryType::blockDevice;
        default:
            return noType;
    }
}

STime ToTime(const struct statx_timestamp& time) { return {time.tv_sec, time.tv_nsec}; }

struct statx Stat(int fd, const char* name, int flags, const std::string& path) {
    struct statx info {};
    if (::statx(fd, name, flags, STATX_BASIC_STATS | STATX_BTIME, &info) != 0) {
        throw posix::CPosixExc("look at", path, errno);
    }
    return info;
}

SEntry ToEntry(const struct statx& info) {
    SEntry entry;
    entry.type = TypeOf(info.stx_mode);
    entry.mode = info.stx_mode & 07777U;
    entry.uid = info.stx_uid;
    entry.gid = info.stx_gid;
    entry.mtime = ToTime(info.stx_mtime);
    entry.ctime = ToTime(info.stx_ctime);
    if ((info.stx_mask & STATX_BTIME) != 0) {
        entry.btime = ToTime(info.stx_btime);
    }
    entry.device = makedev(info.stx_dev_major, info.stx_dev_minor);
    entry.inode = info.stx_ino;
    if (entry.type == EEntryType::file) {
        entry.size = info.stx_size;
    }
    if (entry.type == EEntryType::charDevice || entry.type == EEntryType::blockDevice) {
        entry.rdev = makedev(info.stx_rdev_major, info.stx_rdev_minor);
    }
    return entry;
}

/// A path that names the item itself through its folder's descriptor: the xattr calls know no "at" variants.
std::string ProcPath(const SSourceItem& item) {
    return "/proc/self/fd/" + std::to_string(item.parentFd) + "/" + item.name;
}

/// Asks again with a larger buffer while the answer grows.
template <class Call>
std::string ReadGrowing(const std::string& path, const char* operation, const Call& call) {
    std::string buffer(1024, '\0');
    for (;;) {
        const ssize_t length = call(buffer.data(), buffer.size());
        if (length >= 0 && static_cast<std::size_t>(length) < buffer.size()) {
            buffer.resize(static_cast<std::size_t>(length));
            return buffer;
        }
        if (length < 0 && errno != ERANGE) {
            throw posix::CPosixExc(operation, path, errno);
        }
        buffer.resize(buffer.size() * 4);
    }
}

/// Reads what `list` and `get`, which are like flistxattr and fgetxattr without their first argument, have to tell.
template <class List, class Get>
std::vector<SXattr> ReadXattrsWith(const std::string& path, const xattr_fault_t& onFault, const List& list,
                                   const Get& get) {
    std::vector<SXattr> xattrs;
    const auto read = [&](const std::string& name) {
        try {
            const auto value = [&](char* buffer, std::size_t size) { return get(name.c_str(), buffer, size); };
            xattrs.push_back({name, ReadGrowing(path, "read an extended attribute of", value)});
        } catch (const posix::CPosixExc& failure) {
            const int error = failure.GetErrorNumber();
            if (error == ENODATA) {  // taken away since it was listed
                return;
            }
            if (!onFault || error == ENOENT) {
                throw;
            }
            onFault(failure);
        }
    };
    std::string names;
    try {
        const ssize_t length = list(nullptr, 0);
        if (length == 0 || (length < 0 && errno == ENOTSUP)) {
            return xattrs;
        }
        names = ReadGrowing(path, "list the extended attributes of", list);
    } catch (const posix::CPosixExc& failure) {
        if (!onFault || failure.GetErrorNumber() == ENOENT) {
            throw;
        }
        onFault(failure);
    }
    for (std::size_t begin = 0; begin < names.size();) {
        const std::string name(names.c_str() + begin);
        begin += name.size() + 1;
        read(name);
    }
    std::sort(xattrs.begin(), xattrs.end(), [](const SXattr& a, const SXattr& b) { return a.name < b.name; });
    return xattrs;
}

}  // namespace

SSourceItem StatItem(int parentFd, const std::string& name, const std::string& path) {
    const auto info = Stat(parentFd, name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, path);
    return {path, parentFd, name, ToEntry(info), info.stx_nlink};
}

SEntry StatOpened(const posix::posix_file_t& file) {
    return ToEntry(Stat(file.GetFd(), "", AT_EMPTY_PATH, file.GetPath()));
}

bool IsSocket(const SSourceItem& item) { return item.entry.type == noType; }

bool IsUnchanged(const SEntry& known, const SEntry& now, const SChangeSigns& signs) {
    if (known.recheck || known.type != now.type || known.size != now.size || known.mtime != now.mtime ||
        (!signs.ignoreInode && known.inode != now.inode)) {
        return false;
    }
    return signs.ignoreCtime ? known.mode == now.mode && known.uid == now.uid && known.gid == now.gid
                             : known.ctime == now.ctime;
}

posix::posix_file_t OpenItem(const SSourceItem& item) {
    constexpr int flags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    posix::fd_t fd(::openat(item.parentFd, item.name.c_str(), flags | O_NOATIME));
    if (!fd && errno == EPERM) {  // only the owner may leave the access time alone
        fd = posix::fd_t(::openat(item.parentFd, item.name.c_str(), flags));
    }
    if (!fd) {
        throw posix::CPosixExc("open", item.path, errno);
    }
    return {std::move(fd), item.path};
}

std::string ReadLinkTarget(const SSourceItem& item) {
    return ReadGrowing(item.path, "read the link", [&](char* buffer, std::size_t size) {
        return ::readlinkat(item.parentFd, item.name.c_str(), buffer, size);
    });
}

std::vector<SXattr> ReadXattrs(const SSourceItem& item, const xattr_fault_t& onFault) {
    const std::string path = ProcPath(item);
    try {
        return ReadXattrsWith(
            item.path, onFault,
            [&](char* buffer, std::size_t size) { return ::llistxattr(path.c_str(), buffer, size); },
            [&](const char* name, char* buffer, std::size_t size) {
                return ::lgetxattr(path.c_str(), name, buffer, size);
            });
    } catch (const posix::CPosixExc& failure) {
        const bool isThere = ::faccessat(item.parentFd, item.name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
        if (failure.GetErrorNumber() != ENOENT || !isThere) {
            throw;
        }
        // It is not the item that is missing.
        const posix::CPosixExc withoutProc("list, for want of /proc, the extended attributes of", item.path, ENOSYS);
        if (!onFault) {
            throw posix::CPosixExc(withoutProc);
        }
        onFault(withoutProc);
        return {};
    }
}

std::vector<SXattr> ReadXattrs(const posix::posix_file_t& file, const xattr_fault_t& onFault) {
    const int fd = file.GetFd();
    return ReadXattrsWith(
        file.GetPath(), onFault, [&](char* buffer, std::size_t size) { return ::flistxattr(fd, buffer, size); },
        [&](const char* name, char* buffer, std::size_t size) { return ::fgetxattr(fd, name, buffer, size); });
}

}  // namespace agent
