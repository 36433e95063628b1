#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/digest.h"

/// What the agent knows of a source's files and of their content.
namespace agent {

enum class EEntryType : std::uint8_t {
    directory = 1,
    file = 2,
    symlink = 3,
    hardLink = 4,  ///< another name of a file that stands earlier in the source
    fifo = 5,
    charDevice = 6,
    blockDevice = 7,
};

struct STime {
    std::int64_t seconds = 0;
    std::uint32_t nanoseconds = 0;

    auto operator<=>(const STime&) const = default;
};

struct SXattr {
    std::string name;
    std::string value;

    bool operator==(const SXattr&) const = default;
};

/// Bytes of a file, found in the storage's content stream. What no segment covers is a hole.
struct SSegment {
    std::uint64_t fileOffset = 0;
    std::uint64_t streamOffset = 0;
    std::uint64_t length = 0;

    bool operator==(const SSegment&) const = default;
};

/// One name in a source with all that is restored of it. A plain value.
struct SEntry {
    EEntryType type = EEntryType::file;
    /// Permission bits, with set-id and sticky bits (07777).
    std::uint32_t mode = 0;
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    STime mtime;
    /// When the inode last changed: with size, mtime and inode it tells an unchanged file.
    STime ctime;
    /// When the inode was made; zero where the file system does not say. With the inode it tells a file that was moved
    /// from one that got a freed inode.
    STime btime;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    /// Bytes, holes included; files only.
    std::uint64_t size = 0;
    /// Devices only.
    std::uint64_t rdev = 0;
    /// A symbolic link's text, or the path (in the source) that a hard link is another name of.
    std::string target;
    std::vector<SXattr> xattrs;
    /// Files only; ascending file offsets, without overlap.
    std::vector<SSegment> segments;
    /// SHA-256 of the content, holes as zeros; kept for small files, by which copies are found again.
    std::optional<digest::sha256_digest_t> contentSha256;
    /// The file may have changed while or just before it was read: the next run reads it again.
    bool recheck = false;

    bool operator==(const SEntry&) const = default;
};

/// How a chunk's bytes are stored in its block.
enum class EChunkCodec : std::uint8_t { plain = 0, zstd = 1 };

/// A piece of the content stream, and where it is stored.
struct SChunk {
    std::uint64_t streamOffset = 0;
    std::uint32_t plainSize = 0;
    std::uint32_t storedSize = 0;
    /// Index in the storage's table of blocks.
    std::uint32_t block = 0;
    std::uint32_t blockOffset = 0;
    EChunkCodec codec = EChunkCodec::plain;
    /// Of the plain bytes.
    digest::sha256_digest_t sha256;

    bool operator==(const SChunk&) const = default;
};

}  // namespace agent
