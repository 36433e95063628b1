#include "agent/run/BlockUse.h"

#include <gtest/gtest.h>

#include "tests/agent/NumberedBlock.h"

namespace agent {
namespace {

SChunk Chunk(std::uint64_t streamOffset, std::uint32_t block, std::uint32_t offset, std::uint32_t size) {
    SChunk chunk;
    chunk.streamOffset = streamOffset;
    chunk.plainSize = size;
    chunk.storedSize = size;
    chunk.block = block;
    chunk.blockOffset = offset;
    return chunk;
}

TEST(BlockUse, NothingIsUsedAtFirst) {
    const CBlockUse use;
    EXPECT_FALSE(use.IsUsed(NumberedName(1)));
    EXPECT_EQ(use.GetBlockCount(), 0U);
    EXPECT_EQ(use.CountUnusedBytes(), 0U);
}

TEST(BlockUse, OnlyBlocksWithChunksAreUsed) {
    CMetaState state;
    state.AddBlock(NumberedBlock(1, 100));
    state.AddBlock(NumberedBlock(2, 50));
    state.AddChunk(Chunk(0, 1, 0, 30));
    CBlockUse use;
    use.Add(state);
    EXPECT_FALSE(use.IsUsed(NumberedName(1)));
    EXPECT_TRUE(use.IsUsed(NumberedName(2)));
    EXPECT_EQ(use.CountUnusedBytes(), 20U);
}

TEST(BlockUse, VersionsAddUpAndCountEachChunkOnce) {
    CMetaState older;
    older.AddBlock(NumberedBlock(1, 100));
    older.AddChunk(Chunk(0, 0, 0, 40));
    older.AddChunk(Chunk(100, 0, 40, 20));
    CMetaState newer;  // with other places in its table
    newer.AddBlock(NumberedBlock(2, 10));
    newer.AddBlock(NumberedBlock(1, 100));
    newer.AddChunk(Chunk(0, 0, 0, 10));
    newer.AddChunk(Chunk(100, 1, 40, 20));
    newer.AddChunk(Chunk(200, 1, 60, 15));
    CBlockUse use;
    use.Add(older);
    EXPECT_EQ(use.CountUnusedBytes(), 40U);
    use.Add(newer);
    use.Add(newer);
    EXPECT_EQ(use.GetBlockCount(), 2U);
    EXPECT_EQ(use.CountUnusedBytes(), 25U);
    EXPECT_EQ(use.GetBlocks().at(NumberedName(2)).size, 10U);
}

}  // namespace
}  // namespace agent
