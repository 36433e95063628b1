#include "clients/directory/TempArea.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "clients/directory/FolderTree.h"
#include "common/guid.h"
#include "common/logging.h"

namespace clients::directory {

using posix::CPosixExc;
using posix::fd_t;

namespace {

constexpr mode_t newFileMode = 0600;
constexpr logging::section_t section("DirectoryClient");

fd_t CreateTempFile(int folder, const std::string& name) {
    fd_t fd(::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, newFileMode));
    if (!fd) {
        throw CPosixExc("create the temp file", name, errno);
    }
    return fd;
}

/// Takes the folder's lock; without `wait` false when another process or client has it.
bool Lock(const fd_t& folder, bool wait, const std::string& shown) {
    while (::flock(folder.Get(), LOCK_EX | (wait ? 0 : LOCK_NB)) != 0) {
        if (!wait && errno == EWOULDBLOCK) {
            return false;
        }
        if (errno != EINTR) {
            throw CPosixExc("lock", shown, errno);
        }
    }
    return true;
}

void MakeFolder(int parent, const std::string& name, const std::string& shown) {
    if (::mkdirat(parent, name.c_str(), newFolderMode) != 0 && errno != EEXIST) {
        throw CPosixExc("create the temp folder", shown, errno);
    }
}

std::string PathInTemp(const std::string& name) { return std::string(tempFolderName) + '/' + name; }

/// Nothing of a sub-folder in use is deleted; the lock is let go with the descriptor, after the deletion.
void SweepFolder(const CBeneathRoot& root, const std::string& path) {
    const fd_t folder = root.TryOpen(path, O_RDONLY | O_DIRECTORY);
    if (folder && Lock(folder, false, path)) {
        DeleteTree(root, path, nullptr);
        section.Info("deleted leftovers of an interrupted client: '%1'", path);
    }
}

void SweepEntry(const CBeneathRoot& root, const fd_t& tempFolder, const SEntry& entry) {
    if (entry.kind == EEntry::folder) {
        SweepFolder(root, PathInTemp(entry.name));
    } else if (::unlinkat(tempFolder.Get(), entry.name.c_str(), 0) != 0 && errno != ENOENT) {
        throw CPosixExc("delete", PathInTemp(entry.name), errno);
    }
}

}  // namespace

CTempFile::CTempFile(int tempFolder, std::string name)
    : tempFolder_(tempFolder),
      name_(std::move(name)),
      file_(CreateTempFile(tempFolder_, name_), std::string(tempFolderName) + "/.../" + name_) {}

CTempFile::~CTempFile() {
    if (!moved_ && ::unlinkat(tempFolder_, name_.c_str(), 0) != 0) {
        section.Warn("a temp file could not be deleted: '%1'", file_.GetPath());
    }
}

bool CTempFile::MoveTo(int targetFolder, const std::string& targetName) {
    if (::renameat(tempFolder_, name_.c_str(), targetFolder, targetName.c_str()) == 0) {
        moved_ = true;
        return true;
    }
    if (errno == ENOENT) {
        return false;
    }
    throw CPosixExc("rename a temp file to", targetName, errno);
}

CTempArea::CTempArea(const CBeneathRoot& root) : root_(root) {
    const auto info = root_.Stat(tempFolderName);
    if (!info) {
        return;
    }
    if (!S_ISDIR(info->st_mode)) {
        throw CPosixExc("use as the temp folder", tempFolderName, ENOTDIR);
    }
    try {
        const fd_t tempFolder = root_.Open(tempFolderName, O_RDONLY | O_DIRECTORY);
        Lock(tempFolder, true, tempFolderName);
        Sweep(tempFolder);
    } catch (const CPosixExc& failure) {
        section.Warn("leftovers are not swept: %1", failure.what());
    }
}

CTempArea::~CTempArea() {
    if (!ownFolder_) {
        return;
    }
    try {
        DeleteTree(root_, ownPath_, nullptr);
    } catch (const std::exception& failure) {
        section.Warn("the temp folder could not be deleted: %1", failure.what());
    }
}

void CTempArea::Sweep(const fd_t& tempFolder) {
    const auto content = ReadFolder(root_, tempFolderName);
    if (!content) {
        return;
    }
    for (const auto& entry : content->entries) {
        try {
            SweepEntry(root_, tempFolder, entry);
        } catch (const CPosixExc& failure) {
            section.Warn("leftovers of an interrupted client stay: %1", failure.what());
        }
    }
}

void CTempArea::MakeOwnFolder() {
    MakeFolder(root_.GetFd(), tempFolderName, tempFolderName);
    const fd_t tempFolder = root_.Open(tempFolderName, O_RDONLY | O_DIRECTORY);
    Lock(tempFolder, true, tempFolderName);
    const std::string name = guid::guid_t::CreateNew().ToAStr();
    const std::string path = PathInTemp(name);
    MakeFolder(tempFolder.Get(), name, path);
    fd_t own = root_.Open(path, O_RDONLY | O_DIRECTORY);
    if (!Lock(own, false, path)) {
        throw CPosixExc("lock", path, EBUSY);
    }
    ownPath_ = path;
    ownFolder_ = std::move(own);
}

CTempFile CTempArea::CreateFile() {
    std::string name;
    int folder = -1;
    {
        const std::lock_guard lock(mutex_);
        if (!ownFolder_) {
            MakeOwnFolder();
        }
        folder = ownFolder_.Get();
        name = std::to_string(nextFile_++);
    }
    return {folder, std::move(name)};
}

}  // namespace clients::directory
