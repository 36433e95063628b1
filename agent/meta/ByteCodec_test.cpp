#include "agent/meta/ByteCodec.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "agent/meta/MetaTestKit.h"

namespace agent::meta {
namespace {

using test_kit::BytesOf;
using test_kit::FailureOf;
using test_kit::HexOf;

std::string Varint(std::uint64_t value) {
    std::string out;
    PutVarint(out, value);
    return HexOf(out);
}

std::string Signed(std::int64_t value) {
    std::string out;
    PutSigned(out, value);
    return HexOf(out);
}

std::uint64_t ReadVarint(std::string_view hex) {
    const std::string bytes = BytesOf(hex);
    return CByteCursor(bytes).Varint();
}

TEST(ByteCodec, NumbersTakeSevenBitsAByte) {
    EXPECT_EQ(Varint(0), "00");
    EXPECT_EQ(Varint(127), "7f");
    EXPECT_EQ(Varint(128), "8001");
    EXPECT_EQ(Varint(300), "ac02");
    EXPECT_EQ(Varint(~std::uint64_t{0}), "ffffffffffffffffff01");
}

TEST(ByteCodec, SignedNumbersZigzag) {
    EXPECT_EQ(Signed(0), "00");
    EXPECT_EQ(Signed(-1), "01");
    EXPECT_EQ(Signed(1), "02");
    EXPECT_EQ(Signed(-64), "7f");
    EXPECT_EQ(Signed(std::numeric_limits<std::int64_t>::max()), "feffffffffffffffff01");
    EXPECT_EQ(Signed(std::numeric_limits<std::int64_t>::min()), "ffffffffffffffffff01");
}

TEST(ByteCodec, FixedNumbersAreLittleEndian) {
    std::string out;
    PutFixed(out, std::uint32_t{0x01020304});
    EXPECT_EQ(HexOf(out), "04030201");
    EXPECT_EQ(CByteCursor(out).Fixed<std::uint32_t>(), 0x01020304U);
    EXPECT_EQ(FailureOf([&] { (void)CByteCursor(out).Fixed<std::uint64_t>(); }),
              "8 bytes are expected where 4 are left");
}

TEST(ByteCodec, RefusesNumbersThatAreNotWellFormed) {
    EXPECT_EQ(FailureOf([] { ReadVarint(""); }), "1 bytes are expected where 0 are left");
    EXPECT_EQ(FailureOf([] { ReadVarint("80"); }), "1 bytes are expected where 0 are left");
    EXPECT_EQ(FailureOf([] { ReadVarint("8000"); }), "a number is not in its shortest form");
    EXPECT_EQ(FailureOf([] { ReadVarint("ffffffffffffffffff02"); }), "a number has more than 64 bits");
    EXPECT_EQ(FailureOf([] { ReadVarint("8080808080808080808001"); }), "a number has more than 64 bits");
    EXPECT_EQ(ReadVarint("ffffffffffffffffff01"), ~std::uint64_t{0});
    const std::string large = BytesOf("8080808010");
    EXPECT_EQ(FailureOf([&] { (void)CByteCursor(large).Number<std::uint32_t>(); }), "number 4294967296 is too large");
}

TEST(ByteCodec, RefusesALengthBeyondTheEnd) {
    std::string out;
    PutCounted(out, "abc");
    EXPECT_EQ(CByteCursor(out).Counted(), "abc");
    out.pop_back();
    EXPECT_EQ(FailureOf([&] { (void)CByteCursor(out).Counted(); }), "3 bytes are expected where 2 are left");
}

RC_GTEST_PROP(ByteCodecProperty, NumbersComeBack, (std::uint64_t value, std::int64_t number)) {
    std::string out;
    PutVarint(out, value);
    PutSigned(out, number);
    CByteCursor cursor(out);
    RC_ASSERT(cursor.Varint() == value);
    RC_ASSERT(cursor.Signed() == number);
    RC_ASSERT(cursor.IsAtEnd());
}

}  // namespace
}  // namespace agent::meta
