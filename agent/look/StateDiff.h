#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/meta/MetaState.h"

namespace agent {

enum class EDifference : std::uint8_t {
    added,
    removed,
    modified,    ///< another content, type, link target or device
    attributes,  ///< only owner, mode, times or extended attributes
};

struct SDifference {
    EDifference change = EDifference::added;
    /// In the storage.
    std::string path;
    std::optional<SEntry> before;
    std::optional<SEntry> after;
};

/// Stands for a file's content wherever it is stored: equal keys are equal contents. (Equal contents have different
/// keys only when they were cut into chunks differently.)
[[nodiscard]] digest::sha256_digest_t ContentKey(const CMetaState& state, const SEntry& file);

/// Tells what became of everything at and under `path`, in the order of a walk. The states may be of different
/// storages.
void DiffStates(const CMetaState& before, const CMetaState& after, const std::string& path,
                const std::function<void(const SDifference&)>& sink);

/// What of the attributes is another: "mode 0644 -> 0600", "owner 0:0 -> 1000:1000", "modified A -> B", "xattrs".
[[nodiscard]] std::vector<std::string> DescribeAttributes(const SEntry& before, const SEntry& after);

}  // namespace agent
