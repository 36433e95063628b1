#include "agent/chunk/Chunker.h"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "agent/chunk/ChunkTestKit.h"
#include "agent/chunk/GearTable.h"

namespace agent {
namespace {

using test::RandomBytes;
using test::smallChunks;

/// Where chunks end, the bytes being handed over in pieces of the given size.
std::vector<std::size_t> Ends(const std::vector<char>& bytes, const SChunkSizes& sizes, std::size_t piece) {
    CChunker chunker(sizes);
    std::vector<std::size_t> ends;
    for (std::size_t at = 0; at < bytes.size();) {
        const auto cut = chunker.Next(std::span(bytes).subspan(at, std::min(piece, bytes.size() - at)));
        at += cut.size;
        if (cut.isEnd) {
            ends.push_back(at);
        }
    }
    return ends;
}

std::vector<std::size_t> Ends(const std::vector<char>& bytes, const SChunkSizes& sizes = smallChunks) {
    return Ends(bytes, sizes, bytes.size());
}

TEST(GearTable, IsSplitMix64FromZero) {
    // The generator's published first numbers for the state 0.
    EXPECT_EQ(gear::table[0], 0xE220A8397B1DCDAFULL);
    EXPECT_EQ(gear::table[1], 0x6E789E6AA1B965F4ULL);
    EXPECT_EQ(gear::table[2], 0x06C45D188009454FULL);
    EXPECT_EQ(gear::table[3], 0xF88BB8A8724C81ECULL);
}

TEST(Chunker, CutsWhereItAlwaysDid) {
    // Other cuts find none of the chunks that are stored: a change here is a change of format.
    std::vector<char> bytes(20000);
    std::uint64_t state = 42;
    for (auto& byte : bytes) {
        byte = static_cast<char>(gear::NextSplitMix64(state));
    }
    EXPECT_EQ(Ends(bytes), (std::vector<std::size_t>{1653, 2834, 4193, 5881, 7405, 8560, 9766, 10973, 11466, 12014,
                                                     13793, 14866, 16364, 17527, 18600, 19677, 19957}));
}

TEST(Chunker, KeepsToTheSizes) {
    const auto bytes = RandomBytes(1U << 20U, 1);
    std::size_t begin = 0;
    const auto ends = Ends(bytes);
    for (const std::size_t end : ends) {
        EXPECT_GE(end - begin, smallChunks.minimum);
        EXPECT_LE(end - begin, smallChunks.maximum);
        begin = end;
    }
    const std::size_t mean = begin / ends.size();
    EXPECT_GT(mean, smallChunks.average * 3 / 4);
    EXPECT_LT(mean, smallChunks.average * 3 / 2);
}

TEST(Chunker, CutsConstantBytesAtTheMaximum) {
    for (int value = 0; value < 256; ++value) {
        const std::vector<char> bytes(3 * smallChunks.maximum, static_cast<char>(value));
        EXPECT_EQ(Ends(bytes), (std::vector<std::size_t>{4096, 8192, 12288})) << value;
    }
}

TEST(Chunker, NeedsNoBytes) {
    CChunker chunker(smallChunks);
    EXPECT_EQ(chunker.Next({}).size, 0U);
    EXPECT_FALSE(chunker.Next({}).isEnd);
}

TEST(Chunker, MayEndAtTheMinimumAndAtTheMaximumExactly) {
    const auto bytes = RandomBytes(4U << 20U, 3);
    const SChunkSizes fixed{1024, 1024, 1024};
    const auto ends = Ends(bytes, fixed);
    ASSERT_EQ(ends.size(), bytes.size() / 1024);
    EXPECT_EQ(ends.front(), 1024U);
    // The first byte at which a chunk may end is taken into account, and the window before it.
    const SChunkSizes wide{64, 1024, 4096};
    std::size_t begin = 0;
    std::size_t shortest = bytes.size();
    for (const std::size_t end : Ends(bytes, wide)) {
        shortest = std::min(shortest, end - begin);
        begin = end;
    }
    EXPECT_GE(shortest, 64U);
    EXPECT_LT(shortest, 80U);
}

TEST(Chunker, RestartBeginsAChunk) {
    const auto bytes = RandomBytes(64U << 10U, 4);
    CChunker chunker(smallChunks);
    static_cast<void>(chunker.Next(std::span(bytes).first(700)));
    chunker.Restart();
    const auto cut = chunker.Next(bytes);
    EXPECT_TRUE(cut.isEnd);
    EXPECT_EQ(cut.size, Ends(bytes).front());
}

TEST(Chunker, AnInsertedByteIsForgottenSoon) {
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        auto bytes = RandomBytes(256U << 10U, seed);
        const auto before = Ends(bytes);
        const std::size_t at = 100'000 + seed * 997;
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), 'x');
        auto after = Ends(bytes);
        std::size_t lost = 0;
        for (std::size_t& end : after) {
            end -= end > at ? 1U : 0U;
        }
        for (const std::size_t end : before) {
            lost += std::ranges::binary_search(after, end) ? 0U : 1U;
        }
        EXPECT_LE(lost, 8U) << "seed " << seed;
    }
}

TEST(Chunker, RefusesSizesThatCannotBe) {
    const SChunkSizes wrong[] = {{63, 1024, 4096},   {256, 512, 4096},  {256, 1000, 4096},
                                 {2048, 1024, 4096}, {256, 2048, 1024}, {256, 0, 4096}};
    for (const auto& sizes : wrong) {
        EXPECT_THROW(CChunker{sizes}, exc::CRuntimeExc) << sizes.minimum << " " << sizes.average;
    }
    try {
        CChunker{SChunkSizes{1, 2, 3}};
        FAIL();
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ(failure.what(), "Chunk sizes 1, 2, 3 cannot be used.");
    }
}

RC_GTEST_PROP(Chunker, CutsDoNotDependOnHowBytesComeIn, (std::uint64_t seed)) {
    const auto bytes = RandomBytes(50'000, seed);
    const auto piece = *rc::gen::inRange<std::size_t>(1, 9000);
    RC_ASSERT(Ends(bytes, smallChunks, piece) == Ends(bytes));
}

}  // namespace
}  // namespace agent
