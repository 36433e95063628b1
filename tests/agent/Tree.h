#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace agent {

/// A tree in words, one line a name in sorted order: type, mode, owner, time, size, link target, extended attributes,
/// digest of the content, and which names are one inode. Two trees are the same exactly when their lines are.
[[nodiscard]] std::vector<std::string> DescribeTree(const std::string& root);

/// All regular files under the folder whose paths contain `part`, sorted.
[[nodiscard]] std::vector<std::string> FilesUnder(const std::string& folder, const std::string& part);

/// Bytes that do not compress, the same for the same seed.
[[nodiscard]] std::string RandomBytes(std::size_t size, std::uint64_t seed);

}  // namespace agent
