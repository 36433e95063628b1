#include "common/digest.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <limits>

#include "common/exc.h"
#include "common/openssl_check.h"

namespace digest {

namespace {

// Fetched once: looking an algorithm up by name costs more than the digest of a small chunk.
const EVP_MD* FetchOnce(const char* name) {
    const EVP_MD* algorithm = EVP_MD_fetch(nullptr, name, nullptr);
    if (algorithm == nullptr) {
        throw exc::CRuntimeExc("Digest algorithm '%1' is not available", name);
    }
    return algorithm;
}

const EVP_MD* Md5Algorithm() {
    static const EVP_MD* const algorithm = FetchOnce("MD5");
    return algorithm;
}

const EVP_MD* Sha256Algorithm() {
    static const EVP_MD* const algorithm = FetchOnce("SHA256");
    return algorithm;
}

template <class D>
D Compute(std::span<const char> data, const EVP_MD* algorithm) {
    D result;
    CheckDigestCall(EVP_Digest(data.data(), data.size(), result.bytes.data(), nullptr, algorithm, nullptr), "digest");
    return result;
}

}  // namespace

md5_digest_t Md5(std::span<const char> data) { return Compute<md5_digest_t>(data, Md5Algorithm()); }
sha256_digest_t Sha256(std::span<const char> data) { return Compute<sha256_digest_t>(data, Sha256Algorithm()); }

sha256_digest_t HmacSha256(std::span<const char> key, std::span<const char> data) {
    if (key.size() > std::numeric_limits<int>::max()) {
        throw exc::CRuntimeExc("Digest operation '%1' failed", "key size");
    }
    sha256_digest_t result;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(data.data());
    const auto* const done = HMAC(Sha256Algorithm(), key.data(), static_cast<int>(key.size()), bytes, data.size(),
                                  result.bytes.data(), nullptr);
    CheckDigestCall(done != nullptr ? 1 : 0, "hmac");
    return result;
}

struct CSha256::SContext {
    SContext() : context(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
        CheckDigestCall(context != nullptr ? 1 : 0, "new");
        Start();
    }
    void Start() { CheckDigestCall(EVP_DigestInit_ex(context.get(), Sha256Algorithm(), nullptr), "init"); }

    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context;
};

CSha256::CSha256() : context_(std::make_unique<SContext>()) {}
CSha256::~CSha256() = default;
CSha256::CSha256(CSha256&&) noexcept = default;
CSha256& CSha256::operator=(CSha256&&) noexcept = default;

void CSha256::Update(std::span<const char> data) {
    CheckDigestCall(EVP_DigestUpdate(context_->context.get(), data.data(), data.size()), "update");
}

sha256_digest_t CSha256::Finish() {
    sha256_digest_t result;
    CheckDigestCall(EVP_DigestFinal_ex(context_->context.get(), result.bytes.data(), nullptr), "final");
    context_->Start();
    return result;
}

}  // namespace digest
