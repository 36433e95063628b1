#include "clients/s3/S3Documents.h"

#include <ctime>

#include "clients/http/Uri.h"
#include "common/exc.h"
#include "common/util.h"
#include "common/xml.h"

namespace clients::s3 {

namespace {

std::string TextOf(const xml::xml_holder_t& parent, std::string_view name) {
    const auto child = xml::TiXmlGetChildSafe(parent, name);
    return child ? xml::TiXmlGetText(*child) : std::string();
}

std::string RequiredText(const xml::xml_holder_t& parent, std::string_view name) {
    return xml::TiXmlGetText(xml::TiXmlGetChildExc(parent, name));
}

xml::xml_holder_t Root(std::string_view text, std::string_view name) {
    return xml::TiXmlGetChildExc(xml::TiXmlParseExc(text), name);
}

void AddText(xml::xml_holder_t& parent, std::string_view name, std::string_view text) {
    xml::xml_holder_t child = xml::TiXmlCreateChild(parent, name);
    xml::TiXmlAddText(child, text);
}

SListedObject ReadObject(const xml::xml_holder_t& node, bool encoded) {
    SListedObject object;
    object.key = RequiredText(node, "Key");
    if (encoded) {
        object.key = UrlDecode(object.key);
    }
    object.size = util::str_to_uint64(RequiredText(node, "Size"));
    object.modified = ParseTime(TextOf(node, "LastModified"));
    object.etag = Unquote(TextOf(node, "ETag"));
    object.storageClass = TextOf(node, "StorageClass");
    if (object.storageClass == "STANDARD") {
        object.storageClass.clear();
    }
    return object;
}

SServiceError ReadErrorNode(const xml::xml_holder_t& node) {
    return {TextOf(node, "Code"), TextOf(node, "Message"), TextOf(node, "RequestId"), TextOf(node, "Region"),
            TextOf(node, "Key")};
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

SListing ReadListing(std::string_view text) {
    const auto root = Root(text, "ListBucketResult");
    const bool encoded = TextOf(root, "EncodingType") == "url";
    SListing listing;
    for (const auto& child : xml::TiXmlGetChildren(root)) {
        const std::string name = xml::TiXmlGetNodeName(child);
        if (name == "Contents") {
            listing.objects.push_back(ReadObject(child, encoded));
        } else if (name == "CommonPrefixes") {
            const std::string prefix = RequiredText(child, "Prefix");
            listing.prefixes.push_back(encoded ? UrlDecode(prefix) : prefix);
        }
    }
    if (TextOf(root, "IsTruncated") == "true") {
        listing.nextToken = RequiredText(root, "NextContinuationToken");
        if (listing.nextToken.empty()) {
            throw exc::CRuntimeExc("A listing that goes on does not say where");
        }
    }
    return listing;
}

std::optional<SServiceError> ReadError(std::string_view text) {
    try {
        const auto root = xml::TiXmlGetChildSafe(xml::TiXmlParseExc(text), "Error");
        return root ? std::optional(ReadErrorNode(*root)) : std::nullopt;
    } catch (const exc::CExc&) {
        return std::nullopt;
    }
}

std::string WriteBatchDeletion(const std::vector<std::string>& keys) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, "Delete");
    AddText(root, "Quiet", "true");
    for (const std::string& key : keys) {
        xml::xml_holder_t object = xml::TiXmlCreateChild(root, "Object");
        AddText(object, "Key", key);
    }
    return xml::TiXmlToCompactStr(document);
}

std::vector<SServiceError> ReadBatchDeletion(std::string_view text) {
    std::vector<SServiceError> errors;
    if (text.empty()) {  // some services answer a quiet deletion with nothing
        return errors;
    }
    for (const auto& child : xml::TiXmlGetChildren(Root(text, "DeleteResult"))) {
        if (xml::TiXmlGetNodeName(child) == "Error") {
            errors.push_back(ReadErrorNode(child));
        }
    }
    return errors;
}

std::string ReadUploadId(std::string_view text) {
    std::string id = RequiredText(Root(text, "InitiateMultipartUploadResult"), "UploadId");
    if (id.empty()) {
        throw exc::CRuntimeExc("A multipart upload without an id");
    }
    return id;
}

std::string WriteCompletion(const std::vector<std::string>& etags) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, "CompleteMultipartUpload");
    for (std::size_t i = 0; i < etags.size(); ++i) {
        xml::xml_holder_t part = xml::TiXmlCreateChild(root, "Part");
        AddText(part, "PartNumber", std::to_string(i + 1));
        AddText(part, "ETag", etags[i]);
    }
    return xml::TiXmlToCompactStr(document);
}

std::string ReadCopiedPart(std::string_view text) { return RequiredText(Root(text, "CopyPartResult"), "ETag"); }

std::string WriteBucket(const std::string& region) {
    if (region.empty() || region == "us-east-1") {
        return {};
    }
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, "CreateBucketConfiguration");
    AddText(root, "LocationConstraint", region);
    return xml::TiXmlToCompactStr(document);
}

std::string WriteRestoration(unsigned days, std::string_view tier) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, "RestoreRequest");
    AddText(root, "Days", std::to_string(days));
    xml::xml_holder_t parameters = xml::TiXmlCreateChild(root, "GlacierJobParameters");
    AddText(parameters, "Tier", tier);
    return xml::TiXmlToCompactStr(document);
}

std::string Unquote(std::string text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        return text.substr(1, text.size() - 2);
    }
    return text;
}

std::optional<digest::md5_digest_t> Md5OfTag(const std::string& etag) {
    digest::md5_digest_t md5;
    if (etag.size() != 2 * md5.bytes.size()) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < md5.bytes.size(); ++i) {
        const int high = HexDigit(etag[2 * i]);
        const int low = HexDigit(etag[2 * i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        md5.bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return md5;
}

std::chrono::system_clock::time_point ParseTime(const std::string& text) {
    std::tm parts{};
    const char* const end = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    const int year = parts.tm_year + 1900;
    const bool isTime = end != nullptr && year >= 1970 && year < 2200;  // what the clock can hold
    return isTime ? std::chrono::system_clock::from_time_t(::timegm(&parts)) : std::chrono::system_clock::time_point();
}

std::string UrlDecode(std::string_view text) { return http::UriDecode(text, http::EPlus::blank); }

}  // namespace clients::s3
