#include "agent/select/Pattern.h"

#include <array>
#include <cctype>
#include <utility>

namespace agent {

namespace {

/// Blanks at the end do not count, unless behind a backslash.
std::string_view WithoutTrailingBlanks(std::string_view line) {
    std::size_t end = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\\') {
            ++i;
            end = std::min(i + 1, line.size());
        } else if (line[i] != ' ') {
            end = i + 1;
        }
    }
    return line.substr(0, end);
}

struct SClass {
    std::string_view name;
    int (*has)(int);
};

constexpr std::array<SClass, 12> classes{{{"alnum", ::isalnum},
                                          {"alpha", ::isalpha},
                                          {"blank", ::isblank},
                                          {"cntrl", ::iscntrl},
                                          {"digit", ::isdigit},
                                          {"graph", ::isgraph},
                                          {"lower", ::islower},
                                          {"print", ::isprint},
                                          {"punct", ::ispunct},
                                          {"space", ::isspace},
                                          {"upper", ::isupper},
                                          {"xdigit", ::isxdigit}}};

bool AddClass(CGlob::set_t& set, std::string_view name) {
    for (const auto& item : classes) {
        if (item.name == name) {
            for (int c = 0; c < 128; ++c) {
                set[static_cast<std::size_t>(c)] = set[static_cast<std::size_t>(c)] || item.has(c) != 0;
            }
            return true;
        }
    }
    return false;
}

/// Reads what follows a "[", up to and with its "]".
class CSetParser {
public:
    CSetParser(std::string_view text, std::size_t& at) : text_(text), at_(at) {}

    /// Nothing when the set is not one that can be read.
    std::optional<CGlob::set_t> Parse() {
        const bool isNegated = at_ < text_.size() && (text_[at_] == '!' || text_[at_] == '^');
        at_ += isNegated ? 1 : 0;
        for (bool isFirst = true; at_ < text_.size(); isFirst = false) {
            if (text_[at_] == ']' && !isFirst) {
                ++at_;
                return isNegated ? ~set_ : set_;
            }
            if (!ParseItem()) {
                return std::nullopt;
            }
        }
        return std::nullopt;
    }

private:
    bool ParseItem() {
        if (text_.substr(at_, 2) == "[:") {
            const auto end = text_.find(']', at_ + 2);
            if (end == std::string_view::npos) {
                return false;
            }
            if (end >= at_ + 3 && text_[end - 1] == ':') {
                const bool known = AddClass(set_, text_.substr(at_ + 2, end - at_ - 3));
                at_ = end + 1;
                previous_.reset();
                return known;
            }
        }
        const bool isRange =
            text_[at_] == '-' && previous_ && at_ + 1 < text_.size() && text_[at_ + 1] != ']' && text_[at_ + 1] != '\0';
        return isRange ? ParseRange() : ParseLetter();
    }

    bool ParseLetter() {
        const auto letter = TakeLetter();
        if (letter) {
            set_[*letter] = true;
        }
        previous_ = letter;
        return letter.has_value();
    }

    bool ParseRange() {
        ++at_;
        const auto last = TakeLetter();
        if (!last) {
            return false;
        }
        for (unsigned c = *previous_; c <= *last; ++c) {
            set_[c] = true;
        }
        previous_.reset();
        return true;
    }

    std::optional<unsigned char> TakeLetter() {
        if (text_[at_] == '\\') {
            ++at_;
        }
        if (at_ == text_.size()) {
            return std::nullopt;
        }
        return static_cast<unsigned char>(text_[at_++]);
    }

    std::string_view text_;
    std::size_t& at_;
    CGlob::set_t set_;
    std::optional<unsigned char> previous_;
};

}  // namespace

class CPattern::CParser {
public:
    CParser(CPattern& pattern, std::string_view text, ECase letters)
        : pattern_(pattern), text_(text), letters_(letters), glob_(letters) {}

