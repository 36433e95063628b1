#include "agent/select/Pattern.h"

#include <gtest/gtest.h>

#include "agent/select/PatternList.h"

namespace agent {
namespace {

std::string_view LastName(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

bool Matches(const std::string& line, const std::string& path, bool isFolder = false, ECase letters = ECase::exact) {
    const auto pattern = CPattern::Parse(line, letters);
    EXPECT_TRUE(pattern) << line;
    return pattern && pattern->Matches(path, LastName(path), isFolder);
}

struct SCase {
    const char* pattern;
    const char* path;
    bool matches;
};

TEST(Pattern, MatchesAsItsPageSays) {
    const SCase cases[] = {
        {"foo", "foo", true},
        {"foo", "a/b/foo", true},
        {"foo", "foo/bar", false},  // what lies in it is left out with the folder
        {"foo", "fooo", false},
        {"/foo", "foo", true},
        {"/foo", "a/foo", false},
        {"a/foo", "a/foo", true},
        {"a/foo", "b/a/foo", false},
        {"/a/foo", "a/foo", true},
        {"*.o", "x.o", true},
        {"*.o", "a/b/.o", true},
        {"*.o", "x.oo", false},
        {"*", "anything", true},
        {"a/*", "a/b", true},
        {"a/*", "a/b/c", false},
        {"a/*/c", "a/b/c", true},
        {"a/*/c", "a/b/b/c", false},
        {"a*b*c", "aXbXc", true},
        {"a*b*c", "aXcXb", false},
        {"f?o", "fxo", true},
        {"f?o", "fo", false},
        {"a?b", "a/b", false},
        {"[a-c]x", "bx", true},
        {"[a-c]x", "dx", false},
        {"[!a-c]x", "dx", true},
        {"[^a-c]x", "bx", false},
        {"[]]x", "]x", true},
        {"[!]]x", "]x", false},
        {"[a-]x", "-x", true},
        {"[\\]]x", "]x", true},
        {"[\\a-c]x", "bx", true},
        {"[[:digit:]]", "7", true},
        {"[[:digit:]x]", "x", true},
        {"[[:alpha:]]", "7", false},
        {"[[:nonsense:]]", "n", false},
        {"[[:]x", ":x", true},
        {"[a", "[a", false},
        {"a[/x]b", "axb", true},
        {"**/foo", "foo", true},
        {"**/foo", "a/b/foo", true},
        {"**/foo/bar", "a/foo/bar", true},
        {"**/foo/bar", "a/foo/x/bar", false},
        {"abc/**", "abc/x/y", true},
        {"abc/**", "abc", false},
        {"a/**/b", "a/b", true},
        {"a/**/b", "a/x/y/b", true},
        {"a/**/b", "a/x/y/c", false},
        {"a/**/b/**/c", "a/b/b/x/c", true},
        {"a/**/**", "a/x", true},
        {"a/**/**", "a", false},
        {"**", "a/b", true},
        {"a**b", "axxb", true},
        {"x/a**b", "x/a/b", false},  // other asterisks in a row are ordinary ones
        {"\\#x", "#x", true},
        {"\\!x", "!x", true},
        {"\\*", "*", true},
        {"\\*", "x", false},
        {"foo\\", "foo", false},
        {"foo  ", "foo", true},
        {"foo\\ ", "foo ", true},
        {"foo\\  ", "foo ", true},
        {" foo", " foo", true},
        {"/", "a", false},
        {"a//b", "a/b", false},
        {"//a", "a", false},
        {"a\\/b", "a/b", true},
        {"\xc3\xa4*", "\xc3\xa4\xff", true},
        {"foo\r", "foo", true},
    };
    for (const auto& item : cases) {
        EXPECT_EQ(Matches(item.pattern, item.path), item.matches)
            << "'" << item.pattern << "' on '" << item.path << "'";
    }
}

TEST(Pattern, ASlashAtTheEndMeansFoldersOnly) {
    EXPECT_TRUE(Matches("foo/", "a/foo", true));
    EXPECT_FALSE(Matches("foo/", "a/foo", false));
    EXPECT_TRUE(Matches("a/foo/", "a/foo", true));
    EXPECT_FALSE(Matches("a/foo/", "b/a/foo", true));
    EXPECT_TRUE(Matches("**/", "a/foo", true));
    EXPECT_FALSE(Matches("**/", "a/foo", false));
}

TEST(Pattern, BlankLinesAndCommentsAreNone) {
    for (const char* line : {"", "   ", "# x", "#", "\r"}) {
        EXPECT_FALSE(CPattern::Parse(line)) << line;
    }
}

TEST(Pattern, AnExclamationMarkNegates) {
    EXPECT_TRUE(CPattern::Parse("!foo")->IsNegated());
    EXPECT_FALSE(CPattern::Parse("\\!foo")->IsNegated());
    EXPECT_TRUE(Matches("!foo", "foo"));
    EXPECT_FALSE(Matches("!", "a"));
}

TEST(Pattern, CanIgnoreTheCaseOfLetters) {
    const auto ignored = ECase::ignored;
    EXPECT_TRUE(Matches("*.JPG", "x.jpg", false, ignored));
    EXPECT_TRUE(Matches("*.jpg", "X.JpG", false, ignored));
    EXPECT_TRUE(Matches("[a-c]", "B", false, ignored));
    EXPECT_TRUE(Matches("[A]x", "aX", false, ignored));
    EXPECT_TRUE(Matches("Foo/b?R", "fOO/BaR", false, ignored));
    EXPECT_FALSE(Matches("*.JPG", "x.jpg"));
}

TEST(Pattern, TakesNoTimeForManyStars) {
    std::string pattern = "x/";
    for (int i = 0; i < 60; ++i) {
        pattern += "a*";
    }
    EXPECT_FALSE(Matches(pattern + "b", "x/" + std::string(4000, 'a')));
    std::string folders;
    for (int i = 0; i < 40; ++i) {
        folders += "**/a/";
    }
    std::string path;
    for (int i = 0; i < 500; ++i) {
        path += "a/";
    }
    EXPECT_FALSE(Matches(folders + "b", path + "c"));
}

EVerdict Judge(const std::string& lines, const std::string& path, bool isFolder = false) {
    CPatternList list;
    list.AddLines(lines);
    return list.Judge(path, LastName(path), isFolder);
}

TEST(PatternList, TheLastThatMatchesDecides) {
    EXPECT_EQ(Judge("*.o\n!keep.o\n", "keep.o"), EVerdict::take);
    EXPECT_EQ(Judge("!keep.o\n*.o\n", "keep.o"), EVerdict::leave);
    EXPECT_EQ(Judge("keep.o\n!*.o\nkeep.o", "keep.o"), EVerdict::leave);
    EXPECT_EQ(Judge("keep.o\n!keep.o\n", "keep.o"), EVerdict::take);
    EXPECT_EQ(Judge("*.o\n", "x.c"), EVerdict::none);
    EXPECT_EQ(Judge("", "x.c"), EVerdict::none);
}

TEST(PatternList, APlainNameForFoldersDoesNotHideAnEarlierOne) {
    EXPECT_EQ(Judge("foo\n!foo/\n", "foo", true), EVerdict::take);
    EXPECT_EQ(Judge("foo\n!foo/\n", "foo", false), EVerdict::leave);
}

TEST(PatternList, PassesOverAByteOrderMarkAndLineEndsOfOtherSystems) {
    EXPECT_EQ(Judge("\xef\xbb\xbf"
                    "foo\r\nbar\r\n",
                    "foo"),
              EVerdict::leave);
    EXPECT_EQ(Judge("foo\r\nbar\r\n", "bar"), EVerdict::leave);
}

TEST(PatternList, TheOrderHoldsBetweenPatternsOfAllKinds) {
    EXPECT_EQ(Judge("*\n!*.o\n", "x.o"), EVerdict::take);
    EXPECT_EQ(Judge("!*.o\n*\n", "x.o"), EVerdict::leave);
    EXPECT_EQ(Judge("*.o\n!x*\nx.o\n", "x.o"), EVerdict::leave);
    EXPECT_EQ(Judge("x.o\n*.o\n!x*\n", "x.o"), EVerdict::take);
    EXPECT_EQ(Judge("[!x]\n", "y"), EVerdict::leave);
    EXPECT_EQ(Judge("[!x]\n", "x"), EVerdict::none);
}

TEST(PatternList, ALongPatternIsReadInProportionToItsLength) {
    const std::string name(std::size_t{4} << 20U, 'a');  // as a square it would take minutes
    EXPECT_EQ(Judge("*b" + name, "xb" + name), EVerdict::leave);
    EXPECT_EQ(Judge("*b" + name, "xc" + name), EVerdict::none);
}

TEST(SplitLines, ALineEndAtTheEndBeginsNoLine) {
    using lines_t = std::vector<std::string_view>;
    EXPECT_EQ(SplitLines(""), lines_t());
    EXPECT_EQ(SplitLines("a"), lines_t({"a"}));
    EXPECT_EQ(SplitLines("a\n"), lines_t({"a"}));
    EXPECT_EQ(SplitLines("a\n\nb"), lines_t({"a", "", "b"}));
    EXPECT_EQ(SplitLines(std::string_view("a\0b\0", 4), '\0'), lines_t({"a", "b"}));
}

}  // namespace
}  // namespace agent
