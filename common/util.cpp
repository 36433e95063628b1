#include "common/util.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <limits>

#include "common/exc.h"
#include "common/posix.h"

namespace util {

namespace {

bool IsBase64Char(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

/// OpenSSL's decoder skips blanks and takes padding anywhere; the shape is checked here.
bool IsPaddedBase64(std::string_view text) {
    if (text.empty() || text.size() % 4 != 0) {
        return false;
    }
    std::size_t padding = 0;
    while (padding < 2 && text[text.size() - 1 - padding] == '=') {
        ++padding;
    }
    for (std::size_t i = 0; i < text.size() - padding; ++i) {
        if (!IsBase64Char(text[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::string str_from_uint64(std::uint64_t value) { return std::to_string(value); }

std::uint64_t str_to_uint64(std::string_view text) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) {
        throw exc::CRuntimeExc("Not an unsigned number: '%1'", text);
    }
    return value;
}

std::string toBase64(std::span<const char> data) {
    // The encoder takes an int and closes its output with a NUL.
    if (data.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) / 2) {
        throw exc::CRuntimeExc("%1 bytes are too many for base64", data.size());
    }
    std::string text((data.size() + 2) / 3 * 4 + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

cnt::array_t<char> fromBase64(std::string_view text) {
    if (!IsPaddedBase64(text) || text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return {};
    }
    cnt::array_t<char> data(text.size() / 4 * 3);
    const int length =
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(data.data()),
                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    if (length < 0) {
        return {};
    }
    // The decoder counts the padding as bytes.
    const std::size_t padding = text.size() - text.find_last_not_of('=') - 1;
    data.resize(static_cast<std::size_t>(length) - padding);
    return data;
}

void SecureErase(void* data, std::size_t size) noexcept { OPENSSL_cleanse(data, size); }

std::string WideToUtf8(std::wstring_view text) {
    std::string out;
    for (const wchar_t wide : text) {
        const auto c = static_cast<std::uint32_t>(wide);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0U | (c >> 6U));
            out += static_cast<char>(0x80U | (c & 0x3FU));
        } else if (c < 0x10000 && (c < 0xD800 || c > 0xDFFF)) {
            out += static_cast<char>(0xE0U | (c >> 12U));
            out += static_cast<char>(0x80U | ((c >> 6U) & 0x3FU));
            out += static_cast<char>(0x80U | (c & 0x3FU));
        } else if (c >= 0x10000 && c < 0x110000) {
            out += static_cast<char>(0xF0U | (c >> 18U));
            out += static_cast<char>(0x80U | ((c >> 12U) & 0x3FU));
            out += static_cast<char>(0x80U | ((c >> 6U) & 0x3FU));
            out += static_cast<char>(0x80U | (c & 0x3FU));
        } else {
            throw exc::CRuntimeExc("Text has a character that Unicode does not know: %1", c);
        }
    }
    return out;
}

std::wstring Utf8ToWide(std::string_view text) {
    std::wstring out;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80   ? 1
                                   : lead < 0xC2 ? 0
                                   : lead < 0xE0 ? 2
                                   : lead < 0xF0 ? 3
                                   : lead < 0xF5 ? 4
                                                 : 0;
        if (length == 0 || i + length > text.size()) {
            throw exc::CRuntimeExc("Text is not valid UTF-8 at byte %1", i);
        }
        std::uint32_t c = length == 1 ? lead : lead & (0xFFU >> (length + 1));
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0U) != 0x80U) {
                throw exc::CRuntimeExc("Text is not valid UTF-8 at byte %1", i + k);
            }
            c = (c << 6U) | (next & 0x3FU);
        }
        const bool overlong = (length == 3 && c < 0x800) || (length == 4 && c < 0x10000);
        if (overlong || (c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
            throw exc::CRuntimeExc("Text is not valid UTF-8 at byte %1", i);
        }
        out += static_cast<wchar_t>(c);
        i += length;
    }
    return out;
}

std::uint64_t fs_file_size(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        throw posix::CPosixExc("tell the size of", path, errno);
    }
    return static_cast<std::uint64_t>(info.st_size);
}

void fs_file_delete(const std::string& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        throw posix::CPosixExc("delete", path, errno);
    }
}

void fs_file_rename(const std::string& from, const std::string& to) {
    if (::rename(from.c_str(), to.c_str()) != 0) {
        throw posix::CPosixExc("rename", from, errno);
    }
}

}  // namespace util
