#include "agent/fs/Attributes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "common/posix.h"

namespace agent {

namespace {

constexpr std::uint32_t setIdBits = S_ISUID | S_ISGID;

/// False when the owner had to stay as it was.
bool ApplyOwner(const std::string& path, const std::string& shownPath, const SEntry& entry, int flags) {
    if (::fchownat(AT_FDCWD, path.c_str(), entry.uid, entry.gid, flags) == 0) {
        return true;
    }
    if (errno != EPERM) {
        throw posix::CPosixExc("set the owner of", shownPath, errno);
    }
    struct stat info {};
    return ::fstatat(AT_FDCWD, path.c_str(), &info, flags) == 0 && info.st_uid == entry.uid && info.st_gid == entry.gid;
}

void ApplyXattrs(const std::string& path, const std::string& shownPath, const SEntry& entry, ELinks links) {
    const auto set = links == ELinks::follow ? ::setxattr : ::lsetxattr;
    for (const auto& xattr : entry.xattrs) {
        const bool ours = xattr.name.starts_with("user.") || xattr.name.starts_with("system.posix_acl_");
        if (set(path.c_str(), xattr.name.c_str(), xattr.value.data(), xattr.value.size(), 0) != 0 &&
            (ours || (errno != EPERM && errno != ENOTSUP))) {
            throw posix::CPosixExc("set the extended attribute " + xattr.name + " of", shownPath, errno);
        }
    }
}

timespec ToTimespec(const STime& time) { return {time.seconds, static_cast<long>(time.nanoseconds)}; }

}  // namespace

void ApplyAttributes(const std::string& path, const std::string& shownPath, const SEntry& entry, ELinks links) {
    const int flags = links == ELinks::follow ? 0 : AT_SYMLINK_NOFOLLOW;
    const bool ownerIsRight = ApplyOwner(path, shownPath, entry, flags);
    ApplyXattrs(path, shownPath, entry, links);
    if (entry.type != EEntryType::symlink) {
        // After the owner, whose change clears set-id bits, and after an ACL, whose mask is part of the mode.
        const std::uint32_t mode = ownerIsRight ? entry.mode : entry.mode & ~setIdBits;
        if (::fchmodat(AT_FDCWD, path.c_str(), mode, 0) != 0) {
            throw posix::CPosixExc("set the mode of", shownPath, errno);
        }
    }
    const timespec times[2] = {ToTimespec(entry.mtime), ToTimespec(entry.mtime)};
    if (::utimensat(AT_FDCWD, path.c_str(), times, flags) != 0) {
        throw posix::CPosixExc("set the times of", shownPath, errno);
    }
}

}  // namespace agent
