#pragma once

#include <random>
#include <string>

#include "agent/meta/MetaState.h"

/// For tests and benchmarks: the metadata of a source as large as wanted, the same for the same count.
namespace agent::test_kit {

/// Folders of 100 files each, three levels deep, names of ordinary length; 40,000 bytes a file on average, chunks of
/// 256 KiB in blocks of 4 MiB. Files have birth times and digests, as on a common Linux file system.
inline SMetaChanges SyntheticTree(std::uint64_t count) {
    constexpr std::uint32_t chunkSize = 256U << 10U;
    constexpr std::uint32_t blockSize = 4U << 20U;
    std::mt19937_64 random(count);
    const auto number = [&](std::uint64_t end) { return random() % end; };
    SMetaChanges changes;
    SEntry entry;
    entry.uid = 1000;
    entry.gid = 1000;
    entry.device = 2049;
    std::uint64_t streamEnd = 0;
    const auto stamp = [&](EEntryType type, std::uint64_t inode) {
        entry.type = type;
        entry.mode = type == EEntryType::directory ? 0755 : 0644;
        entry.inode = inode;
        entry.mtime = {static_cast<std::int64_t>(1'600'000'000 + number(100'000'000)),
                       static_cast<std::uint32_t>(number(1'000'000'000))};
        entry.ctime = {entry.mtime.seconds + static_cast<std::int64_t>(number(1000)),
                       static_cast<std::uint32_t>(number(1'000'000'000))};
        entry.btime = entry.mtime;
    };
    stamp(EEntryType::directory, 2);
    changes.Put("", entry);
    std::string folder;
    for (std::uint64_t i = 1; i < count; ++i) {
        entry.size = 0;
        entry.segments.clear();
        entry.contentSha256.reset();
        if (i % 100 == 1) {
            stamp(EEntryType::directory, 100'000 + i);
            std::string name;
            for (std::uint64_t part = 1 + i / 100, level = 0; part != 0 || level == 0; part /= 30, ++level) {
                name += (level == 0 ? "" : "/") + ("project-" + std::to_string(part % 30));
                changes.Put(name, entry);
            }
            folder = name;
            continue;
        }
        stamp(EEntryType::file, 100'000 + i);
        entry.size = number(80'000) + 1;
        entry.segments = {{0, streamEnd, entry.size}};
        streamEnd += entry.size;
        const std::uint64_t words[] = {random(), random()};
        entry.contentSha256 = digest::Sha256({reinterpret_cast<const char*>(words), sizeof words});
        changes.Put(folder + "/document_" + std::to_string(i) + ".txt", entry);
    }
    for (std::uint64_t offset = 0; offset < streamEnd; offset += chunkSize) {
        SChunk chunk;
        if (offset % blockSize == 0) {
            SBlockExternalId block;
            block.id = digest::Md5({reinterpret_cast<const char*>(&offset), sizeof offset}).bytes;
            block.number32 = blockSize;
            changes.blocks.push_back(block);
        }
        chunk.streamOffset = offset;
        chunk.plainSize = chunkSize;
        chunk.storedSize = static_cast<std::uint32_t>(chunkSize / 2 + number(chunkSize / 4));
        chunk.codec = EChunkCodec::zstd;
        chunk.block = static_cast<std::uint32_t>(changes.blocks.size() - 1);
        chunk.blockOffset = static_cast<std::uint32_t>(offset % blockSize / 2);
        chunk.sha256 = digest::Sha256({reinterpret_cast<const char*>(&offset), sizeof offset});
        changes.chunks.push_back(chunk);
    }
    return changes;
}

}  // namespace agent::test_kit
