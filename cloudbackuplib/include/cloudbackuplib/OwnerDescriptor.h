#pragma once

#include <string>

#include "common/export.h"
#include "common/guid.h"
#include "common/xml.h"

namespace cloudbackuplib::backup::checkpoint {

/// The owner of a checkpoint, or of a repository: id, type and description. A plain value; a null id means no owner.
class CB_EXPORT COwnerDescriptor {
public:
    COwnerDescriptor() = default;
    COwnerDescriptor(const guid::guid_t& id, const std::string& type, const std::string& description);

    [[nodiscard]] guid::guid_t GetId() const { return id_; }
    [[nodiscard]] std::string GetType() const { return type_; }
    [[nodiscard]] std::string GetDescription() const { return description_; }
    [[nodiscard]] bool IsSet() const { return !id_.IsEmpty(); }

    void Serialize(xml::xml_holder_t& node) const;
    [[nodiscard]] static COwnerDescriptor Deserialize(const xml::xml_holder_t& node);

private:
    guid::guid_t id_;
    std::string description_;
    std::string type_;
};

}  // namespace cloudbackuplib::backup::checkpoint
