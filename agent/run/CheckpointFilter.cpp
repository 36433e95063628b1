#include "agent/run/CheckpointFilter.h"

#include <algorithm>
#include <sstream>

#include "agent/select/PathScope.h"

namespace agent {

namespace {

template <class Range, class Predicate>
bool IsEmptyOrAny(const Range& range, const Predicate& predicate) {
    return range.empty() || std::any_of(range.begin(), range.end(), predicate);
}

bool HasAllTags(const SSetDocument& document, const std::string& tags) {
    std::istringstream stream(tags);
    for (std::string tag; std::getline(stream, tag, ',');) {
        if (std::find(document.tags.begin(), document.tags.end(), tag) == document.tags.end()) {
            return false;
        }
    }
    return true;
}

bool HasPath(const SSetDocument& document, const std::string& path) {
    return std::any_of(document.roots.begin(), document.roots.end(),
                       [&](const SRoot& root) { return PathInRoot(root.path, CleanPath(path)).has_value(); });
}

}  // namespace

bool Matches(const SCheckpointFilter& filter, const SSetDocument& document) {
    return IsEmptyOrAny(filter.hosts, [&](const auto& host) { return host == document.host; }) &&
           IsEmptyOrAny(filter.tags, [&](const auto& tags) { return HasAllTags(document, tags); }) &&
           IsEmptyOrAny(filter.paths, [&](const auto& path) { return HasPath(document, path); }) &&
           (!filter.since || document.started >= *filter.since) && (!filter.until || document.started <= *filter.until);
}

std::vector<SCheckpointInfo> Choose(const SCheckpointFilter& filter, std::vector<SCheckpointInfo> list) {
    std::erase_if(list, [&](const auto& info) { return !Matches(filter, info.document); });
    if (filter.last && list.size() > *filter.last) {
        list.erase(list.begin(), list.end() - static_cast<std::ptrdiff_t>(*filter.last));
    }
    return list;
}

}  // namespace agent
