#include "clients/directory/DurableFolders.h"

#include <fcntl.h>

#include <cerrno>

namespace clients::directory {

using posix::CPosixExc;
using posix::fd_t;

namespace {

/// How often a folder that others delete at the same time is made again.
constexpr int maxAttempts = 64;
/// What is remembered only saves syncs; past this number it is gathered afresh.
constexpr std::size_t maxKnown = 100000;

}  // namespace

fd_t CDurableFolders::Open(const std::string& relative) {
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        fd_t folder = OpenIfThere(root_.GetFd(), relative, relative);
        if (!folder || !IsKnown(relative)) {
            folder = Make(relative);
        }
        if (folder) {
            return folder;
        }
    }
    throw CPosixExc("create the folder", relative, EBUSY);
}

/// Empty when nothing is there; an object in the way is a failure here, since something is to be written.
fd_t CDurableFolders::OpenIfThere(int folder, const std::string& name, const std::string& shown) const {
    try {
        return OpenBeneath(folder, name, O_RDONLY | O_DIRECTORY, shown);
    } catch (const CPosixExc& failure) {
        if (failure.GetErrorNumber() != ENOENT) {
            throw;
        }
        return {};
    }
}

fd_t CDurableFolders::Make(const std::string& relative) {
    const std::lock_guard lock(makeMutex_);
    fd_t current = root_.Open("", O_RDONLY | O_DIRECTORY);
    for (std::size_t begin = 0; current && begin < relative.size();) {
        const std::size_t end = std::min(relative.find('/', begin), relative.size());
        current = MakeElement(current, relative.substr(begin, end - begin), relative.substr(0, end));
        begin = end + 1;
    }
    return current;
}

fd_t CDurableFolders::MakeElement(const fd_t& parent, const std::string& name, const std::string& path) {
    fd_t folder = OpenIfThere(parent.Get(), name, path);
    if (!folder) {
        Forget(path);  // before it is there again, so that nobody takes the new folder for the one that was synced
        if (::mkdirat(parent.Get(), name.c_str(), newFolderMode) != 0 && errno != EEXIST) {
            if (errno == ENOENT) {
                return {};  // the parent was deleted meanwhile
            }
            throw CPosixExc("create the folder", path, errno);
        }
        folder = OpenIfThere(parent.Get(), name, path);
    }
    if (folder && !IsKnown(path)) {
        SyncFolder(parent.Get(), path);
        Remember(path);
    }
    return folder;
}

bool CDurableFolders::IsKnown(const std::string& path) {
    const std::lock_guard lock(knownMutex_);
    return path.empty() || known_.contains(path);
}

void CDurableFolders::Remember(const std::string& path) {
    const std::lock_guard lock(knownMutex_);
    if (known_.size() >= maxKnown) {
        known_.clear();
    }
    known_.insert(path);
}

void CDurableFolders::Forget(const std::string& path) {
    const std::lock_guard lock(knownMutex_);
    known_.erase(path);
}

}  // namespace clients::directory
