#include "common/util.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cerrno>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "common/exc.h"
#include "common/posix.h"
#include "tests/support/TempDir.h"
#include "tests/support/Thrown.h"

namespace {

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

std::string Text(const cnt::array_t<char>& bytes) { return {bytes.begin(), bytes.end()}; }

TEST(Number, IsPlainDecimal) {
    EXPECT_EQ("0", util::str_from_uint64(0));
    EXPECT_EQ("18446744073709551615", util::str_from_uint64(largest));
}

TEST(Number, IsReadWhole) {
    EXPECT_EQ(0U, util::str_to_uint64("0"));
    EXPECT_EQ(7U, util::str_to_uint64("007"));
    EXPECT_EQ(largest, util::str_to_uint64("18446744073709551615"));
    EXPECT_EQ(12U, util::str_to_uint64(std::string_view("123", 2)));
}

TEST(Number, RefusesAllElse) {
    const std::string refused[] = {"",
                                   " ",
                                   "+1",
                                   "-1",
                                   "-0",
                                   " 1",
                                   "1 ",
                                   "1\n",
                                   "0x10",
                                   "1e3",
                                   "1.0",
                                   "1,0",
                                   "a",
                                   "1a",
                                   "١",
                                   "18446744073709551616",
                                   "-",
                                   "--1",
                                   "99999999999999999999999999"};
    for (const std::string& text : refused) {
        EXPECT_EQ("Not an unsigned number: '" + text + "'", test::ThrownBy([&] { (void)util::str_to_uint64(text); }));
    }
    EXPECT_THROW((void)util::str_to_uint64(std::string("1\0", 2)), exc::CRuntimeExc);
}

RC_GTEST_PROP(Number, RoundTrips, (std::uint64_t value)) {
    RC_ASSERT(util::str_to_uint64(util::str_from_uint64(value)) == value);
}

TEST(Base64, TheStandardsExamples) {
    const std::pair<std::string, std::string> examples[] = {{"", ""},
                                                            {"f", "Zg=="},
                                                            {"fo", "Zm8="},
                                                            {"foo", "Zm9v"},
                                                            {"foob", "Zm9vYg=="},
                                                            {"fooba", "Zm9vYmE="},
                                                            {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, encoded] : examples) {
        EXPECT_EQ(encoded, util::toBase64(plain));
        EXPECT_EQ(plain, Text(util::fromBase64(encoded)));
    }
}

TEST(Base64, TheWholeAlphabet) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto bytes = util::fromBase64(alphabet);
    EXPECT_EQ(48U, bytes.size());
    EXPECT_EQ(alphabet, util::toBase64(bytes));
}

TEST(Base64, AnyOtherTextGivesNothing) {
    const std::string refused[] = {
        "Z",          "Zg",   "Zg=",  "Zm8",  "Zg==Zg==", "Zm9vYg===", "=",       "==",
        "====",       "=Zg=", "Z===", "Zg=Z", " Zg==",    "Zg== ",     "Zg==\n",  "Zm9v\n",
        "Zm9vYm\nFy", "Zm 9", "Zm-_", "Zm.v", "Zm9\x80",  "-----",     "Zm9vYmF", "Zm9v====",
    };
    for (const std::string& text : refused) {
        EXPECT_TRUE(util::fromBase64(text).empty()) << text;
    }
    EXPECT_TRUE(util::fromBase64(std::string("Zm\0v", 4)).empty());
}

TEST(Base64, StrayBitsBeforeThePaddingAreRefused) {
    EXPECT_EQ("f", Text(util::fromBase64("Zg==")));
    EXPECT_TRUE(util::fromBase64("Zh==").empty());
    EXPECT_TRUE(util::fromBase64("Zv==").empty());
    EXPECT_EQ("fo", Text(util::fromBase64("Zm8=")));
    EXPECT_TRUE(util::fromBase64("Zm9=").empty());
    EXPECT_TRUE(util::fromBase64("Zm+=").empty());
}

