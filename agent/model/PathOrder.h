#pragma once

#include <algorithm>
#include <string_view>

namespace agent {

/// The order in which a walk over a source meets its paths: a folder, then all that lies under it, the names of one
/// folder in the order of their bytes. ("/" counts as smaller than any other byte, so "a/b" stands before "a-b".)
struct SPathLess {
    using is_transparent = void;

    bool operator()(std::string_view a, std::string_view b) const {
        const auto [left, right] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
        if (left == a.end() || right == b.end()) {
            return left == a.end() && right != b.end();
        }
        return Rank(*left) < Rank(*right);
    }

private:
    static unsigned Rank(char c) { return c == '/' ? 0 : static_cast<unsigned char>(c); }
};

/// Where the folder that holds `path` stands: its path, the empty one for what lies directly in the root.
[[nodiscard]] inline std::string_view ParentPath(std::string_view path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

}  // namespace agent