    void Run() {
        while (at_ < text_.size() && pattern_.canMatch_) {
            ParseToken(text_[at_++]);
        }
        EndElement();
    }

private:
    void ParseToken(char c) {
        if (c == '\\') {
            ParseEscaped();
        } else if (c == '/') {
            EndElement();
        } else if (c == '*') {
            ++stars_;
            glob_.AddMany();
        } else if (c == '?') {
            ++others_;
            glob_.AddAny();
        } else if (c == '[') {
            ++others_;
            ParseSet();
        } else {
            AddLetter(c);
        }
    }

    void ParseEscaped() {
        if (at_ == text_.size()) {
            pattern_.canMatch_ = false;
        } else if (text_[at_] == '/') {
            EndElement();
            ++at_;
        } else {
            AddLetter(text_[at_++]);
        }
    }

    void ParseSet() {
        if (const auto set = CSetParser(text_, at_).Parse()) {
            glob_.AddSet(*set);
        } else {
            pattern_.canMatch_ = false;
        }
    }

    void AddLetter(char c) {
        ++others_;
        glob_.AddLetter(c);
    }

    void EndElement() {
        glob_.Compile();
        pattern_.elements_.push_back({std::move(glob_), stars_ > 1 && others_ == 0});
        glob_ = CGlob(letters_);
        stars_ = 0;
        others_ = 0;
    }

    CPattern& pattern_;
    const std::string_view text_;
    const ECase letters_;
    std::size_t at_ = 0;
    CGlob glob_;
    int stars_ = 0;
    int others_ = 0;
};

std::optional<CPattern> CPattern::Parse(std::string_view line, ECase letters) {
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    if (line.starts_with('#')) {
        return std::nullopt;
    }
    line = WithoutTrailingBlanks(line);
    if (line.empty()) {
        return std::nullopt;
    }
    CPattern pattern;
    pattern.isNegated_ = line.front() == '!';
    line.remove_prefix(pattern.isNegated_ ? 1 : 0);
    pattern.isFolderOnly_ = line.ends_with('/');
    line.remove_suffix(pattern.isFolderOnly_ ? 1 : 0);
    pattern.isAnchored_ = line.find('/') != std::string_view::npos;
    line.remove_prefix(line.starts_with('/') ? 1 : 0);
    CParser(pattern, line, letters).Run();
    return pattern;
}

bool CPattern::Matches(std::string_view path, std::string_view name, bool isFolder) const {
    if (!canMatch_ || (isFolderOnly_ && !isFolder)) {
        return false;
    }
    const SElement& last = elements_.back();
    if (!isAnchored_) {
        return last.glob.Matches(name);
    }
    return (last.isAnyFolders || last.glob.Matches(name)) && MatchesPath(path);
}

bool CPattern::MayEndWith(char last) const {
    return canMatch_ && ((isAnchored_ && elements_.back().isAnyFolders) || elements_.back().glob.MayEndWith(last));
}

const std::string* CPattern::GetPlainName() const {
    const bool isPlain = canMatch_ && !isAnchored_ && elements_.front().glob.IsPlain();
    return isPlain ? &elements_.front().glob.GetPlainName() : nullptr;
}

/// As with the "*" of a name, only the last "**" needs to take a folder more.
bool CPattern::MatchesPath(std::string_view path) const {
    std::size_t element = 0;
    std::size_t at = 0;
    std::size_t afterAny = 0;
    std::size_t taken = 0;
    const auto next = [&](std::size_t from) { return std::min(path.find('/', from), path.size()) + 1; };
    while (at < path.size()) {
        const bool has = element < elements_.size();
        if (has && elements_[element].isAnyFolders) {
            if (element + 1 == elements_.size()) {
                return true;
            }
            afterAny = ++element;
            taken = at;
            continue;
        }
        const std::size_t end = next(at);
        if (has && elements_[element].glob.Matches(path.substr(at, end - 1 - at))) {
            ++element;
            at = end;
        } else if (afterAny != 0) {
            element = afterAny;
            at = taken = next(taken);
        } else {
            return false;
        }
    }
    return element == elements_.size();
}

}  // namespace agent
