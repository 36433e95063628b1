#include "agent/chunk/ChunkTable.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "agent/chunk/ChunkCheck.h"
#include "agent/chunk/ChunkTestKit.h"
#include "tests/support/RecordingSink.h"

namespace agent {
namespace {

digest::sha256_digest_t DigestOf(std::size_t number) {
    const std::string text = std::to_string(number);
    return digest::Sha256(text);
}

SChunk MakeChunk(std::size_t number) {
    SChunk chunk;
    chunk.streamOffset = number * 100;
    chunk.plainSize = 100;
    chunk.storedSize = 50;
    chunk.blockOffset = static_cast<std::uint32_t>(number % 10);
    chunk.codec = EChunkCodec::zstd;
    chunk.sha256 = DigestOf(number);
    return chunk;
}

test::blocks_t OneBlock(std::uint32_t size) {
    test::blocks_t blocks(1);
    blocks[0].number32 = size;
    return blocks;
}

TEST(ChunkIndex, FindsEveryChunkAndNoOther) {
    for (const std::size_t count : {0U, 1U, 42U, 43U, 44U, 1000U}) {
        std::vector<SChunk> table;
        CChunkIndex index;
        for (std::size_t i = 0; i < count; ++i) {
            table.push_back(MakeChunk(i));
            index.Add(table, i);
        }
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(index.Find(table, DigestOf(i)), &table[i]);
        }
        EXPECT_EQ(index.Find(table, DigestOf(count)), nullptr);
    }
}

TEST(ChunkIndex, KeepsTheFirstOfEqualContents) {
    std::vector<SChunk> table{MakeChunk(1), MakeChunk(1)};
    CChunkIndex index;
    index.Add(table, 0);
    index.Add(table, 1);
    EXPECT_EQ(index.Find(table, DigestOf(1)), &table[0]);
}

TEST(ChunkIndex, TellsDigestsApartThatBeginAlike) {
    std::vector<SChunk> table;
    CChunkIndex index;
    for (std::size_t i = 0; i < 100; ++i) {
        table.push_back(MakeChunk(0));
        table.back().sha256.bytes[31] = static_cast<std::uint8_t>(i);
        index.Add(table, i);
    }
    for (std::size_t i = 0; i < 100; ++i) {
        EXPECT_EQ(index.Find(table, table[i].sha256), &table[i]);
    }
}

TEST(ChunkTable, FindsKnownChunksAndThoseOfTheRun) {
    const auto blocks = OneBlock(1000);
    const std::vector<SChunk> known{MakeChunk(1), MakeChunk(2)};
    CChunkTable table(known, blocks);
    EXPECT_EQ(table.Find(DigestOf(2), 100), known[1]);
    EXPECT_EQ(table.Find(DigestOf(3), 100), std::nullopt);
    table.Add(MakeChunk(3));
    EXPECT_EQ(table.Find(DigestOf(3), 100), MakeChunk(3));
    EXPECT_EQ(table.Take(), (std::vector<SChunk>{MakeChunk(3)}));
}

TEST(ChunkTable, LeavesOutKnownChunksThatCannotBeRight) {
    const test::RecordingSink log;
    const auto blocks = OneBlock(53);
    const std::vector<SChunk> known{MakeChunk(1), MakeChunk(9), MakeChunk(3)};
    const CChunkTable table(known, blocks);
    EXPECT_TRUE(table.Find(DigestOf(1), 100));
    EXPECT_TRUE(table.Find(DigestOf(3), 100));
    EXPECT_FALSE(table.Find(DigestOf(9), 100)) << "it ends behind the block";
    EXPECT_FALSE(table.Find(DigestOf(3), 99)) << "the record has another size than the content";
    EXPECT_EQ(
        log.GetTexts(logging::level_t::warn),
        (std::vector<std::string>{"1 of 3 known chunks cannot be right; their content is stored anew when met."}));
}

TEST(ChunkCheck, NamesEveryFault) {
    const auto blocks = OneBlock(1000);
    const auto faultOf = [&](auto change) {
        SChunk chunk = MakeChunk(7);
        change(chunk);
        return FindChunkFault(chunk, blocks);
    };
    EXPECT_EQ(faultOf([](SChunk&) {}), "");
    EXPECT_EQ(faultOf([](SChunk& c) { c.block = 1; }), "the table of blocks has only 1");
    EXPECT_EQ(faultOf([](SChunk& c) { c.block = 0xFFFFFFFFU; }), "the table of blocks has only 1");
    EXPECT_EQ(faultOf([](SChunk& c) { c.plainSize = 0; }), "its plain size 0 is not between 1 and 2097152");
    EXPECT_EQ(faultOf([](SChunk& c) { c.plainSize = 2097153; }), "its plain size 2097153 is not between 1 and 2097152");
    EXPECT_EQ(faultOf([](SChunk& c) { c.storedSize = 0; }),
              "its stored size 0 is not between 1 and its plain size 100");
    EXPECT_EQ(faultOf([](SChunk& c) { c.storedSize = 100; }),
              "its stored size 100 is not between 1 and its plain size 100");
    EXPECT_EQ(faultOf([](SChunk& c) { c.codec = EChunkCodec::plain; }),
              "it is stored plain, yet in 50 bytes instead of 100");
    EXPECT_EQ(faultOf([](SChunk& c) { c.codec = static_cast<EChunkCodec>(7); }), "its codec 7 is not known");
    EXPECT_EQ(faultOf([](SChunk& c) { c.blockOffset = 950; }), "");
    EXPECT_EQ(faultOf([](SChunk& c) { c.blockOffset = 951; }), "it ends at byte 1001 of a block of 1000 bytes");
    EXPECT_EQ(faultOf([](SChunk& c) { c.blockOffset = 0xFFFFFFFFU; }),
              "it ends at byte 4294967345 of a block of 1000 bytes");
}

}  // namespace
}  // namespace agent
