#include "agent/cli/Output.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace agent {
namespace {

TEST(Output, JsonOfAnyBytesIsALine) {
    EXPECT_EQ(JsonLine({{"a", "caf\xe9"}, {"b", "\n"}}), "{\"a\":\"caf\xef\xbf\xbd\",\"b\":\"\\n\"}");
}

TEST(Output, MessagesShowWhatATerminalWouldDoOrCannotShow) {
    EXPECT_EQ(EscapeText("plain, caf\xc3\xa9"), "plain, caf\xc3\xa9");
    EXPECT_EQ(EscapeText("caf\xe9"), "caf\\xe9");
    EXPECT_EQ(EscapeText("\x1b[2Jgone\r\n\x7f"), "\\x1b[2Jgone\\x0d\\x0a\\x7f");
    EXPECT_EQ(EscapeText("\xc2\x9b"
                         "2J"),
              "\\xc2\\x9b2J");
    EXPECT_EQ(EscapeText("what was escaped stays: \\x1b \\\\"), "what was escaped stays: \\x1b \\\\");
    EXPECT_EQ(EscapeText("\\"), "\\");
    EXPECT_EQ(EscapeText(""), "");
}

TEST(Output, TroublesAreALineEach) {
    testing::internal::CaptureStderr();
    PrintTrouble("one\ncloudbackup: all is well");
    PrintTroubleLines("no command\nUsage: \x1b\n\nlast\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cloudbackup: one\\x0acloudbackup: all is well\n"
              "cloudbackup: no command\nUsage: \\x1b\n\nlast\n");
}

TEST(Output, TroublesOfARunAreEscapedInEveryForm) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    TroublePrinter(EOutput::json)({"/caf\xe9\\", "the store says \xff\x1b"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "cloudbackup: /caf\\xe9\\\\: the store says \\xff\\x1b\n");
    const auto event = nlohmann::json::parse(testing::internal::GetCapturedStdout());
    EXPECT_EQ(event, nlohmann::json(
                         {{"event", "trouble"}, {"path", "/caf\\xe9\\\\"}, {"reason", "the store says \\xff\\x1b"}}));
}

}  // namespace
}  // namespace agent
