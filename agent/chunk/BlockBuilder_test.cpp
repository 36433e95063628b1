#include "agent/chunk/BlockBuilder.h"

#include <cmath>

#include <gtest/gtest.h>

#include "agent/chunk/ChunkTestKit.h"

namespace agent {
namespace {

using test::bytes_t;

struct SEnds {
    std::vector<std::size_t> sizes;
    double mean = 0;
};

/// The sizes of the blocks that chunks of one size give.
SEnds Gather(const SBlockSizes& sizes, std::size_t chunkSize, std::size_t chunks, std::uint64_t seed) {
    CBlockBuilder builder(sizes);
    SEnds ends;
    bytes_t chunk(chunkSize);
    for (std::size_t i = 0; i < chunks; ++i) {
        const std::string text = std::to_string(seed) + ":" + std::to_string(i);
        if (builder.IsOpen() && !builder.HasRoom(chunkSize)) {
            ends.sizes.push_back(builder.Close()->size());
        }
        if (!builder.IsOpen()) {
            builder.Open(std::make_shared<cnt::array_t<char>>());
        }
        if (builder.Add(chunk, digest::Sha256(text)).isEnd) {
            ends.sizes.push_back(builder.Close()->size());
        }
    }
    for (const std::size_t size : ends.sizes) {
        ends.mean += static_cast<double>(size) / static_cast<double>(ends.sizes.size());
    }
    return ends;
}

TEST(BlockBuilder, PutsChunksOneBehindTheOther) {
    CBlockBuilder builder({1000, 1000, 4000});
    const auto buffer = std::make_shared<cnt::array_t<char>>(5, 'x');
    EXPECT_FALSE(builder.IsOpen());
    builder.Open(buffer);
    EXPECT_TRUE(builder.IsOpen());
    EXPECT_EQ(builder.Add(bytes_t{'a', 'b'}, {}).offset, 0U);
    EXPECT_EQ(builder.Add(bytes_t{'c'}, {}).offset, 2U);
    EXPECT_EQ(builder.Close(), buffer);
    EXPECT_EQ(*buffer, (bytes_t{'a', 'b', 'c'}));
    EXPECT_FALSE(builder.IsOpen());
}

TEST(BlockBuilder, EndsBehindThePickedChunkFromTheMinimumOn) {
    const SBlockSizes sizes{10, 100, 40};
    digest::sha256_digest_t picked;  // draws 0
    digest::sha256_digest_t other;
    other.bytes.fill(0xFF);
    CBlockBuilder builder(sizes);
    builder.Open(std::make_shared<cnt::array_t<char>>());
    EXPECT_FALSE(builder.Add(bytes_t(9), picked).isEnd) << "under the minimum";
    EXPECT_FALSE(builder.Add(bytes_t(1), other).isEnd) << "not picked";
    EXPECT_TRUE(builder.Add(bytes_t(1), picked).isEnd);
}

TEST(BlockBuilder, HasRoomUpToTheMaximumAndForOneChunkAlways) {
    CBlockBuilder builder({10, 100, 40});
    builder.Open(std::make_shared<cnt::array_t<char>>());
    EXPECT_TRUE(builder.HasRoom(41));
    static_cast<void>(builder.Add(bytes_t(30), {}));
    EXPECT_TRUE(builder.HasRoom(10));
    EXPECT_FALSE(builder.HasRoom(11));
}

TEST(BlockBuilder, BlocksAreAboutTheirAverageWhateverTheChunksSize) {
    const SBlockSizes sizes;
    for (const std::size_t chunkSize : {20'000U, 100'000U, 300'000U}) {
        const SEnds ends = Gather(sizes, chunkSize, (512U << 20U) / chunkSize, chunkSize);
        for (const std::size_t size : ends.sizes) {
            EXPECT_GE(size + chunkSize, sizes.minimum);
            EXPECT_LE(size, sizes.maximum);
        }
        EXPECT_NEAR(ends.mean / (1U << 20U), 4.0, 0.5) << chunkSize;
    }
}

TEST(BlockBuilder, RefusesSizesThatCannotBe) {
    const SBlockSizes wrong[] = {{0, 1, 1}, {1, 0, 1}, {2, 1, 1}, {1, 1, (1U << 30U) + 1}};
    for (const auto& sizes : wrong) {
        EXPECT_THROW(CBlockBuilder{sizes}, exc::CRuntimeExc);
    }
}

}  // namespace
}  // namespace agent
