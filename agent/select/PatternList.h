#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "agent/select/Pattern.h"

namespace agent {

/// What a list of patterns says of a path.
enum class EVerdict : std::uint8_t {
    none,   ///< no pattern matches
    leave,  ///< the last pattern that matches leaves it out
    take,   ///< the last pattern that matches takes it back
};

/// Patterns that belong to one folder; the last one that matches decides.
///
/// Names without wildcards are found by one look into a table, however many there are, and of the others those alone
/// are tried that can match a name with the last byte of the path's. Takes memory in proportion to the patterns. For
/// one thread while patterns are added, for any afterwards.
class CPatternList {
public:
    void Add(CPattern pattern);
    /// The lines of a pattern file; a byte order mark at its begin is passed over.
    void AddLines(std::string_view text, ECase letters = ECase::exact);

    [[nodiscard]] bool IsEmpty() const { return patterns_.empty(); }
    /// As CPattern::Matches.
    [[nodiscard]] EVerdict Judge(std::string_view path, std::string_view name, bool isFolder) const;

private:
    void AddByLastByte(const CPattern& pattern, std::uint32_t index);

    struct SHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };

    std::vector<CPattern> patterns_;
    std::unordered_map<std::string, std::vector<std::size_t>, SHash, std::equal_to<>> plain_;
    // Of the others, in the order in which they came.
    std::vector<std::vector<std::uint32_t>> byLastByte_;  // empty when there are none
    std::vector<std::uint32_t> byAnyByte_;
};

/// A text without the mark that some editors put at a file's begin.
[[nodiscard]] std::string_view WithoutByteOrderMark(std::string_view text);

/// The lines of a text; a line end at the text's end ends a line and begins none.
[[nodiscard]] std::vector<std::string_view> SplitLines(std::string_view text, char end = '\n');

}  // namespace agent
