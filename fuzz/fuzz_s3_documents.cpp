#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "clients/http/Uri.h"
#include "clients/s3/S3Documents.h"
#include "common/xml.h"
#include "fuzz/Readers.h"

// What an S3 service answers is refused or read, by whichever reader gets it; the names that a listing tells go into a
// request from which a service reads the same.

using fuzz::Require;
using fuzz::Try;

namespace {

using namespace clients;

/// The texts of a list's elements, each one level further down.
std::vector<std::string> Texts(const std::string& document, std::string_view root, std::string_view element,
                               std::string_view child) {
    std::vector<std::string> texts;
    for (const auto& node : xml::TiXmlGetChildren(xml::TiXmlGetChildExc(xml::TiXmlParseExc(document), root))) {
        if (xml::TiXmlGetNodeName(node) == element) {
            texts.push_back(xml::TiXmlGetText(xml::TiXmlGetChildExc(node, child)));
        }
    }
    return texts;
}

/// XML carries neither control characters nor a text of blanks alone; the client sends neither this way.
bool FitsXml(std::string_view text) {
    bool isBlank = true;
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20) {
            return false;
        }
        isBlank = isBlank && c == ' ';
    }
    return !isBlank;
}

void UseTag(const std::string& tag) {
    Require(s3::Unquote('"' + tag + '"') == tag);
    if (const auto md5 = s3::Md5OfTag(tag)) {
        Require(s3::Md5OfTag(md5->ToAStr()) == md5);
    }
}

void UseListing(std::string_view text) {
    const s3::SListing listing = s3::ReadListing(text);
    std::vector<std::string> keys;
    std::vector<std::string> tags;
    for (const auto& object : listing.objects) {
        UseTag(object.etag);
        Require(http::UriDecode(http::UriEncode(object.key, true), http::EPlus::itself) == object.key);
        if (FitsXml(object.key)) {
            keys.push_back(object.key);
        }
        if (FitsXml(object.etag)) {
            tags.push_back(object.etag);
        }
    }
    // A key that was decoded may be no UTF-8: it is refused.
    Try([&] { Require(Texts(s3::WriteBatchDeletion(keys), "Delete", "Object", "Key") == keys); });
    Try([&] { Require(Texts(s3::WriteCompletion(tags), "CompleteMultipartUpload", "Part", "ETag") == tags); });
}

void UseUploadId(std::string_view text) { Require(!s3::ReadUploadId(text).empty()); }
void UseDeletion(std::string_view text) { static_cast<void>(s3::ReadBatchDeletion(text)); }
void UseCopiedPart(std::string_view text) { UseTag(s3::Unquote(s3::ReadCopiedPart(text))); }

void UseEncoded(std::string_view text) {
    const std::string decoded = s3::UrlDecode(text);
    Require(decoded.size() <= text.size() && s3::UrlDecode(http::UriEncode(decoded, false)) == decoded);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    static_cast<void>(s3::ReadError(text));
    static_cast<void>(s3::ParseTime(std::string(text)));
    UseTag(std::string(text));
    for (const auto reader : {UseListing, UseUploadId, UseDeletion, UseCopiedPart, UseEncoded}) {
        Try([&] { reader(text); });
    }
    return 0;
}
