#include "agent/fs/Attributes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "common/posix.h"

namespace agent {

namespace {

constexpr std::uint32_t setIdBits = S_ISUID | S_ISGID;
constexpr const char* accessAcl = "system.posix_acl_access";
constexpr const char* defaultAcl = "system.posix_acl_default";

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

/// `set` takes a name and a value, as setxattr does.
template <class Set>
void ApplyXattrs(const std::string& shownPath, const SEntry& entry, const Set& set) {
    for (const auto& xattr : entry.xattrs) {
        const bool ours = xattr.name.starts_with("user.") || xattr.name.starts_with("system.posix_acl_");
        if (set(xattr.name.c_str(), xattr.value.data(), xattr.value.size()) != 0 &&
            (ours || (errno != EPERM && errno != ENOTSUP))) {
            throw posix::CPosixExc("set the extended attribute " + xattr.name + " of", shownPath, errno);
        }
    }
}

bool Has(const SEntry& entry, const char* name) {
    return std::any_of(entry.xattrs.begin(), entry.xattrs.end(), [&](const auto& xattr) { return xattr.name == name; });
}

/// What a name got from the folder in which it was made, without being told so by its entry.
void RemoveInheritedAcls(const std::string& path, const std::string& shownPath, const SEntry& entry) {
    for (const char* const name : {accessAcl, defaultAcl}) {
        const bool isPossible = name == accessAcl || entry.type == EEntryType::directory;
        if (isPossible && !Has(entry, name) && ::removexattr(path.c_str(), name) != 0 && errno != ENODATA &&
            errno != ENOTSUP) {
            throw posix::CPosixExc("remove the inherited access control list of", shownPath, errno);
        }
    }
}

timespec ToTimespec(const STime& time) { return {time.seconds, static_cast<long>(time.nanoseconds)}; }

}  // namespace

bool IsRestoredXattr(const std::string& name) {
    return name.starts_with("user.") || name.starts_with("system.posix_acl_") || name == "security.capability";
}

void ApplyAttributes(const std::string& path, const std::string& shownPath, const SEntry& entry, ELinks links) {
    const int flags = links == ELinks::follow ? 0 : AT_SYMLINK_NOFOLLOW;
    const bool ownerIsRight = ApplyOwner(path, shownPath, entry, flags);
    if (entry.type != EEntryType::symlink) {
        RemoveInheritedAcls(path, shownPath, entry);
    }
    ApplyXattrs(shownPath, entry, [&](const char* name, const char* value, std::size_t size) {
        return links == ELinks::follow ? ::setxattr(path.c_str(), name, value, size, 0)
                                       : ::lsetxattr(path.c_str(), name, value, size, 0);
    });
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

void ApplyNewFileAttributes(int fd, const std::string& shownPath, const SEntry& entry, bool inheritsAcl) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        throw posix::CPosixExc("look at", shownPath, errno);
    }
    bool ownerIsRight = info.st_uid == entry.uid && info.st_gid == entry.gid;
    bool modeMayDiffer = (info.st_mode & 07777U) != entry.mode || !entry.xattrs.empty() || inheritsAcl;
    if (!ownerIsRight) {
        ownerIsRight = ::fchown(fd, entry.uid, entry.gid) == 0;
        if (!ownerIsRight && errno != EPERM) {
            throw posix::CPosixExc("set the owner of", shownPath, errno);
        }
        modeMayDiffer = true;
    }
    if (inheritsAcl && ::fremovexattr(fd, accessAcl) != 0 && errno != ENODATA && errno != ENOTSUP) {
        throw posix::CPosixExc("remove the inherited access control list of", shownPath, errno);
    }
    ApplyXattrs(shownPath, entry, [&](const char* name, const char* value, std::size_t size) {
        return ::fsetxattr(fd, name, value, size, 0);
    });
    if (modeMayDiffer && ::fchmod(fd, ownerIsRight ? entry.mode : entry.mode & ~setIdBits) != 0) {
        throw posix::CPosixExc("set the mode of", shownPath, errno);
    }
    const timespec times[2] = {ToTimespec(entry.mtime), ToTimespec(entry.mtime)};
    if (::futimens(fd, times) != 0) {
        throw posix::CPosixExc("set the times of", shownPath, errno);
    }
}

}  // namespace agent
