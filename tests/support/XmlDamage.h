#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/exc.h"

/// Damaging a document attribute by attribute, to see what its reader says.
namespace test {

/// One attribute of a document's text; `begin` is the blank before its name, `end` the place behind its value.
struct SAttributePlace {
    std::string element;
    std::string name;
    std::string value;
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// All attributes of a text that the library's own printer made (double quotes, one blank before each).
inline std::vector<SAttributePlace> FindAttributes(const std::string& text) {
    std::vector<SAttributePlace> found;
    std::string element;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == '<') {
            element = text.substr(i + 1, text.find_first_of(" >", i) - i - 1);
        }
        const std::size_t quote = text[i] == ' ' ? text.find("=\"", i) : std::string::npos;
        const bool isName = quote != std::string::npos && text.find_first_of(" <>/", i + 1) > quote;
        if (!isName) {
            ++i;
            continue;
        }
        const std::size_t close = text.find('"', quote + 2);
        found.push_back(
            {element, text.substr(i + 1, quote - i - 1), text.substr(quote + 2, close - quote - 2), i, close + 1});
        i = close + 1;
    }
    return found;
}

/// The text with the attribute's place filled otherwise.
inline std::string ReplaceAttribute(std::string text, const SAttributePlace& place, std::string_view replacement) {
    return text.replace(place.begin, place.end - place.begin, replacement);
}

inline std::string WithValue(const std::string& text, const SAttributePlace& place, const std::string& value) {
    return ReplaceAttribute(text, place, " " + place.name + "=\"" + value + "\"");
}

inline std::string Without(const std::string& text, const SAttributePlace& place) {
    return ReplaceAttribute(text, place, "");
}

inline std::string Doubled(const std::string& text, const SAttributePlace& place) {
    const std::string attribute = text.substr(place.begin, place.end - place.begin);
    return ReplaceAttribute(text, place, attribute + attribute);
}

/// What the reader says of the text: nothing when it takes it. Only the system's own exceptions count.
inline std::optional<std::string> FailureOf(const std::function<void(const std::string&)>& read,
                                            const std::string& text) {
    try {
        read(text);
    } catch (const exc::CExc& e) {
        return e.what();
    }
    return std::nullopt;
}

}  // namespace test
