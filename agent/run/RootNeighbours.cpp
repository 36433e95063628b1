#include "agent/run/RootNeighbours.h"

#include <algorithm>

#include "agent/run/RestoreFilter.h"

namespace agent {

namespace {

std::optional<EEntryType> TypeAt(const CMetaState& state, const std::string& base, std::string_view path) {
    const CEntryRef found = state.GetEntries().Find(path.empty() ? base : base + "/" + std::string(path));
    return found.IsNull() ? std::nullopt : std::optional(found.GetEntry().GetType());
}

}  // namespace

bool CRootNeighbours::LeavesOut(std::string_view path, bool isFolder) const {
    const auto isOfInner = [&](const SInner& inner) { return !inner.isOlder && IsPathAtOrUnder(path, inner.path); };
    const auto isOfOuter = [&](const SOuter& outer) {
        const auto type = TypeAt(*outer.state, outer.path, path);
        return type && (!isFolder || *type != EEntryType::directory);
    };
    return std::any_of(inner_.begin(), inner_.end(), isOfInner) || std::any_of(outer_.begin(), outer_.end(), isOfOuter);
}

bool CRootNeighbours::IsGuarded(std::string_view path) const {
    const auto isOfInner = [&](const SInner& inner) { return IsPathAtOrUnder(path, inner.path); };
    const auto isOfOuter = [&](const SOuter& outer) { return TypeAt(*outer.state, outer.path, path).has_value(); };
    return std::any_of(inner_.begin(), inner_.end(), isOfInner) || std::any_of(outer_.begin(), outer_.end(), isOfOuter);
}

bool CRootNeighbours::HasGuardedUnder(std::string_view path) const {
    const auto isUnder = [&](const SInner& inner) { return IsPathAtOrUnder(inner.path, path); };
    return std::any_of(inner_.begin(), inner_.end(), isUnder);
}

}  // namespace agent
