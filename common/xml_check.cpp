#include "common/xml_check.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "common/exc.h"
#include "common/util.h"

namespace xml {

namespace {

// Our own documents need 4 levels and 8 attributes; others' may have a few more.
constexpr std::size_t maxDepth = 32;
constexpr std::size_t maxAttributes = 64;
constexpr std::size_t maxReferenceLength = 10;

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}
bool IsNameChar(char c) { return IsNameStart(c) || IsDigit(c) || c == '-' || c == '.' || c == ':'; }

/// Position of the first byte that is no part of valid UTF-8 text, or is NUL; the text's size when all are good.
std::size_t FindUnclean(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        if (static_cast<unsigned char>(text[i]) - 1U < 0x7FU) {  // 0x01 to 0x7F
            ++i;
            continue;
        }
        const std::size_t length = text[i] == '\0' ? 0 : util::Utf8SequenceLength(text.substr(i));
        if (length == 0) {
            return i;
        }
        i += length;
    }
    return i;
}

/// One pass over the text by the grammar of XML, as far as it matters to TinyXML.
class CChecker {
public:
    explicit CChecker(std::string_view text) : text_(text) {}

    void Run() {
        if (const std::size_t bad = FindUnclean(text_); bad != text_.size()) {
            FailUnclean(bad);
        }
        CheckDocument();
    }

private:
    void CheckDocument() {
        Skip("\xEF\xBB\xBF");
        CheckDeclaration();
        SkipMisc();
        CheckElements();
        SkipMisc();
        if (position_ != text_.size()) {
            Fail("text after the root element");
        }
    }

    [[noreturn]] void Fail(const char* what) const {
        if (attribute_.empty()) {
            throw exc::CRuntimeExc("Invalid XML document: %1 at byte %2", what, position_);
        }
        throw exc::CRuntimeExc("Invalid XML document: %1 at byte %2, in attribute '%3' of node '%4'", what, position_,
                               BeginningOf(attribute_), BeginningOf(element_));
    }

    /// Reads what stands before the bad byte, to say in which attribute that one is.
    [[noreturn]] void FailUnclean(std::size_t bad) {
        const char* const what = text_[bad] == '\0' ? "a NUL byte" : "invalid UTF-8";
        text_ = text_.substr(0, bad);
        try {
            CheckDocument();
        } catch (const exc::CRuntimeExc&) {  // cut off where the bad byte stands, or wrong before it
        }
        if (position_ != bad) {
            attribute_ = {};
        }
        position_ = bad;
        Fail(what);
    }

    [[nodiscard]] bool AtEnd() const { return position_ == text_.size(); }
    [[nodiscard]] char Peek() const { return AtEnd() ? '\0' : text_[position_]; }
    [[nodiscard]] bool StartsWith(std::string_view token) const {
        return text_.compare(position_, token.size(), token) == 0;
    }
    bool Skip(std::string_view token) {
        if (!StartsWith(token)) {
            return false;
        }
        position_ += token.size();
        return true;
    }
    void Expect(std::string_view token, const char* what) {
        if (!Skip(token)) {
            Fail(AtEnd() ? "cut off" : what);
        }
    }
    void SkipBlanks() {
        while (!AtEnd() && IsBlank(text_[position_])) {
            ++position_;
        }
    }
    void SkipTo(std::string_view token) {
        const std::size_t found = text_.find(token, position_);
        if (found == std::string_view::npos) {
            Fail("a part that does not end");
        }
        position_ = found + token.size();
    }

    /// "<?xml version=... ?>", which may only be the first thing in the text. TinyXML ends it at any ">" and reads
    /// "version" and the like as attributes wherever they stand, so it must be plain.
    void CheckDeclaration() {
        SkipBlanks();
        if (!Skip("<?xml")) {
            return;
        }
        for (std::size_t count = 0;; ++count) {
            const std::size_t before = position_;
            SkipBlanks();
            if (Skip("?>")) {
                return;
            }
            const bool apart = before != position_;
            const bool known = apart && (Skip("version") || Skip("encoding") || Skip("standalone"));
            if (!known || count == maxAttributes) {
                Fail(AtEnd() ? "cut off" : "a malformed declaration");
            }
            CheckDeclaredValue();
        }
    }

    void CheckDeclaredValue() {
        const char quote = SkipToValue();
        while (IsNameChar(Peek())) {
            ++position_;
        }
        Expect({&quote, 1}, "a malformed declaration");
    }

    /// From behind an attribute's name to the beginning of its value; returns the quote that will end the value.
    char SkipToValue() {
        SkipBlanks();
        Expect("=", "an attribute without a value");
        SkipBlanks();
        const char quote = Peek();
        if (quote != '"' && quote != '\'') {
            Fail(AtEnd() ? "cut off" : "an attribute value without quotes");
        }
        ++position_;
        return quote;
    }

    /// What follows "<?". TinyXML ends it at the first ">", and takes whatever begins with "xml" for a declaration.
    void CheckInstruction() {
        const std::string_view target = CheckName();
        const bool reserved =
            target.size() >= 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' && (target[2] | 0x20) == 'l';
        if (reserved) {
            Fail("a declaration that is not at the beginning");
        }
        SkipTo(">");
        if (text_[position_ - 2] != '?') {
            Fail("a '>' inside a processing instruction");
        }
    }

