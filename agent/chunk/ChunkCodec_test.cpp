#include "agent/chunk/ChunkCodec.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "agent/chunk/ChunkTestKit.h"

namespace agent {
namespace {

using test::bytes_t;
using test::RandomBytes;
using test::TextBytes;

bytes_t Compressed(CChunkCompressor& compressor, const bytes_t& plain, EChunkCodec expected) {
    bytes_t room(plain.size());
    const SStoredChunk stored = compressor.Compress(plain, room);
    EXPECT_EQ(stored.codec, expected);
    return {stored.bytes.begin(), stored.bytes.end()};
}

std::string FailureOf(const SStoredChunk& stored, std::size_t plainSize) {
    bytes_t plain(plainSize);
    try {
        CChunkDecompressor().Decompress(stored, plain);
    } catch (const exc::CRuntimeExc& failure) {
        return failure.what();
    }
    return "no failure";
}

TEST(ChunkCodec, GivesBackWhatItCompressed) {
    CChunkCompressor compressor(3);
    CChunkDecompressor decompressor;
    for (const std::size_t size : {100U, 1000U, 262'144U, 1'048'576U}) {
        const bytes_t plain = TextBytes(size, size);
        const bytes_t stored = Compressed(compressor, plain, EChunkCodec::zstd);
        EXPECT_LT(stored.size(), plain.size());
        bytes_t again(size);
        decompressor.Decompress({EChunkCodec::zstd, stored}, again);
        EXPECT_EQ(again, plain);
    }
}

TEST(ChunkCodec, KeepsPlainWhatDoesNotBecomeSmaller) {
    CChunkCompressor compressor(3);
    CChunkDecompressor decompressor;
    for (const std::size_t size : {0U, 1U, 2U, 20U, 262'144U}) {
        const bytes_t plain = RandomBytes(size, size);
        EXPECT_EQ(Compressed(compressor, plain, EChunkCodec::plain), plain);
        bytes_t again(size);
        decompressor.Decompress({EChunkCodec::plain, plain}, again);
        EXPECT_EQ(again, plain);
    }
}

TEST(ChunkCodec, AChunkDoesNotDependOnTheOnesBefore) {
    const bytes_t plain = TextBytes(200'000, 1);
    CChunkCompressor fresh(3);
    const bytes_t expected = Compressed(fresh, plain, EChunkCodec::zstd);
    CChunkCompressor used(3);
    Compressed(used, TextBytes(1'000'000, 2), EChunkCodec::zstd);
    Compressed(used, RandomBytes(300'000, 3), EChunkCodec::plain);
    Compressed(used, plain, EChunkCodec::zstd);
    EXPECT_EQ(Compressed(used, plain, EChunkCodec::zstd), expected);
}

TEST(ChunkCodec, NamesWhatIsWrong) {
    CChunkCompressor compressor(3);
    const bytes_t plain = TextBytes(10'000, 1);
    bytes_t stored = Compressed(compressor, plain, EChunkCodec::zstd);
    EXPECT_EQ(FailureOf({EChunkCodec::zstd, stored}, 9'999),
              "zstd failed to decompress: Destination buffer is too small");
    EXPECT_EQ(FailureOf({EChunkCodec::zstd, stored}, 10'001), "the stored bytes give 10000 bytes instead of 10001");
    EXPECT_EQ(FailureOf({EChunkCodec::zstd, std::span(stored).first(100)}, 10'000),
              "zstd failed to decompress: Src size is incorrect");
    EXPECT_EQ(FailureOf({EChunkCodec::zstd, {}}, 10'000), "the stored bytes give 0 bytes instead of 10000");
    EXPECT_EQ(FailureOf({EChunkCodec::plain, plain}, 9'999), "the stored bytes give 10000 bytes instead of 9999");
    stored[0] = 'x';
    EXPECT_EQ(FailureOf({EChunkCodec::zstd, stored}, 10'000), "zstd failed to decompress: Unknown frame descriptor");
}

TEST(ChunkCodec, ABombStaysWithinTheChunk) {
    CChunkCompressor compressor(3);
    const bytes_t stored = Compressed(compressor, bytes_t(1U << 20U), EChunkCodec::zstd);
    EXPECT_LT(stored.size(), 200U);
    EXPECT_EQ(FailureOf({EChunkCodec::zstd, stored}, 1000),
              "zstd failed to decompress: Destination buffer is too small");
}

RC_GTEST_PROP(ChunkCodec, AnythingIsDecompressedOrRefused, (const std::vector<char>& junk)) {
    CChunkCompressor compressor(1);
    bytes_t stored = Compressed(compressor, TextBytes(5'000, 1), EChunkCodec::zstd);
    const auto at = *rc::gen::inRange<std::size_t>(0, stored.size());
    for (std::size_t i = 0; i < junk.size() && at + i < stored.size(); ++i) {
        stored[at + i] = junk[i];
    }
    bytes_t plain(5'000);
    try {
        CChunkDecompressor().Decompress({EChunkCodec::zstd, stored}, plain);
    } catch (const exc::CRuntimeExc&) {
        RC_SUCCEED("refused");
    }
}

}  // namespace
}  // namespace agent
