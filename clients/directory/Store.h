#pragma once

#include <memory>
#include <span>
#include <string>

#include "clients/directory/BeneathRoot.h"
#include "clients/directory/DurableFolders.h"
#include "clients/directory/ErrnoFailure.h"
#include "clients/directory/TempArea.h"
#include "common/posix.h"

namespace clients::directory {

/// Where an object or folder is: its path beneath the root, and the same cut at the last element.
struct SPlace {
    std::string relative;
    std::string parent;
    /// Empty for the root.
    std::string name;
};

/// Judges the path by the rules of every client; nothing may lie in the temp folder.
[[nodiscard]] SPlace PlaceOf(const SOperation& operation, const std::string& path);
/// Whether the path is the temp folder or lies in it; such a path names nothing that a listing would show.
[[nodiscard]] bool IsReserved(const SOperation& operation, const std::string& path);

/// The open root with what belongs to it. Held by the client and by every stream it gave out, which may outlive it.
/// Safe from any thread.
class CStore {
public:
    explicit CStore(const std::string& rootPath) : root_(rootPath), folders_(root_), temp_(root_) {}

    [[nodiscard]] const CBeneathRoot& GetRoot() const { return root_; }
    [[nodiscard]] CDurableFolders& GetFolders() { return folders_; }
    [[nodiscard]] CTempArea& GetTemp() { return temp_; }

private:
    CBeneathRoot root_;
    CDurableFolders folders_;
    CTempArea temp_;
};

/// An object's file, open for reading, with its size at that moment. A replaced object stays readable through it.
/// Anything that is no object gives ENOENT (posix::CPosixExc), a link ELOOP.
struct SOpenObject {
    posix::posix_file_t file;
    std::uint64_t size;
    struct timespec modified;
};
[[nodiscard]] SOpenObject OpenObject(const CStore& store, const SPlace& place);

/// An object being written: a temp file that takes the object's place when it is published, and is gone when let go
/// before that. For one thread. Failures are posix::CPosixExc.
class CPendingObject {
public:
    /// Creates the missing folders above the object. The store must outlive it.
    CPendingObject(CStore& store, SPlace place);

    void Write(std::span<const char> data) { temp_.GetFile().Write(data); }
    /// Copies the whole of `source`, by sharing its blocks where the file system can.
    void CopyFrom(const SOpenObject& source);
    /// Content to the device, then the name, then the folder to the device: whatever moment the power goes, the name
    /// leads to the old object or to the new one, whole, and to the new one from the return of this on.
    void Publish();

private:
    CStore& store_;
    SPlace place_;
    posix::fd_t folder_;
    CTempFile temp_;
};

/// What stands at an object's place. Links and other things that are neither an object nor a
/// folder are refused (ELOOP, EEXIST): they are not for this client to replace or delete.
enum class EPlace { nothing, object, folder };
[[nodiscard]] EPlace LookAtPlace(int folder, const std::string& name);

}  // namespace clients::directory
