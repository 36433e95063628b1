#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace agent {

/// Paths that alone are wanted of a source, as a tree of their names: to walk it touches nothing else.
///
/// What lies under a wanted path is wanted too. For one thread while paths are added, for any afterwards.
class CPathTree {
public:
    struct SNode {
        /// Wanted with all that lies under it.
        bool isWhole = false;
        std::map<std::string, std::unique_ptr<SNode>> children;
    };

    /// From the source's root on; slashes at its begin do not count, the empty path wants everything.
    void Add(std::string_view path);

    [[nodiscard]] const SNode& GetRoot() const { return root_; }
    /// The names under a node, in the order of their bytes.
    [[nodiscard]] static std::vector<std::string> NamesOf(const SNode& node);

private:
    SNode root_;
};

}  // namespace agent
