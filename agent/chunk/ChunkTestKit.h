#pragma once

#include <cstdint>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "agent/chunk/ChunkReader.h"
#include "agent/chunk/ChunkStream.h"
#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudPaths.h"
#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"

/// What the tests of the content stream share.
namespace test {

using agent::SBlockSizes;
using agent::SChunk;
using agent::SChunkSizes;
using agent::SChunkStreamParams;
using agent::SStreamResult;
using blocks_t = std::vector<cloudbackuplib::backup::SBlockExternalId>;
using bytes_t = std::vector<char>;
using client_ptr = std::shared_ptr<cloudclientlib::ICloudClient>;

inline constexpr SChunkSizes smallChunks{256, 1024, 4096};
inline constexpr SBlockSizes smallBlocks{8U << 10U, 8U << 10U, 32U << 10U};
inline const std::string backupId = "backup";
inline const guid::guid_t storageId = guid::guid_t::FromStr("11111111-2222-3333-4444-555555555555");

/// Incompressible bytes; the same for the same seed.
inline bytes_t RandomBytes(std::size_t size, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    bytes_t bytes(size);
    for (auto& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

/// Bytes that compress to about a half.
inline bytes_t TextBytes(std::size_t size, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    bytes_t bytes(size);
    for (auto& byte : bytes) {
        byte = static_cast<char>('a' + (random() & 15U));
    }
    return bytes;
}

inline SChunkStreamParams SmallParams(client_ptr client, std::uint64_t runVersion = 1) {
    SChunkStreamParams params;
    params.target = {std::move(client), backupId, storageId, runVersion};
    params.threads = 2;
    params.chunkSizes = smallChunks;
    params.blockSizes = smallBlocks;
    return params;
}

inline std::shared_ptr<clients::CMemoryClient> MemoryWithLimit(std::size_t concurrentTaskLimit) {
    clients::SMemoryOptions options;
    options.concurrentTaskLimit = concurrentTaskLimit;
    return std::make_shared<clients::CMemoryClient>(options);
}

/// One run over the bytes.
inline SStreamResult Store(const SChunkStreamParams& params, std::span<const char> bytes) {
    agent::CChunkStream stream(params);
    stream.Append(bytes);
    return stream.Finish();
}

inline std::string BlockPath(const cloudbackuplib::backup::SBlockExternalId& block) {
    namespace paths = cloudbackuplib::backup::paths;
    return paths::GetBackupBlockPath(backupId, storageId, paths::DigestToBlockName(digest::md5_digest_t{block.id}));
}

inline std::set<std::string> BlockPaths(const blocks_t& blocks) {
    std::set<std::string> paths;
    for (const auto& block : blocks) {
        paths.insert(BlockPath(block));
    }
    return paths;
}

inline bytes_t Download(const client_ptr& client, const std::string& path) {
    const auto buffer = std::make_shared<cnt::array_t<char>>();
    client->DownloadFileAsync(path, buffer)->Wait();
    return *buffer;
}

inline void Upload(const client_ptr& client, const std::string& path, bytes_t bytes) {
    client->UploadFileAsync(path, std::make_shared<cnt::array_t<char>>(std::move(bytes)))->Wait();
}

/// Keeps what a reader delivers.
class KeepingSink : public agent::IChunkSink {
public:
    void OnChunk(std::size_t index, std::span<const char> plain) override {
        Expect(index);
        chunks.emplace_back(bytes_t(plain.begin(), plain.end()));
        damages.emplace_back();
    }
    void OnDamagedChunk(std::size_t index, const std::exception& reason) override {
        Expect(index);
        chunks.emplace_back(std::nullopt);
        damages.emplace_back(reason.what());
        notFound += exc::FindCause<cloudclientlib::CObjectNotFoundExc>(reason) ? 1U : 0U;
    }

    [[nodiscard]] std::size_t CountDamaged() const {
        std::size_t count = 0;
        for (const auto& chunk : chunks) {
            count += chunk ? 0U : 1U;
        }
        return count;
    }

    std::vector<std::optional<bytes_t>> chunks;
    std::vector<std::string> damages;  ///< empty for a sound chunk
    std::size_t notFound = 0;

private:
    void Expect(std::size_t index) { EXPECT_EQ(index, chunks.size()) << "chunks out of order"; }
};

inline KeepingSink Read(const client_ptr& client, const blocks_t& blocks, std::span<const SChunk> wanted) {
    agent::CChunkReader reader({client, backupId, storageId, blocks, {}, 2});
    KeepingSink sink;
    reader.Read(wanted, sink);
    EXPECT_EQ(sink.chunks.size(), wanted.size());
    return sink;
}

/// The bytes of the chunks; a damaged one fails the test.
inline bytes_t ReadBytes(const client_ptr& client, const blocks_t& blocks, std::span<const SChunk> wanted) {
    bytes_t bytes;
    const KeepingSink sink = Read(client, blocks, wanted);
    for (std::size_t i = 0; i < sink.chunks.size(); ++i) {
        EXPECT_EQ(sink.damages[i], "");
        if (sink.chunks[i]) {
            bytes.insert(bytes.end(), sink.chunks[i]->begin(), sink.chunks[i]->end());
        }
    }
    return bytes;
}

/// The chunks follow one another from the offset on, without a gap.
inline void ExpectCovers(std::span<const SChunk> chunks, std::uint64_t offset, std::uint64_t size) {
    std::uint64_t at = offset;
    for (const SChunk& chunk : chunks) {
        ASSERT_EQ(chunk.streamOffset, at);
        ASSERT_GT(chunk.plainSize, 0U);
        at += chunk.plainSize;
    }
    EXPECT_EQ(at, offset + size);
}

}  // namespace test
