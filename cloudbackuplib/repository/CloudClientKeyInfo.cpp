#include "cloudbackuplib/CloudClientKeyInfo.h"

#include "cloudbackuplib/repository/SecretAttribute.h"
#include "common/exc.h"
#include "common/util.h"

namespace cloudbackuplib::backup {

namespace {

constexpr const char* encryptionKeyNode = "EncryptionKey";

/// An empty text, as a missing one, stands for a key without an id. What is no id is not quoted: in a damaged document
/// it may be the salt.
std::shared_ptr<crypto::CKeySetId> DeserializeId(const xml::xml_holder_t& node) {
    const std::string text = xml::TiXmlGetStrAttrSafe(node, "Id");
    if (text.empty()) {
        return nullptr;
    }
    try {
        return std::make_shared<crypto::CKeySetId>(crypto::SRawKeySetId::FromStr(text));
    } catch (const std::exception&) {
        throw exc::CRuntimeExc("Attribute 'Id' of node '%1' is not a key set id", encryptionKeyNode);
    }
}

}  // namespace

std::shared_ptr<CCloudClientKeyInfo> CCloudClientKeyInfo::CreateEmpty() {
    return std::make_shared<CCloudClientKeyInfo>();
}

void CCloudClientKeyInfo::Serialize(xml::xml_holder_t& element) const {
    if (!keyInfo_.IsSet()) {
        return;
    }
    const SCloudRepoEncryptionKeyInfo& key = keyInfo_.Get();
    xml::xml_holder_t node = xml::TiXmlCreateChild(element, encryptionKeyNode);
    if (key.keySetId) {
        xml::TiXmlSetStrAttr(node, "Id", key.keySetId->GetRaw().ToAStr());
    }
    xml::TiXmlSetStrAttr(node, "Hint", util::WideToUtf8(key.hint));
    SetSecretAttr(node, "Salt", key.salt ? *key.salt : crypto::sec_bytes_t());
}

std::shared_ptr<CCloudClientKeyInfo> CCloudClientKeyInfo::Deserialize(const xml::xml_holder_t& element) {
    auto info = CreateEmpty();
    if (const auto node = xml::TiXmlGetChildSafe(element, encryptionKeyNode)) {
        SCloudRepoEncryptionKeyInfo key;
        key.keySetId = DeserializeId(*node);
        key.salt = std::make_shared<crypto::sec_bytes_t>(GetSecretAttrExc(*node, "Salt"));
        key.hint = util::Utf8ToWide(xml::TiXmlGetStrAttrExc(*node, "Hint"));
        info->SetEncryptionKey(key);
    }
    return info;
}

}  // namespace cloudbackuplib::backup
