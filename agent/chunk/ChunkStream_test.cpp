#include "agent/chunk/ChunkStream.h"

#include <algorithm>
#include <limits>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "agent/chunk/ChunkTestKit.h"
#include "cloudclientlib/wrappers/CountingClient.h"

namespace agent {
namespace {

using clients::CMemoryClient;
using cloudclientlib::EOperation;
using test::bytes_t;
using test::RandomBytes;
using test::SmallParams;
using test::Store;
using test::TextBytes;

constexpr std::size_t someBytes = 600'000;

std::set<digest::sha256_digest_t> Contents(const std::vector<SChunk>& chunks) {
    std::set<digest::sha256_digest_t> contents;
    for (const SChunk& chunk : chunks) {
        contents.insert(chunk.sha256);
    }
    return contents;
}

TEST(ChunkStream, StoresWhatCanBeReadBack) {
    const auto client = std::make_shared<CMemoryClient>();
    const bytes_t bytes = TextBytes(someBytes, 1);
    const SStreamResult result = Store(SmallParams(client), bytes);
    test::ExpectCovers(result.chunks, 0, bytes.size());
    EXPECT_GT(result.newBlocks.size(), 5U);
    EXPECT_EQ(test::ReadBytes(client, result.newBlocks, result.chunks), bytes);
    EXPECT_EQ(client->GetObjectCount(""), result.newBlocks.size());
}

TEST(ChunkStream, CountsWhatItDid) {
    const auto client = std::make_shared<CMemoryClient>();
    bytes_t bytes = RandomBytes(someBytes / 2, 1);
    const std::size_t once = bytes.size();
    {
        CChunkStream stream(SmallParams(client));
        stream.Append(bytes);
        stream.Cut();
        stream.Append(bytes);
        const SStreamResult result = stream.Finish();
        std::uint64_t stored = 0;
        for (const auto& block : result.newBlocks) {
            stored += block.number32;
        }
        EXPECT_EQ(result.statistics.bytesIn, 2 * once);
        EXPECT_EQ(result.statistics.newChunks, result.chunks.size() / 2);
        EXPECT_EQ(result.statistics.newBytes, once);
        EXPECT_EQ(result.statistics.storedBytes, once) << "nothing of it can be compressed";
        EXPECT_EQ(stored, once);
        EXPECT_EQ(result.statistics.blocksUploaded, result.newBlocks.size());
        EXPECT_EQ(result.statistics.blocksFound, 0U);
    }
    const SStreamResult again = Store(SmallParams(client), bytes);
    EXPECT_EQ(again.statistics.blocksUploaded, 0U);
    EXPECT_EQ(again.statistics.blocksFound, again.newBlocks.size());
}

TEST(ChunkStream, WithoutBytesAsksNothing) {
    const auto client = std::make_shared<cloudclientlib::CCountingClient>(std::make_shared<CMemoryClient>());
    CChunkStream stream(SmallParams(client));
    stream.Append({});
    stream.Cut();
    stream.Cut();
    const SStreamResult result = stream.Finish();
    EXPECT_TRUE(result.chunks.empty());
    EXPECT_TRUE(result.newBlocks.empty());
    EXPECT_EQ(result.statistics, SStreamStatistics());
    EXPECT_EQ(client->GetCounts().Total(), client->GetCounts().Of(EOperation::getConcurrentTaskLimit));
}

TEST(ChunkStream, GoesOnWhereTheLastRunEnded) {
    const auto client = std::make_shared<CMemoryClient>();
    const bytes_t first = TextBytes(someBytes, 1);
    const SStreamResult one = Store(SmallParams(client), first);
    bytes_t second = first;
    const bytes_t more = TextBytes(50'000, 2);
    second.insert(second.end(), more.begin(), more.end());

    SChunkStreamParams params = SmallParams(client, 2);
    params.streamOffset = first.size();
    params.knownBlocks = one.newBlocks;
    params.knownChunks = one.chunks;
    CChunkStream stream(params);
    EXPECT_EQ(stream.GetPosition(), first.size());
    stream.Append(second);
    EXPECT_EQ(stream.GetPosition(), first.size() + second.size());
    const SStreamResult two = stream.Finish();

    test::ExpectCovers(two.chunks, first.size(), second.size());
    EXPECT_LT(two.statistics.newBytes, more.size() + 2 * test::smallChunks.maximum);
    test::blocks_t blocks = one.newBlocks;
    for (const auto& block : two.newBlocks) {
        EXPECT_EQ(block.number64, 2U);
        blocks.push_back(block);
    }
    EXPECT_LT(two.chunks.front().block, one.newBlocks.size()) << "of the first run";
    EXPECT_GE(two.chunks.back().block, one.newBlocks.size());
    EXPECT_EQ(test::ReadBytes(client, blocks, two.chunks), second);
}

TEST(ChunkStream, AKnownContentNeedsNoRequest) {
    const auto memory = std::make_shared<CMemoryClient>();
    const bytes_t bytes = TextBytes(someBytes, 1);
    const SStreamResult one = Store(SmallParams(memory), bytes);
    const auto client = std::make_shared<cloudclientlib::CCountingClient>(memory);
    SChunkStreamParams params = SmallParams(client, 2);
    params.knownBlocks = one.newBlocks;
    params.knownChunks = one.chunks;
    const SStreamResult two = Store(params, bytes);
    EXPECT_EQ(two.chunks, one.chunks);
    EXPECT_TRUE(two.newBlocks.empty());
    EXPECT_EQ(client->GetCounts().Total(), client->GetCounts().Of(EOperation::getConcurrentTaskLimit));
}

TEST(ChunkStream, StoresAnewWhatAWrongRecordClaimsToHave) {
    const auto client = std::make_shared<CMemoryClient>();
    const bytes_t bytes = TextBytes(someBytes, 1);
    SStreamResult one = Store(SmallParams(client), bytes);
    one.chunks[3].block = 1'000'000;
    one.chunks[4].plainSize -= 1;
    SChunkStreamParams params = SmallParams(client, 2);
    params.knownBlocks = one.newBlocks;
    params.knownChunks = one.chunks;
    const SStreamResult two = Store(params, bytes);
    EXPECT_EQ(two.statistics.newChunks, 2U);
    test::blocks_t blocks = one.newBlocks;
    blocks.insert(blocks.end(), two.newBlocks.begin(), two.newBlocks.end());
    EXPECT_EQ(test::ReadBytes(client, blocks, two.chunks), bytes);
}

TEST(ChunkStream, EqualContentGivesEqualBlocksInAnotherStore) {
    const bytes_t bytes = TextBytes(someBytes, 1);
    const SStreamResult one = Store(SmallParams(std::make_shared<CMemoryClient>()), bytes);
    for (const unsigned threads : {1U, 2U, 5U}) {
        SChunkStreamParams params = SmallParams(std::make_shared<CMemoryClient>());
        params.threads = threads;
        CChunkStream stream(params);
        std::mt19937_64 random(threads);
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t size = std::min<std::size_t>(random() % 9000, bytes.size() - at);
            stream.Append(std::span(bytes).subspan(at, size));
            at += size;
        }
        const SStreamResult two = stream.Finish();
        EXPECT_EQ(two.chunks, one.chunks);
        EXPECT_EQ(two.newBlocks, one.newBlocks);
    }
}

TEST(ChunkStream, ALargeFileBetweenCutsGivesTheSameChunksAnywhere) {
    const bytes_t file = RandomBytes(100'000, 1);
    const auto contentsOf = [&](std::size_t before) {
        CChunkStream stream(SmallParams(std::make_shared<CMemoryClient>()));
        stream.Append(RandomBytes(before, 2));
        stream.Cut();
        const std::uint64_t begin = stream.GetPosition();
        stream.Append(file);
        stream.Cut();
        const std::uint64_t end = stream.GetPosition();
        stream.Append(RandomBytes(5000, 3));
        std::vector<SChunk> chunks = stream.Finish().chunks;
        std::erase_if(chunks, [&](const SChunk& c) { return c.streamOffset < begin || c.streamOffset >= end; });
        return Contents(chunks);
    };
    const auto expected = contentsOf(0);
    EXPECT_GT(expected.size(), 10U);
    EXPECT_EQ(contentsOf(1), expected);
    EXPECT_EQ(contentsOf(1999), expected);
    EXPECT_EQ(contentsOf(7654), expected);
}

TEST(ChunkStream, AnEditChangesFewChunksAndFewBlocks) {
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
        const auto client = std::make_shared<CMemoryClient>();
        bytes_t bytes = RandomBytes(someBytes, seed);
        const SStreamResult one = Store(SmallParams(client), bytes);
        bytes.insert(bytes.begin() + 300'000, 'x');
        const SStreamResult two = Store(SmallParams(client), bytes);
        const auto before = Contents(one.chunks);
        std::size_t changed = 0;
        for (const SChunk& chunk : two.chunks) {
            changed += before.contains(chunk.sha256) ? 0U : 1U;
        }
        EXPECT_GE(changed, 1U);
        EXPECT_LE(changed, 8U) << "seed " << seed;
        EXPECT_LE(two.statistics.blocksUploaded, 10U) << "seed " << seed;
        EXPECT_GE(two.statistics.blocksFound, two.newBlocks.size() / 2) << "seed " << seed;
    }
}

TEST(ChunkStream, TakesNoMoreAfterItsEnd) {
    CChunkStream stream(SmallParams(std::make_shared<CMemoryClient>()));
    static_cast<void>(stream.Finish());
    const bytes_t bytes(1);
    for (const auto& call : std::vector<std::function<void()>>{[&] { stream.Append(bytes); }, [&] { stream.Cut(); },
                                                               [&] { static_cast<void>(stream.Finish()); }}) {
        try {
            call();
            FAIL();
        } catch (const exc::CRuntimeExc& failure) {
            EXPECT_STREQ(failure.what(), "The content stream has ended.");
        }
    }
}

TEST(ChunkStream, RefusesParametersThatCannotBe) {
    const auto client = std::make_shared<CMemoryClient>();
    SChunkStreamParams params = SmallParams(client);
    params.chunkSizes.maximum = maxChunkSize + 1;
    EXPECT_THROW(CChunkStream{params}, exc::CRuntimeExc);
    params = SmallParams(client);
    params.streamOffset = std::numeric_limits<std::uint64_t>::max() - 5;
    CChunkStream stream(params);
    EXPECT_NO_THROW(stream.Append(bytes_t(5)));
    EXPECT_THROW(stream.Append(bytes_t(1)), exc::CRuntimeExc);
}

TEST(ChunkStream, LeftWithoutFinishWaitsForWhatItBegan) {
    const auto memory = std::make_shared<CMemoryClient>();
    const auto client = std::make_shared<cloudclientlib::CCountingClient>(memory);
    {
        CChunkStream stream(SmallParams(client));
        stream.Append(RandomBytes(someBytes, 1));
    }
    EXPECT_EQ(client->GetCounts().tasksInFlight, 0U);
    EXPECT_EQ(client.use_count(), 1);
}

TEST(ChunkStream, TheSizesForRealContentWorkToo) {
    const auto client = std::make_shared<CMemoryClient>();
    SChunkStreamParams params;
    params.target = {client, test::backupId, test::storageId, 1};
    const bytes_t bytes = TextBytes(20'000'000, 1);
    const SStreamResult result = Store(params, bytes);
    EXPECT_GE(result.newBlocks.size(), 2U);
    EXPECT_EQ(test::ReadBytes(client, result.newBlocks, result.chunks), bytes);
}

RC_GTEST_PROP(ChunkStream, GivesBackWhateverComesIn, (std::uint64_t seed)) {
    const auto client = std::make_shared<CMemoryClient>();
    CChunkStream stream(SmallParams(client));
    bytes_t all;
    const auto pieces = *rc::gen::container<std::vector<std::pair<std::size_t, int>>>(
        rc::gen::pair(rc::gen::inRange<std::size_t>(0, 20'000), rc::gen::inRange(0, 5)));
    for (const auto& [size, kind] : pieces) {
        const bytes_t piece = kind == 0   ? RandomBytes(size, seed)
                              : kind == 1 ? bytes_t(size)
                                          : TextBytes(size, seed + static_cast<std::uint64_t>(kind));
        stream.Append(piece);
        all.insert(all.end(), piece.begin(), piece.end());
        if (kind == 4) {
            stream.Cut();
        }
    }
    const SStreamResult result = stream.Finish();
    test::ExpectCovers(result.chunks, 0, all.size());
    RC_ASSERT(test::ReadBytes(client, result.newBlocks, result.chunks) == all);
}

}  // namespace
}  // namespace agent
