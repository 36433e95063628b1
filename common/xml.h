#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/export.h"
#include "common/guid.h"

class TiXmlDocument;
class TiXmlNode;

/// XML documents: a thin layer over TinyXML that checks what it reads from outside.
///
/// All functions throw exc::CRuntimeExc on failure, naming the element and the attribute. A "...Exc" getter fails when
/// what it looks for is missing, a "...Safe" getter gives a default; both fail when what is there is malformed.
namespace xml {

/// A handle on one node of a document; it keeps the whole document alive. One document is used by one thread at a time.
class CB_EXPORT xml_holder_t {
public:
    xml_holder_t(std::shared_ptr<TiXmlDocument> document, TiXmlNode* node);

    [[nodiscard]] TiXmlNode& GetNode() const { return *node_; }
    [[nodiscard]] const std::shared_ptr<TiXmlDocument>& GetDocument() const { return document_; }

private:
    std::shared_ptr<TiXmlDocument> document_;
    TiXmlNode* node_;
};

/// An empty document.
[[nodiscard]] CB_EXPORT xml_holder_t TiXmlCreateDocument();
/// Reads a document. Refuses, before TinyXML sees it and in time linear in the text: NUL bytes and references to them,
/// invalid UTF-8, more than 32 levels of elements, more than 64 attributes in an element, unknown entities, document
/// type declarations, and anything cut off or left over around the one root element.
[[nodiscard]] CB_EXPORT xml_holder_t TiXmlParseExc(std::string_view text);
/// The document of `node` as text.
[[nodiscard]] CB_EXPORT std::string TiXmlToStr(const xml_holder_t& node);

/// The same without line ends and blanks between the elements, for documents whose elements hold text.
[[nodiscard]] CB_EXPORT std::string TiXmlToCompactStr(const xml_holder_t& node);

/// Adds an element at the end of the node's children.
CB_EXPORT xml_holder_t TiXmlCreateChild(xml_holder_t& parent, std::string_view name);
/// The first child element of that name; fails with "Cannot find required node: %1".
[[nodiscard]] CB_EXPORT xml_holder_t TiXmlGetChildExc(const xml_holder_t& parent, std::string_view name);
[[nodiscard]] CB_EXPORT std::optional<xml_holder_t> TiXmlGetChildSafe(const xml_holder_t& parent,
                                                                      std::string_view name);
/// All child elements, in document order.
[[nodiscard]] CB_EXPORT std::vector<xml_holder_t> TiXmlGetChildren(const xml_holder_t& parent);
[[nodiscard]] CB_EXPORT std::string TiXmlGetNodeName(const xml_holder_t& node);

/// The text inside an element, what lies in its children left out; empty when there is none. Text of nothing but blanks
/// counts as none.
[[nodiscard]] CB_EXPORT std::string TiXmlGetText(const xml_holder_t& node);
/// Adds a text to an element; refuses what TiXmlSetStrAttr refuses.
CB_EXPORT void TiXmlAddText(xml_holder_t& node, std::string_view text);

/// Sets a text; refuses one that no document can carry (a NUL byte, invalid UTF-8).
CB_EXPORT void TiXmlSetStrAttr(xml_holder_t& node, std::string_view name, std::string_view value);
CB_EXPORT void TiXmlSetUInt64Attr(xml_holder_t& node, std::string_view name, std::uint64_t value);
CB_EXPORT void TiXmlSetIntAttr(xml_holder_t& node, std::string_view name, int value);
/// Writes "true" or "false".
CB_EXPORT void TiXmlSetBoolAttr(xml_holder_t& node, std::string_view name, bool value);

[[nodiscard]] CB_EXPORT std::string TiXmlGetStrAttrExc(const xml_holder_t& node, std::string_view name);
[[nodiscard]] CB_EXPORT std::string TiXmlGetStrAttrSafe(const xml_holder_t& node, std::string_view name,
                                                        std::string_view missing = {});
/// Decimal digits alone: no sign, no blanks, no overflow.
[[nodiscard]] CB_EXPORT std::uint64_t TiXmlGetUInt64AttrExc(const xml_holder_t& node, std::string_view name);
/// Decimal digits, perhaps behind a minus sign.
[[nodiscard]] CB_EXPORT int TiXmlGetIntAttrSafe(const xml_holder_t& node, std::string_view name, int missing);
/// "true" or "false", also "1" or "0".
[[nodiscard]] CB_EXPORT bool TiXmlGetBoolAttrSafe(const xml_holder_t& node, std::string_view name, bool missing);
[[nodiscard]] CB_EXPORT guid::guid_t TiXmlGetGuidAttrExc(const xml_holder_t& node, std::string_view name);

}  // namespace xml
