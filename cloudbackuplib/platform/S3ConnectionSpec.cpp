#include "cloudbackuplib/S3ConnectionSpec.h"

#include <optional>

#include "cloudbackuplib/platform/SpecDocument.h"
#include "common/exc.h"

namespace cloudbackuplib::backup::platform::s3 {

using cloudclientlib::s3::SS3BucketAddr;
using cloudclientlib::s3::SS3CredentialsKeys;
using cloudclientlib::s3::SS3ProxyConfig;
using cloudclientlib::s3::SS3RoleAuth;

namespace {

/// Where a machine in the cloud finds the credentials of its role; link-local, the same on every machine.
constexpr const char* instanceMetadataHost = "169.254.169.254";

void SerializeProxy(xml::xml_holder_t& bucketAddr, const SS3ProxyConfig& proxy) {
    xml::xml_holder_t element = xml::TiXmlCreateChild(bucketAddr, "Proxy");
    xml::TiXmlSetStrAttr(element, "Endpoint", proxy.endpoint);
    if (!proxy.userName.empty()) {
        xml::TiXmlSetStrAttr(element, "UserName", proxy.userName);
        xml::TiXmlSetStrAttr(element, "Password", proxy.password);
    }
}

void SerializeBucketAddr(xml::xml_holder_t& root, const SS3ConnSpec& spec) {
    xml::xml_holder_t element = xml::TiXmlCreateChild(root, "BucketAddr");
    xml::TiXmlSetStrAttr(element, "ApiEndpoint", spec.bucketAddr.apiEndpoint);
    xml::TiXmlSetStrAttr(element, "Region", spec.bucketAddr.region);
    xml::TiXmlSetStrAttr(element, "BucketName", spec.bucketAddr.bucketName);
    if (spec.bucketAddr.proxy.IsSet()) {
        SerializeProxy(element, spec.bucketAddr.proxy.Get());
    }
    if (spec.restClientId.IsSet()) {
        xml::TiXmlSetStrAttr(element, "AmazonS3RestClientId", spec.restClientId.Get().ToAStr());
    }
}

void SerializeKeys(xml::xml_holder_t& root, const SS3CredentialsKeys& keys) {
    xml::xml_holder_t element = xml::TiXmlCreateChild(root, "Credentials");
    xml::TiXmlSetStrAttr(element, "AccessKeyId", keys.accessKeyId);
    xml::TiXmlSetStrAttr(element, "SecretAccessKey", keys.secretAccessKey);
    if (!keys.sessionToken.empty()) {
        xml::TiXmlSetStrAttr(element, "SessionToken", keys.sessionToken);
    }
}

void SerializeRole(xml::xml_holder_t& root, const SS3RoleAuth& role) {
    xml::xml_holder_t element = xml::TiXmlCreateChild(root, "RoleAuth");
    xml::TiXmlSetStrAttr(element, "RoleName", role.roleName);
    if (!role.metadataHost.empty()) {
        xml::TiXmlSetStrAttr(element, "MetadataHost", role.metadataHost);
    }
}

SS3ProxyConfig DeserializeProxy(const xml::xml_holder_t& element) {
    SS3ProxyConfig proxy;
    proxy.endpoint = xml::TiXmlGetStrAttrExc(element, "Endpoint");
    proxy.userName = xml::TiXmlGetStrAttrSafe(element, "UserName");
    proxy.password = xml::TiXmlGetStrAttrSafe(element, "Password");
    return proxy;
}

SS3CredentialsKeys DeserializeKeys(const xml::xml_holder_t& element) {
    SS3CredentialsKeys keys;
    keys.accessKeyId = xml::TiXmlGetStrAttrExc(element, "AccessKeyId");
    keys.secretAccessKey = xml::TiXmlGetStrAttrExc(element, "SecretAccessKey");
    keys.sessionToken = xml::TiXmlGetStrAttrSafe(element, "SessionToken");
    return keys;
}

SS3RoleAuth DeserializeRole(const xml::xml_holder_t& element) {
    SS3RoleAuth role;
    role.roleName = xml::TiXmlGetStrAttrExc(element, "RoleName");
    role.metadataHost = xml::TiXmlGetStrAttrSafe(element, "MetadataHost");
    if (role.metadataHost.empty()) {
        role.metadataHost = instanceMetadataHost;
    }
    return role;
}

xml::xml_holder_t ParseRoot(const std::string& text) {
    return xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), CS3ConnectionSpec::GetRootNodeName());
}

}  // namespace

