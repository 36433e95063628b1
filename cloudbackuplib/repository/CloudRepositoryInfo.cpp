#include "cloudbackuplib/CloudRepositoryInfo.h"

#include "common/format.h"

namespace cloudbackuplib::backup {

std::string SCloudRepositoryInfo::ToString() const {
    std::string text = "Name: " + folderName;
    if (client.IsSet()) {
        const SCloudRepositoryClientInfo& info = client.Get();
        text += exc::Format(", Cliend id: '%1', Client type: '%2', Client description: '%3'", info.clientId,
                            info.clientType, info.clientName);
    }
    return text;
}

void SCloudRepositoryDescription::Serialize(xml::xml_holder_t& element) const {
    xml::TiXmlSetStrAttr(element, "Id", id.ToAStr());
    xml::TiXmlSetStrAttr(element, "DisplayName", displayName);
}

SCloudRepositoryDescription SCloudRepositoryDescription::Deserialize(const xml::xml_holder_t& element) {
    SCloudRepositoryDescription description;
    description.id = xml::TiXmlGetGuidAttrExc(element, "Id");
    description.displayName = xml::TiXmlGetStrAttrExc(element, "DisplayName");
    return description;
}

}  // namespace cloudbackuplib::backup
