#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "agent/chunk/Sizes.h"
#include "common/cnt.h"
#include "common/digest.h"

namespace agent {

/// Gathers stored chunks into a block and says where it ends.
///
/// Ends depend on the chunks since the last end alone, so that the same chunks give the same blocks again, and blocks
/// behind a change fall back into step. For one thread; the buffer is the caller's to give and to take.
class CBlockBuilder {
public:
    using buffer_ptr = std::shared_ptr<cnt::array_t<char>>;

    /// Throws exc::CRuntimeExc for sizes of 0, a minimum over the maximum, or a maximum over a GiB.
    explicit CBlockBuilder(const SBlockSizes& sizes);

    [[nodiscard]] bool IsOpen() const { return block_ != nullptr; }
    /// Begins a block in the buffer, which is emptied.
    void Open(buffer_ptr buffer);
    /// The chunk may be added; otherwise the block ends before it. A block without chunks takes any.
    [[nodiscard]] bool HasRoom(std::size_t storedSize) const;
    struct SPlace {
        std::uint32_t offset = 0;
        bool isEnd = false;  ///< the block ends behind the chunk
    };
    [[nodiscard]] SPlace Add(std::span<const char> stored, const digest::sha256_digest_t& sha256);
    /// The block's bytes; the builder is without a block then.
    [[nodiscard]] buffer_ptr Close();

private:
    [[nodiscard]] bool IsPicked(std::size_t storedSize, const digest::sha256_digest_t& sha256) const;

    const SBlockSizes sizes_;
    buffer_ptr block_;
};

}  // namespace agent
