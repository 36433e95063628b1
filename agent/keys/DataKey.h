#pragma once

#include <memory>
#include <string_view>

#include "agent/keys/Sealing.h"
#include "common/crypto/key_set.h"
#include "common/digest.h"
#include "common/guid.h"

namespace agent {

/// The key that all of a client's data is sealed with, until another one follows it. Immutable, safe from any thread.
///
/// Its id is made of it, so that who has an id can tell at once whether a key is the one: 16 bytes of
/// HMAC-SHA256(key, "cloudbackup key id"). Nothing is ever sealed with the key itself, but with keys made of it for one
/// purpose each, as NIST SP 800-108 has it in its HMAC mode: HMAC-SHA256(HMAC-SHA256(key, purpose), what it is for).
class CDataKey {
public:
    /// `material` has 32 bytes, which nobody can guess.
    explicit CDataKey(crypto::sec_bytes_t material);
    [[nodiscard]] static std::shared_ptr<const CDataKey> CreateNew();

    [[nodiscard]] const crypto::SRawKeySetId& GetId() const { return id_; }
    [[nodiscard]] const crypto::sec_bytes_t& GetMaterial() const { return material_; }

    /// Of a chunk with that content, and of nothing else.
    [[nodiscard]] SSealKey ChunkKey(const digest::sha256_digest_t& plainSha256) const;
    /// Of the banks of a storage's metadata.
    [[nodiscard]] SSealKey BankKey(const guid::guid_t& storageId) const;
    /// Of the documents of a client's sets.
    [[nodiscard]] SSealKey DocumentKey() const;
    /// Of the keys that this one succeeded.
    [[nodiscard]] SSealKey WrapKey() const;
    /// A name that tells nobody without the key what it stands for.
    [[nodiscard]] digest::sha256_digest_t NameOf(std::string_view text) const;

private:
    [[nodiscard]] SSealKey Derive(std::string_view purpose, std::span<const char> subject) const;

    const crypto::sec_bytes_t material_;
    const crypto::SRawKeySetId id_;
    const SSealKey chunkRoot_;
};

using data_key_ptr = std::shared_ptr<const CDataKey>;

}  // namespace agent
