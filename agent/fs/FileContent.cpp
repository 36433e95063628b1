#include "agent/fs/FileContent.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace agent {

namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 20U;
// A hole must be worth a segment of its own in the metadata.
constexpr std::size_t leastHole = std::size_t{64} << 10U;

std::size_t EndOfZeros(std::span<const char> data, std::size_t at) {
    std::uint64_t word = 0;
    for (; at + sizeof(word) <= data.size(); at += sizeof(word)) {
        std::memcpy(&word, data.data() + at, sizeof(word));
        if (word != 0) {
            break;
        }
    }
    while (at < data.size() && data[at] == 0) {
        ++at;
    }
    return at;
}

std::size_t BeginOfZeros(std::span<const char> data, std::size_t from, std::size_t end) {
    while (end > from && data[end - 1] == 0) {
        --end;
    }
    return end;
}

struct SZeros {
    std::size_t begin;
    std::size_t end;
};

/// The first zeros from `from` on that are enough for a hole, or else those that the data ends with, if any.
SZeros FindZeros(std::span<const char> data, std::size_t from) {
    // Zeros enough for a hole that begin at or behind `from` cover the byte that ends the first such place.
    while (data.size() - from >= leastHole) {
        const std::size_t probe = from + leastHole - 1;
        if (data[probe] != 0) {
            from = probe + 1;
            continue;
        }
        const SZeros found{BeginOfZeros(data, from, probe), EndOfZeros(data, probe)};
        if (found.end - found.begin >= leastHole || found.end == data.size()) {
            return found;
        }
        from = found.end;
    }
    return {BeginOfZeros(data, from, data.size()), data.size()};
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
    heldZeros_ = 0;
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
    EndZeros(begin, sink);
    return begin;
}

/// Hands out what lies between the holes, and holds back the zeros at the end until it is known how many follow.
void CFileContentReader::Emit(std::uint64_t offset, std::span<const char> data, const sink_t& sink) {
    std::size_t at = heldZeros_ > 0 ? EndOfZeros(data, 0) : 0;
    heldZeros_ += at;
    if (at == data.size()) {
        return;
    }
    EndZeros(offset + at, sink);
    while (at < data.size()) {
        const SZeros zeros = FindZeros(data, at);
        if (zeros.begin > at) {
            sink(offset + at, data.subspan(at, zeros.begin - at));
        }
        at = zeros.end;
        if (at == data.size()) {
            heldZeros_ = zeros.end - zeros.begin;
        }
    }
}

/// The zeros held back end before `end`: they are a hole, or else data like any other.
void CFileContentReader::EndZeros(std::uint64_t end, const sink_t& sink) {
    static constexpr std::array<char, leastHole> zeros{};
    if (heldZeros_ > 0 && heldZeros_ < leastHole) {
        sink(end - heldZeros_, std::span(zeros).first(heldZeros_));
    }
    heldZeros_ = 0;
}

}  // namespace agent
