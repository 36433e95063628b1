#include "common/posix.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <cerrno>
#include <system_error>

namespace posix {

namespace {

constexpr mode_t newFileMode = 0600;

/// Makes a system call again while a signal cuts it short.
template <class F>
auto Uninterrupted(const F& call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Calls `receive` (bytes already here) until `size` bytes are here or the end is reached.
template <class F>
std::size_t ReadAll(const std::string& path, std::size_t size, const F& receive) {
    std::size_t total = 0;
    while (total < size) {
        const ssize_t received = Uninterrupted([&] { return receive(total); });
        if (received < 0) {
            throw CPosixExc("read", path, errno);
        }
        if (received == 0) {
            break;
        }
        total += static_cast<std::size_t>(received);
    }
    return total;
}

/// A larger write gets larger pages of the system's cache. Where memory is lent to a machine, those are often touched
/// for the first time, which takes several times as long as the write (docs/decisions/small-writes.md).
constexpr std::size_t largestWrite = 32U << 10U;

/// Calls `send` (bytes already written, bytes to write now) until all `size` bytes are written.
template <class F>
void WriteAll(const std::string& path, std::size_t size, const F& send) {
    for (std::size_t total = 0; total < size;) {
        const ssize_t written = Uninterrupted([&] { return send(total, std::min(size - total, largestWrite)); });
        if (written < 0) {
            throw CPosixExc("write", path, errno);
        }
        total += static_cast<std::size_t>(written);
    }
}

fd_t Open(const std::string& path, int flags, const char* operation) {
    if (path.find('\0') != std::string::npos) {
        throw CPosixExc(operation, path, EINVAL);
    }
    fd_t fd(Uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, newFileMode); }));
    if (!fd) {
        throw CPosixExc(operation, path, errno);
    }
    return fd;
}

}  // namespace

CPosixExc::CPosixExc(std::string_view operation, std::string_view path, int errorNumber)
    : CExc(exc::Format("Cannot %1 '%2': %3", operation, path,
                       std::error_code(errorNumber, std::generic_category()).message())),
      errorNumber_(errorNumber) {}

std::unique_ptr<exc::CExc> CPosixExc::Clone() const { return std::make_unique<CPosixExc>(*this); }
void CPosixExc::Generate() const { throw CPosixExc(*this); }

fd_t& fd_t::operator=(fd_t&& other) noexcept {
    if (this != &other) {
        fd_t old(fd_);
        fd_ = other.Release();
    }
    return *this;
}

fd_t::~fd_t() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

posix_file_t::posix_file_t(fd_t fd, std::string path) : fd_(std::move(fd)), path_(std::move(path)) {}

posix_file_t posix_file_t::Open4Read(const std::string& path) { return {Open(path, O_RDONLY, "open"), path}; }

posix_file_t posix_file_t::OpenOrCreate4Write(const std::string& path, bool exclusive, int flags) {
    return {Open(path, O_RDWR | O_CREAT | (exclusive ? O_EXCL : 0) | flags, "open for writing"), path};
}

std::size_t posix_file_t::Read(void* data, std::size_t size) {
    char* const bytes = static_cast<char*>(data);
    return ReadAll(path_, size, [&](std::size_t done) { return ::read(fd_.Get(), bytes + done, size - done); });
}

std::size_t posix_file_t::ReadAt(std::uint64_t offset, void* data, std::size_t size) const {
    char* const bytes = static_cast<char*>(data);
    return ReadAll(path_, size, [&](std::size_t done) {
        return ::pread(fd_.Get(), bytes + done, size - done, static_cast<off_t>(offset + done));
    });
}

void posix_file_t::Write(std::span<const char> data) {
    WriteAll(path_, data.size(),
             [&](std::size_t done, std::size_t count) { return ::write(fd_.Get(), data.data() + done, count); });
}

void posix_file_t::WriteAt(std::uint64_t offset, std::span<const char> data) {
    WriteAll(path_, data.size(), [&](std::size_t done, std::size_t count) {
        return ::pwrite(fd_.Get(), data.data() + done, count, static_cast<off_t>(offset + done));
    });
}

void posix_file_t::SeekFromBegin(std::uint64_t offset) {
    if (::lseek(fd_.Get(), static_cast<off_t>(offset), SEEK_SET) < 0) {
        throw CPosixExc("seek in", path_, errno);
    }
}

std::uint64_t posix_file_t::GetPosition() const {
    const off_t position = ::lseek(fd_.Get(), 0, SEEK_CUR);
    if (position < 0) {
        throw CPosixExc("tell the position in", path_, errno);
    }
    return static_cast<std::uint64_t>(position);
}

std::uint64_t posix_file_t::GetSize() const {
    struct stat info {};
    if (::fstat(fd_.Get(), &info) != 0) {
        throw CPosixExc("tell the size of", path_, errno);
    }
    return static_cast<std::uint64_t>(info.st_size);
}

void posix_file_t::Truncate(std::uint64_t size) {
    if (Uninterrupted([&] { return ::ftruncate(fd_.Get(), static_cast<off_t>(size)); }) != 0) {
        throw CPosixExc("truncate", path_, errno);
    }
}

void posix_file_t::Sync() {
    if (Uninterrupted([&] { return ::fsync(fd_.Get()); }) != 0) {
        throw CPosixExc("sync", path_, errno);
    }
}

namespace {

/// Makes an entry in a folder last.
void SyncFolderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
    const fd_t fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Some network file systems know no such thing for folders.
    if (!fd || (::fsync(fd.Get()) != 0 && errno != EINVAL)) {
        throw CPosixExc("sync", folder, errno);
    }
}

}  // namespace

void WriteNewFile(const std::string& path, std::span<const char> data) {
    auto file = posix_file_t::OpenOrCreate4Write(path, true, 0);
    try {
        if (::fchmod(file.GetFd(), S_IRUSR | S_IWUSR) != 0) {
            throw CPosixExc("set the mode of", path, errno);
        }
        file.Write(data);
        file.Sync();
        SyncFolderOf(path);
    } catch (...) {
        ::unlink(path.c_str());
        throw;
    }
}

}  // namespace posix
