#pragma once

#include <string>

#include "cloudbackuplib/CloudRepositoryInfo.h"
#include "cloudbackuplib/CloudService.h"
#include "common/export.h"
#include "common/xml.h"

namespace cloudbackuplib::backup::platform::azure {

/// An Azure Blob Storage connection specification and its document, with the root element "AzureConnectionSpec".
///
/// A plain value: safe to read from any thread. The document carries a secret (the connection string holds the account
/// key). Reading a document is not provided.
struct CB_EXPORT SAzureConnectionSpec {
    /// A secret.
    std::string connectionString;
    std::string containerName;
    /// Not part of the document.
    ECloudRepoType::type repositoryType = ECloudRepoType::external;
    SCloudRepositoryInfo repository;

    [[nodiscard]] static std::string GetRootNodeName();
    /// Whether the text is a document with the root element of this kind. Never fails.
    [[nodiscard]] static bool IsAzureConnectionSpec(const std::string& text);

    /// Writes it into the given element.
    void Serialize(xml::xml_holder_t& element) const;
    /// The whole document.
    [[nodiscard]] std::string Serialize() const;
    /// Container and repository, without the secret. Throws exc::CRuntimeExc on an unknown repository type.
    [[nodiscard]] std::string ToLogStr() const;

    /// Not provided; always throws. The exception's text holds the whole input, so with a real document its secret:
    /// keep it out of logs.
    [[nodiscard]] static SAzureConnectionSpec Deserialize(const std::string& text);
};

}  // namespace cloudbackuplib::backup::platform::azure
