#include "common/md5_stream.h"

#include <openssl/evp.h>

#include "common/openssl_check.h"

namespace digest {

struct CMd5::SContext {
    SContext() : context(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
        CheckDigestCall(context != nullptr ? 1 : 0, "new");
        Start();
    }
    void Start() { CheckDigestCall(EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr), "init"); }

    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context;
};

CMd5::CMd5() : context_(std::make_unique<SContext>()) {}
CMd5::~CMd5() = default;
CMd5::CMd5(CMd5&&) noexcept = default;
CMd5& CMd5::operator=(CMd5&&) noexcept = default;

void CMd5::Update(std::span<const char> data) {
    CheckDigestCall(EVP_DigestUpdate(context_->context.get(), data.data(), data.size()), "update");
}

md5_digest_t CMd5::Finish() {
    md5_digest_t result;
    CheckDigestCall(EVP_DigestFinal_ex(context_->context.get(), result.bytes.data(), nullptr), "final");
    context_->Start();
    return result;
}

}  // namespace digest
