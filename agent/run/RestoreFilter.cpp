#include "agent/run/RestoreFilter.h"

#include <algorithm>

#include "agent/meta/EntryCodec.h"
#include "common/exc.h"

namespace agent {

namespace {

CPattern ParsePattern(const std::string& text) {
    auto pattern = CPattern::Parse(text);
    if (!pattern || pattern->IsNegated()) {
        throw exc::CRuntimeExc("'%1' is no pattern to restore by: it is blank, a comment or begins with '!'", text);
    }
    return *std::move(pattern);
}

/// A pattern that begins with the root's full path means what lies there.
std::string WithoutRoot(const std::string& pattern, const std::string& root) {
    const bool isFull = root.size() > 1 && pattern.size() > root.size() + 1 && pattern.starts_with(root + "/");
    return isFull ? pattern.substr(root.size()) : pattern;
}

}  // namespace

bool IsPathAtOrUnder(std::string_view path, std::string_view folder) {
    return path == folder || folder.empty() ||
           (path.starts_with(folder) && path.size() > folder.size() &&
            (folder.ends_with('/') || path[folder.size()] == '/'));
}

std::string PathUnder(const std::string& path, const std::string& folder) {
    const std::string rest = path.substr(folder.size());
    return rest.starts_with('/') ? rest.substr(1) : rest;
}

std::string NormalPath(const std::string& path) {
    if (!path.starts_with('/')) {
        throw exc::CRuntimeExc("'%1' is no full path: it must begin with '/'", path);
    }
    std::string normal;
    for (const char c : path) {
        if (c != '/' || !normal.ends_with('/')) {
            normal += c;
        }
    }
    if (normal.size() > 1 && normal.ends_with('/')) {
        normal.pop_back();
    }
    CheckEntryPath(std::string_view(normal).substr(1));
    return normal;
}

void CheckSelection(const SRestoreSelection& selection) {
    for (const auto& path : selection.paths) {
        (void)NormalPath(path);
    }
    for (const auto* patterns : {&selection.include, &selection.exclude}) {
        std::for_each(patterns->begin(), patterns->end(), [](const auto& text) { (void)ParsePattern(text); });
    }
}

CRestoreFilter::CRestoreFilter(const SRestoreSelection& selection, const std::string& root, CRootNeighbours neighbours)
    : isWhole_(selection.paths.empty()), neighbours_(std::move(neighbours)) {
    for (const auto& given : selection.paths) {
        const std::string path = NormalPath(given);
        if (IsPathAtOrUnder(root, path)) {
            isWhole_ = true;
        } else if (IsPathAtOrUnder(path, root)) {
            paths_.push_back(PathUnder(path, root));
        }
    }
    for (const auto& pattern : selection.include) {
        include_.Add(ParsePattern(WithoutRoot(pattern, root)));
    }
    for (const auto& pattern : selection.exclude) {
        exclude_.Add(ParsePattern(WithoutRoot(pattern, root)));
    }
}

bool CRestoreFilter::Takes(std::string_view path, bool isFolder) const {
    const auto holds = [&](const std::string& wanted) { return IsPathAtOrUnder(path, wanted); };
    return (isWhole_ || std::any_of(paths_.begin(), paths_.end(), holds)) && MatchesPatterns(path, isFolder) &&
           !neighbours_.LeavesOut(path, isFolder);
}

bool CRestoreFilter::MatchesPatterns(std::string_view path, bool isFolder) const {
    bool included = include_.IsEmpty();
    if (included && exclude_.IsEmpty()) {
        return true;
    }
    for (std::size_t end = 0; end != path.size();) {
        end = std::min(path.find('/', end == 0 ? 0 : end + 1), path.size());
        const std::string_view above = path.substr(0, end);
        const std::string_view name = above.substr(above.find_last_of('/') + 1);
        const bool isAboveFolder = end != path.size() || isFolder;
        if (exclude_.Judge(above, name, isAboveFolder) == EVerdict::leave) {
            return false;
        }
        included = included || include_.Judge(above, name, isAboveFolder) == EVerdict::leave;
    }
    return included;
}

}  // namespace agent
