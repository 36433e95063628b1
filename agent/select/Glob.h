#pragma once

#include <bitset>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace agent {

enum class ECase : std::uint8_t { exact, ignored };

/// Matches one name of a path: letters, "?", "*" and sets like "[a-z]", compiled.
///
/// Built token by token by who reads a pattern. Takes time in proportion to the name's and the pattern's lengths at
/// worst, whatever the pattern. A plain value; Matches may be called from any thread. Only ASCII letters have cases.
class CGlob {
public:
    using set_t = std::bitset<256>;

    explicit CGlob(ECase letters = ECase::exact) : ignoreCase_(letters == ECase::ignored) {}

    void AddLetter(char letter);
    /// "?": one byte.
    void AddAny();
    /// "*": any number of bytes.
    void AddMany();
    void AddSet(set_t set);
    /// To be called once, behind the last token.
    void Compile();

    [[nodiscard]] bool Matches(std::string_view name) const;
    /// False when no name that ends with the byte can match: a quick first look.
    [[nodiscard]] bool MayEndWith(char last) const;
    /// Whether it is nothing but letters: these.
    [[nodiscard]] bool IsPlain() const { return tokens_.empty() && !ignoreCase_; }
    [[nodiscard]] const std::string& GetPlainName() const { return prefix_; }

private:
    enum class EToken : std::uint8_t { letter, any, many, set };
    struct SToken {
        EToken kind;
        char letter;
        std::uint16_t set;
    };

    [[nodiscard]] char Fold(char c) const {
        return ignoreCase_ && c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    [[nodiscard]] bool SameText(std::string_view name, const std::string& text) const;
    [[nodiscard]] bool MatchesOne(const SToken& token, char c) const;
    [[nodiscard]] bool MatchesTokens(std::string_view name) const;

    bool ignoreCase_;
    std::vector<SToken> tokens_;  // once compiled: what lies between prefix and suffix
    std::vector<set_t> sets_;
    std::string prefix_;
    std::string suffix_;
};

}  // namespace agent
