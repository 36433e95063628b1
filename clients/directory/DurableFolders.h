#pragma once

#include <mutex>
#include <string>
#include <unordered_set>

#include "clients/directory/BeneathRoot.h"
#include "common/posix.h"

namespace clients::directory {

/// The folders that objects are written into: made when missing, and on the device before anything in them counts as
/// stored.
///
/// An object survives a loss of power only if every folder above it does. A folder that is there may have been made a
/// moment ago, by another thread or by a process that was killed before it synced it. So the entry of each folder is
/// synced once in this object's life, when it is first used, and again when it had to be made anew.
///
/// Safe from any thread; folders are made and first used one at a time. Failures are posix::CPosixExc.
class CDurableFolders {
public:
    /// The root must outlive the object.
    explicit CDurableFolders(const CBeneathRoot& root) : root_(root) {}
    CDurableFolders(const CDurableFolders&) = delete;
    CDurableFolders& operator=(const CDurableFolders&) = delete;

    /// The folder, open for reading (and syncing); created with its missing parents.
    [[nodiscard]] posix::fd_t Open(const std::string& relative);

private:
    posix::fd_t OpenIfThere(int folder, const std::string& name, const std::string& shown) const;
    posix::fd_t Make(const std::string& relative);
    posix::fd_t MakeElement(const posix::fd_t& parent, const std::string& name, const std::string& path);
    bool IsKnown(const std::string& path);
    void Remember(const std::string& path);
    void Forget(const std::string& path);

    const CBeneathRoot& root_;  // constant

    std::mutex makeMutex_;  // held while folders are made and synced; taken before knownMutex_

    std::mutex knownMutex_;
    std::unordered_set<std::string> known_;  // guarded by knownMutex_: folders whose entries are on the device
};

}  // namespace clients::directory
