#pragma once

#include <cstdint>

#include "common/export.h"

namespace io::stg {

/// The extent of a host's storage engine through which a storage's metadata is read.
///
/// Called from the library's callers' threads while the storage's writer works; the implementation makes that safe.
class CB_EXPORT IStgExtent {
public:
    virtual ~IStgExtent() = default;
    /// Reads `size` bytes at `offset` (bytes from the beginning) into `buffer`; returns how many were read, fewer only
    /// at the end of the extent. Throws on failure.
    virtual std::size_t Read(std::uint64_t offset, void* buffer, std::size_t size) = 0;
    /// The size in bytes.
    [[nodiscard]] virtual std::uint64_t GetSize() = 0;
};

}  // namespace io::stg
