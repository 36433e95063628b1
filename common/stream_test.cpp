#include "common/stream.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <string>

#include "common/crypto/sec_allocator.h"
#include "tests/support/Thrown.h"

namespace {

using io::mem_stream_tt;

std::string TextOf(const mem_stream_tt<>& stream) { return {stream.GetBuffer().begin(), stream.GetBuffer().end()}; }

/// Takes only so many bytes.
class NarrowStream : public io::binary_stream_tt {
public:
    explicit NarrowStream(std::size_t room) : room_(room) {}
    std::size_t Write(const void*, std::size_t size) override {
        const std::size_t written = std::min(size, room_);
        room_ -= written;
        return written;
    }
    std::size_t Read(void*, std::size_t) override { return 0; }

private:
    std::size_t room_;
};

TEST(MemStream, IntegersAreLittleEndian) {
    mem_stream_tt<> stream;
    EXPECT_EQ(1U, stream.Serial(std::uint8_t{0x01}));
    EXPECT_EQ(2U, stream.Serial(std::uint16_t{0x0203}));
    EXPECT_EQ(4U, stream.Serial(std::uint32_t{0x04050607}));
    EXPECT_EQ(8U, stream.Serial(std::uint64_t{0xF8090A0B0C0D0E0FU}));
    EXPECT_EQ(std::string("\x01\x03\x02\x07\x06\x05\x04\x0F\x0E\x0D\x0C\x0B\x0A\x09\xF8"), TextOf(stream));
}

TEST(MemStream, ReadsGoOnWhereTheLastEnded) {
    mem_stream_tt<> stream(cnt::array_t<char>{'a', 'b', 'c'});
    char out[4] = {'?', '?', '?', '?'};
    EXPECT_EQ(2U, stream.Read(out, 2));
    EXPECT_EQ(1U, stream.GetRemaining());
    EXPECT_EQ(1U, stream.Read(out + 2, 2));
    EXPECT_EQ(0U, stream.Read(out, 1));
    EXPECT_EQ(0U, stream.GetRemaining());
    EXPECT_EQ("abc?", std::string(out, 4));
    EXPECT_EQ(1U, stream.Write("d", 1));
    EXPECT_EQ(1U, stream.Read(out, 4));
    EXPECT_EQ('d', out[0]);
}

TEST(MemStream, NothingIsWrittenAndReadToo) {
    mem_stream_tt<> stream;
    EXPECT_EQ(0U, stream.Write(nullptr, 0));
    char unused = 0;
    EXPECT_EQ(0U, stream.Read(&unused, 0));
    EXPECT_TRUE(stream.GetBuffer().empty());
}

TEST(MemStream, AShortReadLeavesTheValueAlone) {
    mem_stream_tt<> stream(cnt::array_t<char>{1, 2, 3});
    std::uint32_t value = 77;
    EXPECT_EQ(3U, stream.Unserial(value));
    EXPECT_EQ(77U, value);
}

TEST(SerialExc, AShortWriteIsAFailure) {
    NarrowStream stream(3);
    EXPECT_EQ("Failed to write value to the binary stream: written less bytes (3) than expected (4).",
              test::ThrownBy([&] { io::SerialExc(stream, std::uint32_t{1}); }));
    EXPECT_EQ("Failed to write value to the binary stream: written less bytes (0) than expected (8).",
              test::ThrownBy([&] { io::SerialExc(stream, std::uint64_t{1}); }));
    NarrowStream wide(4);
    EXPECT_EQ("nothing thrown", test::ThrownBy([&] { io::SerialExc(wide, std::uint32_t{1}); }));
}

TEST(UnserialExc, AShortReadIsAFailure) {
    mem_stream_tt<> stream(cnt::array_t<char>{1, 2, 3});
    EXPECT_EQ("Failed to retrieve value from the binary stream: received less bytes (3) than expected (8).",
              test::ThrownBy([&] { (void)io::UnserialExc<std::uint64_t>(stream); }));
    EXPECT_EQ("Failed to retrieve value from the binary stream: received less bytes (0) than expected (1).",
              test::ThrownBy([&] { (void)io::UnserialExc<std::uint8_t>(stream); }));
}

TEST(MemStream, AlsoOverSecureMemory) {
    mem_stream_tt<crypto::sec_allocator_t<char>> stream;
    io::SerialExc(stream, std::uint32_t{5});
    EXPECT_EQ(crypto::sec_bytes_t({5, 0, 0, 0}), stream.GetBuffer());
    EXPECT_EQ(5U, io::UnserialExc<std::uint32_t>(stream));
}

RC_GTEST_PROP(MemStream, IntegersRoundTrip, (std::uint8_t a, std::uint16_t b, std::uint32_t c, std::uint64_t d)) {
    mem_stream_tt<> stream;
    io::SerialExc(stream, d);
    io::SerialExc(stream, a);
    io::SerialExc(stream, c);
    io::SerialExc(stream, b);
    RC_ASSERT(stream.GetRemaining() == 15U);
    RC_ASSERT(io::UnserialExc<std::uint64_t>(stream) == d);
    RC_ASSERT(io::UnserialExc<std::uint8_t>(stream) == a);
    RC_ASSERT(io::UnserialExc<std::uint32_t>(stream) == c);
    RC_ASSERT(io::UnserialExc<std::uint16_t>(stream) == b);
}

}  // namespace
