#include "common/crypto/key_set.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <set>
#include <string>

#include "common/exc.h"

namespace {

using crypto::CKeySet;
using crypto::CKeySetId;
using crypto::CRestoreKeyRepairRec;
using crypto::sec_bytes_t;
using crypto::SRawKeySetId;

using sec_stream_t = io::mem_stream_tt<crypto::sec_allocator_t<char>>;

sec_bytes_t Bytes(std::string_view text) { return {text.begin(), text.end()}; }

SRawKeySetId Id(std::uint8_t first) {
    SRawKeySetId id;
    for (std::size_t i = 0; i < SRawKeySetId::size; ++i) {
        id.bytes[i] = static_cast<std::uint8_t>(first + i);
    }
    return id;
}

CKeySet Sample() { return {CKeySetId(Id(0x10)), L"hü", Bytes("key"), {{Id(0x20), Bytes("wrap")}, {Id(0x30), {}}}}; }

sec_bytes_t Serialised(const CKeySet& keySet) {
    sec_stream_t stream;
    keySet.Serial(stream);
    return stream.GetBuffer();
}

bool Same(const CKeySet& a, const CKeySet& b) {
    return a.GetId() == b.GetId() && a.GetHint() == b.GetHint() && a.GetKeys() == b.GetKeys() &&
           a.GetRepairRecords() == b.GetRepairRecords();
}

std::string FailureOf(const sec_bytes_t& bytes) {
    try {
        (void)CKeySet::Unserial(bytes);
    } catch (const exc::CRuntimeExc& failure) {
        return failure.what();
    }
    return "nothing thrown";
}

TEST(RawKeySetId, TextForm) {
    EXPECT_EQ("00000000000000000000000000000000", SRawKeySetId().ToAStr());
    EXPECT_EQ("f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff", Id(0xF0).ToAStr());
    EXPECT_EQ(Id(0xF0), SRawKeySetId::FromStr("f0f1f2f3f4f5f6f7f8f9FAFBFCFDFEFF"));
}

TEST(RawKeySetId, AnyOtherTextIsRefused) {
    const std::string good = Id(0xA0).ToAStr();
    const std::string refused[] = {"",
                                   good.substr(1),
                                   good + "0",
                                   "g" + good.substr(1),
                                   good.substr(1) + "g",
                                   good.substr(1) + " ",
                                   "0x" + good.substr(2),
                                   good.substr(1) + "-",
                                   std::string(32, '@'),
                                   std::string(32, '\0')};
    for (const std::string& text : refused) {
        EXPECT_THROW((void)SRawKeySetId::FromStr(text), exc::CRuntimeExc) << text;
    }
    try {
        (void)SRawKeySetId::FromStr("xyz");
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ("Invalid key set id: 'xyz'", failure.what());
    }
}

TEST(RawKeySetId, BinaryFormIsItsBytes) {
    io::mem_stream_tt<> stream;
    Id(1).Serial(stream);
    EXPECT_EQ(16U, stream.GetBuffer().size());
    EXPECT_EQ(1, stream.GetBuffer().front());
    SRawKeySetId id;
    SRawKeySetId::Unserial(stream, id);
    EXPECT_EQ(Id(1), id);
}

TEST(RawKeySetId, AShortReadLeavesItAlone) {
    io::mem_stream_tt<> stream(cnt::array_t<char>(15, 'x'));
    SRawKeySetId id = Id(7);
    try {
        SRawKeySetId::Unserial(stream, id);
        FAIL() << "nothing thrown";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ("Failed to retrieve value from the binary stream: received less bytes (15) than expected (16).",
                     failure.what());
    }
    EXPECT_EQ(Id(7), id);
}

TEST(KeySetId, NewOnesAreRandom) {
    std::set<SRawKeySetId> seen;
    for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(seen.insert(CKeySetId::CreateNew().GetRaw()).second);
    }
    EXPECT_FALSE(seen.contains(SRawKeySetId()));
}

TEST(KeySet, BinaryFormByteByByte) {
    std::string expected = "CBKS";
    expected += std::string("\1\0\0\0", 4);
    expected += "\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\x1f";
    expected += std::string("\3\0\0\0", 4) + "h\xC3\xBC";
    expected += std::string("\3\0\0\0", 4) + "key";
    expected += std::string("\2\0\0\0", 4);
    expected += "\x20\x21\x22\x23\x24\x25\x26\x27\x28\x29\x2a\x2b\x2c\x2d\x2e\x2f";
    expected += std::string("\4\0\0\0", 4) + "wrap";
    expected += "\x30\x31\x32\x33\x34\x35\x36\x37\x38\x39\x3a\x3b\x3c\x3d\x3e\x3f";
    expected += std::string("\0\0\0\0", 4);
    EXPECT_EQ(Bytes(expected), Serialised(Sample()));
    EXPECT_TRUE(Same(Sample(), *CKeySet::Unserial(Bytes(expected))));
}

