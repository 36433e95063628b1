#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/meta/MetaFile.h"
#include "common/exc.h"
#include "common/posix.h"
#include "common/util.h"

/// What the tests of the metadata file share: small entries, chunks and blocks, and the bytes of files.
namespace agent::test_kit {

inline const guid::guid_t storageId = guid::guid_t::FromStr("01234567-89ab-cdef-0123-456789abcdef");

inline std::string BytesOf(std::string_view hex) {
    const auto digit = [](char c) { return std::string_view("0123456789abcdef").find(c); };
    std::string digits(hex);
    digits.erase(std::remove_if(digits.begin(), digits.end(), [](char c) { return c == ' ' || c == '\n'; }),
                 digits.end());
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(digit(digits[i]) << 4U | digit(digits[i + 1]));
    }
    return bytes;
}

inline std::string HexOf(std::string_view bytes) {
    std::string hex;
    for (const char c : bytes) {
        hex += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4U];
        hex += "0123456789abcdef"[static_cast<unsigned char>(c) & 0x0FU];
    }
    return hex;
}

/// Hexadecimal text without the blanks that make it readable.
inline std::string Hex(std::string_view spaced) { return HexOf(BytesOf(spaced)); }

inline std::string ReadFileBytes(const std::string& path) {
    std::string bytes(util::fs_file_size(path), '\0');
    EXPECT_EQ(posix::posix_file_t::Open4Read(path).Read(bytes.data(), bytes.size()), bytes.size());
    return bytes;
}

inline void WriteFileBytes(const std::string& path, std::string_view bytes) {
    auto file = posix::posix_file_t::OpenOrCreate4Write(path, false, 0);
    file.Truncate(0);
    file.Write(bytes);
}

/// 32 bytes that do not compress, different for every number.
inline digest::sha256_digest_t ShaOf(std::uint64_t number) { return digest::Sha256(std::to_string(number)); }

inline SBlockExternalId MakeBlock(std::uint64_t number, std::uint32_t size = 4U << 20U) {
    SBlockExternalId block;
    block.id = digest::Md5(std::to_string(number)).bytes;
    block.number32 = size;
    block.number64 = 1;
    return block;
}

inline SChunk MakeChunk(std::uint64_t streamOffset, std::uint32_t size, std::uint32_t block = 0,
                        std::uint32_t blockOffset = 0) {
    SChunk chunk;
    chunk.streamOffset = streamOffset;
    chunk.plainSize = size;
    chunk.storedSize = size;
    chunk.block = block;
    chunk.blockOffset = blockOffset;
    chunk.sha256 = ShaOf(streamOffset);
    return chunk;
}

inline SEntry MakeEntry(EEntryType type) {
    SEntry entry;
    entry.type = type;
    entry.mode = type == EEntryType::directory ? 0755 : 0644;
    entry.uid = 1000;
    entry.gid = 1000;
    entry.mtime = {1'700'000'000, 123'456'789};
    entry.ctime = {1'700'000'001, 0};
    entry.device = 2049;
    entry.inode = 4711;
    return entry;
}

inline SEntry MakeFolder() { return MakeEntry(EEntryType::directory); }

/// A file without holes.
inline SEntry MakeFile(std::uint64_t streamOffset, std::uint64_t length) {
    SEntry entry = MakeEntry(EEntryType::file);
    entry.size = length;
    if (length != 0) {
        entry.segments = {{0, streamOffset, length}};
    }
    return entry;
}

inline SEntry MakeLink(EEntryType type, std::string target) {
    SEntry entry = MakeEntry(type);
    entry.target = std::move(target);
    return entry;
}

/// The message of the CRuntimeExc that the call throws.
inline std::string FailureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const exc::CRuntimeExc& failure) {
        return failure.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

/// A small storage: a file in two chunks of one block, a folder with a link.
inline SMetaChanges SmallChanges() {
    SMetaChanges changes;
    changes.blocks = {MakeBlock(1)};
    changes.chunks = {MakeChunk(0, 100), MakeChunk(100, 50, 0, 100)};
    changes.Put("", MakeFolder());
    changes.Put("docs", MakeFolder());
    changes.Put("docs/link", MakeLink(EEntryType::symlink, "../file"));
    changes.Put("file", MakeFile(0, 150));
    return changes;
}

}  // namespace agent::test_kit