    /// Blanks, comments and processing instructions.
    void SkipMisc() {
        for (;;) {
            SkipBlanks();
            if (Skip("<?")) {
                CheckInstruction();
            } else if (Skip("<!--")) {
                SkipTo("-->");
            } else {
                return;
            }
        }
    }

    std::string_view CheckName() {
        const std::size_t begin = position_;
        // TinyXML passes over these three characters wherever a name may begin.
        const bool ignored = StartsWith("\xEF\xBB\xBF") || StartsWith("\xEF\xBF\xBE") || StartsWith("\xEF\xBF\xBF");
        if (!IsNameStart(Peek()) || ignored) {
            Fail(AtEnd() ? "cut off" : "no name where one should be");
        }
        while (!AtEnd() && IsNameChar(text_[position_])) {
            ++position_;
        }
        return text_.substr(begin, position_ - begin);
    }

    /// The root element, with all that is in it.
    void CheckElements() {
        if (Peek() != '<') {
            Fail(AtEnd() ? "no root element" : "text before the root element");
        }
        ++position_;
        CheckStartTag();
        while (depth_ != 0) {
            CheckInside();
        }
    }

    /// The next thing inside an element.
    void CheckInside() {
        if (Skip("</")) {
            CheckEndTag();
        } else if (Skip("<?")) {
            CheckInstruction();
        } else if (Skip("<!--")) {
            SkipTo("-->");
        } else if (Skip("<![CDATA[")) {
            SkipTo("]]>");
        } else if (Skip("<")) {
            CheckStartTag();
        } else {
            CheckCharacters('<');
        }
    }

    void CheckStartTag() {
        if (depth_ == maxDepth) {
            Fail("elements nested too deep");
        }
        element_ = CheckName();
        if (CheckAttributes()) {
            open_[depth_++] = element_;
        }
    }

    void CheckEndTag() {
        const std::size_t at = position_;
        if (CheckName() != open_[depth_ - 1]) {
            position_ = at;
            Fail("an end tag that does not match");
        }
        SkipBlanks();
        Expect(">", "a malformed end tag");
        --depth_;
    }

    /// True when the element is left open.
    bool CheckAttributes() {
        for (std::size_t count = 0;; ++count) {
            const std::size_t before = position_;
            SkipBlanks();
            if (Skip("/>")) {
                return false;
            }
            if (Skip(">")) {
                return true;
            }
            if (before == position_) {
                Fail(AtEnd() ? "cut off" : "a malformed tag");
            }
            if (count == maxAttributes) {
                Fail("too many attributes in one element");
            }
            CheckAttribute(count);
        }
    }

    /// The element's attribute of that number.
    void CheckAttribute(std::size_t number) {
        const std::size_t at = position_;
        const std::string_view name = CheckName();
        const char quote = SkipToValue();
        // Told from here on alone: without a value it may be no name but part of a value with a stray quote, a secret.
        attribute_ = names_[number] = name;
        const auto before = std::span(names_).first(number);
        if (std::find(before.begin(), before.end(), name) != before.end()) {
            position_ = at;
            Fail("an attribute that stands twice");
        }
        CheckCharacters(quote);
        ++position_;
        attribute_ = {};
    }

    /// Goes on to the given end, checking references on the way.
    void CheckCharacters(char end) {
        for (;; ++position_) {
            if (AtEnd()) {
                Fail("cut off");
            }
            const char c = text_[position_];
            if (c == end) {
                return;
            }
            if (c == '<') {
                Fail("a '<' inside a value");
            }
            if (c == '&') {
                CheckReference();
            }
        }
    }

    /// Ends on the reference's last character.
    void CheckReference() {
        const std::size_t end = text_.find(';', position_);
        if (end == std::string_view::npos || end - position_ > maxReferenceLength) {
            Fail("a reference without an end");
        }
        const std::string_view name = text_.substr(position_ + 1, end - position_ - 1);
        const bool known = name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos";
        if (!known && !IsCharacterReference(name)) {
            Fail("an unknown or invalid reference");
        }
        position_ = end;
    }

    static bool IsCharacterReference(std::string_view name) {
        if (name.size() < 2 || name[0] != '#') {
            return false;
        }
        const bool hex = name[1] == 'x';
        const std::string_view digits = name.substr(hex ? 2 : 1);
        std::uint32_t code = 0;
        for (const char c : digits) {
            const bool letter = hex && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'));
            if (!IsDigit(c) && !letter) {
                return false;
            }
            const auto digit = static_cast<std::uint32_t>(IsDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
            code = code * (hex ? 16 : 10) + digit;
        }
        const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
        return !digits.empty() && code != 0 && code <= 0x10FFFF && !surrogate;
    }

    std::string_view text_;
    std::size_t position_ = 0;
    std::string_view element_;                             // the last element that began
    std::string_view attribute_;                           // its attribute whose value is being read, if any
    std::array<std::string_view, maxAttributes> names_{};  // its attributes up to there
    std::array<std::string_view, maxDepth> open_{};        // the names of the elements around the position
    std::size_t depth_ = 0;                                // how many they are
};

}  // namespace

void CheckText(std::string_view text) { CChecker(text).Run(); }

std::string_view BeginningOf(std::string_view text) {
    constexpr std::size_t enough = 64;
    std::size_t length = std::min(text.size(), enough);
    while (length != 0 && length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) {
        --length;
    }
    return text.substr(0, length);
}

bool IsCleanUtf8(std::string_view text) { return FindUnclean(text) == text.size(); }

}  // namespace xml
