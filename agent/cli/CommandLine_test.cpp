#include "agent/cli/CommandLine.h"

#include <gtest/gtest.h>

#include "agent/cli/HelpFormatter.h"

namespace {

using namespace agent;  // NOLINT

enum class EColor { red = 3, green = 5 };

class CommandLine : public ::testing::Test {
protected:
    CommandLine() {
        app_.formatter(std::make_shared<CHelpFormatter>());
        app_.require_subcommand(1);
        app_.fallthrough();
        app_.add_option("--color", text_, "A color")->envname("TEST_COLOR")->default_str("red");
        CLI::App* find = app_.add_subcommand("find", "Find things");
        find->add_option("PATTERN", patterns_, "What to look for")->required();
        find->add_option("--with", with_, "Also these")->allow_extra_args(false)->type_name("WORD");
        find->add_option("--number", number_, "How many")->check(CLI::Range(1, 9))->type_name("N");
        SetChoices<EColor>(find->add_option("--paint", paint_, "In a color"),
                           {{"red", EColor::red}, {"green", EColor::green}});
        CLI::App* key = app_.add_subcommand("key", "Keys");
        key->require_subcommand(1);
        key->add_subcommand("export", "Write them");
        FinishDefinition(app_);
    }

    void Parse(std::vector<const char*> words) {
        words.insert(words.begin(), "cb");
        ParseWords(app_, GuardWords(static_cast<int>(words.size()), words.data()));
    }

    std::string FailureOf(const std::vector<const char*>& words) {
        try {
            Parse(words);
        } catch (const CLI::ParseError& failure) {
            return DescribeWrongUse(app_, failure);
        }
        return "none";
    }

    CLI::App app_{"Does things.", "cb"};
    std::string text_;
    std::vector<std::string> patterns_;
    std::vector<std::string> with_;
    int number_ = 0;
    EColor paint_ = EColor::red;
};

using words_t = std::vector<std::string>;

TEST_F(CommandLine, KeepsBracketsWhereverTheyStand) {
    Parse({"--color", "[c]", "find", "[ab]", "[a,b]", "[[x]]", "[", "[]", "--with", "[w]", "--with=[v,u]", "\x01[z]"});
    EXPECT_EQ(patterns_, (words_t{"[ab]", "[a,b]", "[[x]]", "[", "[]", "\x01[z]"}));
    EXPECT_EQ(with_, (words_t{"[w]", "[v,u]"}));
    EXPECT_EQ(text_, "[c]");
}

TEST_F(CommandLine, KeepsBracketsBehindTwoDashes) {
    Parse({"find", "--", "[ab]", "--with"});
    EXPECT_EQ(patterns_, (words_t{"[ab]", "--with"}));
}

TEST_F(CommandLine, ChoosesByName) {
    Parse({"find", "x", "--paint", "green"});
    EXPECT_EQ(paint_, EColor::green);
}

TEST_F(CommandLine, NamesTheChoices) {
    EXPECT_EQ(FailureOf({"find", "x", "--paint", "blue"}),
              "--paint: 'blue' is none of red|green (see 'cb find --help')");
    EXPECT_EQ(FailureOf({"find", "x", "--paint", "5"}), "--paint: '5' is none of red|green (see 'cb find --help')");
}

TEST_F(CommandLine, SuggestsTheNearestCommand) {
    EXPECT_EQ(FailureOf({"fnid"}), "'fnid' is no command; did you mean 'find'? (see 'cb --help')");
    EXPECT_EQ(FailureOf({"frob"}), "'frob' is no command (see 'cb --help')");
    EXPECT_EQ(FailureOf({"key", "exprot"}), "'exprot' is no command; did you mean 'export'? (see 'cb key --help')");
    EXPECT_EQ(FailureOf({"[x]"}), "'[x]' is no command (see 'cb --help')");
}

TEST_F(CommandLine, SuggestsTheNearestOption) {
    EXPECT_EQ(FailureOf({"find", "x", "--wiht=3"}),
              "'--wiht' is no option of 'cb find'; did you mean '--with'? (see 'cb find --help')");
    EXPECT_EQ(FailureOf({"find", "x", "--colour", "3"}),
              "'--colour' is no option of 'cb find'; did you mean '--color'? (see 'cb find --help')");
    EXPECT_EQ(FailureOf({"find", "x", "--nothing"}), "'--nothing' is no option of 'cb find' (see 'cb find --help')");
}

TEST_F(CommandLine, SaysWhatIsMissingOrTooMuch) {
    EXPECT_EQ(FailureOf({"find"}), "PATTERN is required (see 'cb find --help')");
    EXPECT_EQ(FailureOf({"key", "export", "[x]"}),
              "'[x]' is one argument too many for 'cb key export' (see 'cb key export --help')");
    EXPECT_EQ(FailureOf({"find", "x", "--number", "77"}),
              "--number: Value 77 not in range 1 to 9 (see 'cb find --help')");
}

TEST_F(CommandLine, GivesTheShortHelpToWhoNamesNoCommand) {
    EXPECT_EQ(FailureOf({}),
              "no command was given\n"
              "Usage: cb [OPTIONS] COMMAND\n"
              "\n"
              "Commands:\n"
              "  find                        Find things\n"
              "  key                         Keys\n"
              "\n"
              "'cb COMMAND --help' tells more of a command, 'cb --help' the options of all.");
    EXPECT_TRUE(FailureOf({"key"}).starts_with("no command was given\nUsage: cb key [OPTIONS] COMMAND\n"));
}

TEST_F(CommandLine, ShowsOptionsByTheirValuesNames) {
    try {
        Parse({"find", "--help"});
        FAIL();
    } catch (const CLI::CallForHelp&) {
    }
    EXPECT_EQ(app_.help(),
              "Find things\n"
              "Usage: cb find [OPTIONS] PATTERN...\n"
              "\n"
              "Arguments:\n"
              "  PATTERN                     What to look for\n"
              "\n"
              "Options:\n"
              "  -h, --help                  Print this help message and exit\n"
              "  --with WORD                 Also these (may be repeated)\n"
              "  --number N                  How many\n"
              "  --paint red|green           In a color\n"
              "\n"
              "Options of all commands (--repo, --set, --json, ...): see 'cloudbackup --help'.\n");
}

TEST(HelpFormatter, WrapsBetweenWords) {
    EXPECT_EQ(WrapText("one two three four", 9), "one two\nthree\nfour");
    EXPECT_EQ(WrapText("extraordinarily long", 5), "extraordinarily\nlong");
    EXPECT_EQ(WrapText("one\ntwo", 80), "one\ntwo");
    EXPECT_EQ(WrapText("", 80), "");
}

}  // namespace