RC_GTEST_PROP(Base64, BytesRoundTrip, (const std::vector<char>& bytes)) {
    const std::string text = util::toBase64(bytes);
    RC_ASSERT(text.size() == (bytes.size() + 2) / 3 * 4);
    RC_ASSERT(util::fromBase64(text) == bytes);
}

RC_GTEST_PROP(Base64, WhatIsReadPrintsBackUnchanged, ()) {
    const auto text = *rc::gen::container<std::string>(rc::gen::element('A', 'Q', 'g', '8', '/', '=', ' '));
    const auto bytes = util::fromBase64(text);
    RC_ASSERT(bytes.empty() || util::toBase64(bytes) == text);
}

TEST(SecureErase, OverwritesExactlyWhatItIsGiven) {
    char memory[] = "0123456789";
    util::SecureErase(memory + 2, 5);
    EXPECT_EQ(std::string("01\0\0\0\0\0"
                          "789",
                          10),
              std::string(memory, 10));
    util::SecureErase(memory, 0);
    EXPECT_EQ('0', memory[0]);
}

TEST(Utf8, BothWays) {
    const std::pair<std::wstring, std::string> examples[] = {{L"", ""},
                                                             {L"plain", "plain"},
                                                             {L"\x7F\x80", "\x7F\xC2\x80"},
                                                             {L"\x7FF\x800", "\xDF\xBF\xE0\xA0\x80"},
                                                             {L"\xFFFF\x10000", "\xEF\xBF\xBF\xF0\x90\x80\x80"},
                                                             {L"\xD7FF\xE000", "\xED\x9F\xBF\xEE\x80\x80"},
                                                             {L"\x10FFFF", "\xF4\x8F\xBF\xBF"},
                                                             {L"Schlüssel №1 🔑", "Schlüssel №1 🔑"}};
    for (const auto& [wide, utf8] : examples) {
        EXPECT_EQ(utf8, util::WideToUtf8(wide));
        EXPECT_EQ(wide, util::Utf8ToWide(utf8));
    }
    const std::string nul("a\0b", 3);
    EXPECT_EQ(nul, util::WideToUtf8(util::Utf8ToWide(nul)));
}

TEST(Utf8, InvalidBytesAreRefusedAndPlaced) {
    const std::string refused[] = {"\x80",
                                   "\xBF",
                                   "\xC0\x80",
                                   "\xC1\xBF",
                                   "\xC2",
                                   "\xC2x",
                                   "\xE0\x80\x80",
                                   "\xE0\x9F\xBF",
                                   "\xE2\x82",
                                   "\xE2\x82x",
                                   "\xED\xA0\x80",
                                   "\xED\xBF\xBF",
                                   "\xF0\x80\x80\x80",
                                   "\xF0\x8F\xBF\xBF",
                                   "\xF4\x90\x80\x80",
                                   "\xF0\x9F\x94",
                                   "\xF5\x80\x80\x80",
                                   "\xFE",
                                   "\xFF"};
    for (const std::string& bytes : refused) {
        EXPECT_EQ("Text is not valid UTF-8 at byte 2", test::ThrownBy([&] { (void)util::Utf8ToWide("ab" + bytes); }));
        EXPECT_EQ(0U, util::Utf8SequenceLength(bytes));
    }
}

TEST(Utf8, CharactersThatUnicodeDoesNotKnowAreRefused) {
    EXPECT_EQ("Text has a character that Unicode does not know: 55296",
              test::ThrownBy([] { (void)util::WideToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))); }));
    EXPECT_EQ("Text has a character that Unicode does not know: 1114112",
              test::ThrownBy([] { (void)util::WideToUtf8(std::wstring(1, static_cast<wchar_t>(0x110000))); }));
    EXPECT_EQ("Text has a character that Unicode does not know: 4294967295",
              test::ThrownBy([] { (void)util::WideToUtf8(std::wstring(1, static_cast<wchar_t>(-1))); }));
}

