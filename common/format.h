#pragma once

#include <concepts>
#include <span>
#include <string>
#include <string_view>

#include "common/export.h"

/// Messages with positional placeholders: "%1" ... "%99", filled with the arguments' text forms.
namespace exc {

/// Replaces every placeholder "%N" by the N-th argument (from 1). A placeholder without an argument stays as it
/// stands, and what an argument brings in is never taken for a placeholder.
[[nodiscard]] CB_EXPORT std::string FormatMessage(std::string_view pattern, std::span<const std::string> args);

template <class T>
concept HasAStr = requires(const T& value) {
    { value.ToAStr() } -> std::convertible_to<std::string>;
};

/// The text form of one argument: strings as they are, numbers in decimal, flags as 1 and 0, ids in their text form.
template <class T>
[[nodiscard]] std::string ToArg(const T& value) {
    if constexpr (HasAStr<T>) {
        return value.ToAStr();
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        return std::string(std::string_view(value));
    } else {
        return std::to_string(value);
    }
}

template <class... Args>
[[nodiscard]] std::string Format(std::string_view pattern, const Args&... args) {
    if constexpr (sizeof...(Args) == 0) {
        return std::string(pattern);
    } else {
        const std::string texts[] = {ToArg(args)...};
        return FormatMessage(pattern, texts);
    }
}

}  // namespace exc
