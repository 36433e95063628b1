#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>

namespace agent {

/// What is damaged.
enum class EDamage : std::uint8_t {
    checkpoint,    ///< a checkpoint's document cannot be read
    metadata,      ///< an object of a storage's metadata, or what the objects say together
    blockMissing,  ///< a block that is needed is not there
    blockSize,     ///< it has another size than the one recorded
    blockDigest,   ///< the store recorded another MD5 than its name
    blockData,     ///< its bytes do not give the content
};

/// "checkpoint", "metadata", "block-missing", "block-size", "block-digest", "block-data".
[[nodiscard]] const char* ToStr(EDamage damage);

/// One damaged object, and what hangs on it. A plain value.
struct SFinding {
    EDamage damage = EDamage::checkpoint;
    /// The object's path in the store, from the client's folder on.
    std::string object;
    std::string reason;
    /// Those that need it.
    std::set<std::uint64_t> checkpoints;
    /// Full paths of the files that cannot be restored as they were, in any of those checkpoints; for metadata the
    /// roots.
    std::set<std::string> files;
};

}  // namespace agent
