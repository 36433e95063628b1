#include "agent/look/EntryFilter.h"

#include <algorithm>
#include <string_view>

#include "agent/run/ByteCount.h"
#include "common/exc.h"

namespace agent {

namespace {

/// As a pattern of an ignore file, in which some first letters have a meaning that they have not here.
std::string AsIgnoreLine(const std::string& pattern) {
    if (pattern.starts_with('!') || pattern.starts_with('#')) {
        return "\\" + pattern;
    }
    return pattern.starts_with('/') || pattern.find('/') == std::string::npos ? pattern : "**/" + pattern;
}

}  // namespace

SSizeRange ParseSizeRange(const std::string& text) {
    try {
        if (text.starts_with('+')) {
            return {ParseByteCount(std::string_view(text).substr(1)), ~std::uint64_t{0}};
        }
        if (text.starts_with('-')) {
            return {0, ParseByteCount(std::string_view(text).substr(1))};
        }
        const std::uint64_t size = ParseByteCount(text);
        return {size, size};
    } catch (const exc::CExc& failure) {
        exc::RegenTraceExc(failure, "'%1' is no size such as +10M (at least), -1K (at most) or 517 (exactly)", text);
    }
}

bool Matches(const SEntryFilter& filter, const SEntry& entry) {
    return (filter.types.empty() || filter.types.contains(entry.type)) &&
           (!filter.newer || entry.mtime >= *filter.newer) && (!filter.older || entry.mtime <= *filter.older) &&
           (!filter.size ||
            (entry.type == EEntryType::file && entry.size >= filter.size->least && entry.size <= filter.size->most));
}

CPathPatterns::CPathPatterns(const std::vector<std::string>& patterns, bool ignoreCase) {
    for (const auto& text : patterns) {
        auto pattern = CPattern::Parse(AsIgnoreLine(text), ignoreCase ? ECase::ignored : ECase::exact);
        if (!pattern) {
            throw exc::CRuntimeExc("'%1' is no pattern", text);
        }
        patterns_.push_back(*std::move(pattern));
    }
}

bool CPathPatterns::Matches(const std::string& fullPath, bool isFolder) const {
    const std::string_view path = std::string_view(fullPath).substr(fullPath.starts_with('/') ? 1 : 0);
    const std::string_view name = path.substr(path.find_last_of('/') + 1);
    return std::any_of(patterns_.begin(), patterns_.end(),
                       [&](const CPattern& pattern) { return pattern.Matches(path, name, isFolder); });
}

}  // namespace agent
