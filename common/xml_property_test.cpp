#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "common/exc.h"
#include "common/util.h"
#include "common/xml.h"

namespace {

/// The elements and attributes of a document, which is all that we keep in one.
struct SElement {
    std::string name;
    std::map<std::string, std::string> attributes;
    std::vector<SElement> children;

    bool operator==(const SElement&) const = default;
};

std::ostream& operator<<(std::ostream& out, const SElement& element) {
    out << element.name << "(";
    for (const auto& [name, value] : element.attributes) {
        out << name << "=" << value << ";";
    }
    for (const auto& child : element.children) {
        out << child;
    }
    return out << ")";
}

rc::Gen<std::string> Name() {
    return rc::gen::element<std::string>("a", "Bb", "_x", "a-b.c:d", "ü", "Checkpoint", "x1");
}

/// Pieces that have a meaning in XML, or had one for some reader of it.
rc::Gen<std::string> Piece() {
    return rc::gen::element<std::string>("a", "Z", " ", "\t", "\n", "\r", "\r\n", "\x01", "\x1F", "\x7F", "<", ">", "&",
                                         "'", "\"", "&amp;", "&#x41;", "&#x", "&#65;", ";", "]]>", "<!--", "-->", "?>",
                                         "=", "/>", "ü", "№", "\xF0\x9F\x94\x91", "\xEF\xBB\xBF", "\xEF\xBF\xBE",
                                         "\xEF\xBF\xBF", "%1");
}

std::string AnyValue() {
    std::string value;
    for (const std::string& piece : *rc::gen::container<std::vector<std::string>>(Piece())) {
        value += piece;
    }
    return value;
}

SElement AnyElement(int depth) {
    SElement element{*Name(), {}, {}};
    const int attributes = *rc::gen::inRange(0, 4);
    for (int i = 0; i < attributes; ++i) {
        element.attributes[*Name()] = AnyValue();
    }
    const int children = depth == 0 ? 0 : *rc::gen::inRange(0, 4);
    for (int i = 0; i < children; ++i) {
        element.children.push_back(AnyElement(depth - 1));
    }
    return element;
}

void Build(xml::xml_holder_t parent, const SElement& element) {
    auto node = xml::TiXmlCreateChild(parent, element.name);
    for (const auto& [name, value] : element.attributes) {
        xml::TiXmlSetStrAttr(node, name, value);
    }
    for (const auto& child : element.children) {
        Build(node, child);
    }
}

/// What there is under `node`, as far as the attribute names of `expected` and the children reach.
SElement Read(const xml::xml_holder_t& node, const SElement& expected) {
    SElement element{xml::TiXmlGetNodeName(node), {}, {}};
    for (const auto& [name, value] : expected.attributes) {
        element.attributes[name] = xml::TiXmlGetStrAttrExc(node, name);
    }
    std::size_t i = 0;
    for (const auto& child : xml::TiXmlGetChildren(node)) {
        element.children.push_back(Read(child, i < expected.children.size() ? expected.children[i] : SElement{}));
        ++i;
    }
    return element;
}

SElement ReadDocument(const xml::xml_holder_t& document, const SElement& expected) {
    const auto roots = xml::TiXmlGetChildren(document);
    return roots.size() == 1 ? Read(roots[0], expected) : SElement{"(not one root)", {}, {}};
}

/// A second, simple reader of well-formed documents, to compare with.
class CReferenceReader {
public:
    explicit CReferenceReader(std::string_view text) : text_(text) {}

    SElement Run() {
        SElement around;
        Content(around);
        return around.children.at(0);
    }

private:
    bool Skip(std::string_view token) {
        if (!text_.substr(at_).starts_with(token)) {
            return false;
        }
        at_ += token.size();
        return true;
    }
    std::string_view To(std::string_view token) {
        const std::size_t end = text_.find(token, at_);
        const std::string_view part = text_.substr(at_, end - at_);
        at_ = end + token.size();
        return part;
    }
    std::string_view ToAnyOf(std::string_view characters) {
        const std::size_t end = std::min(text_.find_first_of(characters, at_), text_.size());
        const std::string_view part = text_.substr(at_, end - at_);
        at_ = end;
        return part;
    }
    void Blanks() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

