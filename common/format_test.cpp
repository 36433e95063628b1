#include "common/format.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "common/guid.h"

namespace {

using exc::Format;
using exc::FormatMessage;

TEST(Format, PlaceholdersAreFilledByPosition) {
    EXPECT_EQ("a b", Format("%1 %2", "a", "b"));
    EXPECT_EQ("b a b", Format("%2 %1 %2", "a", "b"));
    EXPECT_EQ("", Format("", "a"));
    EXPECT_EQ("none", Format("none", "a"));
}

TEST(Format, APlaceholderWithoutAnArgumentStays) {
    EXPECT_EQ("a %2 %3", Format("%1 %2 %3", "a"));
    EXPECT_EQ("%0 %00 %01", Format("%0 %00 %01", "a"));
    EXPECT_EQ("%1", Format("%1"));
    EXPECT_EQ("%99", FormatMessage("%99", {}));
}

TEST(Format, APercentThatBeginsNoPlaceholderStays) {
    EXPECT_EQ("%", Format("%", "a"));
    EXPECT_EQ("100%", Format("%1%", "100"));
    EXPECT_EQ("%a %% %%", Format("%a %% %%", "x"));
    EXPECT_EQ("%x", Format("%%1", "x"));
}

TEST(Format, TwoDigitsCountWhenThereAreSoManyArguments) {
    const std::vector<std::string> twelve{"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l"};
    EXPECT_EQ("l j a%", FormatMessage("%12 %10 %1%", twelve));
    EXPECT_EQ("a3", FormatMessage("%13", twelve)) << "no thirteenth: the first, then a 3";
    EXPECT_EQ("a2", Format("%12", "a"));
    EXPECT_EQ("%21", Format("%21", "a"));
    EXPECT_EQ("b1", Format("%21", "a", "b"));
    EXPECT_EQ("j0", FormatMessage("%100", twelve));
}

TEST(Format, AnArgumentsOwnPlaceholdersAreNotFilled) {
    EXPECT_EQ("%2 and %1", Format("%1 and %2", "%2", "%1"));
    EXPECT_EQ("%12", Format("%1%2", "%1", "2")) << "nor what the end of one and the next make together";
    EXPECT_EQ("%1", Format("%11", "%")) << "an argument's percent and a digit of the pattern";
}

RC_GTEST_PROP(Format, WhatArgumentsBringInIsNeverFilledAgain, (const std::vector<std::string>& args)) {
    std::string pattern;
    std::string expected;
    std::vector<std::string> hostile;
    for (std::size_t i = 0; i < args.size() && i < 99; ++i) {
        hostile.push_back(args[i] + *rc::gen::element<std::string>("%1", "%2", "%", "%%1", "%99", ""));
        pattern += "%" + std::to_string(i + 1) + "|";
        expected += hostile.back() + "|";
    }
    RC_ASSERT(FormatMessage(pattern, hostile) == expected);
}

RC_GTEST_PROP(Format, AnyPatternWithAnyArgumentsIsSafe, (const std::vector<std::string>& args)) {
    const auto pattern = *rc::gen::container<std::string>(rc::gen::element('%', '0', '1', '2', '9', 'a', '\0'));
    const std::string text = FormatMessage(pattern, args);
    if (args.empty()) {
        RC_ASSERT(text == pattern);
    }
}

TEST(Format, NumbersAreDecimal) {
    EXPECT_EQ("-1 18446744073709551615 255",
              Format("%1 %2 %3", -1, std::numeric_limits<std::uint64_t>::max(), std::uint8_t{255}));
    EXPECT_EQ("1 0", Format("%1 %2", true, false));
}

TEST(Format, StringsOfAllKinds) {
    const std::string text("a\0b", 3);
    EXPECT_EQ(text, Format("%1", text));
    EXPECT_EQ("view", Format("%1", std::string_view("view")));
    const char* pointer = "pointer";
    EXPECT_EQ("pointer", Format("%1", pointer));
    char array[] = "array";
    EXPECT_EQ("array", Format("%1", array));
}

TEST(Format, IdsInTheirTextForm) {
    EXPECT_EQ("<00000000-0000-0000-0000-000000000000>", Format("<%1>", guid::guid_t()));
}

}  // namespace
