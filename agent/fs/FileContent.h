#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "common/posix.h"

namespace agent {

/// Reads a file's content without its holes: those that the file system knows, and 64 KiB of zeros or more.
///
/// Such zeros are left out to the byte, wherever they stand: what lies between them stays the same when something
/// before it grows or shrinks, and is recognised then. Zeros around the file system's holes are looked at by
/// themselves.
///
/// One object is used for many files, by one thread; it keeps its buffer. Failures are posix::CPosixExc.
class CFileContentReader {
public:
    using sink_t = std::function<void(std::uint64_t offset, std::span<const char> data)>;

    CFileContentReader();

    /// Hands every run of data to `sink`, in ascending order; at most `size` bytes are read. Returns the size that was
    /// really there: less than `size` when the file has become shorter.
    std::uint64_t Read(const posix::posix_file_t& file, std::uint64_t size, const sink_t& sink);

private:
    std::uint64_t ReadRange(const posix::posix_file_t& file, std::uint64_t begin, std::uint64_t end,
                            const sink_t& sink);
    void Emit(std::uint64_t offset, std::span<const char> data, const sink_t& sink);
    void EndZeros(std::uint64_t end, const sink_t& sink);

    std::vector<char> buffer_;
    std::size_t heldZeros_ = 0;  // before the next byte to be read, not handed out
};

}  // namespace agent
