#include "agent/keys/DataKey.h"

#include <algorithm>

#include "common/exc.h"

namespace agent {

namespace {

constexpr std::size_t materialSize = 32;

SSealKey ToKey(digest::sha256_digest_t digest) {
    SSealKey key;
    std::ranges::copy(digest.bytes, key.bytes.begin());
    util::SecureErase(digest.bytes.data(), digest.bytes.size());
    return key;
}

SSealKey Hmac(std::span<const char> key, std::span<const char> text) { return ToKey(digest::HmacSha256(key, text)); }

const crypto::sec_bytes_t& CheckSize(const crypto::sec_bytes_t& material) {
    if (material.size() != materialSize) {
        throw exc::CRuntimeExc("A key of %1 bytes is none of this program's, which have %2", material.size(),
                               materialSize);
    }
    return material;
}

crypto::SRawKeySetId IdOf(const crypto::sec_bytes_t& material) {
    const auto digest = digest::HmacSha256(material, std::string_view("cloudbackup key id"));
    crypto::SRawKeySetId id;
    std::copy_n(digest.bytes.begin(), id.bytes.size(), id.bytes.begin());
    return id;
}

template <class Bytes>
std::span<const char> Chars(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

CDataKey::CDataKey(crypto::sec_bytes_t material)
    : material_(CheckSize(material)), id_(IdOf(material_)), chunkRoot_(Hmac(material_, std::string_view("chunk"))) {}

data_key_ptr CDataKey::CreateNew() {
    crypto::sec_bytes_t material(materialSize);
    FillRandom(material);
    return std::make_shared<const CDataKey>(std::move(material));
}

SSealKey CDataKey::ChunkKey(const digest::sha256_digest_t& plainSha256) const {
    return Hmac(chunkRoot_.bytes, Chars(plainSha256.bytes));
}

SSealKey CDataKey::BankKey(const guid::guid_t& storageId) const {
    return Derive("metadata", Chars(storageId.GetBytes()));
}

SSealKey CDataKey::DocumentKey() const { return Derive("document", {}); }

SSealKey CDataKey::WrapKey() const { return Derive("former keys", {}); }

digest::sha256_digest_t CDataKey::NameOf(std::string_view text) const {
    return digest::HmacSha256(Hmac(material_, std::string_view("names")).bytes, text);
}

SSealKey CDataKey::Derive(std::string_view purpose, std::span<const char> subject) const {
    return Hmac(Hmac(material_, purpose).bytes, subject);
}

}  // namespace agent
