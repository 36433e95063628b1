#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "clients/directory/BeneathRoot.h"
#include "common/posix.h"

namespace clients::directory {

/// A new file in a client's temp folder, deleted when let go before it was moved away. For one thread.
class CTempFile {
public:
    CTempFile(int tempFolder, std::string name);
    CTempFile(const CTempFile&) = delete;
    CTempFile& operator=(const CTempFile&) = delete;
    ~CTempFile();

    [[nodiscard]] posix::posix_file_t& GetFile() { return file_; }
    /// Gives the file its place, replacing what stands there; false when the target folder is no more.
    [[nodiscard]] bool MoveTo(int targetFolder, const std::string& targetName);

private:
    int tempFolder_;  // the area's, which outlives the file
    std::string name_;
    posix::posix_file_t file_;
    bool moved_ = false;
};

/// Where a client's unfinished objects are: a sub-folder of its own, with a random name, in the root's temp folder.
///
/// The sub-folder is made with the first temp file, so that a client that only reads writes nothing and a full or
/// read-only store can still be opened, and it is locked (flock) until the area is let go, which deletes it. A
/// sub-folder whose lock is free was left by a process that died; all such are deleted when an area is opened. Both
/// happen under the lock of the temp folder itself, so that nobody sweeps a sub-folder between its making and its
/// locking.
///
/// Safe from any thread. Failures are posix::CPosixExc; leftovers that cannot be deleted (a read-only store) are logged
/// and left.
class CTempArea {
public:
    /// Sweeps. The root must outlive the area. Throws when something that is no folder bears the temp folder's name.
    explicit CTempArea(const CBeneathRoot& root);
    CTempArea(const CTempArea&) = delete;
    CTempArea& operator=(const CTempArea&) = delete;
    ~CTempArea();

    /// The area must outlive the file.
    [[nodiscard]] CTempFile CreateFile();

private:
    void Sweep(const posix::fd_t& tempFolder);
    int GetOwnFolder();
    void MakeOwnFolder();

    const CBeneathRoot& root_;  // constant

    std::mutex mutex_;
    std::string ownPath_;         // guarded by mutex_; empty until the folder is made
    posix::fd_t ownFolder_;       // guarded by mutex_; open and locked from its making on
    std::uint64_t nextFile_ = 0;  // guarded by mutex_
};

}  // namespace clients::directory
