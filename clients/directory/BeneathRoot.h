#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "common/posix.h"

namespace clients::directory {

/// What is made belongs to its user alone.
constexpr mode_t newFolderMode = 0700;

/// One folder of a file system, whose inside is reached without ever leaving it: the kernel resolves every path beneath
/// the folder and refuses symbolic links anywhere in it (openat2), also when the tree changes meanwhile.
///
/// Paths are relative, elements joined by "/"; the empty path is the folder itself. Failures are posix::CPosixExc: a
/// link gives ELOOP. Immutable; safe from any thread. The folder stays the same one when it is renamed meanwhile.
class CBeneathRoot {
public:
    /// Throws ENOENT for a missing folder, ENOTDIR for a file, ENOSYS when the system has no openat2.
    explicit CBeneathRoot(const std::string& path);

    /// `flags` are those of open(2), without O_CREAT.
    [[nodiscard]] posix::fd_t Open(const std::string& relative, int flags) const;
    /// An empty descriptor when nothing is there, which includes a path that runs through an object.
    [[nodiscard]] posix::fd_t TryOpen(const std::string& relative, int flags) const;
    /// What stands at the path; nothing when nothing is there.
    [[nodiscard]] std::optional<struct stat> Stat(const std::string& relative) const;

    [[nodiscard]] int GetFd() const { return root_.Get(); }
    /// The folder's own path, as given.
    [[nodiscard]] const std::string& GetPath() const { return path_; }

private:
    std::string path_;
    posix::fd_t root_;
};

/// Opens `name`, one element or a path, beneath the folder `folder`. Throws as CBeneathRoot does; `shown` names the
/// path in messages.
[[nodiscard]] posix::fd_t OpenBeneath(int folder, const std::string& name, int flags, const std::string& shown);

/// What stands at one element of an open folder, links not followed; nothing when nothing is there.
[[nodiscard]] std::optional<struct stat> StatElement(int folder, const std::string& name);

/// Waits until a folder's entries are on the device.
void SyncFolder(int folder, const std::string& shown);

/// Creates the folder `path` of the file system with its missing parents, each one on the device when this returns. A
/// folder that exists is no failure.
void CreateFolders(const std::string& path);

}  // namespace clients::directory
