#include "cloudbackuplib/OwnerDescriptor.h"

namespace cloudbackuplib::backup::checkpoint {

COwnerDescriptor::COwnerDescriptor(const guid::guid_t& id, const std::string& type, const std::string& description)
    : id_(id), description_(description), type_(type) {}

void COwnerDescriptor::Serialize(xml::xml_holder_t& node) const {
    xml::TiXmlSetStrAttr(node, "Id", id_.ToAStr());
    xml::TiXmlSetStrAttr(node, "Type", type_);
    xml::TiXmlSetStrAttr(node, "Description", description_);
}

COwnerDescriptor COwnerDescriptor::Deserialize(const xml::xml_holder_t& node) {
    // All three must be there before the first is read as an id.
    static_cast<void>(xml::TiXmlGetStrAttrExc(node, "Id"));
    const std::string type = xml::TiXmlGetStrAttrExc(node, "Type");
    const std::string description = xml::TiXmlGetStrAttrExc(node, "Description");
    return {xml::TiXmlGetGuidAttrExc(node, "Id"), type, description};
}

}  // namespace cloudbackuplib::backup::checkpoint
