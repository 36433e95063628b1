#include "agent/cli/ConfigFile.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>

#include "common/exc.h"
#include "tests/support/TempDir.h"

namespace agent {
namespace {

class ConfigFile : public testing::Test {
protected:
    ConfigFile() {
        app_.add_option("--word", word_)->envname("CB_TEST_WORD");
        app_.add_option("--number", number_)->envname("CB_TEST_NUMBER");
        app_.add_flag("--flag", flag_)->envname("CB_TEST_FLAG");
        Forget();
    }
    ~ConfigFile() override { Forget(); }

    static void Forget() {
        for (const char* name : {"CB_TEST_WORD", "CB_TEST_NUMBER", "CB_TEST_FLAG"}) {
            ::unsetenv(name);
        }
    }
    void Load(const std::string& text) {
        std::ofstream(dir_ / "config") << text;
        LoadConfigFile(app_, dir_ / "config", true);
    }
    std::string FailureOf(const std::string& text) {
        try {
            Load(text);
        } catch (const exc::CRuntimeExc& failure) {
            return failure.GetMessage();
        }
        return "none";
    }

    const test::TempDir dir_;
    CLI::App app_;
    std::string word_ = "default";
    int number_ = 0;
    bool flag_ = false;
};

TEST_F(ConfigFile, TheCommandLineGoesBeforeTheEnvironmentAndThatBeforeTheFile) {
    ::setenv("CB_TEST_NUMBER", "2", 1);
    Load("# a comment\nword = \"of the file\"\nnumber = 3\nflag = true\n");
    app_.parse("--word given");
    EXPECT_EQ(word_, "given");
    EXPECT_EQ(number_, 2);
    EXPECT_TRUE(flag_);
}

TEST_F(ConfigFile, WhatTheFileDoesNotSayStaysAsItIs) {
    Load("number = 7\n");
    app_.parse("");
    EXPECT_EQ(word_, "default");
    EXPECT_EQ(number_, 7);
    EXPECT_FALSE(flag_);
}

TEST_F(ConfigFile, AnUnknownKeyIsToldWithTheFile) {
    EXPECT_EQ(FailureOf("wrod = \"x\"\n"),
              "Configuration file '" + (dir_ / "config") + "': 'wrod' is no option of the program with one value");
    EXPECT_EQ(
        FailureOf("[section]\nword = \"x\"\n"),
        "Configuration file '" + (dir_ / "config") + "': 'section.word' is no option of the program with one value");
}

TEST_F(ConfigFile, OnlyAFileThatWasAskedForMustExist) {
    EXPECT_NO_THROW(LoadConfigFile(app_, dir_ / "none", false));
    EXPECT_NO_THROW(LoadConfigFile(app_, {}, false));
    EXPECT_THROW(LoadConfigFile(app_, dir_ / "none", true), exc::CRuntimeExc);
}

TEST_F(ConfigFile, IsFoundOnTheCommandLine) {
    const std::array<const char*, 3> apart{"program", "--config", "file"};
    EXPECT_EQ(GivenConfigFile(3, apart.data()), "file");
    const std::array<const char*, 2> joined{"program", "--config=other"};
    EXPECT_EQ(GivenConfigFile(2, joined.data()), "other");
    ::setenv("CLOUDBACKUP_CONFIG", "of the environment", 1);
    EXPECT_EQ(GivenConfigFile(1, apart.data()), "of the environment");
    ::unsetenv("CLOUDBACKUP_CONFIG");
    EXPECT_EQ(GivenConfigFile(1, apart.data()), "");
}

}  // namespace
}  // namespace agent
