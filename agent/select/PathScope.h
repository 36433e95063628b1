#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace agent {

/// A root's path and a path in its storage make a full one: the empty path is the root itself.
[[nodiscard]] std::string FullPath(std::string_view root, std::string_view path);

/// A full path without what makes no difference: repeated slashes, and one at the end.
[[nodiscard]] std::string CleanPath(std::string_view path);

/// What of a root lies at or under `wanted`, a clean full path: the path in the storage at which it begins, empty for
/// the whole root. Nothing when the two have nothing in common; an empty `wanted` wants everything.
[[nodiscard]] std::optional<std::string> PathInRoot(std::string_view root, std::string_view wanted);

}  // namespace agent
