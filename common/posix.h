#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "common/exc.h"
#include "common/export.h"

/// POSIX files, with every failure turned into one exception.
namespace posix {

/// A failed system call: which operation on which file, and the error number with its text.
class CB_EXPORT CPosixExc : public exc::CExc {
public:
    CPosixExc(std::string_view operation, std::string_view path, int errorNumber);

    [[nodiscard]] int GetErrorNumber() const noexcept { return errorNumber_; }
    [[nodiscard]] std::unique_ptr<exc::CExc> Clone() const override;
    [[noreturn]] void Generate() const override;

private:
    int errorNumber_;
};

/// An open file descriptor, closed when let go. For one thread; ReadAt and WriteAt may be called from several.
class CB_EXPORT fd_t {
public:
    fd_t() = default;
    explicit fd_t(int fd) : fd_(fd) {}
    fd_t(fd_t&& other) noexcept : fd_(other.Release()) {}
    fd_t& operator=(fd_t&& other) noexcept;
    ~fd_t();

    [[nodiscard]] int Get() const { return fd_; }
    [[nodiscard]] explicit operator bool() const { return fd_ >= 0; }
    int Release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_ = -1;
};

/// A file read or written at its current position or at given offsets (bytes). Operations throw CPosixExc. For one
/// thread; ReadAt and WriteAt may be called from several at once.
class CB_EXPORT posix_file_t {
public:
    /// Takes over an open descriptor; `path` is for messages.
    posix_file_t(fd_t fd, std::string path);

    [[nodiscard]] static posix_file_t Open4Read(const std::string& path);
    /// Opens for reading and writing, creating the file (mode 0600) when absent; what it holds stays. With `exclusive`
    /// an existing file is refused. `flags` are further flags of open(2).
    [[nodiscard]] static posix_file_t OpenOrCreate4Write(const std::string& path, bool exclusive, int flags);

    /// Reads at the current position; fewer bytes than asked for only at the end of the file.
    std::size_t Read(void* data, std::size_t size);
    std::size_t ReadAt(std::uint64_t offset, void* data, std::size_t size) const;
    void Write(std::span<const char> data);
    void WriteAt(std::uint64_t offset, std::span<const char> data);
    void SeekFromBegin(std::uint64_t offset);
    [[nodiscard]] std::uint64_t GetPosition() const;
    [[nodiscard]] std::uint64_t GetSize() const;
    void Truncate(std::uint64_t size);
    /// Waits until the file's content is on the device.
    void Sync();

    [[nodiscard]] int GetFd() const { return fd_.Get(); }
    [[nodiscard]] const std::string& GetPath() const { return path_; }

private:
    fd_t fd_;
    std::string path_;
};

/// Makes a file with these bytes, for its owner alone; one that exists is refused. Its bytes and its name are on the
/// device when this returns, and nothing is left of it when this throws CPosixExc.
CB_EXPORT void WriteNewFile(const std::string& path, std::span<const char> data);

}  // namespace posix