std::string CS3ConnectionSpec::GetRootNodeName() { return "S3ConnSpec"; }

bool CS3ConnectionSpec::IsS3ConnSpec(const std::string& text) { return IsSpecDocument(text, GetRootNodeName()); }

void CS3ConnectionSpec::Serialize(xml::xml_holder_t& element) const {
    SerializeBucketAddr(element, spec_);
    SerializeCredentials(element);
    if (spec_.repository.IsSet()) {
        WriteRepository(element, spec_.repository.Get());
    }
    xml::xml_holder_t options = xml::TiXmlCreateChild(element, "Options");
    xml::TiXmlSetBoolAttr(options, "UseIAStorageClassForBlockObjects", spec_.options.useIAStorageClassForBlockObjects);
    xml::TiXmlSetBoolAttr(options, "UseVirtualHostedStyle", spec_.options.useVirtualHostedStyle);
}

std::string CS3ConnectionSpec::Serialize() const { return SpecDocumentText(*this); }

void CS3ConnectionSpec::SerializeCredentials(xml::xml_holder_t& element) const {
    if (spec_.credentials.IsSet()) {
        SerializeKeys(element, spec_.credentials.Get());
    }
    if (spec_.roleAuth.IsSet()) {
        SerializeRole(element, spec_.roleAuth.Get());
    }
}

std::string CS3ConnectionSpec::SerializeCredentials() const { return Serialize(); }

CS3ConnectionSpec CS3ConnectionSpec::Deserialize(const std::string& text) { return Deserialize(ParseRoot(text)); }

SS3BucketAddr CS3ConnectionSpec::DeserializeConnection(const xml::xml_holder_t& element) {
    const xml::xml_holder_t bucketAddr = xml::TiXmlGetChildExc(element, "BucketAddr");
    SS3BucketAddr address;
    address.apiEndpoint = xml::TiXmlGetStrAttrExc(bucketAddr, "ApiEndpoint");
    address.region = xml::TiXmlGetStrAttrExc(bucketAddr, "Region");
    if (const auto proxy = xml::TiXmlGetChildSafe(bucketAddr, "Proxy")) {
        address.proxy = DeserializeProxy(*proxy);
    }
    return address;
}

SS3BucketAddr CS3ConnectionSpec::DeserializeConnection(const std::string& text) {
    return DeserializeConnection(ParseRoot(text));
}

CS3ConnectionSpec::credentials_t CS3ConnectionSpec::DeserializeCredentials(const xml::xml_holder_t& element) {
    credentials_t credentials;
    if (const auto keys = xml::TiXmlGetChildSafe(element, "Credentials")) {
        credentials.first = DeserializeKeys(*keys);
    }
    if (const auto role = xml::TiXmlGetChildSafe(element, "RoleAuth")) {
        credentials.second = DeserializeRole(*role);
    }
    if (!credentials.first.IsSet() && !credentials.second.IsSet()) {
        throw exc::CRuntimeExc("Either <Credentials> or <RoleAuth> node should be provided");
    }
    return credentials;
}

CS3ConnectionSpec::credentials_t CS3ConnectionSpec::DeserializeCredentials(const std::string& text) {
    return DeserializeCredentials(ParseRoot(text));
}

}  // namespace cloudbackuplib::backup::platform::s3
