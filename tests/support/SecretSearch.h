#pragma once

#include <functional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/util.h"

/// Looking for secrets in texts that must not show them.
namespace test {

/// A text shows a secret when it has so many characters of one of its forms in a row: of the bytes as they are, in
/// hexadecimal digits, or in base64, wherever in the encoded bytes the secret began.
constexpr std::size_t shownLength = 8;

inline std::string ToHex(std::string_view bytes, std::string_view digits) {
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4U];
        text += digits[static_cast<unsigned char>(byte) & 0x0FU];
    }
    return text;
}

/// The characters that depend on the secret alone, for each of the three places where it may begin.
inline std::vector<std::string> ToBase64Forms(std::string_view secret) {
    std::vector<std::string> forms;
    for (std::size_t before = 0; before < 3; ++before) {
        const std::string padded = std::string(before, '\0') + std::string(secret);
        const std::string text = util::toBase64(std::span<const char>(padded));
        const std::size_t begin = (before * 8 + 5) / 6;
        const std::size_t end = padded.size() * 8 / 6;
        forms.push_back(text.substr(begin, end - begin));
    }
    return forms;
}

inline std::vector<std::string> FormsOf(std::string_view secret) {
    std::vector<std::string> forms = ToBase64Forms(secret);
    forms.emplace_back(secret);
    forms.push_back(ToHex(secret, "0123456789abcdef"));
    forms.push_back(ToHex(secret, "0123456789ABCDEF"));
    return forms;
}

/// Knows some secrets, and whether a text shows one of them.
class SecretSearch {
public:
    explicit SecretSearch(const std::vector<std::string>& secrets) {
        for (const std::string& secret : secrets) {
            for (const std::string& form : FormsOf(secret)) {
                for (std::size_t at = 0; at + shownLength <= form.size(); ++at) {
                    pieces_.insert(form.substr(at, shownLength));
                }
            }
        }
    }

    /// The first piece of a secret in the text; empty for none.
    [[nodiscard]] std::string Find(std::string_view text) const {
        for (std::size_t at = 0; at + shownLength <= text.size(); ++at) {
            if (const auto found = pieces_.find(text.substr(at, shownLength)); found != pieces_.end()) {
                return *found;
            }
        }
        return {};
    }
    [[nodiscard]] bool IsIn(std::string_view text) const { return !Find(text).empty(); }

private:
    std::set<std::string, std::less<>> pieces_;
};

}  // namespace test
