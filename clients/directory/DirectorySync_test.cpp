// What is synced, and when. This program defines the system calls that the client makes, so that every one of them is
// seen, and can be made to fail, on its way to the kernel: the real sequence, without a hook in the client.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>

#include "clients/directory/DirectoryClient.h"
#include "clients/directory/TestRoot.h"
#include "common/export.h"

namespace clients::directory {
namespace {

namespace fs = std::filesystem;

/// The path behind a descriptor.
std::string PathOfFd(int fd) {
    std::array<char, 4096> path{};
    const auto length = ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size());
    return length < 0 ? std::string() : std::string(path.data(), static_cast<std::size_t>(length));
}

/// What the calls beneath one folder were. Safe from any thread.
class CRecorder {
public:
    /// Records from now on, with paths relative to `root`; a call that `fault` gives an error number for fails.
    void Start(const std::string& root, std::function<int(const std::string& call)> fault = {}) {
        const std::lock_guard lock(mutex_);
        root_ = fs::canonical(root);
        fault_ = std::move(fault);
        calls_.clear();
    }
    std::vector<std::string> Stop() {
        const std::lock_guard lock(mutex_);
        root_.clear();
        return std::move(calls_);
    }
    /// 0, or the error number that the call is to fail with.
    int See(const std::string& verb, const std::vector<std::string>& paths) {
        const std::lock_guard lock(mutex_);
        std::string call = verb;
        for (const auto& path : paths) {
            if (root_.empty() || !path.starts_with(root_)) {
                return 0;
            }
            call += ' ' + Shorten(path.substr(root_.size()));
        }
        calls_.push_back(call);
        return fault_ ? fault_(call) : 0;
    }

private:
    /// "/a/b"; any temp file is "TEMP", a client's own sub-folder "TEMPDIR".
    static std::string Shorten(const std::string& path) {
        constexpr std::string_view temp = "/.cloudbackup-tmp/";
        if (!path.starts_with(temp)) {
            return path.empty() ? "/" : path;
        }
        return path.find('/', temp.size()) == std::string::npos ? "TEMPDIR" : "TEMP";
    }

    std::mutex mutex_;
    std::string root_;
    std::function<int(const std::string&)> fault_;
    std::vector<std::string> calls_;
};

CRecorder& Recorder() {
    static CRecorder recorder;
    return recorder;
}

/// -1 with errno set when the recorder says so.
bool IsMadeToFail(const std::string& verb, const std::vector<std::string>& paths) {
    const int saved = errno;
    const int fault = Recorder().See(verb, paths);
    errno = fault != 0 ? fault : saved;
    return fault != 0;
}

std::string At(int folder, const char* name) { return PathOfFd(folder) + '/' + name; }

}  // namespace
}  // namespace clients::directory

using clients::directory::At;
using clients::directory::IsMadeToFail;
using clients::directory::PathOfFd;

// Exported, so that the shared libraries call them too.
extern "C" {

CB_EXPORT int fsync(int fd) {
    return IsMadeToFail("fsync", {PathOfFd(fd)}) ? -1 : static_cast<int>(::syscall(SYS_fsync, fd));
}

CB_EXPORT ssize_t write(int fd, const void* data, size_t size) {
    // At most a thousand bytes at a time, as the kernel is free to do.
    const size_t piece = fd > 2 ? std::min<size_t>(size, 1000) : size;
    return IsMadeToFail("write", {PathOfFd(fd)}) ? -1 : ::syscall(SYS_write, fd, data, piece);
}

CB_EXPORT int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
    return IsMadeToFail("rename", {At(fromFolder, from), At(toFolder, to)})
               ? -1
               : static_cast<int>(::syscall(SYS_renameat, fromFolder, from, toFolder, to));
}

CB_EXPORT int mkdirat(int folder, const char* name, mode_t mode) noexcept {
    return IsMadeToFail("mkdir", {At(folder, name)}) ? -1
                                                     : static_cast<int>(::syscall(SYS_mkdirat, folder, name, mode));
}

CB_EXPORT ssize_t copy_file_range(int from, off64_t* fromOffset, int to, off64_t* toOffset, size_t size,
                                  unsigned flags) {
    return IsMadeToFail("copy", {PathOfFd(from), PathOfFd(to)})
               ? -1
               : ::syscall(SYS_copy_file_range, from, fromOffset, to, toOffset, size, flags);
}

CB_EXPORT int flock(int fd, int operation) noexcept {
    const bool waits = (operation & LOCK_NB) == 0;
    return IsMadeToFail(waits ? "lock" : "trylock", {PathOfFd(fd)})
               ? -1
               : static_cast<int>(::syscall(SYS_flock, fd, operation));
}

