#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "agent/model/Entry.h"

/// How commands print entries.
namespace agent {

/// "file", "folder", "symlink", ...
[[nodiscard]] const char* TypeName(EEntryType type);
/// The type of that name, or of its letter as `find` knows them (f, d, l, h, p, c, b); nothing for any other text.
[[nodiscard]] std::optional<EEntryType> TypeOfName(const std::string& name);
/// "-rw-r--r--"; a hard link's begins with "h".
[[nodiscard]] std::string ModeText(const SEntry& entry);

/// Mode, owner, group, size and time, in columns.
[[nodiscard]] std::string EntryColumns(const SEntry& entry, bool humanSizes);
/// What stands behind a path: " -> target" for links, else nothing. A hard link's target lies in the root.
[[nodiscard]] std::string LinkText(const SEntry& entry, const std::string& root);
/// The entry with its full path; "event" is for the caller to name.
[[nodiscard]] nlohmann::json EntryToJson(const std::string& event, const std::string& fullPath, const SEntry& entry,
                                         const std::string& root);

}  // namespace agent
