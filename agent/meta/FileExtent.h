#pragma once

#include <cstdint>
#include <string>

#include "common/posix.h"
#include "common/stg_extent.h"

namespace agent {

/// A file as the extent through which a session reads a storage's metadata. Keeps the file open, so it goes on reading
/// the same bytes when another file takes the name. Safe from any thread; failures are posix::CPosixExc.
class CFileExtent : public io::stg::IStgExtent {
public:
    explicit CFileExtent(const std::string& path) : file_(posix::posix_file_t::Open4Read(path)) {}

    std::size_t Read(std::uint64_t offset, void* buffer, std::size_t size) override {
        return file_.ReadAt(offset, buffer, size);
    }
    [[nodiscard]] std::uint64_t GetSize() override { return file_.GetSize(); }

private:
    const posix::posix_file_t file_;
};

}  // namespace agent
