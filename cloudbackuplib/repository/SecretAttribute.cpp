#include "cloudbackuplib/repository/SecretAttribute.h"

#include <string>
#include <utility>

#include "common/exc.h"
#include "common/util.h"

namespace cloudbackuplib::backup {

namespace {

/// Holds a string or an array and erases it on every way out.
template <class T>
class CErased {
public:
    explicit CErased(T value) : value_(std::move(value)) {}
    CErased(const CErased&) = delete;
    CErased& operator=(const CErased&) = delete;
    ~CErased() { util::SecureErase(value_.data(), value_.size()); }

    [[nodiscard]] const T& Get() const { return value_; }

private:
    T value_;
};

}  // namespace

void SetSecretAttr(xml::xml_holder_t& node, std::string_view name, std::span<const char> secret) {
    const CErased text(util::toBase64(secret));
    xml::TiXmlSetStrAttr(node, name, text.Get());
}

crypto::sec_bytes_t GetSecretAttrExc(const xml::xml_holder_t& node, std::string_view name) {
    const CErased text(xml::TiXmlGetStrAttrExc(node, name));
    const CErased bytes(util::fromBase64(text.Get()));
    if (bytes.Get().empty() && !text.Get().empty()) {
        throw exc::CRuntimeExc("Attribute '%1' of node '%2' is not base64", name, xml::TiXmlGetNodeName(node));
    }
    return {bytes.Get().begin(), bytes.Get().end()};
}

}  // namespace cloudbackuplib::backup
