#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "common/cnt.h"
#include "common/export.h"

namespace alglib::compress {

/// Compression in the zlib format (RFC 1950). Stateless, safe from any thread.
class CB_EXPORT CZlibUtil {
public:
    /// Compresses at the best level.
    [[nodiscard]] static std::shared_ptr<cnt::array_t<char>> CompressBest(std::span<const char> data);
    /// Throws exc::CRuntimeExc for data that is damaged, cut off or followed by anything, and for data that grows past
    /// `limit` bytes: a small hostile text must not fill the memory.
    [[nodiscard]] static std::shared_ptr<cnt::array_t<char>> Decompress(std::span<const char> data,
                                                                        std::size_t limit = std::size_t{1} << 30U);
};

}  // namespace alglib::compress