TEST(KeySet, LogTextShowsNoKeyMaterial) {
    EXPECT_EQ("id: 101112131415161718191a1b1c1d1e1f, hint: hü, keys: present, repair records: 2", Sample().ToLogStr());
    const CKeySet bare(CKeySetId(SRawKeySetId{}), L"%1", {}, {});
    EXPECT_EQ("id: 00000000000000000000000000000000, hint: %1, keys: absent, repair records: 0", bare.ToLogStr());
}

TEST(KeySet, SaysWhetherItHasKeys) {
    EXPECT_TRUE(Sample().HasKeys());
    EXPECT_FALSE(CKeySet(CKeySetId::CreateNew(), L"", {}, {}).HasKeys());
}

TEST(KeySet, BytesCutAnywhereAreRefused) {
    const sec_bytes_t whole = Serialised(Sample());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const sec_bytes_t cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_TRUE(FailureOf(cut).starts_with("Failed to retrieve value from the binary stream")) << size;
    }
}

TEST(KeySet, BytesBehindItsEndAreRefused) {
    sec_bytes_t bytes = Serialised(Sample());
    bytes.insert(bytes.end(), {'x', 'y'});
    EXPECT_EQ("Key set is followed by 2 bytes that are not its own", FailureOf(bytes));
}

TEST(KeySet, OtherBytesAndVersionsAreRefused) {
    sec_bytes_t bytes = Serialised(Sample());
    bytes[0] = 'X';
    EXPECT_EQ("Not a key set", FailureOf(bytes));
    bytes[0] = 'C';
    bytes[4] = 2;
    EXPECT_EQ("Unsupported key set version: 2", FailureOf(bytes));
}

TEST(KeySet, AHugeLengthIsRefused) {
    sec_bytes_t bytes = Serialised(Sample());
    for (const std::size_t lengthAt : {24U, 31U}) {  // of the hint, of the keys
        sec_bytes_t hostile = bytes;
        std::fill_n(hostile.begin() + static_cast<std::ptrdiff_t>(lengthAt), 4, static_cast<char>(0xFF));
        const std::size_t left = bytes.size() - lengthAt - 4;
        EXPECT_EQ("Failed to retrieve value from the binary stream: received less bytes (" + std::to_string(left) +
                      ") than expected (4294967295).",
                  FailureOf(hostile));
    }
    std::fill_n(bytes.begin() + 38, 4, static_cast<char>(0xFF));  // how many repair records
    EXPECT_TRUE(FailureOf(bytes).starts_with("Failed to retrieve value from the binary stream"));
}

TEST(KeySet, AHintThatIsNoTextIsRefused) {
    sec_bytes_t bytes = Serialised(Sample());
    bytes[28] = static_cast<char>(0xFF);
    EXPECT_EQ("Text is not valid UTF-8 at byte 0", FailureOf(bytes));
    const CKeySet keySet(CKeySetId::CreateNew(), std::wstring(1, static_cast<wchar_t>(0xD800)), {}, {});
    EXPECT_THROW(Serialised(keySet), exc::CRuntimeExc);
}

sec_bytes_t AnyBytes() {
    const auto bytes = *rc::gen::arbitrary<std::vector<char>>();
    return {bytes.begin(), bytes.end()};
}

SRawKeySetId AnyId() {
    SRawKeySetId id;
    for (auto& byte : id.bytes) {
        byte = *rc::gen::arbitrary<std::uint8_t>();
    }
    return id;
}

CKeySet AnyKeySet() {
    std::wstring hint;
    for (const int code : *rc::gen::container<std::vector<int>>(rc::gen::element(0, 1, 'a', 0xFC, 0x2116, 0x1F511))) {
        hint += static_cast<wchar_t>(code);
    }
    std::vector<CRestoreKeyRepairRec> records(*rc::gen::inRange<std::size_t>(0, 5));
    for (auto& record : records) {
        record = {AnyId(), AnyBytes()};
    }
    return {CKeySetId(AnyId()), hint, AnyBytes(), records};
}

RC_GTEST_PROP(KeySet, RoundTrips, ()) {
    const CKeySet keySet = AnyKeySet();
    const sec_bytes_t bytes = Serialised(keySet);
    const auto read = CKeySet::Unserial(bytes);
    RC_ASSERT(Same(keySet, *read));
    RC_ASSERT(Serialised(*read) == bytes);
}

RC_GTEST_PROP(KeySet, WhatIsReadIsWrittenBackTheSame, ()) {
    sec_bytes_t bytes = Serialised(AnyKeySet());
    const auto changes = *rc::gen::inRange(1, 4);
    for (int i = 0; i < changes; ++i) {
        bytes[*rc::gen::inRange<std::size_t>(0, bytes.size())] = *rc::gen::arbitrary<char>();
    }
    try {
        RC_ASSERT(Serialised(*CKeySet::Unserial(bytes)) == bytes);
    } catch (const exc::CRuntimeExc&) {
    }
}

RC_GTEST_PROP(RawKeySetId, TextsRoundTrip, ()) {
    const SRawKeySetId id = AnyId();
    RC_ASSERT(SRawKeySetId::FromStr(id.ToAStr()) == id);
}

}  // namespace
