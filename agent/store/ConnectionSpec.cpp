#include "agent/store/ConnectionSpec.h"

#include "common/crypto/sec_allocator.h"
#include "common/exc.h"
#include "common/posix.h"
#include "common/util.h"
#include "common/xml.h"

namespace agent {

namespace backup = cloudbackuplib::backup;
using CS3Spec = backup::platform::s3::CS3ConnectionSpec;

namespace {

backup::SCloudRepositoryClientInfo ReadClientInfo(const xml::xml_holder_t& node) {
    return {xml::TiXmlGetGuidAttrExc(node, "Id"), xml::TiXmlGetStrAttrSafe(node, "Type"),
            xml::TiXmlGetStrAttrSafe(node, "Name")};
}

/// "Repository", and "ClientInfo" beside it.
backup::SCloudRepositoryInfo ReadRepository(const xml::xml_holder_t& root, const xml::xml_holder_t& node) {
    backup::SCloudRepositoryInfo info;
    info.folderName = xml::TiXmlGetStrAttrExc(node, "FolderName");
    if (const auto client = xml::TiXmlGetChildSafe(root, "ClientInfo")) {
        info.client = ReadClientInfo(*client);
    }
    return info;
}

s3_spec_t ReadS3Spec(const xml::xml_holder_t& root) {
    s3_spec_t spec;
    spec.bucketAddr = CS3Spec::DeserializeConnection(root);
    const auto address = xml::TiXmlGetChildExc(root, "BucketAddr");
    spec.bucketAddr.bucketName = xml::TiXmlGetStrAttrExc(address, "BucketName");
    if (!xml::TiXmlGetStrAttrSafe(address, "AmazonS3RestClientId").empty()) {
        spec.restClientId = xml::TiXmlGetGuidAttrExc(address, "AmazonS3RestClientId");
    }
    std::tie(spec.credentials, spec.roleAuth) = CS3Spec::DeserializeCredentials(root);
    if (const auto repository = xml::TiXmlGetChildSafe(root, "Repository")) {
        static_cast<COptionalParameter<backup::SCloudRepositoryInfo>&>(spec.repository) =
            ReadRepository(root, *repository);
    }
    if (const auto options = xml::TiXmlGetChildSafe(root, "Options")) {
        spec.options.useIAStorageClassForBlockObjects =
            xml::TiXmlGetBoolAttrSafe(*options, "UseIAStorageClassForBlockObjects", false);
        spec.options.useVirtualHostedStyle = xml::TiXmlGetBoolAttrSafe(*options, "UseVirtualHostedStyle", false);
    }
    return spec;
}

azure_spec_t ReadAzureSpec(const xml::xml_holder_t& root) {
    azure_spec_t spec;
    spec.connectionString = xml::TiXmlGetStrAttrExc(root, "ConnectionString");
    spec.containerName = xml::TiXmlGetStrAttrExc(root, "ContainerName");
    if (const auto repository = xml::TiXmlGetChildSafe(root, "Repository")) {
        spec.repository = ReadRepository(root, *repository);
    }
    return spec;
}

void AddLine(std::string& text, const std::string& name, const std::string& value) {
    text += (text.empty() ? "" : "\n") + name + ": " + value;
}

void DescribeRepository(const backup::SCloudRepositoryInfo& repository, std::string& text) {
    if (!repository.folderName.empty()) {
        AddLine(text, "Repository", repository.folderName);
    }
    if (repository.client.IsSet()) {
        const auto& client = repository.client.Get();
        AddLine(text, "Client", client.clientId.ToAStr() + " (" + client.clientName + ")");
    }
}

std::string Describe(const s3_spec_t& spec) {
    std::string text;
    AddLine(text, "Kind", "S3");
    AddLine(text, "Endpoint", spec.bucketAddr.apiEndpoint);
    AddLine(text, "Region", spec.bucketAddr.region);
    AddLine(text, "Bucket", spec.bucketAddr.bucketName);
    if (spec.bucketAddr.proxy.IsSet()) {
        const auto& proxy = spec.bucketAddr.proxy.Get();
        AddLine(text, "Proxy", proxy.endpoint + (proxy.userName.empty() ? "" : " as " + proxy.userName));
    }
    if (spec.credentials.IsSet()) {
        const auto& keys = spec.credentials.Get();
        AddLine(text, "Access key", keys.accessKeyId + (keys.sessionToken.empty() ? "" : ", with a session token"));
    }
    if (spec.roleAuth.IsSet()) {
        AddLine(text, "Role", spec.roleAuth.Get().roleName + " from " + spec.roleAuth.Get().metadataHost);
    }
    if (spec.repository.IsSet()) {
        DescribeRepository(spec.repository.Get(), text);
    }
    AddLine(text, "Blocks",
            spec.options.useIAStorageClassForBlockObjects ? "in the infrequent-access storage class"
                                                          : "in the standard storage class");
    AddLine(text, "Addressing",
            spec.options.useVirtualHostedStyle ? "by the host's name (virtual-hosted)" : "by the path");
    return text;
}

std::string Describe(const azure_spec_t& spec) {
    std::string text;
    AddLine(text, "Kind", "Azure Blob Storage");
    AddLine(text, "Container", spec.containerName);
    DescribeRepository(spec.repository, text);
    return text;
}

}  // namespace

connection_spec_t ReadConnectionSpec(const std::string& text) {
    const auto document = xml::TiXmlParseExc(text);
    if (const auto root = xml::TiXmlGetChildSafe(document, CS3Spec::GetRootNodeName())) {
        return ReadS3Spec(*root);
    }
    if (const auto root = xml::TiXmlGetChildSafe(document, azure_spec_t::GetRootNodeName())) {
        return ReadAzureSpec(*root);
    }
    throw exc::CRuntimeExc("It is no connection specification: the root element is neither '%1' nor '%2'",
                           CS3Spec::GetRootNodeName(), azure_spec_t::GetRootNodeName());
}

std::string WriteConnectionSpec(const connection_spec_t& spec) {
    if (const auto* const s3 = std::get_if<s3_spec_t>(&spec)) {
        return CS3Spec(*s3).Serialize();
    }
    return std::get<azure_spec_t>(spec).Serialize();
}

connection_spec_t ReadConnectionSpecFile(const std::string& path) {
    constexpr std::uint64_t largest = 1U << 20U;
    try {
        const auto file = posix::posix_file_t::Open4Read(path);
        if (file.GetSize() > largest) {
            throw exc::CRuntimeExc("It is no connection specification: it has %1 bytes", file.GetSize());
        }
        std::string text(file.GetSize(), '\0');
        const crypto::erase_at_end_t erased(text);
        text.resize(file.ReadAt(0, text.data(), text.size()));
        return ReadConnectionSpec(text);
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "Cannot read the connection specification '%1'", path);
    }
}

void WriteConnectionSpecFile(const std::string& path, const connection_spec_t& spec) {
    try {
        std::string text = WriteConnectionSpec(spec);
        const crypto::erase_at_end_t erased(text);
        posix::WriteNewFile(path, text);
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "Cannot write the connection specification '%1'", path);
    }
}

std::string Describe(const connection_spec_t& spec) {
    return std::visit([](const auto& kind) { return Describe(kind); }, spec);
}

}  // namespace agent
