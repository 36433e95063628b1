#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/exc.h"

/// Damaging a document byte by byte and attribute by attribute, to see what its reader says.
///
/// For a whole document, say what its reader promises of each attribute (SAttributeRule) and call ExpectReaderStands;
/// for an object that documents are loaded into, ExpectKeepsItsState. What they do to a document is ForEachDamage.
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

/// Values that are texts, but not what most attributes are: empty, huge, negative, no number, another's form.
inline std::vector<std::string> StrangeValues() {
    return {"",
            std::string(30, '9'),
            std::string(std::size_t{1} << 20U, 'x'),
            std::string(std::size_t{1} << 20U, '9'),
            "18446744073709551616",
            "-1",
            "-0",
            "+1",
            " 1",
            "1 ",
            "1x",
            "0x10",
            "1.0",
            "1,0",
            "1e3",
            "x",
            "Anna\xC3\xBC",
            "01234567-89ab-cdef-0123-456789abcde"};
}

/// Values that no document can carry: no UTF-8, a NUL byte, references to no character.
inline std::vector<std::string> ImpossibleValues() {
    return {"\xC3", "\xFF\xFE", "\xED\xA0\x80", "\xC0\x80", std::string("a\0", 2),
            "&#0;", "&#xD800;", "&no;",         "<",        "&"};
}

/// How a document was damaged. `attribute` points to the one that was, for the time of the call; empty for a cut.
struct SDamage {
    enum class EKind { cut, removed, doubled, impossible, strange };
    EKind kind;
    const SAttributePlace* attribute = nullptr;
    /// What it was set to.
    std::string value;

    /// For the message of a test that fails.
    [[nodiscard]] std::string Describe(std::size_t size) const {
        static constexpr const char* names[] = {"cut", "removed", "doubled", "impossible", "strange"};
        const std::string head = names[static_cast<std::size_t>(kind)];
        if (attribute == nullptr) {
            return head + " to " + std::to_string(size) + " bytes";
        }
        return head + " " + attribute->name + " of " + attribute->element + ": '" + value.substr(0, 80) + "'";
    }
};

using damage_visitor_t = std::function<void(const SDamage& damage, const std::string& text)>;

/// Every text that stops before the document's end.
inline void ForEachCut(const std::string& text, const damage_visitor_t& visit) {
    const std::size_t end = text.rfind('>');
    for (std::size_t size = 0; size <= end; ++size) {
        visit({SDamage::EKind::cut, nullptr, {}}, text.substr(0, size));
    }
}

/// Each attribute in turn removed, doubled, and set to every impossible and strange value.
inline void ForEachAttributeDamage(const std::string& text, const damage_visitor_t& visit) {
    for (const SAttributePlace& place : FindAttributes(text)) {
        visit({SDamage::EKind::removed, &place, {}}, Without(text, place));
        visit({SDamage::EKind::doubled, &place, place.value}, Doubled(text, place));
        for (const std::string& value : ImpossibleValues()) {
            visit({SDamage::EKind::impossible, &place, value}, WithValue(text, place, value));
        }
        for (const std::string& value : StrangeValues()) {
            visit({SDamage::EKind::strange, &place, value}, WithValue(text, place, value));
        }
    }
}

inline void ForEachDamage(const std::string& text, const damage_visitor_t& visit) {
    ForEachCut(text, visit);
    ForEachAttributeDamage(text, visit);
}

/// What a document's reader promises of one attribute.
struct SAttributeRule {
    /// True for an attribute that may be missing.
    bool optional = false;
    /// What is said of a value: the failure's whole text, nothing when the value is taken.
    std::function<std::string(const SAttributePlace& place, const std::string& value)> refusal;
    /// What is said when a required one is missing; the getters' own message unless it is set.
    std::string missing;
};

/// The refusal of a value that is not `kind` ("an unsigned number"), as the XML layer words it.
inline std::string MalformedText(const SAttributePlace& place, const std::string& kind, const std::string& value) {
    return "Attribute '" + place.name + "' of node '" + place.element + "' is not " + kind + ": '" +
           value.substr(0, 64) + "'";
}

