#include "common/alglib/zlib.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "common/exc.h"

namespace {

using alglib::compress::CZlibUtil;
using bytes_t = cnt::array_t<char>;

std::string InflateFailure(std::span<const char> data, std::size_t limit = std::size_t{1} << 30U) {
    try {
        return "read as " + std::to_string(CZlibUtil::Decompress(data, limit)->size()) + " bytes";
    } catch (const exc::CRuntimeExc& failure) {
        return failure.what();
    }
}

TEST(Zlib, ReadsWhatAnotherWroteAtItsLevel) {
    // "hello hello hello" in the zlib format, at the fastest level.
    const unsigned char foreign[] = {0x78, 0x01, 0xcb, 0x48, 0xcd, 0xc9, 0xc9, 0x57,
                                     0xc8, 0x40, 0x90, 0x00, 0x3a, 0x2e, 0x06, 0x7d};
    const bytes_t data(std::begin(foreign), std::end(foreign));
    const auto plain = CZlibUtil::Decompress(data);
    EXPECT_EQ("hello hello hello", std::string(plain->begin(), plain->end()));
}

TEST(Zlib, IsOfTheZlibFormatAtTheBestLevel) {
    const auto data = CZlibUtil::CompressBest(std::string(1000, 'x'));
    ASSERT_LT(2U, data->size());
    EXPECT_EQ(0x78, (*data)[0]);
    EXPECT_EQ(static_cast<char>(0xDA), (*data)[1]);
    EXPECT_GT(30U, data->size());
}

TEST(Zlib, EmptyDataRoundTrips) {
    const auto data = CZlibUtil::CompressBest({});
    EXPECT_FALSE(data->empty());
    EXPECT_TRUE(CZlibUtil::Decompress(*data)->empty());
}

TEST(Zlib, NothingIsNoZlibData) { EXPECT_EQ("Damaged zlib data: cut off or corrupt", InflateFailure({})); }

TEST(Zlib, DataCutAtAnyByteIsRefused) {
    std::string plain;
    for (int i = 0; i < 500; ++i) {
        plain += std::to_string(i * i);
    }
    const auto data = CZlibUtil::CompressBest(plain);
    for (std::size_t size = 0; size < data->size(); ++size) {
        EXPECT_EQ("Damaged zlib data: cut off or corrupt", InflateFailure(std::span(*data).first(size))) << size;
    }
}

TEST(Zlib, BytesBehindTheEndAreRefused) {
    auto data = *CZlibUtil::CompressBest(std::string_view("x"));
    data.push_back('\0');
    EXPECT_EQ("Damaged zlib data: bytes behind its end", InflateFailure(data));
}

TEST(Zlib, DamageIsNamed) {
    EXPECT_EQ("Damaged zlib data: incorrect header check", InflateFailure(std::string_view("no zlib data")));
    auto data = *CZlibUtil::CompressBest(std::string_view("something"));
    data.back() = static_cast<char>(data.back() ^ 1);
    EXPECT_EQ("Damaged zlib data: incorrect data check", InflateFailure(data));
}

TEST(Zlib, DataThatNeedsADictionaryIsRefused) {
    // The flag for a preset dictionary in an otherwise good header.
    const unsigned char header[] = {0x78, 0xBB, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ("Damaged zlib data: cut off or corrupt", InflateFailure(bytes_t(std::begin(header), std::end(header))));
}

TEST(Zlib, ASmallTextDoesNotFillTheMemory) {
    const auto bomb = CZlibUtil::CompressBest(bytes_t(10U << 20U, '\0'));
    EXPECT_GT(20000U, bomb->size());
    EXPECT_EQ("Damaged zlib data: grows past 1000000 bytes", InflateFailure(*bomb, 1000000));
    EXPECT_EQ("Damaged zlib data: grows past 10485759 bytes", InflateFailure(*bomb, (10U << 20U) - 1));
    EXPECT_EQ("read as 10485760 bytes", InflateFailure(*bomb, 10U << 20U));
}

TEST(Zlib, WhatCannotBeCompressedRoundTripsToo) {
    std::mt19937 random(20240501);
    bytes_t plain(1000003);
    for (char& byte : plain) {
        byte = static_cast<char>(random());
    }
    EXPECT_EQ(plain, *CZlibUtil::Decompress(*CZlibUtil::CompressBest(plain)));
}

RC_GTEST_PROP(Zlib, BytesRoundTrip, (const bytes_t& plain)) {
    RC_ASSERT(*CZlibUtil::Decompress(*CZlibUtil::CompressBest(plain)) == plain);
}

RC_GTEST_PROP(Zlib, ChangedBytesAreRefusedOrGiveTheSame, (const bytes_t& plain)) {
    auto data = *CZlibUtil::CompressBest(plain);
    const auto at = *rc::gen::inRange<std::size_t>(0, data.size());
    data[at] = static_cast<char>(data[at] ^ *rc::gen::inRange(1, 256));
    try {
        // Some bits say nothing of the content: the level in the header, the rest of the last byte before the checksum.
        RC_ASSERT(*CZlibUtil::Decompress(data) == plain);
    } catch (const exc::CRuntimeExc&) {
    }
}

RC_GTEST_PROP(Zlib, AnyBytesAreSafe, (bytes_t data)) {
    data.insert(data.begin(), {0x78, static_cast<char>(0xDA)});
    (void)InflateFailure(data, 100000);
}

}  // namespace
