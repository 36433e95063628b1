#pragma once

#include <memory>
#include <string>

#include "common/crypto/key_set.h"
#include "common/export.h"
#include "common/guid.h"
#include "common/optional.h"
#include "common/xml.h"

namespace cloudbackuplib::backup {

/// The backup client that uses a repository.
struct CB_EXPORT SCloudRepositoryClientInfo {
    guid::guid_t clientId;
    std::string clientType;
    std::string clientName;
};

/// Which repository of a bucket to use, and as which client.
struct CB_EXPORT SCloudRepositoryInfo {
    /// The repository's folder among all repositories of the bucket.
    std::string folderName;
    COptionalParameter<SCloudRepositoryClientInfo> client;

    [[nodiscard]] std::string ToString() const;
};

/// An owner or a client: id (empty for none), type and description.
struct CB_EXPORT SCloudRepoIdentity {
    guid::guid_t id;
    std::string type;
    std::string description;

    bool operator==(const SCloudRepoIdentity&) const = default;
};

/// What a repository says of itself.
struct CB_EXPORT SCloudRepositoryDescription {
    guid::guid_t id;
    std::string displayName;

    void Serialize(xml::xml_holder_t& element) const;
    [[nodiscard]] static SCloudRepositoryDescription Deserialize(const xml::xml_holder_t& element);
};

/// The key that a client encrypts with now: its id (may be absent), a hint, and the salt of its password.
struct CB_EXPORT SCloudRepoEncryptionKeyInfo {
    std::shared_ptr<crypto::CKeySetId> keySetId;
    std::wstring hint;
    std::shared_ptr<crypto::sec_bytes_t> salt;
};

}  // namespace cloudbackuplib::backup
