#include "agent/chunk/ChunkSealing.h"

#include <algorithm>

#include "agent/chunk/ChunkTestKit.h"
#include "cloudclientlib/wrappers/CountingClient.h"

namespace {

using agent::CDataKey;
using agent::CKeyRing;
using agent::data_key_ptr;
using agent::SChunkStreamParams;
using agent::SStreamResult;
using test::Store;

data_key_ptr KeyOf(char byte) { return std::make_shared<const CDataKey>(crypto::sec_bytes_t(32, byte)); }

SChunkStreamParams SealedParams(test::client_ptr client, const data_key_ptr& key, std::uint64_t runVersion = 1) {
    SChunkStreamParams params = test::SmallParams(std::move(client), runVersion);
    params.key = key;
    return params;
}

/// Gathers what is read, and why what is not.
class CGathering : public agent::IChunkSink {
public:
    void OnChunk(std::size_t, std::span<const char> plain) override {
        bytes.insert(bytes.end(), plain.begin(), plain.end());
    }
    void OnDamagedChunk(std::size_t, const std::exception& reason) override { reasons.emplace_back(reason.what()); }

    test::bytes_t bytes;
    std::vector<std::string> reasons;
};

CGathering Read(const test::client_ptr& client, const SStreamResult& stored, const CKeyRing& keys) {
    CGathering gathering;
    agent::SChunkSource source{client, test::backupId, test::storageId, stored.newBlocks};
    source.keys = std::make_shared<const CKeyRing>(keys);
    agent::CChunkReader(source).Read(stored.chunks, gathering);
    return gathering;
}

test::bytes_t ObjectOf(const test::client_ptr& client, const cloudbackuplib::backup::SBlockExternalId& block) {
    namespace paths = cloudbackuplib::backup::paths;
    const auto bytes = std::make_shared<cnt::array_t<char>>();
    client
        ->DownloadFileAsync(paths::GetBackupBlockPath(test::backupId, test::storageId,
                                                      paths::DigestToBlockName(digest::md5_digest_t{block.id})),
                            bytes)
        ->Wait();
    return *bytes;
}

bool Contains(const test::bytes_t& bytes, std::span<const char> part) {
    return std::search(bytes.begin(), bytes.end(), part.begin(), part.end()) != bytes.end();
}

TEST(ChunkSealing, WhatIsSealedComesBack) {
    const auto client = test::MemoryWithLimit(4);
    for (const auto& bytes : {test::RandomBytes(200'000, 1), test::TextBytes(200'000, 2), test::RandomBytes(1, 3)}) {
        const auto stored = Store(SealedParams(client, KeyOf(1)), bytes);
        const auto read = Read(client, stored, CKeyRing({KeyOf(1)}));
        EXPECT_TRUE(read.reasons.empty());
        EXPECT_EQ(read.bytes, bytes);
    }
}

TEST(ChunkSealing, NothingOfTheContentIsInTheStore) {
    const auto client = test::MemoryWithLimit(4);
    const auto bytes = test::RandomBytes(50'000, 1);  // would be stored as it is
    const auto stored = Store(SealedParams(client, KeyOf(1)), bytes);
    for (const auto& block : stored.newBlocks) {
        const auto object = ObjectOf(client, block);
        for (std::size_t at = 0; at + 16 <= bytes.size(); at += 16) {
            ASSERT_FALSE(Contains(object, std::span(bytes).subspan(at, 16))) << at;
        }
    }
}

TEST(ChunkSealing, BlocksNameTheKey) {
    const auto stored = Store(SealedParams(test::MemoryWithLimit(4), KeyOf(1)), test::RandomBytes(50'000, 1));
    ASSERT_FALSE(stored.newBlocks.empty());
    for (const auto& block : stored.newBlocks) {
        EXPECT_EQ(block.keySetId, KeyOf(1)->GetId());
    }
}

TEST(ChunkSealing, TheSameContentAndKeyGiveTheSameBlocks) {
    const auto bytes = test::TextBytes(300'000, 1);
    const auto one = Store(SealedParams(test::MemoryWithLimit(1), KeyOf(1)), bytes);
    const auto same = Store(SealedParams(test::MemoryWithLimit(8), KeyOf(1)), bytes);
    const auto other = Store(SealedParams(test::MemoryWithLimit(8), KeyOf(2)), bytes);
    EXPECT_EQ(one.newBlocks, same.newBlocks);
    EXPECT_EQ(one.chunks, same.chunks);
    for (const auto& block : other.newBlocks) {
        EXPECT_EQ(std::ranges::count(one.newBlocks, block), 0);
    }
}

TEST(ChunkSealing, AnInterruptedRunIsTakenUpAgain) {
    const auto client = test::MemoryWithLimit(4);
    const auto bytes = test::TextBytes(300'000, 1);
    static_cast<void>(Store(SealedParams(client, KeyOf(1)), bytes));
    const auto again = Store(SealedParams(client, KeyOf(1)), bytes);
    EXPECT_EQ(again.statistics.blocksUploaded, 0U);
    EXPECT_GT(again.statistics.blocksFound, 0U);
}

TEST(ChunkSealing, WithoutTheKeyNothingIsRead) {
    const auto client = test::MemoryWithLimit(4);
    const auto stored = Store(SealedParams(client, KeyOf(1)), test::RandomBytes(20'000, 1));
    for (const CKeyRing& keys : {CKeyRing(), CKeyRing({KeyOf(2)})}) {
        const auto read = Read(client, stored, keys);
        EXPECT_TRUE(read.bytes.empty());
        ASSERT_EQ(read.reasons.size(), stored.chunks.size());
        EXPECT_NE(read.reasons.front().find("it is encrypted with key " + KeyOf(1)->GetId().ToAStr() +
                                            ", which is not among the keys of this client"),
                  std::string::npos)
            << read.reasons.front();
    }
}

TEST(ChunkSealing, ABlockWithoutItsKeyDisturbsNoOther) {
    const auto client = test::MemoryWithLimit(4);
    const auto bytes = test::RandomBytes(60'000, 1);
    const auto lost = Store(SealedParams(client, KeyOf(1)), test::RandomBytes(60'000, 2));
    const auto good = Store(SealedParams(client, KeyOf(2)), bytes);
    SStreamResult both = lost;
    both.newBlocks.insert(both.newBlocks.end(), good.newBlocks.begin(), good.newBlocks.end());
    ASSERT_GT(lost.newBlocks.size(), 1U);
    // The ranges without a key do not begin where those with one do.
    both.chunks.erase(both.chunks.begin());
    const std::size_t damaged = both.chunks.size();
    for (auto chunk : good.chunks) {
        chunk.block += static_cast<std::uint32_t>(lost.newBlocks.size());
        both.chunks.push_back(chunk);
    }
    const auto counted = std::make_shared<cloudclientlib::CCountingClient>(client);
    const auto read = Read(counted, both, CKeyRing({KeyOf(2)}));
    EXPECT_EQ(read.bytes, bytes);
    EXPECT_EQ(counted->GetCounts().Of(cloudclientlib::EOperation::downloadFileRange), both.newBlocks.size())
        << "a chunk that is looked for in another's bytes is read again";
    ASSERT_EQ(read.reasons.size(), damaged);
    for (const auto& reason : read.reasons) {
        EXPECT_NE(reason.find("it is encrypted with key"), std::string::npos) << reason;
    }
}

TEST(ChunkSealing, FormerKeysReadFormerBlocks) {
    const auto client = test::MemoryWithLimit(4);
    const auto bytes = test::RandomBytes(20'000, 1);
    const auto stored = Store(SealedParams(client, KeyOf(1)), bytes);
    EXPECT_EQ(Read(client, stored, CKeyRing({KeyOf(3), KeyOf(2), KeyOf(1)})).bytes, bytes);
}

TEST(ChunkSealing, ContentThatIsKnownUnderAFormerKeyIsNotStoredAgain) {
    const auto client = test::MemoryWithLimit(4);
    const auto bytes = test::RandomBytes(100'000, 1);
    const auto first = Store(SealedParams(client, KeyOf(1)), bytes);
    SChunkStreamParams params = SealedParams(client, KeyOf(2), 2);
    params.knownBlocks = first.newBlocks;
    params.knownChunks = first.chunks;
    params.streamOffset = bytes.size();
    EXPECT_EQ(Store(params, bytes).statistics.newChunks, 0U);
}

/// Chunks of one size in one block: the store may swap them without changing what is where.
TEST(ChunkSealing, SwappedChunksAreNoticed) {
    const auto client = test::MemoryWithLimit(4);
    SStreamResult stored = Store(SealedParams(client, KeyOf(1)), test::RandomBytes(60'000, 1));
    ASSERT_GT(stored.chunks.size(), 1U);
    std::swap(stored.chunks[0].sha256, stored.chunks[1].sha256);
    const auto read = Read(client, stored, CKeyRing({KeyOf(1)}));
    ASSERT_EQ(read.reasons.size(), 2U);
    EXPECT_NE(read.reasons.front().find("it is not what was sealed with this key"), std::string::npos);
}

TEST(ChunkSealing, EveryFormHasANonceOfItsOwn) {
    const test::bytes_t bytes(100);
    const agent::SStoredChunk plain{agent::EChunkCodec::plain, bytes};
    const agent::SStoredChunk packed{agent::EChunkCodec::zstd, bytes};
    const agent::SStoredChunk shorter{agent::EChunkCodec::zstd, std::span(bytes).first(99)};
    EXPECT_EQ(agent::ChunkNonce(packed, 3), agent::ChunkNonce(packed, 3));
    EXPECT_NE(agent::ChunkNonce(packed, 3), agent::ChunkNonce(packed, 4));
    EXPECT_NE(agent::ChunkNonce(packed, 3), agent::ChunkNonce(plain, 3));
    EXPECT_NE(agent::ChunkNonce(packed, 3), agent::ChunkNonce(shorter, 3));
}

}  // namespace
