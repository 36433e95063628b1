#include "agent/keys/Sealing.h"

#include <gtest/gtest.h>

#include <string>

#include "common/digest.h"
#include "tests/support/Thrown.h"

namespace agent {

namespace {

std::string FromHex(std::string_view hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    }
    return bytes;
}

SSealKey KeyOf(std::string_view bytes) {
    SSealKey key;
    std::copy(bytes.begin(), bytes.end(), key.bytes.begin());
    return key;
}

seal_nonce_t NonceOf(std::string_view bytes) {
    seal_nonce_t nonce{};
    std::copy(bytes.begin(), bytes.end(), nonce.begin());
    return nonce;
}

SSealKey SomeKey() { return KeyOf("0123456789abcdef0123456789abcdef"); }

constexpr const char* refused = "it is not what was sealed with this key";

/// Test case 16 of the paper that defines the mode (McGrew and Viega, "The Galois/Counter Mode of Operation").
TEST(Sealing, GivesThePublishedExample) {
    const SSealKey key = KeyOf(FromHex("feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308"));
    const std::string nonce = FromHex("cafebabefacedbaddecaf888");
    const std::string plain = FromHex(
        "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de6"
        "57ba"
        "637b39");
    const std::string context = FromHex("feedfacedeadbeeffeedfacedeadbeefabaddad2");
    std::string room(plain.size() + sealOverhead, '\0');
    const auto sealed = CSealer().Seal(key, NonceOf(nonce), context, plain, room);
    EXPECT_EQ(
        std::string(sealed.begin(), sealed.end()),
        nonce + FromHex("522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b1056"
                        "828838c5f61e6393ba7a0abcc9f662"
                        "76fc6ece0f4e1768cddf8853bb2d551b"));
}

TEST(Sealing, OpensWhatItSealed) {
    for (const std::size_t size : {0U, 1U, 15U, 16U, 17U, 100'000U}) {
        const std::string plain(size, 'x');
        EXPECT_EQ(OpenText(SomeKey(), "place", SealText(SomeKey(), "place", plain)), plain) << size;
    }
}

TEST(Sealing, SealsInPlace) {
    std::string plain = "what lies where it will stand";
    std::string room(sealNonceSize, '\0');
    room += plain;
    room.resize(room.size() + sealTagSize);
    CSealer sealer;
    const auto sealed =
        sealer.Seal(SomeKey(), RandomNonce(), "", std::span(room).subspan(sealNonceSize, plain.size()), room);
    EXPECT_EQ(OpenText(SomeKey(), "", {sealed.data(), sealed.size()}), plain);
}

TEST(Sealing, GivesAnotherNonceToEveryText) {
    EXPECT_NE(SealText(SomeKey(), "", "text"), SealText(SomeKey(), "", "text"));
}

TEST(Sealing, NoticesEveryChangedByte) {
    const std::string sealed = SealText(SomeKey(), "place", "some text");
    for (std::size_t i = 0; i < sealed.size(); ++i) {
        std::string changed = sealed;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        EXPECT_EQ(test::ThrownBy([&] { static_cast<void>(OpenText(SomeKey(), "place", changed)); }), refused) << i;
    }
}

TEST(Sealing, NoticesAnotherKeyPlaceOrLength) {
    const std::string sealed = SealText(SomeKey(), "place", "some text");
    const auto open = [&](const SSealKey& key, std::string_view context, const std::string& bytes) {
        return test::ThrownBy([&] { static_cast<void>(OpenText(key, context, bytes)); });
    };
    EXPECT_EQ(open(SSealKey(), "place", sealed), refused);
    EXPECT_EQ(open(SomeKey(), "elsewhere", sealed), refused);
    EXPECT_EQ(open(SomeKey(), "", sealed), refused);
    EXPECT_EQ(open(SomeKey(), "place", sealed.substr(0, sealed.size() - 1)), refused);
    EXPECT_EQ(open(SomeKey(), "place", sealed.substr(0, sealOverhead - 1)), "27 bytes are too few to be sealed ones");
}

TEST(Sealing, WantsBuffersThatFit) {
    std::string room(10, '\0');
    EXPECT_THROW(CSealer().Seal(SomeKey(), RandomNonce(), "", std::string_view("text"), room), exc::CRuntimeExc);
    EXPECT_EQ(test::ThrownBy([&] { CSealer().Open(SomeKey(), "", std::string_view("text"), room); }),
              "4 sealed bytes cannot hold 10");
}

TEST(Sealing, OneSealerServesManyKeysBothWays) {
    CSealer sealer;
    for (int i = 0; i < 20; ++i) {
        SSealKey key = SomeKey();
        key.bytes[0] = static_cast<char>(i);
        const std::string plain = std::to_string(i);
        std::string room(plain.size() + sealOverhead, '\0');
        sealer.Seal(key, RandomNonce(), "c", plain, room);
        std::string opened(plain.size(), '\0');
        sealer.Open(key, "c", room, opened);
        EXPECT_EQ(opened, plain);
        EXPECT_THROW(sealer.Open(SomeKey(), "other", room, opened), CUnsealExc);  // and goes on after a failure
    }
}

}  // namespace
}  // namespace agent
