#include "clients/directory/Store.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "clients/directory/FolderTree.h"
#include "cloudclientlib/ObjectPath.h"

namespace clients::directory {

using posix::CPosixExc;
using posix::fd_t;

namespace {

/// How often a write makes a folder anew that others delete at the same time.
constexpr int maxPublishAttempts = 64;

fd_t OpenParent(CStore& store, const SPlace& place) {
    fd_t folder = store.GetFolders().Open(place.parent);
    if (LookAtPlace(folder.Get(), place.name) == EPlace::folder) {
        throw CPosixExc("write", place.relative, EISDIR);
    }
    return folder;
}

/// True when the kernel can copy between these files only in the plain way.
bool IsCopyUnsupported(int errorNumber) {
    return errorNumber == EXDEV || errorNumber == EINVAL || errorNumber == ENOSYS || errorNumber == EOPNOTSUPP;
}

/// Copies what the kernel copies by itself; returns how many bytes.
std::uint64_t CopyInKernel(const SOpenObject& source, posix::posix_file_t& target) {
    constexpr std::size_t maxPiece = 1UL << 30U;
    std::uint64_t copied = 0;
    while (copied < source.size) {
        auto offset = static_cast<off_t>(copied);
        const std::size_t piece = std::min<std::uint64_t>(source.size - copied, maxPiece);
        const ssize_t got = ::copy_file_range(source.file.GetFd(), &offset, target.GetFd(), nullptr, piece, 0);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0 && !IsCopyUnsupported(errno)) {
            throw CPosixExc("copy to", target.GetPath(), errno);
        }
        if (got <= 0) {
            break;
        }
        copied += static_cast<std::uint64_t>(got);
    }
    return copied;
}

void CopyPlainly(const SOpenObject& source, std::uint64_t from, posix::posix_file_t& target) {
    std::vector<char> buffer(std::min<std::uint64_t>(source.size - from, 1UL << 20U));
    for (std::uint64_t offset = from; offset < source.size;) {
        const std::size_t piece = std::min<std::uint64_t>(source.size - offset, buffer.size());
        if (source.file.ReadAt(offset, buffer.data(), piece) != piece) {
            throw CPosixExc("read all of", source.file.GetPath(), EIO);
        }
        target.Write({buffer.data(), piece});
        offset += piece;
    }
}

}  // namespace

SPlace PlaceOf(const SOperation& operation, const std::string& path) {
    SPlace place;
    place.relative = cloudclientlib::NormalizeObjectPath(operation.name, path);
    const auto slash = place.relative.rfind('/');
    if (slash != std::string::npos) {
        place.parent = place.relative.substr(0, slash);
    }
    place.name = slash == std::string::npos ? place.relative : place.relative.substr(slash + 1);
    if (IsReserved(operation, place.relative)) {
        ThrowCloudFailure(operation, cloudclientlib::EFailure::other,
                          std::string("invalid path: the name '") + tempFolderName + "' is reserved");
    }
    return place;
}

bool IsReserved(const SOperation& operation, const std::string& path) {
    const std::string plain = cloudclientlib::NormalizeObjectPath(operation.name, path);
    return plain.substr(0, plain.find('/')) == tempFolderName;
}

SOpenObject OpenObject(const CStore& store, const SPlace& place) {
    // Without O_NONBLOCK the opening of a pipe would wait for a writer.
    fd_t fd = store.GetRoot().TryOpen(place.relative, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    struct stat info {};
    if (fd && ::fstat(fd.Get(), &info) != 0) {
        throw CPosixExc("look at", place.relative, errno);
    }
    if (!fd || !S_ISREG(info.st_mode)) {
        throw CPosixExc("open the object", place.relative, ENOENT);
    }
    return {{std::move(fd), place.relative}, static_cast<std::uint64_t>(info.st_size), info.st_mtim};
}

CPendingObject::CPendingObject(CStore& store, SPlace place)
    : store_(store),
      place_(std::move(place)),
      folder_(OpenParent(store_, place_)),
      temp_(store_.GetTemp().CreateFile()) {}

void CPendingObject::CopyFrom(const SOpenObject& source) {
    const std::uint64_t copied = CopyInKernel(source, temp_.GetFile());
    if (copied < source.size) {
        CopyPlainly(source, copied, temp_.GetFile());
    }
}

void CPendingObject::Publish() {
    temp_.GetFile().Sync();
    for (int attempt = 0; !temp_.MoveTo(folder_.Get(), place_.name); ++attempt) {
        if (attempt == maxPublishAttempts) {
            throw CPosixExc("rename a temp file to", place_.relative, ENOENT);
        }
        folder_ = OpenParent(store_, place_);
    }
    SyncFolder(folder_.Get(), place_.parent);
}

EPlace LookAtPlace(int folder, const std::string& name) {
    const auto info = StatElement(folder, name);
    if (!info) {
        return EPlace::nothing;
    }
    if (S_ISREG(info->st_mode)) {
        return EPlace::object;
    }
    if (S_ISDIR(info->st_mode)) {
        return EPlace::folder;
    }
    throw CPosixExc("use", name, S_ISLNK(info->st_mode) ? ELOOP : EEXIST);
}

}  // namespace clients::directory
