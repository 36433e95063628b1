#include "agent/chunk/ReadPlan.h"

#include <vector>

#include <gtest/gtest.h>

#include "agent/chunk/ChunkTestKit.h"

namespace agent {
namespace {

constexpr std::uint32_t kib = 1U << 10U;

SChunk At(std::uint32_t block, std::uint32_t offset, std::uint32_t size) {
    SChunk chunk;
    chunk.block = block;
    chunk.blockOffset = offset;
    chunk.plainSize = chunk.storedSize = size;
    return chunk;
}

struct SSummary {
    std::uint32_t block;
    std::uint64_t offset;
    std::uint64_t size;
    std::size_t chunks;

    bool operator==(const SSummary&) const = default;
};

std::vector<SSummary> Plan(const std::vector<SChunk>& wanted) {
    test::blocks_t blocks(3);
    for (auto& block : blocks) {
        block.number32 = 64U << 20U;
    }
    std::vector<SSummary> ranges;
    for (std::size_t first = 0; first < wanted.size();) {
        const SReadRange range = PlanRange(wanted, first, blocks);
        EXPECT_EQ(range.first, first);
        ranges.push_back({range.block, range.offset, range.size, range.last - range.first});
        first = range.last;
    }
    return ranges;
}

using ranges_t = std::vector<SSummary>;

TEST(ReadPlan, ChunksSideBySideAreOneRange) {
    EXPECT_EQ(Plan({At(1, 10, 20), At(1, 30, 5), At(1, 35, 65)}), (ranges_t{{1, 10, 90, 3}}));
}

TEST(ReadPlan, AnotherBlockIsAnotherRange) {
    EXPECT_EQ(Plan({At(1, 0, 10), At(2, 10, 10), At(1, 20, 10)}),
              (ranges_t{{1, 0, 10, 1}, {2, 10, 10, 1}, {1, 20, 10, 1}}));
}

TEST(ReadPlan, OrderInTheBlockDoesNotMatter) {
    EXPECT_EQ(Plan({At(0, 100, 50), At(0, 50, 50), At(0, 100, 50), At(0, 0, 50)}), (ranges_t{{0, 0, 150, 4}}));
}

TEST(ReadPlan, ASmallGapIsReadOver) {
    EXPECT_EQ(Plan({At(0, 0, 100), At(0, 100 + 512 * kib, 100)}), (ranges_t{{0, 0, 200 + 512 * kib, 2}}));
    EXPECT_EQ(Plan({At(0, 0, 100), At(0, 101 + 512 * kib, 100)}),
              (ranges_t{{0, 0, 100, 1}, {0, 101 + 512 * kib, 100, 1}}));
}

TEST(ReadPlan, ARangeIsNoLargerThanTheLargestBlock) {
    std::vector<SChunk> wanted;
    for (std::uint32_t i = 0; i < 20; ++i) {
        wanted.push_back(At(0, i * 1024 * kib, 1024 * kib));
    }
    EXPECT_EQ(Plan(wanted),
              (ranges_t{{0, 0, 8192 * kib, 8}, {0, 8192 * kib, 8192 * kib, 8}, {0, 16384 * kib, 4096 * kib, 4}}));
}

TEST(ReadPlan, StopsBeforeAChunkThatIsNotSound) {
    const std::vector<SChunk> wanted{At(0, 0, 10), At(0, 10, 0), At(0, 10, 10)};
    test::blocks_t blocks(1);
    blocks[0].number32 = 20;
    EXPECT_EQ(PlanRange(wanted, 0, blocks).last, 1U);
}

}  // namespace
}  // namespace agent
