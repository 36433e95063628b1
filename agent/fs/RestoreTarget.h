#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <span>
#include <string>

#include "agent/model/Entry.h"
#include "common/posix.h"

namespace agent {

/// A file being restored. It has no name until it is finished: a restore that is cut off leaves no file that looks
/// whole.
struct STargetFile {
    posix::fd_t folder;
    std::string name;
    /// The name that it bears meanwhile, where the file system knows no nameless files; else empty.
    std::string temporaryName;
    posix::posix_file_t file;
};

/// The folder that a restore writes into.
///
/// Everything is opened beneath it and without following links, so that no path and no link from a checkpoint leads out
/// of it. Folders are made writable first and get their own modes and times at the end. For one thread. Failures are
/// exceptions that name the path.
class CRestoreTarget {
public:
    /// Makes the folder; one that exists must be empty.
    explicit CRestoreTarget(const std::string& folder);

    /// Makes a folder and its missing parents.
    void MakeFolder(const std::string& path);
    [[nodiscard]] STargetFile CreateFile(const std::string& path, std::uint64_t size);
    /// Gives the file its attributes and its name.
    void FinishFile(STargetFile file, const SEntry& entry);
    /// Copies the content of a file that was restored before.
    void CopyContent(const std::string& from, STargetFile& to);
    void MakeSymlink(const std::string& path, const SEntry& entry);
    void MakeHardLink(const std::string& path, const std::string& existing);
    /// A fifo or a device.
    void MakeNode(const std::string& path, const SEntry& entry);
    /// Gives a folder its attributes; after all that lies in it.
    void FinishFolder(const std::string& path, const SEntry& entry);

private:
    struct SPlace {
        posix::fd_t folder;
        std::string name;
    };

    [[nodiscard]] SPlace Locate(const std::string& path) const;
    [[nodiscard]] posix::fd_t OpenBeneath(const std::string& path, int flags) const;

    std::string folder_;
    posix::fd_t root_;
};

}  // namespace agent
