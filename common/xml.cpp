#include "common/xml.h"

#include <tinyxml.h>

#include <charconv>

#include "common/exc.h"
#include "common/util.h"
#include "common/xml_check.h"

namespace xml {

namespace {

TiXmlElement& AsElement(const xml_holder_t& node) {
    TiXmlElement* element = node.GetNode().ToElement();
    if (element == nullptr) {
        throw exc::CRuntimeExc("XML node '%1' is not an element", node.GetNode().ValueStr());
    }
    return *element;
}

const std::string* FindAttr(const xml_holder_t& node, std::string_view name) {
    return AsElement(node).Attribute(std::string(name));
}

[[noreturn]] void ThrowMalformed(const xml_holder_t& node, std::string_view name, std::string_view value,
                                 const char* kind) {
    throw exc::CRuntimeExc("Attribute '%1' of node '%2' is not %3: '%4'", name, TiXmlGetNodeName(node), kind,
                           BeginningOf(value));
}

template <class T>
T ParseNumber(const xml_holder_t& node, std::string_view name, const std::string& value, const char* kind) {
    T number{};
    const char* const end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc() || stop != end) {
        ThrowMalformed(node, name, value, kind);
    }
    return number;
}

/// TinyXML's setting is one variable for the whole process: set once, before the first document is read.
void KeepWhiteSpace() { [[maybe_unused]] static const bool done = (TiXmlBase::SetCondenseWhiteSpace(false), true); }

}  // namespace

xml_holder_t::xml_holder_t(std::shared_ptr<TiXmlDocument> document, TiXmlNode* node)
    : document_(std::move(document)), node_(node) {}

xml_holder_t TiXmlCreateDocument() {
    auto document = std::make_shared<TiXmlDocument>();
    TiXmlNode* node = document.get();
    return {std::move(document), node};
}

xml_holder_t TiXmlParseExc(std::string_view text) {
    CheckText(text);
    KeepWhiteSpace();
    xml_holder_t holder = TiXmlCreateDocument();
    TiXmlDocument& document = *holder.GetDocument();
    document.SetTabSize(0);  // no rows and columns: counting them costs a tenth of the time
    const std::string copy(text);
    const char* const rest = document.Parse(copy.c_str(), nullptr, TIXML_ENCODING_UTF8);
    if (document.Error()) {
        throw exc::CRuntimeExc("Invalid XML document: %1 (by its parser)", document.ErrorDesc());
    }
    // The check before lets no such text through; should TinyXML stop half-way all the same, nothing is lost silently.
    if (document.RootElement() == nullptr || (rest != nullptr && *rest != '\0')) {
        throw exc::CRuntimeExc("Invalid XML document: not read to its end");
    }
    return holder;
}

std::string TiXmlToStr(const xml_holder_t& node) {
    TiXmlPrinter printer;
    node.GetDocument()->Accept(&printer);
    return printer.Str();
}

std::string TiXmlToCompactStr(const xml_holder_t& node) {
    TiXmlPrinter printer;
    printer.SetStreamPrinting();
    node.GetDocument()->Accept(&printer);
    return printer.Str();
}

xml_holder_t TiXmlCreateChild(xml_holder_t& parent, std::string_view name) {
    auto element = std::make_unique<TiXmlElement>(std::string(name));
    TiXmlNode* node = parent.GetNode().LinkEndChild(element.release());
    if (node == nullptr) {
        throw exc::CRuntimeExc("Cannot add XML node '%1'", name);
    }
    return {parent.GetDocument(), node};
}

xml_holder_t TiXmlGetChildExc(const xml_holder_t& parent, std::string_view name) {
    auto child = TiXmlGetChildSafe(parent, name);
    if (!child) {
        throw exc::CRuntimeExc("Cannot find required node: %1", name);
    }
    return *std::move(child);
}

