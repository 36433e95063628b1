#include "cloudbackuplib/AzureConnectionSpec.h"

#include "cloudbackuplib/platform/SpecDocument.h"
#include "common/format.h"

namespace cloudbackuplib::backup::platform::azure {

std::string SAzureConnectionSpec::GetRootNodeName() { return "AzureConnectionSpec"; }

bool SAzureConnectionSpec::IsAzureConnectionSpec(const std::string& text) {
    return IsSpecDocument(text, GetRootNodeName());
}

void SAzureConnectionSpec::Serialize(xml::xml_holder_t& element) const {
    xml::TiXmlSetStrAttr(element, "ConnectionString", connectionString);
    xml::TiXmlSetStrAttr(element, "ContainerName", containerName);
    WriteRepository(element, repository);
}

std::string SAzureConnectionSpec::Serialize() const { return SpecDocumentText(*this); }

std::string SAzureConnectionSpec::ToLogStr() const {
    std::string text = "type: " + ECloudRepoType::ToStr(repositoryType) + ", name: " + repository.folderName;
    if (repository.client.IsSet()) {
        text += ", client id: " + repository.client.Get().clientId.ToAStr();
    }
    return exc::Format("AzureBlobStorage connection, container name: [%1], repository: [%2]", containerName, text);
}

}  // namespace cloudbackuplib::backup::platform::azure
