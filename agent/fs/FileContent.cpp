#include "agent/fs/FileContent.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace agent {

namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 20U;
// A hole must be worth a segment of its own in the metadata.
constexpr std::size_t zeroBlock = std::size_t{64} << 10U;

bool IsZero(std::span<const char> data) {
    return data[0] == 0 && std::memcmp(data.data(), data.data() + 1, data.size() - 1) == 0;
}

bool MayHaveHoles(const posix::posix_file_t& file, std::uint64_t size) {
    struct stat info {};
    return ::fstat(file.GetFd(), &info) == 0 && static_cast<std::uint64_t>(info.st_blocks) * 512 < size;
}

/// Where the next data, or hole, begins at or behind `offset`; `size` when there is none.
std::uint64_t SeekNext(const posix::posix_file_t& file, std::uint64_t offset, int whence, std::uint64_t size) {
    const off_t found = ::lseek(file.GetFd(), static_cast<off_t>(offset), whence);
    if (found < 0 && errno == ENXIO) {
        return size;
    }
    if (found < 0) {
        // A file system that cannot tell: everything is data.
        return whence == SEEK_DATA ? offset : size;
    }
    return std::min(static_cast<std::uint64_t>(found), size);
}

}  // namespace

CFileContentReader::CFileContentReader() : buffer_(bufferSize) {}

std::uint64_t CFileContentReader::Read(const posix::posix_file_t& file, std::uint64_t size, const sink_t& sink) {
    if (size > bufferSize) {
        ::posix_fadvise(file.GetFd(), 0, 0, POSIX_FADV_SEQUENTIAL);
    }
    if (!MayHaveHoles(file, size)) {
        return ReadRange(file, 0, size, sink);
    }
    std::uint64_t offset = 0;
    while (offset < size) {
        const std::uint64_t begin = SeekNext(file, offset, SEEK_DATA, size);
        if (begin == size) {
            break;
        }
        const std::uint64_t end = SeekNext(file, begin, SEEK_HOLE, size);
        offset = ReadRange(file, begin, end, sink);
        if (offset < end) {
            return offset;
        }
    }
    return std::min(size, file.GetSize());
}

std::uint64_t CFileContentReader::ReadRange(const posix::posix_file_t& file, std::uint64_t begin, std::uint64_t end,
                                            const sink_t& sink) {
    while (begin < end) {
        const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(end - begin, buffer_.size()));
        const std::size_t received = file.ReadAt(begin, buffer_.data(), wanted);
        Emit(begin, {buffer_.data(), received}, sink);
        begin += received;
        if (received < wanted) {
            break;
        }
    }
    return begin;
}

/// Leaves out the blocks of zeros; what lies between them goes out in one piece.
void CFileContentReader::Emit(std::uint64_t offset, std::span<const char> data, const sink_t& sink) const {
    std::size_t begin = 0;
    std::size_t at = 0;
    for (; at + zeroBlock <= data.size(); at += zeroBlock) {
        if (IsZero(data.subspan(at, zeroBlock))) {
            if (at > begin) {
                sink(offset + begin, data.subspan(begin, at - begin));
            }
            begin = at + zeroBlock;
        }
    }
    if (begin < data.size()) {
        sink(offset + begin, data.subspan(begin));
    }
}

}  // namespace agent