std::optional<xml_holder_t> TiXmlGetChildSafe(const xml_holder_t& parent, std::string_view name) {
    TiXmlElement* element = parent.GetNode().FirstChildElement(std::string(name));
    if (element == nullptr) {
        return std::nullopt;
    }
    return xml_holder_t(parent.GetDocument(), element);
}

std::vector<xml_holder_t> TiXmlGetChildren(const xml_holder_t& parent) {
    std::vector<xml_holder_t> children;
    for (auto* element = parent.GetNode().FirstChildElement(); element != nullptr;
         element = element->NextSiblingElement()) {
        children.emplace_back(parent.GetDocument(), element);
    }
    return children;
}

std::string TiXmlGetNodeName(const xml_holder_t& node) { return node.GetNode().ValueStr(); }

std::string TiXmlGetText(const xml_holder_t& node) {
    std::string text;
    for (const TiXmlNode* child = node.GetNode().FirstChild(); child != nullptr; child = child->NextSibling()) {
        if (child->ToText() != nullptr) {
            text += child->ValueStr();
        }
    }
    return text;
}

void TiXmlAddText(xml_holder_t& node, std::string_view text) {
    if (!IsCleanUtf8(text)) {
        throw exc::CRuntimeExc("Text of node '%1' is not UTF-8 text", TiXmlGetNodeName(node));
    }
    TiXmlText value{std::string(text)};
    AsElement(node).InsertEndChild(value);
}

void TiXmlSetStrAttr(xml_holder_t& node, std::string_view name, std::string_view value) {
    if (!IsCleanUtf8(value)) {
        ThrowMalformed(node, name, {}, "UTF-8 text");
    }
    AsElement(node).SetAttribute(std::string(name), std::string(value));
}

void TiXmlSetUInt64Attr(xml_holder_t& node, std::string_view name, std::uint64_t value) {
    AsElement(node).SetAttribute(std::string(name), util::str_from_uint64(value));
}

void TiXmlSetIntAttr(xml_holder_t& node, std::string_view name, int value) {
    AsElement(node).SetAttribute(std::string(name), std::to_string(value));
}

void TiXmlSetBoolAttr(xml_holder_t& node, std::string_view name, bool value) {
    AsElement(node).SetAttribute(std::string(name), std::string(value ? "true" : "false"));
}

std::string TiXmlGetStrAttrExc(const xml_holder_t& node, std::string_view name) {
    const std::string* value = FindAttr(node, name);
    if (value == nullptr) {
        throw exc::CRuntimeExc("Cannot find required attribute '%1' of node '%2'", name, TiXmlGetNodeName(node));
    }
    return *value;
}

std::string TiXmlGetStrAttrSafe(const xml_holder_t& node, std::string_view name, std::string_view missing) {
    const std::string* value = FindAttr(node, name);
    return value == nullptr ? std::string(missing) : *value;
}

std::uint64_t TiXmlGetUInt64AttrExc(const xml_holder_t& node, std::string_view name) {
    return ParseNumber<std::uint64_t>(node, name, TiXmlGetStrAttrExc(node, name), "an unsigned number");
}

int TiXmlGetIntAttrSafe(const xml_holder_t& node, std::string_view name, int missing) {
    const std::string* value = FindAttr(node, name);
    return value == nullptr ? missing : ParseNumber<int>(node, name, *value, "a number");
}

bool TiXmlGetBoolAttrSafe(const xml_holder_t& node, std::string_view name, bool missing) {
    const std::string* value = FindAttr(node, name);
    if (value == nullptr) {
        return missing;
    }
    if (*value == "true" || *value == "1") {
        return true;
    }
    if (*value != "false" && *value != "0") {
        ThrowMalformed(node, name, *value, "a flag");
    }
    return false;
}

guid::guid_t TiXmlGetGuidAttrExc(const xml_holder_t& node, std::string_view name) {
    const std::string value = TiXmlGetStrAttrExc(node, name);
    try {
        return guid::guid_t::FromStr(value);
    } catch (const exc::CRuntimeExc&) {
        ThrowMalformed(node, name, value, "a GUID");
    }
}

}  // namespace xml
