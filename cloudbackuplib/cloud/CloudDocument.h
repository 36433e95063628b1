#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "cloudclientlib/ICloudClient.h"
#include "common/xml.h"

/// XML documents in the cloud, read whole and written whole. Free functions without state, as safe as the client they
/// are given; every task is waited for before they return. Failures of the client and of the parser pass through.
namespace cloudbackuplib::backup::document {

/// The document, or nothing when the object does not exist.
[[nodiscard]] std::optional<xml::xml_holder_t> Read(cloudclientlib::ICloudClient& client, const std::string& path);

/// Replaces the document. One that could not be read back is refused with exc::CRuntimeExc before anything is sent.
void Write(cloudclientlib::ICloudClient& client, const std::string& path, const xml::xml_holder_t& document);
/// The same, with the folder of the document created first unless it exists.
void WriteInFolder(cloudclientlib::ICloudClient& client, const std::string& folder, const std::string& path,
                   const xml::xml_holder_t& document);

/// Creates the folder unless it exists.
void EnsureFolder(cloudclientlib::ICloudClient& client, const std::string& path);

/// A new document with one element, filled by the object's Serialize.
template <class T>
[[nodiscard]] xml::xml_holder_t Make(std::string_view elementName, const T& object) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t element = xml::TiXmlCreateChild(document, elementName);
    object.Serialize(element);
    return document;
}

}  // namespace cloudbackuplib::backup::document
