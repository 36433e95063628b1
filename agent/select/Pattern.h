#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/select/Glob.h"

namespace agent {

/// One pattern that leaves names out or takes them back, as the page gitignore(5) of git's documentation defines it
/// under "PATTERN FORMAT" (https://git-scm.com/docs/gitignore).
///
/// Compiled when parsed; a plain value that any thread may ask. What no name can match (an open "[", a backslash at the
/// end) is a pattern that matches nothing.
class CPattern {
public:
    /// A line of a pattern file; nothing for a blank line or a comment.
    [[nodiscard]] static std::optional<CPattern> Parse(std::string_view line, ECase letters = ECase::exact);

    /// Begins with "!": what it matches is taken back.
    [[nodiscard]] bool IsNegated() const { return isNegated_; }
    void Negate() { isNegated_ = !isNegated_; }

    /// `path` from the folder to which the pattern belongs, without a slash at its begin; `name` is its last element.
    [[nodiscard]] bool Matches(std::string_view path, std::string_view name, bool isFolder) const;
    /// False when no path that ends with the byte can match: a quick first look.
    [[nodiscard]] bool MayEndWith(char last) const;
    /// The name, when the pattern matches nothing but that name, in whatever folder; else null.
    [[nodiscard]] const std::string* GetPlainName() const;

private:
    struct SElement {
        CGlob glob;
        bool isAnyFolders = false;  // "**"
    };
    class CParser;

    [[nodiscard]] bool MatchesPath(std::string_view path) const;

    std::vector<SElement> elements_;
    bool isNegated_ = false;
    bool isFolderOnly_ = false;
    bool isAnchored_ = false;
    bool canMatch_ = true;
};

}  // namespace agent
