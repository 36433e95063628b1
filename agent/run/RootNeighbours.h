#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "agent/meta/MetaState.h"

namespace agent {

/// What the other roots of a checkpoint have to say of one root's paths, where one root lies in another (`/home` was
/// backed up, and `/home/me/docs` by itself).
///
/// Both know the paths of the inner one then, and each path is restored as it was read last. What an inner root read
/// not before this one is left to it whole; of what an outer root read later, all that it knows is left to it. What it
/// does not know stays with this root: it may never have been told to read it. Paths are from this root on. A value;
/// the states of outer roots outlive it.
class CRootNeighbours {
public:
    /// A root in this one.
    void AddInner(std::string path, bool isOlder) { inner_.push_back({std::move(path), isOlder}); }
    /// A root that this one lies in, at that path from it on, and that was read later.
    void AddNewerOuter(const CMetaState& state, std::string path) { outer_.push_back({&state, std::move(path)}); }

    [[nodiscard]] bool IsEmpty() const { return inner_.empty() && outer_.empty(); }
    /// Whether the path is restored by another root.
    [[nodiscard]] bool LeavesOut(std::string_view path, bool isFolder) const;
    /// Whether it is for another root to say that the path does not belong there.
    [[nodiscard]] bool IsGuarded(std::string_view path) const;
    /// Whether such paths may lie under this one.
    [[nodiscard]] bool HasGuardedUnder(std::string_view path) const;

private:
    struct SInner {
        std::string path;
        bool isOlder;
    };
    struct SOuter {
        const CMetaState* state;
        std::string path;
    };

    std::vector<SInner> inner_;
    std::vector<SOuter> outer_;
};

}  // namespace agent
