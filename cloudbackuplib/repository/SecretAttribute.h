#pragma once

#include <span>
#include <string_view>

#include "common/crypto/sec_allocator.h"
#include "common/xml.h"

/// Salts and key material as base64 attributes. What these functions copy on the way they erase; the document itself
/// keeps the text until it is let go. No failure quotes a value.
namespace cloudbackuplib::backup {

void SetSecretAttr(xml::xml_holder_t& node, std::string_view name, std::span<const char> secret);

/// Throws exc::CRuntimeExc, naming element and attribute, when the attribute is missing or no base64.
[[nodiscard]] crypto::sec_bytes_t GetSecretAttrExc(const xml::xml_holder_t& node, std::string_view name);

}  // namespace cloudbackuplib::backup