TEST(Utf8, SequenceLengths) {
    EXPECT_EQ(0U, util::Utf8SequenceLength(""));
    EXPECT_EQ(1U, util::Utf8SequenceLength(std::string_view("\0", 1)));
    EXPECT_EQ(1U, util::Utf8SequenceLength("abc"));
    EXPECT_EQ(2U, util::Utf8SequenceLength("ü"));
    EXPECT_EQ(3U, util::Utf8SequenceLength("№1"));
    EXPECT_EQ(4U, util::Utf8SequenceLength("🔑🔑"));
}

RC_GTEST_PROP(Utf8, EveryTextRoundTrips, ()) {
    const auto character =
        rc::gen::suchThat(rc::gen::inRange(0, 0x110000), [](int c) { return c < 0xD800 || c > 0xDFFF; });
    const auto codes = *rc::gen::container<std::vector<int>>(character);
    std::wstring wide;
    for (const int code : codes) {
        wide += static_cast<wchar_t>(code);
    }
    RC_ASSERT(util::Utf8ToWide(util::WideToUtf8(wide)) == wide);
}

RC_GTEST_PROP(Utf8, AnyBytesAreReadExactlyOrRefused, ()) {
    const auto byte = rc::gen::element<int>('a', 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC2, 0xE0, 0xED, 0xEF, 0xF0,
                                            0xF4, 0xF5, 0xFF);
    std::string bytes;
    for (const int one : *rc::gen::container<std::vector<int>>(byte)) {
        bytes += static_cast<char>(one);
    }
    try {
        RC_ASSERT(util::WideToUtf8(util::Utf8ToWide(bytes)) == bytes);
    } catch (const exc::CRuntimeExc&) {
    }
}

TEST(FileHelpers, SizeDeleteRename) {
    const test::TempDir dir;
    posix::posix_file_t::OpenOrCreate4Write(dir / "a", true, 0).Write(std::string_view("12345"));
    posix::posix_file_t::OpenOrCreate4Write(dir / "b", true, 0).Write(std::string_view("old"));
    EXPECT_EQ(5U, util::fs_file_size(dir / "a"));
    util::fs_file_rename(dir / "a", dir / "b");
    EXPECT_EQ(5U, util::fs_file_size(dir / "b"));
    EXPECT_EQ("Cannot tell the size of '" + (dir / "a") + "': No such file or directory",
              test::ThrownBy([&] { (void)util::fs_file_size(dir / "a"); }));
    util::fs_file_delete(dir / "b");
    util::fs_file_delete(dir / "b");
    EXPECT_THROW((void)util::fs_file_size(dir / "b"), posix::CPosixExc);
}

TEST(FileHelpers, FailuresNameTheFile) {
    const test::TempDir dir;
    EXPECT_EQ("Cannot delete '" + dir.GetPath() + "': Is a directory",
              test::ThrownBy([&] { util::fs_file_delete(dir.GetPath()); }));
    EXPECT_EQ("Cannot rename '" + (dir / "none") + "': No such file or directory",
              test::ThrownBy([&] { util::fs_file_rename(dir / "none", dir / "x"); }));
}

TEST(FileHelpers, APathWithANulIsRefusedWhole) {
    const test::TempDir dir;
    posix::posix_file_t::OpenOrCreate4Write(dir / "a", true, 0).Write(std::string_view("kept"));
    const std::string path = dir / std::string_view("a\0b", 3);
    EXPECT_THROW((void)util::fs_file_size(path), posix::CPosixExc);
    EXPECT_THROW(util::fs_file_delete(path), posix::CPosixExc);
    EXPECT_THROW(util::fs_file_rename(path, dir / "c"), posix::CPosixExc);
    EXPECT_THROW(util::fs_file_rename(dir / "a", path), posix::CPosixExc);
    EXPECT_EQ(4U, util::fs_file_size(dir / "a"));
}

}  // namespace
