#include "clients/azure/AzureDocuments.h"

#include <algorithm>

#include "clients/http/HttpDate.h"
#include "clients/http/Uri.h"
#include "common/exc.h"
#include "common/util.h"
#include "common/xml.h"

namespace clients::azure {

namespace {

std::string TextOf(const xml::xml_holder_t& parent, std::string_view name) {
    const auto child = xml::TiXmlGetChildSafe(parent, name);
    return child ? xml::TiXmlGetText(*child) : std::string();
}

xml::xml_holder_t Root(std::string_view text, std::string_view name) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";  // the service begins its documents with one
    if (text.starts_with(byteOrderMark)) {
        text.remove_prefix(byteOrderMark.size());
    }
    return xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), name);
}

/// A name that XML cannot hold comes encoded, and says so.
std::string ReadName(const xml::xml_holder_t& parent) {
    const auto node = xml::TiXmlGetChildExc(parent, "Name");
    std::string name = xml::TiXmlGetText(node);
    if (xml::TiXmlGetBoolAttrSafe(node, "Encoded", false)) {
        name = http::UriDecode(name, http::EPlus::itself);
    }
    if (name.empty()) {
        throw exc::CRuntimeExc("A listing holds an object without a name");
    }
    return name;
}

SListedBlob ReadBlob(const xml::xml_holder_t& node) {
    const auto properties = xml::TiXmlGetChildExc(node, "Properties");
    SListedBlob blob;
    blob.name = ReadName(node);
    blob.size = util::str_to_uint64(xml::TiXmlGetText(xml::TiXmlGetChildExc(properties, "Content-Length")));
    blob.modified = http::ParseHttpDate(TextOf(properties, "Last-Modified"));
    blob.md5 = ReadMd5(TextOf(properties, "Content-MD5"));
    blob.tier = TextOf(properties, "AccessTier");
    return blob;
}

}  // namespace

SListing ReadListing(std::string_view text) {
    const auto root = Root(text, "EnumerationResults");
    SListing listing;
    for (const auto& child : xml::TiXmlGetChildren(xml::TiXmlGetChildExc(root, "Blobs"))) {
        const std::string name = xml::TiXmlGetNodeName(child);
        if (name == "Blob") {
            listing.blobs.push_back(ReadBlob(child));
        } else if (name == "BlobPrefix") {
            listing.prefixes.push_back(ReadName(child));
        }
    }
    listing.nextMarker = TextOf(root, "NextMarker");
    return listing;
}

std::optional<SServiceError> ReadError(std::string_view text) {
    try {
        const auto root = Root(text, "Error");
        std::string message = TextOf(root, "Message");
        message.resize(std::min(message.find_first_of("\r\n"), message.size()));
        return SServiceError{TextOf(root, "Code"), std::move(message)};
    } catch (const exc::CExc&) {
        return std::nullopt;
    }
}

std::string WriteBlockList(const std::vector<std::string>& ids) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, "BlockList");
    for (const std::string& id : ids) {
        xml::xml_holder_t block = xml::TiXmlCreateChild(root, "Uncommitted");
        xml::TiXmlAddText(block, id);
    }
    return xml::TiXmlToCompactStr(document);
}

std::optional<digest::md5_digest_t> ReadMd5(std::string_view base64) {
    digest::md5_digest_t md5;
    const auto bytes = util::fromBase64(base64);
    if (bytes.size() != md5.bytes.size()) {
        return std::nullopt;
    }
    std::transform(bytes.begin(), bytes.end(), md5.bytes.begin(), [](char c) { return static_cast<std::uint8_t>(c); });
    return md5;
}

std::string WriteMd5(const digest::md5_digest_t& md5) {
    return util::toBase64({reinterpret_cast<const char*>(md5.bytes.data()), md5.bytes.size()});
}

}  // namespace clients::azure
