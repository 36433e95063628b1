#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "common/export.h"

/// Digests of byte strings, computed by OpenSSL: MD5 (RFC 1321), SHA-256 (FIPS 180-4), HMAC (RFC 2104).
namespace digest {

template <std::size_t N>
struct digest_tt {
    std::array<std::uint8_t, N> bytes{};

    /// Lower-case hexadecimal text.
    [[nodiscard]] std::string ToAStr() const {
        static constexpr std::string_view alphabet = "0123456789abcdef";
        std::string text(2 * N, '0');
        for (std::size_t i = 0; i < N; ++i) {
            text[2 * i] = alphabet[bytes[i] >> 4U];
            text[2 * i + 1] = alphabet[bytes[i] & 0x0FU];
        }
        return text;
    }

    auto operator<=>(const digest_tt&) const = default;
};

using md5_digest_t = digest_tt<16>;
using sha256_digest_t = digest_tt<32>;

[[nodiscard]] CB_EXPORT md5_digest_t Md5(std::span<const char> data);
[[nodiscard]] CB_EXPORT sha256_digest_t Sha256(std::span<const char> data);

/// The HMAC of the data under the key, with SHA-256.
[[nodiscard]] CB_EXPORT sha256_digest_t HmacSha256(std::span<const char> key, std::span<const char> data);

/// A SHA-256 over data that comes piece by piece. For one thread.
class CB_EXPORT CSha256 {
public:
    CSha256();
    ~CSha256();
    CSha256(CSha256&&) noexcept;
    CSha256& operator=(CSha256&&) noexcept;

    void Update(std::span<const char> data);
    /// The digest of all data so far; the object then starts anew.
    [[nodiscard]] sha256_digest_t Finish();

private:
    struct SContext;
    std::unique_ptr<SContext> context_;
};

}  // namespace digest
