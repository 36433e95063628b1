#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/model/Entry.h"
#include "agent/select/Pattern.h"

namespace agent {

/// A limit of sizes in bytes, both ends included.
struct SSizeRange {
    std::uint64_t least = 0;
    std::uint64_t most = ~std::uint64_t{0};

    bool operator==(const SSizeRange&) const = default;
};

/// "+10M" for at least so much, "-1K" for at most, "517" for exactly; K, M, G, T count by 1024. Throws
/// exc::CRuntimeExc for any other text.
[[nodiscard]] SSizeRange ParseSizeRange(const std::string& text);

/// What `find` looks for; what is empty does not choose. A plain value.
struct SEntryFilter {
    std::set<EEntryType> types;
    std::optional<STime> newer;
    std::optional<STime> older;
    /// Of files alone: with it, nothing else matches.
    std::optional<SSizeRange> size;
};

[[nodiscard]] bool Matches(const SEntryFilter& filter, const SEntry& entry);

/// A list of shell patterns ("*", "?", "[a-z]", "**") of which one has to match a full path.
///
/// A pattern without a slash is for names, one that begins with a slash for whole paths, any other for the end of a
/// path.
class CPathPatterns {
public:
    /// Throws exc::CRuntimeExc for a pattern that is empty.
    CPathPatterns(const std::vector<std::string>& patterns, bool ignoreCase);

    [[nodiscard]] bool Matches(const std::string& fullPath, bool isFolder) const;

private:
    std::vector<CPattern> patterns_;
};

}  // namespace agent