    void Content(SElement& parent) {
        while (ToAnyOf("<"), at_ < text_.size()) {
            if (Skip("<!--")) {
                To("-->");
            } else if (Skip("<?")) {
                To("?>");
            } else if (Skip("<![CDATA[")) {
                To("]]>");
            } else if (Skip("</")) {
                To(">");
                return;
            } else {
                ++at_;
                parent.children.push_back(Element());
            }
        }
    }

    SElement Element() {
        SElement element{std::string(ToAnyOf(" \t\r\n/>")), {}, {}};
        for (;;) {
            Blanks();
            if (Skip("/>")) {
                return element;
            }
            if (Skip(">")) {
                Content(element);
                return element;
            }
            const std::string name(ToAnyOf(" \t\r\n="));
            To("=");
            Blanks();
            const std::string_view quote = text_.substr(at_++, 1);
            element.attributes[name] = Value(To(quote));
        }
    }

    static std::string Value(std::string_view raw) {
        std::string value;
        for (std::size_t i = 0; i < raw.size(); ++i) {
            if (raw[i] != '&') {
                value += raw[i];
                continue;
            }
            const std::size_t end = raw.find(';', i);
            value += Referred(std::string(raw.substr(i + 1, end - i - 1)));
            i = end;
        }
        return value;
    }

