#include "agent/meta/MetaHeader.h"

#include <gtest/gtest.h>

#include <functional>

#include "agent/meta/MetaAssembly.h"
#include "agent/meta/MetaTestKit.h"

namespace agent::meta {
namespace {

using namespace test_kit;

SMetaHeader SmallHeader() {
    SMetaHeader header;
    header.storageId = storageId;
    header.version = 7;
    header.previousVersion = 6;
    header.streamEnd = 0x0123456789;
    header.entries = 10;
    header.chunks = 3;
    header.blocks = 2;
    header.deadRecords = 4;
    header.banks = {{8192, 100, 100, EBankCodec::plain, ShaOf(1)}, {8292, 50, 300, EBankCodec::zstd, ShaOf(2)}};
    return header;
}

/// What the reader says of the header once it was changed and its digest made right again.
std::string Refusal(const std::function<void(std::string&)>& spoil) {
    SMetaHeader header = SmallHeader();
    std::string bytes = SerializeHeader(header);
    spoil(bytes);
    PutDigest(bytes, headerDigestPlace, digest::Sha256(std::string_view(bytes).substr(0, headerDigestPlace)));
    return FailureOf([&] { (void)ParseHeader(bytes); });
}

std::string RefusalAt(std::size_t place, std::string_view hex) {
    const std::string replacement = BytesOf(hex);
    return Refusal([&](std::string& bytes) { bytes.replace(place, replacement.size(), replacement); });
}

TEST(MetaHeader, ComesBack) {
    SMetaHeader header = SmallHeader();
    const std::string bytes = SerializeHeader(header);
    EXPECT_EQ(ParseHeader(bytes), header);
    EXPECT_EQ(header.GetFileSize(), 8342U);
    EXPECT_EQ(header.CountLive(), 15U);
}

TEST(MetaHeader, BytesAreAsDocumented) {
    SMetaHeader header = SmallHeader();
    const std::string bytes = SerializeHeader(header);
    std::string expected = BytesOf(
        "43424d4554410d0a 01000000 00200000 00000000"
        "00000000"                                            // magic, version, size, flags, encryption
        "00000000000000000000000000000000"                    // key set
        "0123456789abcdef0123456789abcdef"                    // storage
        "0700000000000000 0600000000000000 8967452301000000"  // versions, stream's end
        "0a00000000000000 0300000000000000 0200000000000000 0400000000000000 02000000");
    expected.resize(480);
    expected += BytesOf("0020000000000000 6400000000000000 6400000000000000 0000000000000000" + ShaOf(1).ToAStr() +
                        "6420000000000000 3200000000000000 2c01000000000000 0100000000000000" + ShaOf(2).ToAStr());
    expected.resize(8160);
    EXPECT_EQ(HexOf(bytes.substr(0, 8160)), HexOf(expected));
    EXPECT_EQ(HexOf(bytes.substr(8160)), digest::Sha256(expected).ToAStr());
}

TEST(MetaHeader, RefusesOtherFiles) {
    EXPECT_EQ(FailureOf([] { (void)ParseHeader(""); }), "it is no metadata file");
    EXPECT_EQ(FailureOf([] { (void)ParseHeader(std::string(8192, '\0')); }), "it is no metadata file");
    EXPECT_EQ(FailureOf([] { (void)ParseHeader("CBMETA\r\n"); }), "the header is cut off after 8 bytes");
    // A transfer as text.
    EXPECT_EQ(RefusalAt(0, "43424d4554410a"), "it is no metadata file");
}

TEST(MetaHeader, RefusesWhatANewerVersionMayMean) {
    EXPECT_EQ(RefusalAt(8, "02"), "format version 2 is not supported");
    EXPECT_EQ(RefusalAt(8, "00"), "format version 0 is not supported");
    EXPECT_EQ(RefusalAt(12, "00400000"), "a header of 16384 bytes is not supported");
    EXPECT_EQ(RefusalAt(16, "01"), "flags 1 are not known; a newer version may have written them");
    EXPECT_EQ(RefusalAt(20, "02"), "encryption kind 2 is not supported");
    EXPECT_EQ(RefusalAt(24, "01"), "encryption kind 0 and key '01000000000000000000000000000000' do not go together");
    EXPECT_EQ(RefusalAt(39, "01"), "encryption kind 0 and key '00000000000000000000000000000001' do not go together");
    EXPECT_EQ(RefusalAt(116, "01"), "byte 116 of the header is in use; a newer version may have written it");
    EXPECT_EQ(RefusalAt(479, "01"), "byte 479 of the header is in use; a newer version may have written it");
    EXPECT_EQ(RefusalAt(608, "01"), "byte 608 of the header is in use; a newer version may have written it");
    EXPECT_EQ(RefusalAt(8159, "01"), "byte 8159 of the header is in use; a newer version may have written it");
    EXPECT_EQ(RefusalAt(505, "01"),
              "row 0 of the bank table: byte 505 of the header is in use; a newer version may have written it");
}

TEST(MetaHeader, RefusesImpossibleNumbers) {
    EXPECT_EQ(RefusalAt(56, "00"), "version 0 cannot follow version 6");
    EXPECT_EQ(RefusalAt(64, "07"), "version 7 cannot follow version 7");
    EXPECT_EQ(RefusalAt(79, "80"), "the stream cannot end at 9223372041741494153");
    EXPECT_EQ(RefusalAt(80, "ffffffffffffffff"), "there cannot be 18446744073709551615 records in 400 bytes");
    EXPECT_EQ(RefusalAt(104, "9101"), "there cannot be 401 records in 400 bytes");
    EXPECT_EQ(RefusalAt(112, "79"), "121 banks are more than the table holds");
    EXPECT_EQ(RefusalAt(112, "ffffffff"), "4294967295 banks are more than the table holds");
}

TEST(MetaHeader, RefusesImpossibleBanks) {
    // Row 1 begins at 544: offset, stored size, plain size, codec.
    EXPECT_EQ(RefusalAt(544, "65"), "bank 1 is at 8293 where the one before it ends at 8292");
    EXPECT_EQ(RefusalAt(544, "63"), "bank 1 is at 8291 where the one before it ends at 8292");
    EXPECT_EQ(RefusalAt(480, "0000"), "bank 0 is at 0 where the one before it ends at 8192");
    EXPECT_EQ(RefusalAt(552, "00"), "row 1 of the bank table: a bank of 300 bytes, stored as 0, is not possible");
    EXPECT_EQ(RefusalAt(552, "2d01"), "row 1 of the bank table: a bank of 300 bytes, stored as 301, is not possible");
    EXPECT_EQ(RefusalAt(560, "0100004000000000"),
              "row 1 of the bank table: a bank of 1073741825 bytes, stored as 50, is not possible");
    EXPECT_EQ(RefusalAt(560, "810c01"), "row 1 of the bank table: 50 stored bytes claim to hold 68737");
    EXPECT_EQ(RefusalAt(568, "02"), "row 1 of the bank table: bank codec 2 is not known");
    EXPECT_EQ(RefusalAt(568, "00"), "row 1 of the bank table: a plain bank of 300 bytes cannot be stored as 50");
    // A row more than there are.
    EXPECT_EQ(RefusalAt(112, "03"), "row 2 of the bank table: a bank of 0 bytes, stored as 0, is not possible");
}

TEST(MetaHeader, RefusesEveryFlippedBit) {
    SMetaHeader header = SmallHeader();
    const std::string bytes = SerializeHeader(header);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::string damaged = bytes;
        damaged[i] = static_cast<char>(static_cast<unsigned char>(damaged[i]) ^ (1U << (i % 8)));
        EXPECT_THROW((void)ParseHeader(damaged), exc::CRuntimeExc) << i;
    }
}

}  // namespace
}  // namespace agent::meta
