#pragma once

#include <cstdint>
#include <string>

#include "agent/keys/DataKey.h"

namespace agent {

/// What guessing a password costs: each guess, and each use of the right one.
struct SPasswordCost {
    std::uint32_t memoryKib = 64U << 10U;
    std::uint32_t passes = 3;

    bool operator==(const SPasswordCost&) const = default;
};

/// How a password becomes a key. Not secret.
///
/// Binary form, which the key record keeps as its salt: version (1 byte, 1), memory in KiB and passes (4 bytes each,
/// little-endian), 16 random bytes.
struct SPasswordSalt {
    SPasswordCost cost;
    std::array<char, 16> bytes{};

    [[nodiscard]] static SPasswordSalt CreateNew(const SPasswordCost& cost);
    [[nodiscard]] crypto::sec_bytes_t ToBytes() const;
    /// Throws exc::CRuntimeExc for bytes that are no salt, and for costs that no machine should be made to pay;
    /// logs a warning of those that nobody has by chance.
    [[nodiscard]] static SPasswordSalt FromBytes(std::span<const char> bytes);

    bool operator==(const SPasswordSalt&) const = default;
};

/// The key of a password: Argon2id version 1.3 (RFC 9106) with one lane, by libsodium. Takes the cost's time and
/// memory. Throws exc::CRuntimeExc when there is not so much memory.
[[nodiscard]] data_key_ptr KeyOfPassword(const crypto::sec_bytes_t& password, const SPasswordSalt& salt);

}  // namespace agent
