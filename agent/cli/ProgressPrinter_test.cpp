#include "agent/cli/ProgressPrinter.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

namespace agent {
namespace {

SProgress Half() {
    SProgress progress;
    progress.currentPath = "/home/me/letters/one.txt";
    progress.filesDone = 1234;
    progress.filesTotal = 5000;
    progress.bytesDone = 50U << 20U;
    progress.bytesTotal = 100U << 20U;
    progress.totalsKnown = true;
    return progress;
}

/// A printer over a temporary file, with a clock that stands until it is moved.
class ProgressPrinter : public testing::Test {
protected:
    ProgressPrinter() : stream_(std::tmpfile()) {}
    ~ProgressPrinter() override { std::fclose(stream_); }

    CProgressPrinter Make(CProgressPrinter::EForm form, std::size_t width) {
        return {form, stream_, width, [this] { return now_; }};
    }
    void Pass(int milliseconds) { now_ += std::chrono::milliseconds(milliseconds); }
    std::string Printed() {
        std::fflush(stream_);
        std::rewind(stream_);
        std::array<char, 4096> text{};
        return {text.data(), std::fread(text.data(), 1, text.size(), stream_)};
    }

    std::FILE* stream_;
    CProgressPrinter::clock_t::time_point now_{};
};

TEST_F(ProgressPrinter, SaysFilesBytesRateAndTimeLeft) {
    SProgress progress = Half();
    EXPECT_EQ(FormatProgress(progress, 10), "1,234 of 5,000 files, 50.0 MiB of 100.0 MiB, 5.0 MiB/s, 0:10 left");
    progress.errors = 1;
    progress.totalsKnown = false;
    EXPECT_EQ(FormatProgress(progress, 10), "1,234 files, 50.0 MiB, 5.0 MiB/s, 1 error");
    EXPECT_EQ(FormatProgress({}, 0), "0 files, 0 bytes, 0 bytes/s");
}

TEST_F(ProgressPrinter, DurationsAreReadByPeople) {
    EXPECT_EQ(FormatDuration(0), "0:00");
    EXPECT_EQ(FormatDuration(59.9), "0:59");
    EXPECT_EQ(FormatDuration(754), "12:34");
    EXPECT_EQ(FormatDuration(3723), "1:02:03");
}

TEST_F(ProgressPrinter, ALineOnATerminalIsWrittenOverTenTimesASecondAtMostAndTakenAway) {
    {
        auto printer = Make(CProgressPrinter::EForm::line, 100);
        printer.Tell(Half());
        Pass(99);
        printer.Tell(Half());
        EXPECT_EQ(Printed(), "");
        Pass(901);
        printer.Tell(Half());
        printer.Tell(Half());
    }
    EXPECT_EQ(Printed(),
              "\r1,234 of 5,000 files, 50.0 MiB of 100.0 MiB, 50.0 MiB/s, 0:01 left  /home/me/letters/one.txt\x1b[K"
              "\r\x1b[K");
}

TEST_F(ProgressPrinter, ALineIsNeverWiderThanTheTerminal) {
    {
        auto printer = Make(CProgressPrinter::EForm::line, 80);
        Pass(1000);
        printer.Tell(Half());
    }
    EXPECT_EQ(Printed(),
              "\r1,234 of 5,000 files, 50.0 MiB of 100.0 MiB, 50.0 MiB/s, 0:01 left  .../one.txt"
              "\x1b[K\r\x1b[K");
}

TEST_F(ProgressPrinter, ElsewhereALineAMinute) {
    {
        auto printer = Make(CProgressPrinter::EForm::log, 80);
        for (int second = 0; second < 119; ++second) {
            Pass(1000);
            printer.Tell(Half());
        }
    }
    EXPECT_EQ(Printed(), "cloudbackup: 1,234 of 5,000 files, 50.0 MiB of 100.0 MiB, 853.3 KiB/s, 1:00 left\n");
}

TEST_F(ProgressPrinter, AsJsonAnEventASecondWithAllThatIsKnown) {
    auto printer = Make(CProgressPrinter::EForm::json, 80);
    SProgress progress = Half();
    progress.currentPath = "/caf\xe9";
    progress.errors = 3;
    printer.Tell(progress);
    Pass(999);
    printer.Tell(progress);
    EXPECT_EQ(Printed(), "");
    Pass(9001);
    printer.Tell(progress);
    printer.Tell(progress);
    progress.totalsKnown = false;
    Pass(1000);
    printer.Tell(progress);
    using nlohmann::json;
    std::istringstream lines(Printed());
    std::string first;
    std::string second;
    std::getline(lines, first);
    std::getline(lines, second);
    EXPECT_EQ(json::parse(first), json({{"event", "progress"},
                                        {"path", "/caf\\xe9"},
                                        {"filesDone", 1234},
                                        {"filesTotal", 5000},
                                        {"bytesDone", 50U << 20U},
                                        {"bytesTotal", 100U << 20U},
                                        {"errors", 3},
                                        {"seconds", 10.0},
                                        {"bytesPerSecond", 5U << 20U},
                                        {"secondsLeft", 10.0}}));
    EXPECT_EQ(json::parse(second), json({{"event", "progress"},
                                         {"path", "/caf\\xe9"},
                                         {"filesDone", 1234},
                                         {"bytesDone", 50U << 20U},
                                         {"errors", 3},
                                         {"seconds", 11.0},
                                         {"bytesPerSecond", (50U << 20U) / 11}}));
    EXPECT_TRUE(lines.peek() == std::istringstream::traits_type::eof());
}

TEST_F(ProgressPrinter, NothingWhenItIsNotWanted) {
    {
        auto printer = Make(CProgressPrinter::EForm::none, 80);
        Pass(1'000'000);
        printer.Tell(Half());
    }
    EXPECT_EQ(Printed(), "");
}

TEST_F(ProgressPrinter, ATroubleStandsOnALineOfItsOwn) {
    auto printer = Make(CProgressPrinter::EForm::line, 60);
    Pass(1000);
    printer.Tell(Half());
    printer.WrapTroubles([&](const STrouble& trouble) { std::fprintf(stream_, "%s\n", trouble.reason.c_str()); })(
        {"/path", "reason"});
    EXPECT_TRUE(Printed().ends_with("\r\x1b[Kreason\n"));
}

TEST(FormatProgress, OtherThingsThanFiles) {
    SProgress progress;
    progress.thing = "block";
    progress.filesDone = 1234;
    progress.bytesDone = 10U << 20U;
    EXPECT_EQ(FormatProgress(progress, 2), "1,234 blocks, 10.0 MiB, 5.0 MiB/s");
    progress.filesDone = 1;
    EXPECT_EQ(FormatProgress(progress, 2), "1 block, 10.0 MiB, 5.0 MiB/s");
}

}  // namespace
}  // namespace agent
