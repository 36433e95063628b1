#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/export.h"

namespace cloudclientlib {

/// The elements of an object path, by the rules that every client keeps: leading, trailing and repeated "/" mean
/// nothing; an element "." or ".." or a NUL byte is refused with CCloudExc. The root gives no elements.
[[nodiscard]] CB_EXPORT std::vector<std::string> SplitObjectPath(std::string_view operation, const std::string& path);

/// The same path in its plain form: elements joined by "/", nothing before or behind.
[[nodiscard]] CB_EXPORT std::string NormalizeObjectPath(std::string_view operation, const std::string& path);

}  // namespace cloudclientlib