inline SAttributeRule TextRule() {
    return {false, [](const auto&, const auto&) { return std::string(); }, {}};
}

/// An attribute whose value is refused as not being `kind` unless `isTaken` takes it.
inline SAttributeRule FormRule(std::string kind, std::function<bool(const std::string&)> isTaken) {
    return {false,
            [kind = std::move(kind), isTaken = std::move(isTaken)](const auto& place, const auto& value) {
                return isTaken(value) ? std::string() : MalformedText(place, kind, value);
            },
            {}};
}

/// Of the strange values none is an unsigned number, a flag or a GUID.
inline SAttributeRule UnsignedRule() {
    return FormRule("an unsigned number", [](const auto&) { return false; });
}
inline SAttributeRule FlagRule() {
    return FormRule("a flag", [](const auto&) { return false; });
}
inline SAttributeRule GuidRule() {
    return FormRule("a GUID", [](const auto&) { return false; });
}

inline SAttributeRule Optional(SAttributeRule rule) {
    rule.optional = true;
    return rule;
}

/// What the reader is to say of a damaged document, to be found at the beginning of the failure's text and, when it
/// names an attribute, at its end; nothing at all when the document is to be taken.
inline std::pair<std::string, std::string> ExpectedFailure(const SDamage& damage, const SAttributeRule& rule) {
    const SAttributePlace& place = *damage.attribute;
    const std::string where = "attribute '" + place.name + "' of node '" + place.element + "'";
    switch (damage.kind) {
        case SDamage::EKind::removed: {
            const std::string own = rule.missing.empty() ? "Cannot find required " + where : rule.missing;
            return rule.optional ? std::pair<std::string, std::string>() : std::pair(own, own);
        }
        case SDamage::EKind::strange: {
            const std::string refusal = rule.refusal(place, damage.value);
            return {refusal, refusal};
        }
        default:
            return {"Invalid XML document: ", ", in " + where};
    }
}

/// Reads the document with each damage in turn and expects what the rules say: an exception that names the element and
/// the attribute, or that the value is taken. Returns how many attributes the document has.
inline std::size_t ExpectReaderStands(const std::string& text, const std::function<void(const std::string&)>& read,
                                      const std::function<SAttributeRule(const SAttributePlace&)>& ruleOf) {
    EXPECT_EQ(FailureOf(read, text), std::nullopt);
    ForEachCut(text, [&](const SDamage& damage, const std::string& cut) {
        const std::string failure = FailureOf(read, cut).value_or("");
        EXPECT_TRUE(failure.starts_with("Invalid XML document: ")) << damage.Describe(cut.size()) << ": " << failure;
    });
    ForEachAttributeDamage(text, [&](const SDamage& damage, const std::string& damaged) {
        const auto [begin, end] = ExpectedFailure(damage, ruleOf(*damage.attribute));
        const std::string failure = FailureOf(read, damaged).value_or("");
        EXPECT_EQ(failure.empty(), begin.empty()) << damage.Describe(0) << ": " << failure;
        EXPECT_TRUE(failure.starts_with(begin) && failure.ends_with(end)) << damage.Describe(0) << ": " << failure;
    });
    return FindAttributes(text).size();
}

/// Loads the document with each damage in turn into an object, and expects that a load that fails leaves `state`, the
/// object's text form, as it was before. Returns how many loads failed.
inline std::size_t ExpectKeepsItsState(const std::string& text, const std::function<void(const std::string&)>& load,
                                       const std::function<std::string()>& state) {
    std::size_t failed = 0;
    std::string before = state();
    ForEachDamage(text, [&](const SDamage& damage, const std::string& damaged) {
        if (FailureOf(load, damaged)) {
            ++failed;
            EXPECT_EQ(state() == before, true) << damage.Describe(damaged.size());
        } else {
            before = state();
        }
    });
    return failed;
}

}  // namespace test
