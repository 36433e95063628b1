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

/// The six bits that a base64 character stands for.
std::size_t Base64Value(char c) {
    static constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    return alphabet.find(c);
}

/// OpenSSL's decoder skips blanks, takes padding anywhere and ignores stray bits before it; the shape is checked here.
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
    // Of the last character, the bits that belong to no byte are zero: so every byte string has one text alone.
    const std::size_t unusedBits = 2 * padding;
    return (Base64Value(text[text.size() - 1 - padding]) & ((std::size_t{1} << unusedBits) - 1)) == 0;
}

/// For system calls that would take a path only up to its first NUL.
void CheckPath(const char* operation, const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        throw posix::CPosixExc(operation, path, EINVAL);
    }
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
        const auto c = static_cast<std::uint32_t>(wide);  // NOLINT: no character is negative
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

std::size_t Utf8SequenceLength(std::string_view text) noexcept {
    const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const auto follows = [&](std::size_t i) { return (at(i) & 0xC0U) == 0x80U; };
    if (text.empty()) {
        return 0;
    }
    const unsigned lead = at(0);
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return follows(1) ? 2 : 0;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        const bool overlong = lead == 0xE0 && at(1) < 0xA0;
        const bool surrogate = lead == 0xED && at(1) > 0x9F;
        return follows(1) && follows(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        const bool overlong = lead == 0xF0 && at(1) < 0x90;
        const bool tooLarge = lead == 0xF4 && at(1) > 0x8F;
        return follows(1) && follows(2) && follows(3) && !overlong && !tooLarge ? 4 : 0;
    }
    return 0;
}

std::wstring Utf8ToWide(std::string_view text) {
    std::wstring out;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = Utf8SequenceLength(text.substr(i));
        if (length == 0) {
            throw exc::CRuntimeExc("Text is not valid UTF-8 at byte %1", i);
        }
        const auto lead = static_cast<unsigned char>(text[i]);
        std::uint32_t c = length == 1 ? lead : lead & (0xFFU >> (length + 1));
        for (std::size_t k = 1; k < length; ++k) {
            c = (c << 6U) | (static_cast<unsigned char>(text[i + k]) & 0x3FU);
        }
        out += static_cast<wchar_t>(c);
        i += length;
    }
    return out;
}

std::uint64_t fs_file_size(const std::string& path) {
    CheckPath("tell the size of", path);
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        throw posix::CPosixExc("tell the size of", path, errno);
    }
    return static_cast<std::uint64_t>(info.st_size);
}

void fs_file_delete(const std::string& path) {
    CheckPath("delete", path);
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        throw posix::CPosixExc("delete", path, errno);
    }
}

void fs_file_rename(const std::string& from, const std::string& to) {
    CheckPath("rename", from);
    CheckPath("rename to", to);
    if (::rename(from.c_str(), to.c_str()) != 0) {
        throw posix::CPosixExc("rename", from, errno);
    }
}

}  // namespace util
