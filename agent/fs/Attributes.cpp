#include "agent/fs/Attributes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "common/posix.h"

namespace agent {

namespace {

constexpr std::uint32_t setIdBits = S_ISUID | S_ISGID;
constexpr const char* accessAcl = "system.posix_acl_access";
constexpr const char* defaultAcl = "system.posix_acl_default";

/// Remembers the first failure: one attribute that cannot be had keeps none of the others away.
class CFaults {
public:
    explicit CFaults(const std::string& shownPath) : shownPath_(shownPath) {}

    /// With what errno says.
    void Add(const std::string& operation) {
        if (!first_) {
            first_.emplace(operation, shownPath_, errno);
        }
    }
    void ThrowFirst() const {
        if (first_) {
            throw CAttributesExc("%1", first_->what());
        }
    }

private:
    const std::string& shownPath_;
    std::optional<posix::CPosixExc> first_;
};

/// False when the owner had to stay as it was.
bool ApplyOwner(const std::string& path, const SEntry& entry, int flags, CFaults& faults) {
    if (::fchownat(AT_FDCWD, path.c_str(), entry.uid, entry.gid, flags) == 0) {
        return true;
    }
    if (errno != EPERM) {
        faults.Add("set the owner of");
    }
    struct stat info {};
    return ::fstatat(AT_FDCWD, path.c_str(), &info, flags) == 0 && info.st_uid == entry.uid && info.st_gid == entry.gid;
}

/// `set` takes a name and a value, as setxattr does. False when the access control list is not as it is to be.
template <class Set>
bool ApplyXattrs(const SEntry& entry, const Set& set, CFaults& faults) {
    bool aclIsRight = true;
    for (const auto& xattr : entry.xattrs) {
        if (set(xattr.name.c_str(), xattr.value.data(), xattr.value.size()) == 0) {
            continue;
        }
        const bool ours = xattr.name.starts_with("user.") || xattr.name.starts_with("system.posix_acl_");
        if (ours || (errno != EPERM && errno != ENOTSUP)) {
            faults.Add("set the extended attribute " + xattr.name + " of");
        }
        aclIsRight = aclIsRight && xattr.name != accessAcl;
    }
    return aclIsRight;
}

bool Has(const SEntry& entry, const char* name) {
    return std::any_of(entry.xattrs.begin(), entry.xattrs.end(), [&](const auto& xattr) { return xattr.name == name; });
}

/// What a name got from the folder in which it was made, without being told so by its entry. False when the access
/// control list is still there.
bool RemoveInheritedAcls(const std::string& path, const SEntry& entry, CFaults& faults) {
    bool aclIsRight = true;
    for (const char* const name : {accessAcl, defaultAcl}) {
        const bool isPossible = name == accessAcl || entry.type == EEntryType::directory;
        if (isPossible && !Has(entry, name) && ::removexattr(path.c_str(), name) != 0 && errno != ENODATA &&
            errno != ENOTSUP) {
            faults.Add("remove the inherited access control list of");
            aclIsRight = aclIsRight && name != accessAcl;
        }
    }
    return aclIsRight;
}

/// The mode that gives nobody more than the entry does.
std::uint32_t SafeMode(const SEntry& entry, bool ownerIsRight, bool aclIsRight) {
    return entry.mode & ~(ownerIsRight ? 0U : setIdBits) & ~(aclIsRight ? 0U : std::uint32_t{S_IRWXG});
}

timespec ToTimespec(const STime& time) { return {time.seconds, static_cast<long>(time.nanoseconds)}; }

}  // namespace

bool IsRestoredXattr(const std::string& name) {
    return name.starts_with("user.") || name.starts_with("system.posix_acl_") || name == "security.capability";
}

void ApplyAttributes(const std::string& path, const std::string& shownPath, const SEntry& entry, ELinks links) {
    CFaults faults(shownPath);
    const int flags = links == ELinks::follow ? 0 : AT_SYMLINK_NOFOLLOW;
    const bool isLink = entry.type == EEntryType::symlink;
    const bool ownerIsRight = ApplyOwner(path, entry, flags, faults);
    const bool nothingInherited = isLink || RemoveInheritedAcls(path, entry, faults);
    const auto set = [&](const char* name, const char* value, std::size_t size) {
        return links == ELinks::follow ? ::setxattr(path.c_str(), name, value, size, 0)
                                       : ::lsetxattr(path.c_str(), name, value, size, 0);
    };
    const bool aclIsRight = ApplyXattrs(entry, set, faults) && nothingInherited;
    // After the owner, whose change clears set-id bits, and after an ACL, whose mask is part of the mode.
    if (!isLink && ::fchmodat(AT_FDCWD, path.c_str(), SafeMode(entry, ownerIsRight, aclIsRight), 0) != 0) {
        faults.Add("set the mode of");
    }
    const timespec times[2] = {ToTimespec(entry.mtime), ToTimespec(entry.mtime)};
    if (::utimensat(AT_FDCWD, path.c_str(), times, flags) != 0) {
        faults.Add("set the times of");
    }
    faults.ThrowFirst();
}

void ApplyNewFileAttributes(int fd, const std::string& shownPath, const SEntry& entry, bool inheritsAcl) {
    CFaults faults(shownPath);
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        throw posix::CPosixExc("look at", shownPath, errno);
    }
    bool ownerIsRight = info.st_uid == entry.uid && info.st_gid == entry.gid;
    bool modeMayDiffer = (info.st_mode & 07777U) != entry.mode || !entry.xattrs.empty() || inheritsAcl;
    if (!ownerIsRight) {
        ownerIsRight = ::fchown(fd, entry.uid, entry.gid) == 0;
        if (!ownerIsRight && errno != EPERM) {
            faults.Add("set the owner of");
        }
        modeMayDiffer = true;
    }
    bool nothingInherited = true;
    if (inheritsAcl && ::fremovexattr(fd, accessAcl) != 0 && errno != ENODATA && errno != ENOTSUP) {
        faults.Add("remove the inherited access control list of");
        nothingInherited = Has(entry, accessAcl);
    }
    const auto set = [&](const char* name, const char* value, std::size_t size) {
        return ::fsetxattr(fd, name, value, size, 0);
    };
    const bool aclIsRight = ApplyXattrs(entry, set, faults) && nothingInherited;
    if (modeMayDiffer && ::fchmod(fd, SafeMode(entry, ownerIsRight, aclIsRight)) != 0) {
        faults.Add("set the mode of");
    }
    const timespec times[2] = {ToTimespec(entry.mtime), ToTimespec(entry.mtime)};
    if (::futimens(fd, times) != 0) {
        faults.Add("set the times of");
    }
    faults.ThrowFirst();
}

}  // namespace agent
