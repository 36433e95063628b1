#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace clients::http {

/// Without blanks and line ends before and after.
[[nodiscard]] inline std::string_view Trim(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// With the letters A to Z small, whatever the locale is.
[[nodiscard]] inline std::string ToLower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

}  // namespace clients::http
