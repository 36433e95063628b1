#pragma once

#include <string>

#include "cloudbackuplib/CloudRepositoryInfo.h"
#include "common/xml.h"

namespace cloudbackuplib::backup::platform {

/// Whether the text is an XML document with that root element. A text without the name is not parsed; one that cannot
/// be parsed is none.
[[nodiscard]] bool IsSpecDocument(const std::string& text, const std::string& rootName);

/// Writes the repository, and beside it its client, into a specification's root element.
void WriteRepository(xml::xml_holder_t& root, const SCloudRepositoryInfo& repository);

/// The text of a document with that root element, which `spec` fills.
template <class Spec>
[[nodiscard]] std::string SpecDocumentText(const Spec& spec) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, Spec::GetRootNodeName());
    spec.Serialize(root);
    return xml::TiXmlToStr(document);
}

}  // namespace cloudbackuplib::backup::platform
