#pragma once

#include <array>
#include <compare>
#include <cstdint>

#include "common/crypto/key_set.h"
#include "common/export.h"
#include "common/stream.h"

namespace cloudbackuplib::backup {

/// The external id of a stored block: what a storage's metadata needs to find and decrypt it. A plain value, ordered by
/// its fields in turn. What `id` and the two numbers mean is set by who fills them.
struct CB_EXPORT SBlockExternalId {
    std::array<std::uint8_t, 16> id{};
    /// The key set that encrypted the block; all zero for none.
    crypto::SRawKeySetId keySetId;
    std::uint32_t number32 = 0;
    std::uint64_t number64 = 0;

    /// Binary form, 44 bytes: the id, the key set id, the 32-bit and the 64-bit number (little-endian). Throws
    /// exc::CRuntimeExc when a number is not written whole; the id's own count is not checked.
    void Serial(io::binary_stream_tt& stream) const;
    static SBlockExternalId Unserial(io::binary_stream_tt& stream, SBlockExternalId& id);

    friend bool operator==(const SBlockExternalId& a, const SBlockExternalId& b) = default;
    friend CB_EXPORT bool operator<(const SBlockExternalId& a, const SBlockExternalId& b);
};

}  // namespace cloudbackuplib::backup
