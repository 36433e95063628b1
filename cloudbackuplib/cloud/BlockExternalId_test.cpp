#include "cloudbackuplib/BlockExternalId.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <utility>

#include "common/exc.h"

namespace cloudbackuplib::backup {
namespace {

using bytes_t = std::array<std::uint8_t, 16>;

SBlockExternalId MakeId() {
    SBlockExternalId id;
    for (std::uint8_t i = 0; i < 16; ++i) {
        id.id[i] = static_cast<std::uint8_t>(0xF0U + i);
        id.keySetId.bytes[i] = static_cast<std::uint8_t>(0xA0U + i);
    }
    id.number32 = 0x01020304;
    id.number64 = 0x1112131415161718;
    return id;
}

std::string Bytes(const SBlockExternalId& id) {
    io::mem_stream_tt<> stream;
    id.Serial(stream);
    return {stream.GetBuffer().begin(), stream.GetBuffer().end()};
}

io::mem_stream_tt<> StreamOf(const std::string& bytes) {
    return io::mem_stream_tt<>(cnt::array_t<char>(bytes.begin(), bytes.end()));
}

std::string ReadFailure(const std::string& bytes) {
    auto stream = StreamOf(bytes);
    SBlockExternalId id;
    try {
        SBlockExternalId::Unserial(stream, id);
    } catch (const exc::CRuntimeExc& e) {
        return e.what();
    }
    return "";
}

/// Takes so many bytes and no more.
class CFullStream : public io::binary_stream_tt {
public:
    explicit CFullStream(std::size_t room) : room_(room) {}
    std::size_t Write(const void*, std::size_t size) override {
        const std::size_t taken = std::min(size, room_);
        room_ -= taken;
        return taken;
    }
    std::size_t Read(void*, std::size_t) override { return 0; }

private:
    std::size_t room_;
};

std::string WriteFailure(std::size_t room) {
    CFullStream stream(room);
    try {
        MakeId().Serial(stream);
    } catch (const exc::CRuntimeExc& e) {
        return e.what();
    }
    return "";
}

const std::string goldenBytes(
    "\xf0\xf1\xf2\xf3\xf4\xf5\xf6\xf7\xf8\xf9\xfa\xfb\xfc\xfd\xfe\xff"
    "\xa0\xa1\xa2\xa3\xa4\xa5\xa6\xa7\xa8\xa9\xaa\xab\xac\xad\xae\xaf"
    "\x04\x03\x02\x01"
    "\x18\x17\x16\x15\x14\x13\x12\x11",
    44);

TEST(BlockExternalId, IsAllZeroAtFirst) {
    const SBlockExternalId id;
    EXPECT_EQ(Bytes(id), std::string(44, '\0'));
}

TEST(BlockExternalId, HasAFixedBinaryForm) { EXPECT_EQ(Bytes(MakeId()), goldenBytes); }

TEST(BlockExternalId, IsReadFromItsBinaryForm) {
    auto stream = StreamOf(goldenBytes + "rest");
    SBlockExternalId id;
    EXPECT_EQ(SBlockExternalId::Unserial(stream, id), MakeId());
    EXPECT_EQ(id, MakeId());
    EXPECT_EQ(stream.GetRemaining(), 4U);
}

TEST(BlockExternalId, TellsOfAReadThatIsTooShort) {
    const std::string message =
        "Failed to retrieve value from the binary stream: received less bytes (%1) than expected (%2).";
    EXPECT_EQ(ReadFailure(goldenBytes.substr(0, 32)), exc::Format(message, 0, 4));
    EXPECT_EQ(ReadFailure(goldenBytes.substr(0, 35)), exc::Format(message, 3, 4));
    EXPECT_EQ(ReadFailure(goldenBytes.substr(0, 36)), exc::Format(message, 0, 8));
    EXPECT_EQ(ReadFailure(goldenBytes.substr(0, 43)), exc::Format(message, 7, 8));
    EXPECT_EQ(ReadFailure(goldenBytes.substr(0, 31)), exc::Format(message, 15, 16));
    // The count of the first 16 bytes is not checked: what is missing shows in the field behind them.
    EXPECT_EQ(ReadFailure(goldenBytes.substr(0, 10)), exc::Format(message, 0, 16));
    EXPECT_EQ(ReadFailure(""), exc::Format(message, 0, 16));
}

TEST(BlockExternalId, StaysAsItWasWhenAReadFails) {
    SBlockExternalId id = MakeId();
    for (std::size_t size = 0; size < goldenBytes.size(); ++size) {
        auto stream = StreamOf(std::string(size, '\0'));
        EXPECT_THROW(SBlockExternalId::Unserial(stream, id), exc::CRuntimeExc) << size;
        EXPECT_EQ(id, MakeId()) << size;
    }
}

TEST(BlockExternalId, TellsOfAWriteThatIsTooShort) {
    const std::string message =
        "Failed to write value to the binary stream: written less bytes (%1) than expected (%2).";
    EXPECT_EQ(WriteFailure(44), "");
    EXPECT_EQ(WriteFailure(43), exc::Format(message, 7, 8));
    EXPECT_EQ(WriteFailure(36), exc::Format(message, 0, 8));
    EXPECT_EQ(WriteFailure(35), exc::Format(message, 3, 4));
    EXPECT_EQ(WriteFailure(32), exc::Format(message, 0, 4));
    EXPECT_EQ(WriteFailure(31), exc::Format(message, 15, 16));
}

TEST(BlockExternalId, DoesNotCheckTheCountOfTheIdWhenWriting) {
    /// Takes everything, but says of the first write that it took nothing.
    class CFirstWriteLost : public CFullStream {
    public:
        CFirstWriteLost() : CFullStream(1000) {}
        std::size_t Write(const void* data, std::size_t size) override {
            const std::size_t taken = CFullStream::Write(data, size);
            return std::exchange(first_, false) ? 0 : taken;
        }

    private:
        bool first_ = true;
    } stream;
    EXPECT_NO_THROW(MakeId().Serial(stream));
}

TEST(BlockExternalId, DoesNotCheckTheCountOfTheIdWhenReading) {
    /// Gives everything, but says of the first read that it gave nothing.
    class CFirstReadLost : public io::mem_stream_tt<> {
    public:
        using io::mem_stream_tt<>::mem_stream_tt;
        std::size_t Read(void* data, std::size_t size) override {
            const std::size_t received = io::mem_stream_tt<>::Read(data, size);
            return std::exchange(first_, false) ? 0 : received;
        }

    private:
        bool first_ = true;
    } stream(cnt::array_t<char>(goldenBytes.begin(), goldenBytes.end()));
    SBlockExternalId id;
    EXPECT_EQ(SBlockExternalId::Unserial(stream, id), MakeId());
}

TEST(BlockExternalId, CutAnywhereIsRefused) {
    for (std::size_t size = 0; size < goldenBytes.size(); ++size) {
        EXPECT_NE(ReadFailure(goldenBytes.substr(0, size)), "") << size;
    }
    EXPECT_EQ(ReadFailure(goldenBytes), "");
}

TEST(BlockExternalId, ComparesEachFieldForEquality) {
    const auto differs = [](auto change) {
        SBlockExternalId id = MakeId();
        change(id);
        return id != MakeId() && !(id == MakeId());
    };
    EXPECT_FALSE(differs([](SBlockExternalId&) {}));
    EXPECT_TRUE(differs([](SBlockExternalId& id) { id.id[15] ^= 1; }));
    EXPECT_TRUE(differs([](SBlockExternalId& id) { id.keySetId.bytes[15] ^= 1; }));
    EXPECT_TRUE(differs([](SBlockExternalId& id) { id.number32 ^= 1; }));
    EXPECT_TRUE(differs([](SBlockExternalId& id) { id.number64 ^= 1; }));
}

TEST(BlockExternalId, ComparesNumbersAsUnsigned) {
    SBlockExternalId low;
    SBlockExternalId high;
    low.number64 = 1;
    high.number64 = std::uint64_t{1} << 63U;
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    low.number32 = 1;
    high.number32 = std::uint32_t{1} << 31U;
    low.number64 = high.number64 + 1;
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
}

TEST(BlockExternalId, ComparesBytesAsUnsigned) {
    SBlockExternalId low;
    SBlockExternalId high;
    low.id = bytes_t{0x7F, 0xFF};
    high.id = bytes_t{0x80};
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    high.id = low.id;
    low.keySetId.bytes = bytes_t{0x7F, 0xFF};
    high.keySetId.bytes = bytes_t{0x80};
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
}

TEST(BlockExternalId, IsOrderedByItsFieldsInTurn) {
    std::array<SBlockExternalId, 5> ascending;
    ascending[1].number64 = 9;
    ascending[2].number32 = 1;
    ascending[3].keySetId.bytes[0] = 1;
    ascending[4].id[0] = 1;
    for (std::size_t a = 0; a < ascending.size(); ++a) {
        for (std::size_t b = 0; b < ascending.size(); ++b) {
            EXPECT_EQ(ascending[a] < ascending[b], a < b) << a << ", " << b;
        }
    }
}

SBlockExternalId ArbitraryId() {
    SBlockExternalId id;
    id.id = *rc::gen::arbitrary<bytes_t>();
    id.keySetId.bytes = *rc::gen::arbitrary<bytes_t>();
    id.number32 = *rc::gen::arbitrary<std::uint32_t>();
    id.number64 = *rc::gen::arbitrary<std::uint64_t>();
    return id;
}

RC_GTEST_PROP(BlockExternalId, AnyIdIsReadBack, ()) {
    const SBlockExternalId id = ArbitraryId();
    auto stream = StreamOf(Bytes(id));
    SBlockExternalId read;
    SBlockExternalId::Unserial(stream, read);
    RC_ASSERT(read == id);
    RC_ASSERT(stream.GetRemaining() == 0U);
}

RC_GTEST_PROP(BlockExternalId, OneOfTwoDifferentIdsIsLess, ()) {
    const SBlockExternalId a = ArbitraryId();
    const SBlockExternalId b = ArbitraryId();
    RC_ASSERT((a == b) == (!(a < b) && !(b < a)));
    RC_ASSERT(!((a < b) && (b < a)));
}

}  // namespace
}  // namespace cloudbackuplib::backup
