#pragma once

#include <string>
#include <utility>

#include "cloudbackuplib/CloudRepositoryInfo.h"
#include "cloudbackuplib/CloudService.h"
#include "cloudclientlib/S3Records.h"
#include "common/export.h"
#include "common/guid.h"
#include "common/optional.h"
#include "common/xml.h"

namespace cloudbackuplib::backup::platform::s3 {

/// The repository that a specification names: its parameters when they are given, and whose it is. The type is not
/// part of the document.
struct CB_EXPORT SS3Repository : COptionalParameter<SCloudRepositoryInfo> {
    using COptionalParameter::COptionalParameter;

    ECloudRepoType::type type = ECloudRepoType::external;
};

/// What an S3 connection specification says.
struct CB_EXPORT SS3ConnSpec {
    cloudclientlib::s3::SS3BucketAddr bucketAddr;
    COptionalParameter<cloudclientlib::s3::SS3CredentialsKeys> credentials;
    COptionalParameter<cloudclientlib::s3::SS3RoleAuth> roleAuth;
    COptionalParameter<guid::guid_t> restClientId;
    SS3Repository repository;
    cloudclientlib::s3::SS3Options options;
};

/// An S3 connection specification and its document, with the root element "S3ConnSpec".
///
/// A plain value: safe to read from any thread. The document carries secrets (keys, token, proxy password). Failures
/// are exc::CRuntimeExc and name what is missing. Reading a whole document is not provided (exc::CNotImplExc); its
/// address and its credentials are read one by one.
class CB_EXPORT CS3ConnectionSpec {
public:
    using bucket_addr_t = cloudclientlib::s3::SS3BucketAddr;
    using credentials_t = std::pair<COptionalParameter<cloudclientlib::s3::SS3CredentialsKeys>,
                                    COptionalParameter<cloudclientlib::s3::SS3RoleAuth>>;

    explicit CS3ConnectionSpec(const SS3ConnSpec& spec) : spec_(spec) {}

    [[nodiscard]] const bucket_addr_t& GetBucketAddr() const { return spec_.bucketAddr; }
    [[nodiscard]] const COptionalParameter<cloudclientlib::s3::SS3CredentialsKeys>& GetCredentials() const {
        return spec_.credentials;
    }
    [[nodiscard]] const SS3Repository& GetRepository() const { return spec_.repository; }
    [[nodiscard]] const SS3ConnSpec& GetConnSpec() const { return spec_; }
    [[nodiscard]] const cloudclientlib::s3::SS3Options& GetOptions() const { return spec_.options; }

    [[nodiscard]] static std::string GetRootNodeName();
    /// Whether the text is a document with the root element of this kind. Never fails.
    [[nodiscard]] static bool IsS3ConnSpec(const std::string& text);

    /// Writes it into the given element.
    void Serialize(xml::xml_holder_t& element) const;
    /// The whole document.
    [[nodiscard]] std::string Serialize() const;
    /// Writes the credentials alone into the given element.
    void SerializeCredentials(xml::xml_holder_t& element) const;
    /// The whole document, as Serialize.
    [[nodiscard]] std::string SerializeCredentials() const;

    /// Not provided; always throws exc::CNotImplExc.
    [[nodiscard]] static CS3ConnectionSpec Deserialize(const xml::xml_holder_t& element);
    /// Parses the text and finds its root element; then as above.
    [[nodiscard]] static CS3ConnectionSpec Deserialize(const std::string& text);
    /// The endpoint, region and proxy. A connection has no bucket: the bucket name stays empty.
    [[nodiscard]] static bucket_addr_t DeserializeConnection(const xml::xml_holder_t& element);
    [[nodiscard]] static bucket_addr_t DeserializeConnection(const std::string& text);
    /// Keys, role, or both; fails when there is neither. A role without a metadata host gets the well-known one.
    [[nodiscard]] static credentials_t DeserializeCredentials(const xml::xml_holder_t& element);
    [[nodiscard]] static credentials_t DeserializeCredentials(const std::string& text);

    /// Not provided; always throws exc::CNotImplExc.
    [[nodiscard]] std::string ToLogStr() const;

private:
    SS3ConnSpec spec_;
};

}  // namespace cloudbackuplib::backup::platform::s3
