#include "common/digest.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using digest::CSha256;
using digest::Md5;
using digest::Sha256;

constexpr std::string_view none;

TEST(Digest, Md5OfTheStandardsTestSuite) {
    const std::pair<std::string_view, const char*> examples[] = {
        {none, "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"}};
    for (const auto& [text, expected] : examples) {
        EXPECT_EQ(expected, Md5(text).ToAStr());
    }
}

TEST(Digest, Sha256OfTheStandardsExamples) {
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", Sha256(none).ToAStr());
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
              Sha256(std::string_view("abc")).ToAStr());
    EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
              Sha256(std::string_view("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")).ToAStr());
    EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0",
              Sha256(std::string(1000000, 'a')).ToAStr());
}

TEST(Digest, OrdersAndComparesByItsBytes) {
    digest::md5_digest_t a;
    digest::md5_digest_t b;
    EXPECT_EQ(a, b);
    b.bytes[15] = 1;
    EXPECT_LT(a, b);
    a.bytes[0] = 0xFF;
    EXPECT_LT(b, a);
    EXPECT_EQ("ff000000000000000000000000000000", a.ToAStr());
}

TEST(Sha256, StartsAnewAfterFinish) {
    CSha256 sha;
    EXPECT_EQ(Sha256(none), sha.Finish());
    sha.Update(std::string_view("x"));
    EXPECT_EQ(Sha256(std::string_view("x")), sha.Finish());
    EXPECT_EQ(Sha256(none), sha.Finish());
}

TEST(Sha256, MovesWithWhatItHas) {
    CSha256 first;
    first.Update(std::string_view("ab"));
    CSha256 second(std::move(first));
    second.Update(std::string_view("c"));
    CSha256 third;
    third.Update(std::string_view("other"));
    third = std::move(second);
    EXPECT_EQ(Sha256(std::string_view("abc")), third.Finish());
}

RC_GTEST_PROP(Sha256, PiecesGiveTheDigestOfTheWhole, (const std::vector<std::string>& pieces)) {
    CSha256 sha;
    std::string whole;
    for (const std::string& piece : pieces) {
        sha.Update(piece);
        whole += piece;
    }
    RC_ASSERT(sha.Finish() == Sha256(whole));
}

TEST(DigestThreads, FromSeveralThreadsAtOnce) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 200; ++k) {
                EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", Md5(std::string_view("abc")).ToAStr());
            }
        });
    }
}

// RFC 4231, test cases 1, 2 and 6.
TEST(HmacSha256, MatchesThePublishedVectors) {
    const std::string_view hi = "Hi There";
    EXPECT_EQ(digest::HmacSha256(std::string(20, '\x0b'), hi).ToAStr(),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(digest::HmacSha256(std::string_view("Jefe"), std::string_view("what do ya want for nothing?")).ToAStr(),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    EXPECT_EQ(digest::HmacSha256(std::string(131, '\xaa'),
                                 std::string_view("Test Using Larger Than Block-Size Key - Hash Key First"))
                  .ToAStr(),
              "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
}

}  // namespace
