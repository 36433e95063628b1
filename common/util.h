#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "common/cnt.h"
#include "common/export.h"

/// Small helpers: numbers, encodings, secure erasure, files by path. Failures are exc::CRuntimeExc (files:
/// posix::CPosixExc).
namespace util {

/// Plain decimal.
[[nodiscard]] CB_EXPORT std::string str_from_uint64(std::uint64_t value);
/// The whole text as a decimal number; refuses signs, blanks, an empty text and overflow.
[[nodiscard]] CB_EXPORT std::uint64_t str_to_uint64(std::string_view text);

/// Standard base64 (RFC 4648, section 4), padded.
[[nodiscard]] CB_EXPORT std::string toBase64(std::span<const char> data);
/// The bytes of a standard padded base64 text, one that toBase64 could have written; empty for any other text.
[[nodiscard]] CB_EXPORT cnt::array_t<char> fromBase64(std::string_view text);

/// The length (1 to 4) of the valid UTF-8 sequence at the beginning of the text; 0 when there is none.
[[nodiscard]] CB_EXPORT std::size_t Utf8SequenceLength(std::string_view text) noexcept;

/// Overwrites memory in a way that no compiler leaves out.
CB_EXPORT void SecureErase(void* data, std::size_t size) noexcept;

[[nodiscard]] CB_EXPORT std::string WideToUtf8(std::wstring_view text);
/// Throws for invalid UTF-8.
[[nodiscard]] CB_EXPORT std::wstring Utf8ToWide(std::string_view text);

/// The size of a file in bytes.
[[nodiscard]] CB_EXPORT std::uint64_t fs_file_size(const std::string& path);
/// Deletes a file; one that does not exist is no error.
CB_EXPORT void fs_file_delete(const std::string& path);
/// Renames a file, replacing one that bears the new name.
CB_EXPORT void fs_file_rename(const std::string& from, const std::string& to);

}  // namespace util
