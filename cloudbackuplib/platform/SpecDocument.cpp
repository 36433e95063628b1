#include "cloudbackuplib/platform/SpecDocument.h"

#include <exception>

namespace cloudbackuplib::backup::platform {

bool IsSpecDocument(const std::string& text, const std::string& rootName) {
    if (text.find(rootName) == std::string::npos) {
        return false;
    }
    try {
        return xml::TiXmlGetChildSafe(xml::TiXmlParseExc(text), rootName).has_value();
    } catch (const std::exception&) {
        return false;
    }
}

void WriteRepository(xml::xml_holder_t& root, const SCloudRepositoryInfo& repository) {
    xml::xml_holder_t element = xml::TiXmlCreateChild(root, "Repository");
    xml::TiXmlSetStrAttr(element, "FolderName", repository.folderName);
    if (!repository.client.IsSet()) {
        return;
    }
    const SCloudRepositoryClientInfo& client = repository.client.Get();
    xml::xml_holder_t info = xml::TiXmlCreateChild(root, "ClientInfo");
    xml::TiXmlSetStrAttr(info, "Type", client.clientType);
    xml::TiXmlSetStrAttr(info, "Name", client.clientName);
    xml::TiXmlSetStrAttr(info, "Id", client.clientId.ToAStr());
}

}  // namespace cloudbackuplib::backup::platform
