#pragma once

#include <string>

#include "common/export.h"
#include "common/xml.h"

namespace cloudbackuplib::backup::checkpoint {

/// The backup-level metadata document of the host, kept inside a checkpoint: compressed (zlib, best level) and base64.
/// A plain value.
class CB_EXPORT CCloudDxrDescriptor {
public:
    /// No content.
    CCloudDxrDescriptor() = default;
    /// Takes the plain text; an empty one is no content. Throws exc::CRuntimeExc for one of more than 1 GiB.
    explicit CCloudDxrDescriptor(const std::string& plainContent);

    [[nodiscard]] bool IsEmpty() const { return content_.empty(); }
    /// The plain text. Throws exc::CRuntimeExc when the stored form is damaged: it is checked here, not on reading.
    [[nodiscard]] std::string GetContent() const;

    void Serialize(xml::xml_holder_t& node) const;
    void Deserialize(const xml::xml_holder_t& node);

private:
    std::string content_;  // base64 of the compressed text
};

}  // namespace cloudbackuplib::backup::checkpoint
