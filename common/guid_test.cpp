#include "common/guid.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <string>

#include "common/exc.h"

namespace {

using guid::guid_t;

constexpr const char* plain = "01234567-89ab-cdef-0123-456789abcdef";

std::string ReadFailure(std::string_view text) {
    try {
        return "read as " + guid_t::FromStr(text).ToAStr();
    } catch (const exc::CRuntimeExc& failure) {
        return failure.what();
    }
}

guid_t AnyGuid() {
    std::array<std::uint8_t, 16> bytes;
    for (auto& byte : bytes) {
        byte = *rc::gen::arbitrary<std::uint8_t>();
    }
    return guid_t(bytes);
}

TEST(Guid, TheNullIdIsEmpty) {
    EXPECT_TRUE(guid_t().IsEmpty());
    EXPECT_EQ("00000000-0000-0000-0000-000000000000", guid_t().ToAStr());
    EXPECT_TRUE(guid_t::FromStr("00000000-0000-0000-0000-000000000000").IsEmpty());
    EXPECT_FALSE(guid_t::FromStr("00000000-0000-0000-0000-000000000001").IsEmpty());
}

TEST(Guid, BytesStandInTheOrderOfTheText) {
    const guid_t id = guid_t::FromStr(plain);
    const std::array<std::uint8_t, 16> bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef,
                                             0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};
    EXPECT_EQ(bytes, id.GetBytes());
    EXPECT_EQ(id, guid_t(bytes));
    EXPECT_EQ(plain, id.ToAStr());
}

TEST(Guid, ReadsUpperCaseAndBracesAndPrintsNeither) {
    EXPECT_EQ(plain, guid_t::FromStr("01234567-89AB-CDEF-0123-456789ABCDEF").ToAStr());
    EXPECT_EQ(plain, guid_t::FromStr("{01234567-89ab-CDEF-0123-456789abcdef}").ToAStr());
}

TEST(Guid, RefusesAnyOtherForm) {
    const std::string good(plain);
    const std::string refused[] = {
        "",
        "{}",
        "0123456789abcdef0123456789abcdef",
        good.substr(1),
        good + "0",
        " " + good,
        good + " ",
        "{" + good,
        good + "}",
        "}" + good + "{",
        "(" + good + ")",
        "{{" + good + "}}",
        "0123456-789ab-cdef-0123-456789abcdef",
        "01234567_89ab_cdef_0123_456789abcdef",
        "g1234567-89ab-cdef-0123-456789abcdef",
        "01234567-89ab-cdef-0123-456789abcde-",
        std::string("01234567-89ab-cdef-0123-456789abcde\0", 36),
        std::string(100000, 'a'),
    };
    for (const std::string& text : refused) {
        EXPECT_THROW((void)guid_t::FromStr(text), exc::CRuntimeExc) << text;
    }
    EXPECT_EQ("Invalid GUID: 'x'", ReadFailure("x"));
    EXPECT_EQ("Invalid GUID: ''", ReadFailure(""));
}

TEST(Guid, NewOnesAreRandomVersionFour) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const guid_t id = guid_t::CreateNew();
        EXPECT_EQ(0x40, id.GetBytes()[6] & 0xF0);
        EXPECT_EQ(0x80, id.GetBytes()[8] & 0xC0);
        EXPECT_TRUE(seen.insert(id.ToAStr()).second);
    }
}

RC_GTEST_PROP(Guid, TextsRoundTrip, ()) {
    const guid_t id = AnyGuid();
    std::string text = id.ToAStr();
    RC_ASSERT(guid_t::FromStr(text) == id);
    RC_ASSERT(guid_t::FromStr(text).ToAStr() == text);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
    RC_ASSERT(guid_t::FromStr("{" + text + "}") == id);
}

RC_GTEST_PROP(Guid, OrdersAsItsBytes, ()) {
    const guid_t a = AnyGuid();
    const guid_t b = AnyGuid();
    RC_ASSERT((a < b) == (a.GetBytes() < b.GetBytes()));
    RC_ASSERT((a == b) == (a.GetBytes() == b.GetBytes()));
    RC_ASSERT((a < b) == (a.ToAStr() < b.ToAStr()));
}

}  // namespace
