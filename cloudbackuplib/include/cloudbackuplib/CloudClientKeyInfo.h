#pragma once

#include <memory>

#include "cloudbackuplib/CloudRepositoryInfo.h"
#include "common/export.h"
#include "common/optional.h"
#include "common/xml.h"

namespace cloudbackuplib::backup {

/// The document that names a client's current key. For one thread.
class CB_EXPORT CCloudClientKeyInfo {
public:
    /// Without a key.
    [[nodiscard]] static std::shared_ptr<CCloudClientKeyInfo> CreateEmpty();

    void SetEncryptionKey(const SCloudRepoEncryptionKeyInfo& keyInfo) { keyInfo_.Set(keyInfo); }
    [[nodiscard]] const COptionalParameter<SCloudRepoEncryptionKeyInfo>& GetKeyInfo() const { return keyInfo_; }

    /// Adds the key's element to `element` (the document), when there is a key.
    void Serialize(xml::xml_holder_t& element) const;
    [[nodiscard]] static std::shared_ptr<CCloudClientKeyInfo> Deserialize(const xml::xml_holder_t& element);

private:
    COptionalParameter<SCloudRepoEncryptionKeyInfo> keyInfo_;
};

}  // namespace cloudbackuplib::backup
