#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "common/exc.h"
#include "common/util.h"

struct evp_cipher_ctx_st;

/// Authenticated encryption of byte strings: AES-256-GCM (NIST SP 800-38D), by OpenSSL.
namespace agent {

/// A key of 256 bits; erased when it is let go.
struct SSealKey {
    std::array<char, 32> bytes{};

    SSealKey() = default;
    SSealKey(const SSealKey&) = default;
    SSealKey& operator=(const SSealKey&) = default;
    ~SSealKey() { util::SecureErase(bytes.data(), bytes.size()); }

    bool operator==(const SSealKey&) const = default;
};

inline constexpr std::size_t sealNonceSize = 12;
inline constexpr std::size_t sealTagSize = 16;
/// What sealing adds: the nonce in front, the tag behind.
inline constexpr std::size_t sealOverhead = sealNonceSize + sealTagSize;

using seal_nonce_t = std::array<char, sealNonceSize>;

/// From the system's generator. Throws exc::CRuntimeExc when that fails.
void FillRandom(std::span<char> bytes);
[[nodiscard]] seal_nonce_t RandomNonce();

/// Sealed bytes that are not what was sealed with that key in that context: damaged, cut, swapped, or of another key.
class CUnsealExc : public exc::CRuntimeExc {
public:
    using CRuntimeExc::CRuntimeExc;
};

/// Seals and opens. For one thread at a time; keeps OpenSSL's working memory between calls.
class CSealer {
public:
    CSealer();

    /// Writes nonce, ciphertext and tag to `room`, which has sealOverhead bytes more than `plain`, and returns them.
    /// `plain` may lie in `room` behind sealNonceSize bytes, and nowhere else in it. What opens must give the same
    /// context. No two different texts may ever get the same key and nonce.
    std::span<const char> Seal(const SSealKey& key, const seal_nonce_t& nonce, std::string_view context,
                               std::span<const char> plain, std::span<char> room);
    /// Fills `plain`, sealOverhead bytes shorter than `sealed`. Throws CUnsealExc; `plain` is then undefined.
    void Open(const SSealKey& key, std::string_view context, std::span<const char> sealed, std::span<char> plain);

private:
    struct SFree {
        void operator()(evp_cipher_ctx_st* context) const noexcept;
    };
    std::unique_ptr<evp_cipher_ctx_st, SFree> context_;
};

/// The same for texts that are small, with a random nonce.
[[nodiscard]] std::string SealText(const SSealKey& key, std::string_view context, std::string_view plain);
[[nodiscard]] std::string OpenText(const SSealKey& key, std::string_view context, std::string_view sealed);

}  // namespace agent
