#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/model/Entry.h"
#include "common/posix.h"

namespace agent {

/// One name met in a source, with what a single statx tells of it.
struct SSourceItem {
    /// From the root, elements joined by "/"; empty for the root itself.
    std::string path;
    /// Where the item can be opened: its folder and its name in it. The folder is open only while the item is visited.
    int parentFd = -1;
    std::string name;
    /// Without target, extended attributes and content.
    SEntry entry;
    /// Names of the inode; more than one makes hard links.
    std::uint64_t links = 1;
};

/// Stats a name without following a link. Throws posix::CPosixExc. A socket gives no entry type: see IsSocket.
[[nodiscard]] SSourceItem StatItem(int parentFd, const std::string& name, const std::string& path);

/// The state of the very file that was opened for the item, whatever bears its name by now.
[[nodiscard]] SEntry StatOpened(const posix::posix_file_t& file);

/// Sockets are a running program's; there is nothing in them to keep.
[[nodiscard]] bool IsSocket(const SSourceItem& item);

/// Which signs of a change do not count: there are file systems that make inodes or ctimes up each time.
struct SChangeSigns {
    bool ignoreCtime = false;
    bool ignoreInode = false;
};

/// True when nothing points at a change since `known` was stored: type, size, mtime, ctime and inode are the same.
/// Without the ctime, mode and owner stand for it.
[[nodiscard]] bool IsUnchanged(const SEntry& known, const SEntry& now, const SChangeSigns& signs = {});

/// Opens a file for reading without following a link, and without touching its access time where that is allowed.
[[nodiscard]] posix::posix_file_t OpenItem(const SSourceItem& item);

/// The text of a symbolic link.
[[nodiscard]] std::string ReadLinkTarget(const SSourceItem& item);

/// Is told of extended attributes that cannot be read.
using xattr_fault_t = std::function<void(const posix::CPosixExc& failure)>;

/// The item's extended attributes, sorted by name; none where the file system has none. Those that cannot be read are
/// told and left out; without a sink the first such ends the call. That the item is no more passes through.
[[nodiscard]] std::vector<SXattr> ReadXattrs(const SSourceItem& item, const xattr_fault_t& onFault = {});
/// The same of a file that is open, which needs no /proc.
[[nodiscard]] std::vector<SXattr> ReadXattrs(const posix::posix_file_t& file, const xattr_fault_t& onFault = {});

}  // namespace agent
