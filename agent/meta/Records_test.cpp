#include "agent/meta/Records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/meta/MetaTestKit.h"

namespace agent::meta {
namespace {

using namespace test_kit;

CMetaState Replayed(std::string_view hex) {
    CMetaState state;
    ReplayRecords(BytesOf(hex), state);
    return state;
}

std::string Refusal(const std::string& hex) {
    return FailureOf([&] { (void)Replayed(hex); });
}

// id of 16 bytes, no key set, 4096 bytes, version 1
constexpr const char* blockRecord =
    "01 00112233445566778899aabbccddeeff 00000000000000000000000000000000 00100000 0100000000000000";
constexpr const char* sha256 = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
// A folder's entry but for its last byte.
constexpr const char* folderEntry = "01000000000000000000";

std::string Record(const char* kind, const std::string& hex) { return std::string(kind) + hex; }
std::string Chunk(const std::string& numbers, const char* codec = "00") {
    return Record("02", numbers) + codec + sha256;
}

TEST(Records, BytesAreAsDocumented) {
    std::string out;
    SBlockExternalId block;
    for (std::size_t i = 0; i < 16; ++i) {
        block.id[i] = static_cast<std::uint8_t>(0x11 * i);
    }
    block.number32 = 4096;
    block.number64 = 1;
    PutBlockRecord(out, block);
    EXPECT_EQ(HexOf(out), Hex(blockRecord));

    CChunkBase base;
    const SChunk first = MakeChunk(300, 200, 2, 128);
    out.clear();
    PutChunkRecord(out, base, first);
    EXPECT_EQ(HexOf(out), Hex("02 ac02 c801 c801 04 8002 00" + ShaOf(300).ToAStr()));
    base.Follow(first);

    // Right behind it, in stream and block.
    SChunk second = MakeChunk(500, 100, 2, 328);
    second.codec = EChunkCodec::zstd;
    second.storedSize = 10;
    out.clear();
    PutChunkRecord(out, base, second);
    EXPECT_EQ(HexOf(out), Hex("02 00 64 0a 00 00 01" + ShaOf(500).ToAStr()));
    base.Follow(second);

    // In an earlier block, found again.
    out.clear();
    PutChunkRecord(out, base, MakeChunk(600, 1, 0, 5));
    EXPECT_EQ(HexOf(out), Hex("02 00 01 01 03 0a 00" + ShaOf(600).ToAStr()));

    out.clear();
    PutEntryRecord(out, "a/b", CPackedEntry(MakeFolder()));
    EXPECT_EQ(HexOf(out), Hex("03 03612f62 1b") + HexOf(CPackedEntry(MakeFolder()).GetBytes()));

    out.clear();
    PutRemoveRecord(out, "a/b");
    EXPECT_EQ(HexOf(out), "0403612f62");
}

TEST(Records, ReplayInOrder) {
    CMetaState state;
    const std::string folder = std::string("0b") + folderEntry + "00";
    const std::string bytes = BytesOf(std::string(blockRecord) + Chunk("056464 00 00") + Chunk("006464 00 00") +
                                      "0300" + folder + "030161" + folder + "040161");
    EXPECT_EQ(ReplayRecords(bytes, state), 6U);
    ASSERT_EQ(state.GetBlocks().size(), 1U);
    EXPECT_EQ(state.GetBlocks()[0].number32, 4096U);
    ASSERT_EQ(state.GetChunks().size(), 2U);
    EXPECT_EQ(state.GetChunks()[0].streamOffset, 5U);
    EXPECT_EQ(state.GetChunks()[1].streamOffset, 105U);
    EXPECT_EQ(state.GetChunks()[1].blockOffset, 100U);
    EXPECT_EQ(state.GetEntries().size(), 1U);
    // Relative places start anew with every bank, so this chunk would lie before the last.
    EXPECT_EQ(FailureOf([&] { ReplayRecords(BytesOf(Chunk("006464 00 00")), state); }),
              "record at byte 0: chunks overlap or are out of order at stream offset 0");
}

TEST(Records, RefusesUnknownKinds) {
    EXPECT_EQ(Refusal("00"),
              "record at byte 0: records of kind 0 are not known; a newer version may have written them");
    EXPECT_EQ(Refusal(std::string(blockRecord) + "05"),
              "record at byte 45: records of kind 5 are not known; a newer version may have written them");
    EXPECT_EQ(Refusal("ff"),
              "record at byte 0: records of kind 255 are not known; a newer version may have written them");
}

TEST(Records, RefusesHostileChunks) {
    const auto refusal = [](const std::string& record) {
        const std::string text = Refusal(blockRecord + record);
        EXPECT_THAT(text, testing::StartsWith("record at byte 45: "));
        return text.substr(std::min<std::size_t>(text.size(), 19));
    };
    EXPECT_EQ(refusal(Chunk("000101 02 00")), "the chunk at stream offset 0: the table of blocks has only 1");
    EXPECT_EQ(refusal(Chunk("000101 01 00")), "a chunk's place in the blocks is beyond all bounds");
    EXPECT_EQ(refusal(Chunk("000101 ffffffffffffffffff01 00")), "a chunk's place in the blocks is beyond all bounds");
    EXPECT_EQ(refusal(Chunk("000101 00 01")), "a chunk's place in the blocks is beyond all bounds");
    EXPECT_EQ(refusal(Chunk("000101 00 8040")),
              "the chunk at stream offset 0: it ends at byte 4097 of a block of 4096 bytes");
    EXPECT_EQ(refusal(Chunk("000101 00 feffffff1f")),
              "the chunk at stream offset 0: it ends at byte 4294967296 of a block of 4096 bytes");
    EXPECT_EQ(refusal(Chunk("ffffffffffffffffff01 0101 00 00")),
              "a chunk at stream offset 18446744073709551615 is beyond all bounds");
    EXPECT_EQ(refusal(Chunk("00 8080808010 01 00 00")), "number 4294967296 is too large");
    EXPECT_THAT(refusal(Chunk("00 ffffffff0f 01 00 00")), testing::HasSubstr("its plain size 4294967295"));
    EXPECT_THAT(refusal(Chunk("000001 00 00")), testing::HasSubstr("its plain size 0"));
    EXPECT_THAT(refusal(Chunk("000100 00 00")), testing::HasSubstr("yet in 0 bytes instead of 1"));
    EXPECT_THAT(refusal(Chunk("000100 00 00", "01")), testing::HasSubstr("its stored size 0"));
    EXPECT_EQ(refusal(Chunk("000101 00 00", "07")), "the chunk at stream offset 0: its codec 7 is not known");
    // The second is back in the stream: the sum wraps.
    EXPECT_EQ(Refusal(blockRecord + Chunk("000101 00 00") + Chunk("ffffffffffffffffff01 0101 00 00")),
              "record at byte 84: chunks overlap or are out of order at stream offset 0");
}

TEST(Records, RefusesHostileEntries) {
    EXPECT_EQ(Refusal("030161 0a" + std::string(folderEntry)), "record at byte 0: entry 'a' has only 10 bytes");
    EXPECT_EQ(Refusal("0302612f 0b" + std::string(folderEntry) + "00"),
              "record at byte 0: path 'a/' has an element ''");
    EXPECT_EQ(Refusal("03022e2e 0b" + std::string(folderEntry) + "00"),
              "record at byte 0: path '..' has an element '..'");
    EXPECT_EQ(Refusal("03026100 0b" + std::string(folderEntry) + "00"), "record at byte 0: path 'a\\0' has a NUL");
    EXPECT_EQ(Refusal("03ffffffff0f"), "record at byte 0: 4294967295 bytes are expected where 0 are left");
    EXPECT_EQ(Refusal("030161ffffffffffffffffff01"),
              "record at byte 0: 18446744073709551615 bytes are expected where 0 are left");
    EXPECT_EQ(Refusal("040161"), "record at byte 0: entry 'a' is removed and not there");
}

TEST(Records, RefusesEveryTruncation) {
    const std::string folder = std::string("0b") + folderEntry + "00";
    for (const std::string& record : {std::string(blockRecord), "0300" + folder}) {
        const std::string bytes = BytesOf(record);
        for (std::size_t size = 1; size < bytes.size(); ++size) {
            CMetaState state;
            EXPECT_THROW(ReplayRecords(bytes.substr(0, size), state), exc::CRuntimeExc) << record << size;
        }
    }
    const std::string chunk = BytesOf(Chunk("006464 00 00"));
    for (std::size_t size = 1; size < chunk.size(); ++size) {
        CMetaState state;
        state.AddBlock(MakeBlock(1));
        EXPECT_THROW(ReplayRecords(chunk.substr(0, size), state), exc::CRuntimeExc) << size;
    }
}

TEST(Records, PutsOutOfOrderAreTaken) {
    CMetaState state;
    std::string bytes;
    for (const std::string path : {"b", "a", "", "c", "a", "b"}) {
        PutEntryRecord(bytes, path, CPackedEntry(MakeFolder()));
    }
    EXPECT_EQ(ReplayRecords(bytes, state), 6U);
    std::vector<std::string> paths;
    for (const auto& [path, entry] : state.GetEntries()) {
        paths.emplace_back(path);
    }
    EXPECT_THAT(paths, testing::ElementsAre("", "a", "b", "c"));
}

}  // namespace
}  // namespace agent::meta
