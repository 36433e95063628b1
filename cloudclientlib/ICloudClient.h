#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cloudclientlib/AsyncTask.h"
#include "cloudclientlib/CloudRecords.h"
#include "common/cnt.h"
#include "common/export.h"
#include "common/progress.h"

namespace cloudclientlib {

/// Access to an object store: what the library needs, and all that it uses, to reach a cloud.
///
/// What an implementation guarantees, and a caller may rely on (the conformance suite tests all of it):
///
/// Threads. Every operation may be called from any thread, several at once.
///
/// Tasks. A task is running when it is returned; waiting is not needed to make it go. Wait() blocks until it is done
/// and throws its failure, the same one at every call. A task may be let go without Wait and still completes; the
/// client's destructor waits for what is in flight, and a task that outlives its client is done. An operation may also
/// fail by throwing from the call itself when the path is invalid. Buffers are held by shared pointer until the task is
/// done; the caller leaves them alone till then. Tasks of one client on different objects may complete in any order.
///
/// Paths. "/" separates elements; leading, trailing and repeated "/" mean nothing, so that "a/b", "/a/b" and "//a//b/"
/// are one object, and the empty path is the client's root, a folder. An element "." or ".." and a NUL byte are refused
/// by every operation (CCloudExc, kind other): a path may come from a damaged document. Elements are bytes, in UTF-8 by
/// convention, and upper and lower case differ; a store that cannot hold one refuses it with an exception. An object
/// and a folder cannot share a path: a write that would make them (also one under an object) fails with kind conflict.
/// Where an object is asked for and a folder lies, the object is not there; the same the other way round.
///
/// Objects. An upload replaces atomically: a reader sees the old object or the new one, whole, never a mixture, and a
/// failed upload leaves the old one or the new one; while it is replaced an object is always there. It creates missing
/// parent folders. The same holds for a copy's target. When its task has succeeded the object survives a loss of power.
/// A read or a listing that begins after a write's task has succeeded sees that write, through any client of the store.
/// Reading an object that is not there (its bytes, size or archive state; the source of a copy) fails with
/// CObjectNotFoundExc. Deleting what is not there succeeds. Reading an archived object that has not been retrieved
/// fails with kind conflict.
///
/// Folders. A folder exists when it was created, or while anything lies under it. Listing one that does not exist
/// gives no entries. Folders that become empty may or may not vanish by themselves. Deleting the root empties it. What
/// lies beside a folder with a name that only begins like its own is never touched nor counted with it. A listing taken
/// while others write has every entry that is there all the while, once.
///
/// Failures are CCloudExc, with a kind, whether a retry may help, the operation (by the method's name without "Async":
/// "DownloadFile" for both), the path as the caller gave it (the source's, when a copy finds none) and the cause.
/// Secrets stand in none of them.
///
/// Ownership. Clients are held by std::shared_ptr and shared by their users. Streams are let go before their client.
class CB_EXPORT ICloudClient {
public:
    using buffer_ptr = std::shared_ptr<cnt::array_t<char>>;

    virtual ~ICloudClient() = default;

    /// Reads the whole object; the buffer is set to exactly its bytes. After a failure the buffer holds anything.
    virtual task::task_ptr DownloadFileAsync(const std::string& path, buffer_ptr buffer) = 0;
    /// Reads `size` bytes at `offset`; the buffer is set to exactly the bytes there are, fewer at the end of the
    /// object, none at and past its end.
    virtual task::task_ptr DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                             unsigned long size) = 0;
    /// Writes the object, replacing it.
    virtual task::task_ptr UploadFileAsync(const std::string& path, buffer_ptr data) = 0;
    /// Copies an object within the store, replacing the target. Copying onto itself changes nothing.
    virtual task::task_ptr CopyFileAsync(const std::string& sourcePath, const std::string& targetPath) = 0;
    virtual task::task_ptr DeleteFileAsync(const std::string& path) = 0;
    /// In bytes.
    virtual std::uint64_t GetFileSize(const std::string& path) = 0;
    /// False for a folder.
    virtual bool IsFileExist(const std::string& path) = 0;
    /// Creates the folder and its missing parents; one that exists is no failure.
    virtual task::task_ptr CreateFolderAsync(const std::string& path) = 0;
    /// Deletes the folder with everything under it, telling `progress` (which may be empty) how many objects are gone;
    /// folders do not count, and the last call says that all are.
    virtual task::task_ptr DeleteFolderAsync(const std::string& path,
                                             std::shared_ptr<progress::progress_base_t> progress) = 0;
    /// The sizes of all objects under the folder, in bytes; 0 when it does not exist.
    virtual std::uint64_t GetFolderSize(const std::string& path) = 0;
    /// False for an object.
    virtual bool IsFolderExist(const std::string& path) = 0;
    /// The folder's direct children, objects and folders, in any order.
    virtual std::vector<SCloudObjectInfo> QueryFolder(const std::string& path) = 0;
    /// How many objects lie under the path (folders do not count); 0 when it does not exist.
    virtual std::uint64_t GetObjectCount(const std::string& path) = 0;
    virtual SStorageQuota GetStorageQuota() = 0;
    /// How many asynchronous tasks a caller may keep in flight at once; at least 1.
    virtual std::size_t GetConcurrentTaskLimit() = 0;
    /// Helpers that take any task, not this client's alone.
    virtual std::shared_ptr<task::IAsyncTaskUtils> CreateAsyncTaskUtils() = 0;
    /// Reads one version of the object, whole, or fails. An object that is not there is told by the call or by the
    /// first Read, as a failure of "StartDownload" both times.
    virtual std::shared_ptr<IDownloadStream> StartDownload(const std::string& path) = 0;
    /// `size` is the object's size in bytes. Invalid paths are refused by the call.
    virtual std::shared_ptr<IUploadStream> StartUpload(const std::string& path, unsigned long size) = 0;
    /// Asks the store to bring an archived object back. An object that is online already is no failure.
    virtual void RetrieveArchive(const std::string& path, const SRetrieveArchiveOptions& options) = 0;
    virtual EArchiveRetrievalStatus GetArchiveRetrievalStatus(const std::string& path) = 0;
};

}  // namespace cloudclientlib
