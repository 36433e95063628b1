#include "common/posix.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace posix {

namespace {

constexpr mode_t newFileMode = 0600;

fd_t Open(const std::string& path, int flags, const char* operation) {
    if (path.find('\0') != std::string::npos) {
        throw CPosixExc(operation, path, EINVAL);
    }
    fd_t fd(::open(path.c_str(), flags | O_CLOEXEC, newFileMode));
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
    std::size_t total = 0;
    while (total < size) {
        const ssize_t received = ::read(fd_.Get(), static_cast<char*>(data) + total, size - total);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received < 0) {
            throw CPosixExc("read", path_, errno);
        }
        if (received == 0) {
            break;
        }
        total += static_cast<std::size_t>(received);
    }
    return total;
}

std::size_t posix_file_t::ReadAt(std::uint64_t offset, void* data, std::size_t size) const {
    std::size_t total = 0;
    while (total < size) {
        const ssize_t received =
            ::pread(fd_.Get(), static_cast<char*>(data) + total, size - total, static_cast<off_t>(offset + total));
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received < 0) {
            throw CPosixExc("read", path_, errno);
        }
        if (received == 0) {
            break;
        }
        total += static_cast<std::size_t>(received);
    }
    return total;
}

void posix_file_t::Write(std::span<const char> data) {
    while (!data.empty()) {
        const ssize_t written = ::write(fd_.Get(), data.data(), data.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            throw CPosixExc("write", path_, errno);
        }
        data = data.subspan(static_cast<std::size_t>(written));
    }
}

void posix_file_t::WriteAt(std::uint64_t offset, std::span<const char> data) {
    while (!data.empty()) {
        const ssize_t written = ::pwrite(fd_.Get(), data.data(), data.size(), static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            throw CPosixExc("write", path_, errno);
        }
        data = data.subspan(static_cast<std::size_t>(written));
        offset += static_cast<std::uint64_t>(written);
    }
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
    if (::ftruncate(fd_.Get(), static_cast<off_t>(size)) != 0) {
        throw CPosixExc("truncate", path_, errno);
    }
}

void posix_file_t::Sync() {
    if (::fsync(fd_.Get()) != 0) {
        throw CPosixExc("sync", path_, errno);
    }
}

}  // namespace posix