CB_EXPORT int unlinkat(int folder, const char* name, int flags) noexcept {
    return IsMadeToFail("unlink", {At(folder, name)}) ? -1
                                                      : static_cast<int>(::syscall(SYS_unlinkat, folder, name, flags));
}

}  // extern "C"

namespace clients::directory {
namespace {

using calls_t = std::vector<std::string>;

class DirectorySync : public testing::Test {
protected:
    calls_t CallsOf(const std::function<void()>& action) {
        Recorder().Start(root_.GetPath());
        action();
        return Recorder().Stop();
    }

    /// Runs with one call made to fail; gives the failure.
    std::string FailureWith(const std::string& call, int number, const std::function<void()>& action) {
        bool met = false;
        Recorder().Start(root_.GetPath(), [&](const std::string& seen) {
            const bool isIt = seen == call && !met;
            met = met || isIt;
            return isIt ? number : 0;
        });
        auto failure = FailureOf(action);
        Recorder().Stop();
        EXPECT_TRUE(met) << call;
        return failure;
    }

    [[nodiscard]] std::size_t CountTempFiles() const { return CountFiles(root_.In(".cloudbackup-tmp")); }

    const CTestRoot root_;
    CDirectoryClient client_{root_.GetPath()};
};

TEST_F(DirectorySync, ContentThenNameThenFolder) {
    Upload(client_, "object", "old");
    EXPECT_EQ(CallsOf([&] { Upload(client_, "object", std::string(2500, 'n')); }),
              (calls_t{"write TEMP", "write TEMP", "write TEMP", "fsync TEMP", "rename TEMP /object", "fsync /"}));
    EXPECT_EQ(Download(client_, "object"), std::string(2500, 'n'));
}

TEST_F(DirectorySync, NewFoldersAreOnTheDeviceBeforeTheObjectHasItsName) {
    Upload(client_, "first", "x");  // makes the temp folder
    EXPECT_EQ(CallsOf([&] { Upload(client_, "a/b/object", "x"); }),
              (calls_t{"mkdir /a", "fsync /", "mkdir /a/b", "fsync /a", "write TEMP", "fsync TEMP",
                       "rename TEMP /a/b/object", "fsync /a/b"}));
    EXPECT_EQ(CallsOf([&] { Upload(client_, "a/b/object", "x"); }),
              (calls_t{"write TEMP", "fsync TEMP", "rename TEMP /a/b/object", "fsync /a/b"}));
}

TEST_F(DirectorySync, FoldersMadeByOthersAreSyncedOnceBeforeTheyAreUsed) {
    Upload(client_, "first", "x");
    fs::create_directories(root_.In("a/b"));
    EXPECT_EQ(CallsOf([&] { Upload(client_, "a/b/object", "x"); }),
              (calls_t{"fsync /", "fsync /a", "write TEMP", "fsync TEMP", "rename TEMP /a/b/object", "fsync /a/b"}));
    EXPECT_EQ(CallsOf([&] { Upload(client_, "a/b/object", "x"); }).size(), 4U);
}

TEST_F(DirectorySync, FolderMadeAnewIsSyncedAnew) {
    Upload(client_, "a/object", "x");
    client_.DeleteFolderAsync("a", nullptr)->Wait();
    EXPECT_EQ(CallsOf([&] { Upload(client_, "a/object", "x"); }),
              (calls_t{"mkdir /a", "fsync /", "write TEMP", "fsync TEMP", "rename TEMP /a/object", "fsync /a"}));
}

TEST_F(DirectorySync, OwnTempFolderIsMadeAndLockedUnderTheTempFoldersLockAndNotSynced) {
    EXPECT_EQ(CallsOf([&] { Upload(client_, "object", "x"); }),
              (calls_t{"mkdir /.cloudbackup-tmp", "lock /.cloudbackup-tmp", "mkdir TEMPDIR", "trylock TEMPDIR",
                       "write TEMP", "fsync TEMP", "rename TEMP /object", "fsync /"}));
}

TEST_F(DirectorySync, LeftoversAreSweptUnderTheTempFoldersLock) {
    fs::create_directories(root_.In(".cloudbackup-tmp/dead"));
    WritePlain(root_.In(".cloudbackup-tmp/dead/0"), "unfinished");
    EXPECT_EQ(CallsOf([&] { const CDirectoryClient next(root_.GetPath()); }),
              (calls_t{"lock /.cloudbackup-tmp", "trylock TEMPDIR", "unlink TEMP", "unlink TEMPDIR"}));
}

TEST_F(DirectorySync, WhatIsLockedIsNotSwept) {
    const auto stream = client_.StartUpload("object", 1);
    EXPECT_EQ(CallsOf([&] { const CDirectoryClient next(root_.GetPath()); }),
              (calls_t{"lock /.cloudbackup-tmp", "trylock TEMPDIR"}));
}

TEST_F(DirectorySync, LeftoversThatCannotBeDeletedDoNotKeepTheStoreShut) {
    fs::create_directories(root_.In(".cloudbackup-tmp/dead"));
    WritePlain(root_.In(".cloudbackup-tmp/dead/0"), "unfinished");
    EXPECT_EQ(FailureWith("unlink TEMP", EIO, [&] { const CDirectoryClient next(root_.GetPath()); }), "no failure");
    EXPECT_EQ(FailureWith("lock /.cloudbackup-tmp", ENOLCK, [&] { const CDirectoryClient next(root_.GetPath()); }),
              "no failure");
    EXPECT_EQ(FailureWith("lock /.cloudbackup-tmp", ENOLCK, [&] { Upload(client_, "object", "x"); }),
              "transient|UploadFile 'object': the file system is busy");
}

TEST_F(DirectorySync, StreamsAndCopiesKeepTheSameOrder) {
    Upload(client_, "object", "x");
    EXPECT_EQ(CallsOf([&] {
                  const auto stream = client_.StartUpload("stream", 2);
                  stream->Write(std::string_view("1"));
                  stream->Write(std::string_view("2"));
                  stream->Finish();
              }),
              (calls_t{"write TEMP", "write TEMP", "fsync TEMP", "rename TEMP /stream", "fsync /"}));
    EXPECT_EQ(CallsOf([&] { client_.CopyFileAsync("object", "copy")->Wait(); }),
              (calls_t{"copy /object TEMP", "fsync TEMP", "rename TEMP /copy", "fsync /"}));
    EXPECT_EQ(CallsOf([&] { client_.CopyFileAsync("copy", "copy")->Wait(); }), calls_t{});
}

TEST_F(DirectorySync, CreatedFolderIsSynced) {
    EXPECT_EQ(CallsOf([&] { client_.CreateFolderAsync("a/b")->Wait(); }),
              (calls_t{"mkdir /a", "fsync /", "mkdir /a/b", "fsync /a"}));
}

TEST_F(DirectorySync, CopyGoesThroughMemoryWhereTheKernelCannot) {
    const std::string content(10000, 'c');
    Upload(client_, "object", content);
    EXPECT_EQ(FailureWith("copy /object TEMP", EXDEV, [&] { client_.CopyFileAsync("object", "copy")->Wait(); }),
              "no failure");
    EXPECT_EQ(Download(client_, "copy"), content);
    EXPECT_EQ(FailureWith("copy /object TEMP", EIO, [&] { client_.CopyFileAsync("object", "copy")->Wait(); }),
              "corrupt|CopyFile 'copy': the device failed to read or write");
}

TEST_F(DirectorySync, FailureAtAnyStepBeforeTheNameKeepsTheOldObject) {
    Upload(client_, "object", "old");
    for (const char* step : {"write TEMP", "fsync TEMP", "rename TEMP /object"}) {
        EXPECT_EQ(FailureWith(step, EIO, [&] { Upload(client_, "object", "new"); }),
                  "corrupt|UploadFile 'object': the device failed to read or write")
            << step;
        EXPECT_EQ(Download(client_, "object"), "old") << step;
        EXPECT_EQ(CountTempFiles(), 0U) << step;
    }
}

TEST_F(DirectorySync, FailedSyncOfTheFolderIsNoSuccess) {
    Upload(client_, "object", "old");
    EXPECT_EQ(FailureWith("fsync /", EIO, [&] { Upload(client_, "object", "new"); }),
              "corrupt|UploadFile 'object': the device failed to read or write");
    EXPECT_EQ(Download(client_, "object"), "new");  // but nobody can say what a loss of power would leave
}

TEST_F(DirectorySync, FolderWhoseSyncFailedIsSyncedAtTheNextUse) {
    Upload(client_, "first", "x");
    EXPECT_EQ(FailureWith("fsync /", EIO, [&] { Upload(client_, "a/object", "x"); }),
              "corrupt|UploadFile 'a/object': the device failed to read or write");
    EXPECT_FALSE(client_.IsFileExist("a/object"));
    EXPECT_EQ(CallsOf([&] { Upload(client_, "a/object", "x"); }),
              (calls_t{"fsync /", "write TEMP", "fsync TEMP", "rename TEMP /a/object", "fsync /a"}));
}

TEST_F(DirectorySync, FailedStreamFinishKeepsTheOldObject) {
    Upload(client_, "object", "old");
    const auto stream = client_.StartUpload("object", 3);
    stream->Write(std::string_view("new"));
    EXPECT_EQ(FailureWith("fsync TEMP", ENOSPC, [&] { stream->Finish(); }),
              "quota|StartUpload 'object': no space is left");
    EXPECT_EQ(Download(client_, "object"), "old");
    EXPECT_EQ(CountTempFiles(), 0U);
}

}  // namespace
}  // namespace clients::directory
