#include "agent/keys/Sealing.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <limits>
#include <new>
#include <string>

namespace agent {

namespace {

const unsigned char* Unsigned(const char* bytes) { return reinterpret_cast<const unsigned char*>(bytes); }
unsigned char* Unsigned(char* bytes) { return reinterpret_cast<unsigned char*>(bytes); }

int Length(std::size_t size) {
    if (size > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        throw exc::CRuntimeExc("%1 bytes are too many to be sealed at once", size);
    }
    return static_cast<int>(size);
}

void Check(int result, const char* operation) {
    if (result != 1) {
        throw exc::CRuntimeExc("OpenSSL failed to %1", operation);
    }
}

}  // namespace

void FillRandom(std::span<char> bytes) {
    Check(RAND_bytes(Unsigned(bytes.data()), Length(bytes.size())), "give random bytes");
}

seal_nonce_t RandomNonce() {
    seal_nonce_t nonce;
    FillRandom(nonce);
    return nonce;
}

void CSealer::SFree::operator()(evp_cipher_ctx_st* context) const noexcept { EVP_CIPHER_CTX_free(context); }

CSealer::CSealer() : context_(EVP_CIPHER_CTX_new()) {
    if (!context_) {
        throw std::bad_alloc();
    }
    Check(EVP_CipherInit_ex(context_.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr, 1), "set AES-256-GCM up");
}

std::span<const char> CSealer::Seal(const SSealKey& key, const seal_nonce_t& nonce, std::string_view context,
                                    std::span<const char> plain, std::span<char> room) {
    if (room.size() < plain.size() + sealOverhead) {
        throw exc::CRuntimeExc("There is no room to seal %1 bytes", plain.size());
    }
    EVP_CIPHER_CTX* const cipher = context_.get();
    char* const body = room.data() + sealNonceSize;
    int done = 0;
    Check(EVP_CipherInit_ex(cipher, nullptr, nullptr, Unsigned(key.bytes.data()), Unsigned(nonce.data()), 1),
          "take a key");
    if (!context.empty()) {
        Check(EVP_CipherUpdate(cipher, nullptr, &done, Unsigned(context.data()), Length(context.size())), "seal");
    }
    Check(EVP_CipherUpdate(cipher, Unsigned(body), &done, Unsigned(plain.data()), Length(plain.size())), "seal");
    Check(EVP_CipherFinal_ex(cipher, Unsigned(body) + done, &done), "seal");
    Check(EVP_CIPHER_CTX_ctrl(cipher, EVP_CTRL_AEAD_GET_TAG, sealTagSize, body + plain.size()), "seal");
    std::ranges::copy(nonce, room.begin());
    return room.first(plain.size() + sealOverhead);
}

void CSealer::Open(const SSealKey& key, std::string_view context, std::span<const char> sealed, std::span<char> plain) {
    if (sealed.size() != plain.size() + sealOverhead) {
        throw CUnsealExc("%1 sealed bytes cannot hold %2", sealed.size(), plain.size());
    }
    EVP_CIPHER_CTX* const cipher = context_.get();
    const char* const body = sealed.data() + sealNonceSize;
    std::array<char, sealTagSize> tag{};
    std::copy_n(body + plain.size(), tag.size(), tag.begin());
    int done = 0;
    Check(EVP_CipherInit_ex(cipher, nullptr, nullptr, Unsigned(key.bytes.data()), Unsigned(sealed.data()), 0),
          "take a key");
    if (!context.empty()) {
        Check(EVP_CipherUpdate(cipher, nullptr, &done, Unsigned(context.data()), Length(context.size())), "open");
    }
    Check(EVP_CipherUpdate(cipher, Unsigned(plain.data()), &done, Unsigned(body), Length(plain.size())), "open");
    Check(EVP_CIPHER_CTX_ctrl(cipher, EVP_CTRL_AEAD_SET_TAG, sealTagSize, tag.data()), "open");
    std::array<unsigned char, 16> nothing{};
    if (EVP_CipherFinal_ex(cipher, nothing.data(), &done) != 1) {
        throw CUnsealExc("it is not what was sealed with this key");
    }
}

std::string SealText(const SSealKey& key, std::string_view context, std::string_view plain) {
    std::string room(plain.size() + sealOverhead, '\0');
    CSealer().Seal(key, RandomNonce(), context, plain, room);
    return room;
}

std::string OpenText(const SSealKey& key, std::string_view context, std::string_view sealed) {
    if (sealed.size() < sealOverhead) {
        throw CUnsealExc("%1 bytes are too few to be sealed ones", sealed.size());
    }
    std::string plain(sealed.size() - sealOverhead, '\0');
    CSealer().Open(key, context, sealed, plain);
    return plain;
}

}  // namespace agent
