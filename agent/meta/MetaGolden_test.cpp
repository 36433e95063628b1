#include <gtest/gtest.h>

#include "agent/meta/BankCodec.h"
#include "agent/meta/MetaAssembly.h"
#include "agent/meta/MetaFile.h"
#include "agent/meta/MetaTestKit.h"
#include "tests/support/MemoryExtent.h"
#include "tests/support/TempDir.h"

/// Files as they are stored: what one version wrote, every later one reads, byte for byte the same.
namespace agent {
namespace {

using namespace test_kit;

/// The header's fields, a row of its table, the digest at its end.
std::string HeaderBytes(std::string_view fields, std::string_view row, std::string_view sha256) {
    std::string bytes = BytesOf(fields);
    bytes.resize(480);
    bytes += BytesOf(row);
    bytes.resize(8160);
    return bytes + BytesOf(sha256);
}

/// The records of test_kit::SmallChanges, as in docs/format/metadata-file.md.
constexpr const char* smallRecords =
    // block: MD5, no key set, 4 MiB, of version 1
    "01 c4ca4238a0b923820dcc509a6f75849b 00000000000000000000000000000000 00004000 0100000000000000"
    // two chunks: at the beginning of stream and block, 100 bytes; right behind it, 50 bytes
    "02 00 64 64 00 00 00 5feceb66ffc86f38d952786c6d696c79c2dbc239dd4e91b46729d73a27fb57e9"
    "02 00 32 32 00 00 00 ad57366865126e55649ecb23ae1d48887544976efea46a48eb5d85a6eeb4d306"
    // the root, "docs"
    "03 00 1b 01 00 ed03 e807 e807 80c49fd50c 959aef3a 82c49fd50c 00 8110 e724"
    "03 04646f6373 1b 01 00 ed03 e807 e807 80c49fd50c 959aef3a 82c49fd50c 00 8110 e724"
    // "docs/link" to "../file"
    "03 09646f63732f6c696e6b 23 03 10 a403 e807 e807 80c49fd50c 959aef3a 82c49fd50c 00 8110 e724"
    "072e2e2f66696c65"
    // "file": 150 bytes, one segment
    "03 0466696c65 22 02 44 a403 e807 e807 80c49fd50c 959aef3a 82c49fd50c 00 8110 e724"
    "9601 01 00 00 9601";

TEST(MetaGolden, WritesTheseBytes) {
    // One empty file with a digest: too little for compression to make it smaller, so every byte is this format's own.
    SMetaChanges changes;
    SEntry file = MakeFile(0, 0);
    file.contentSha256 = ShaOf(5);
    changes.Put("", file);
    test::TempDir dir;
    CMetaState state;
    WriteMeta({std::nullopt, dir / "1", storageId, 1}, state, changes);

    const std::string records = BytesOf(
        "03 00 3c 02 8001 a403 e807 e807 80c49fd50c 959aef3a 82c49fd50c 00 8110 e724"
        "ef2d127de37b942baad06145e54b0c619a1f22327b2ebbcfbec78f5564afe39d");
    const std::string header = HeaderBytes(
        "43424d4554410d0a 01000000 00200000 00000000 00000000 00000000000000000000000000000000"
        "0123456789abcdef0123456789abcdef 0100000000000000 0000000000000000 0000000000000000 0100000000000000"
        "0000000000000000 0000000000000000 0000000000000000 01000000",
        "0020000000000000 3f00000000000000 3f00000000000000 0000000000000000"
        "23b6b5a4d5865a3a248c60f567624413fb55507e306601a151c952f65aa4ac75",
        "fafbbc7d7c58122e1b75d877fec865167a4698ed6e0b1e7bccbc17e297d17319");
    EXPECT_EQ(HexOf(ReadFileBytes(dir / "1")), HexOf(header + records));
}

TEST(MetaGolden, WritesTheseRecords) {
    test::TempDir dir;
    CMetaState state;
    WriteMeta({std::nullopt, dir / "1", storageId, 1}, state, SmallChanges());
    const SMetaBank bank = ReadMetaHeader(dir / "1").banks.at(0);
    EXPECT_EQ(HexOf(meta::UnstoreBank(bank, ReadFileBytes(dir / "1").substr(8192), {})), HexOf(BytesOf(smallRecords)));
}

TEST(MetaGolden, ReadsACompressedFile) {
    const std::string file =
        HeaderBytes(
            "43424d4554410d0a 01000000 00200000 00000000 00000000 00000000000000000000000000000000"
            "0123456789abcdef0123456789abcdef 0100000000000000 0000000000000000 9600000000000000"
            "0400000000000000 0200000000000000 0100000000000000 0000000000000000 01000000",
            "0020000000000000 c300000000000000 1301000000000000 0100000000000000"
            "1f2c938b45c80583b06868a73787b1ee7e952f0fa9837d4ee3210bc8b1f58a14",
            "ff36ccd6322e84f60f51bdb6aeb31c4f180c3fe5fa765b42f4bf30bf8de755f7") +
        BytesOf(
            "28b52ffd601300cd0500240a01c4ca4238a0b923820dcc509a6f75849b0040000100020064640000005feceb66ffc86f38d95278"
            "6c6d696c79c2dbc239dd4e91b46729d73a27fb57e902003232000000ad57366865126e55649ecb23ae1d48887544976efea46a48"
            "eb5d85a6eeb4d30603001b0100ed03e807e80780c49fd50c959aef3a82008110e7240304646f6373092f6c696e6b230310a4072e"
            "2e2f66696c6503042202449601010000960108004ded480588097060bd459d8f2cec002c9b4118");
    test::MemoryExtent extent(file);
    const SMeta meta = ReadMeta(extent, "golden");
    EXPECT_EQ(meta.header.version, 1U);
    EXPECT_TRUE(meta.header.storageId == storageId);
    CMetaState expected;
    expected.Apply(SmallChanges());
    EXPECT_EQ(meta.state, expected);
}

}  // namespace
}  // namespace agent