    static std::string Referred(const std::string& name) {
        static const std::map<std::string, std::string> known{
            {"amp", "&"}, {"lt", "<"}, {"gt", ">"}, {"quot", "\""}, {"apos", "'"}};
        if (const auto found = known.find(name); found != known.end()) {
            return found->second;
        }
        const bool hex = name[1] == 'x';
        const auto code = std::stoul(name.substr(hex ? 2 : 1), nullptr, hex ? 16 : 10);
        return util::WideToUtf8(std::wstring(1, static_cast<wchar_t>(code)));
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

/// Writes a document in another of the many forms that say the same.
class CFreeWriter {
public:
    std::string Write(const SElement& root) {
        const std::string declaration =
            Any({"", "", "<?xml version='1.0'?>", "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" ?>"});
        return declaration + Misc() + Element(root) + Misc();
    }

private:
    static std::string Any(std::initializer_list<std::string> choices) {
        return *rc::gen::elementOf(std::vector<std::string>(choices));
    }
    static std::string Misc() { return Any({"", "", "\r\n ", "<!-- <x y='1'> & -->", "<!---->", "<?pi a='b'?>"}); }
    static std::string Inside() { return Any({"", "text", "&#60;x/&gt;", "<![CDATA[<x/>]] >]]>", "]]>"}) + Misc(); }
    static std::string Blank() { return Any({" ", "\n", "\t", " \r\n "}); }
    static std::string MaybeBlank() { return Any({"", "", " ", "\n"}); }

    static std::string Character(char c, char quote) {
        switch (c) {
            case '&':
                return Any({"&amp;", "&#38;", "&#x26;"});
            case '<':
                return Any({"&lt;", "&#60;", "&#x3c;", "&#x3C;"});
            case '>':
                return Any({"&gt;", ">"});
            case '\'':
                return quote == '\'' ? Any({"&apos;", "&#39;"}) : "'";
            case '"':
                return quote == '"' ? Any({"&quot;", "&#x22;"}) : "\"";
            case '\n':
                return Any({"\n", "&#10;", "&#x0A;"});
            default:
                return {c};
        }
    }

    std::string Element(const SElement& element) {
        std::string text = "<" + element.name;
        for (const auto& [name, value] : element.attributes) {
            const char quote = Any({"'", "\""})[0];
            text += Blank() + name + MaybeBlank() + "=" + MaybeBlank() + quote;
            for (const char c : value) {
                text += Character(c, quote);
            }
            text += quote;
        }
        if (element.children.empty() && *rc::gen::arbitrary<bool>()) {
            return text + MaybeBlank() + "/>";
        }
        text += MaybeBlank() + ">" + Inside();
        for (const auto& child : element.children) {
            text += Element(child) + Inside();
        }
        return text + "</" + element.name + MaybeBlank() + ">";
    }
};

RC_GTEST_PROP(XmlProperty, WhatIsWrittenReadsBackEqual, ()) {
    const SElement root = AnyElement(3);
    const auto document = xml::TiXmlCreateDocument();
    Build(document, root);
    const std::string text = xml::TiXmlToStr(document);
    const auto read = xml::TiXmlParseExc(text);
    RC_ASSERT(ReadDocument(read, root) == root);
    RC_ASSERT(xml::TiXmlToStr(read) == text);
}

RC_GTEST_PROP(XmlProperty, EveryFormOfADocumentReadsTheSame, ()) {
    const SElement root = AnyElement(3);
    const std::string text = CFreeWriter().Write(root);
    RC_ASSERT(CReferenceReader(text).Run() == root);
    const auto read = xml::TiXmlParseExc(text);
    RC_ASSERT(ReadDocument(read, root) == root);
    RC_ASSERT(ReadDocument(xml::TiXmlParseExc(xml::TiXmlToStr(read)), root) == root);
}

std::string Mutated(std::string text) {
    const int changes = *rc::gen::inRange(1, 4);
    for (int i = 0; i < changes && !text.empty(); ++i) {
        const auto at = *rc::gen::inRange<std::size_t>(0, text.size());
        const auto size = *rc::gen::inRange<std::size_t>(0, 8);
        switch (*rc::gen::inRange(0, 4)) {
            case 0:
                text.insert(at, *Piece());
                break;
            case 1:
                text.erase(at, size);
                break;
            case 2:
                text.insert(at, text.substr(*rc::gen::inRange<std::size_t>(0, text.size()), size));
                break;
            default:
                text[at] = *rc::gen::arbitrary<char>();
        }
    }
    return text;
}

RC_GTEST_PROP(XmlProperty, AChangedDocumentIsRefusedOrReadRight, ()) {
    const std::string text = Mutated(CFreeWriter().Write(AnyElement(2)));
    try {
        const auto read = xml::TiXmlParseExc(text);
        const SElement expected = CReferenceReader(text).Run();
        RC_ASSERT(ReadDocument(read, expected) == expected);
    } catch (const exc::CRuntimeExc& failure) {
        const std::string what = failure.what();
        RC_ASSERT(what.starts_with("Invalid XML document: "));
        // The check is to find what TinyXML would not read.
        RC_ASSERT(what.find("not read to its end") == std::string::npos);
        RC_ASSERT(what.find("(by its parser)") == std::string::npos);
    }
}

RC_GTEST_PROP(XmlProperty, MarkupInAnyOrderIsSafe, ()) {
    const auto markup =
        rc::gen::element<std::string>("<", ">", "</", "/>", "<a", "<a>", "</a>", "<?", "?>", "<?xml", "<?xml ",
                                      " version", "=", "'1'", "\"", "'", "<!--", "-->", "<![CDATA[", "]]>", "&", "&#0;",
                                      "&amp;", " ", "\0", "\xEF\xBB\xBF", "\xEF", "x", " b='1'", "<!DOCTYPE");
    std::string text;
    for (const std::string& piece : *rc::gen::container<std::vector<std::string>>(markup)) {
        text += piece;
    }
    try {
        const auto read = xml::TiXmlParseExc(text);
        const SElement expected = CReferenceReader(text).Run();
        RC_ASSERT(ReadDocument(read, expected) == expected);
    } catch (const exc::CRuntimeExc& failure) {
        RC_ASSERT(std::string(failure.what()).starts_with("Invalid XML document: "));
    }
}

}  // namespace
