#include "agent/select/PathScope.h"

namespace agent {

namespace {

/// `path` is `folder` or lies under it.
bool IsWithinFolder(std::string_view path, std::string_view folder) {
    if (folder == "/") {
        return path.starts_with('/');
    }
    return path == folder || (path.starts_with(folder) && path[folder.size()] == '/');
}

}  // namespace

std::string FullPath(std::string_view root, std::string_view path) {
    if (path.empty()) {
        return std::string(root);
    }
    return std::string(root) + (root.ends_with('/') ? "" : "/") + std::string(path);
}

std::string CleanPath(std::string_view path) {
    std::string clean;
    for (const char c : path) {
        if (c != '/' || !clean.ends_with('/')) {
            clean += c;
        }
    }
    if (clean.size() > 1 && clean.ends_with('/')) {
        clean.pop_back();
    }
    return clean;
}

std::optional<std::string> PathInRoot(std::string_view root, std::string_view wanted) {
    if (wanted.empty() || IsWithinFolder(root, wanted)) {
        return "";
    }
    if (!IsWithinFolder(wanted, root)) {
        return std::nullopt;
    }
    return std::string(wanted.substr(root.size() + (root.ends_with('/') ? 0 : 1)));
}

}  // namespace agent
