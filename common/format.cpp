#include "common/format.h"

namespace exc {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::string FormatMessage(std::string_view pattern, std::span<const std::string> args) {
    std::string text;
    text.reserve(pattern.size() + 32 * args.size());
    for (std::size_t i = 0; i < pattern.size();) {
        if (pattern[i] != '%' || i + 1 == pattern.size() || !IsDigit(pattern[i + 1])) {
            text += pattern[i++];
            continue;
        }
        std::size_t number = static_cast<std::size_t>(pattern[i + 1] - '0');
        std::size_t length = 2;
        // "%12" is the twelfth argument only when there are so many; else it is the first, followed by a "2".
        if (i + 2 < pattern.size() && IsDigit(pattern[i + 2])) {
            const std::size_t twoDigits = 10 * number + static_cast<std::size_t>(pattern[i + 2] - '0');
            if (number != 0 && twoDigits <= args.size()) {
                number = twoDigits;
                length = 3;
            }
        }
        if (number >= 1 && number <= args.size()) {
            text += args[number - 1];
        } else {
            text += pattern.substr(i, length);
        }
        i += length;
    }
    return text;
}

}  // namespace exc
