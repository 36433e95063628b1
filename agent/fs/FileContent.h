#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "common/posix.h"

namespace agent {

/// Reads a file's content without its holes: those that the file system knows, and whole blocks of zeros.
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
    void Emit(std::uint64_t offset, std::span<const char> data, const sink_t& sink) const;

    std::vector<char> buffer_;
};

}  // namespace agent
