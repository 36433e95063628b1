#include "common/logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/exc.h"
#include "tests/support/RecordingSink.h"

namespace {

using logging::kind_t;
using logging::level_t;
using testing::ElementsAre;

constexpr logging::section_t section("part");

/// An argument that counts how often its text is asked for.
struct SCounted {
    std::string ToAStr() const {
        ++*count;
        return "counted";
    }
    int* count;
};

TEST(Logging, NothingIsLoggedUntilASinkIsSet) {
    logging::SetSink(nullptr);
    int count = 0;
    EXPECT_FALSE(section.IsEnabled(level_t::warn));
    section.Warn("%1", SCounted{&count});
    const logging::trace_t trace(section, "%1", SCounted{&count});
    EXPECT_EQ(0, count) << "a message was built for nobody";
}

TEST(Logging, RecordsBearSectionLevelKindAndText) {
    const test::RecordingSink sink;
    section.Dbg("d %1", 1);
    section.Tr("t %1", 2);
    section.Info("i %1", 3);
    section.Warn("w %1", 4);
    section.Log(level_t::info, "plain %1");
    EXPECT_THAT(sink.GetEntries(), ElementsAre(test::SEntry{"part", level_t::dbg, kind_t::line, "d 1"},
                                               test::SEntry{"part", level_t::tr, kind_t::line, "t 2"},
                                               test::SEntry{"part", level_t::info, kind_t::line, "i 3"},
                                               test::SEntry{"part", level_t::warn, kind_t::line, "w 4"},
                                               test::SEntry{"part", level_t::info, kind_t::line, "plain %1"}));
}

TEST(Logging, ADisabledLevelBuildsNoMessage) {
    const test::RecordingSink sink(level_t::info);
    int count = 0;
    section.Dbg("%1", SCounted{&count});
    section.Tr("%1", SCounted{&count});
    {
        logging::trace_t trace(section, "%1", SCounted{&count});
        trace.Close("%1", SCounted{&count});
    }
    EXPECT_EQ(0, count);
    EXPECT_TRUE(sink.GetEntries().empty());
    section.Info("%1", SCounted{&count});
    section.Warn("%1", SCounted{&count});
    EXPECT_EQ(2, count);
    EXPECT_TRUE(sink.Has("counted"));
}

TEST(Logging, TheSystemsSections) {
    EXPECT_EQ("library", logging::Library().GetName());
    EXPECT_EQ("storage", logging::Storage().GetName());
    EXPECT_EQ(&logging::Library(), &logging::Library());
}

TEST(Logging, LevelsHaveNames) {
    EXPECT_EQ("dbg", logging::ToStr(level_t::dbg));
    EXPECT_EQ("tr", logging::ToStr(level_t::tr));
    EXPECT_EQ("info", logging::ToStr(level_t::info));
    EXPECT_EQ("warn", logging::ToStr(level_t::warn));
}

TEST(Trace, ClosesWithOk) {
    const test::RecordingSink sink;
    {
        logging::trace_t trace(section, "work on %1", "x");
        trace.Ok();
    }
    EXPECT_THAT(sink.GetScopes(), ElementsAre("> work on x", "< ok"));
    EXPECT_EQ(level_t::tr, sink.GetEntries()[0].level);
    EXPECT_EQ(kind_t::open, sink.GetEntries()[0].kind);
    EXPECT_EQ(kind_t::close, sink.GetEntries()[1].kind);
}

TEST(Trace, ClosesWithAMessageOfItsOwnOnce) {
    const test::RecordingSink sink;
    {
        logging::trace_t trace(section, "work");
        trace.Close("%1 found", 3);
        trace.Ok();
        trace.Close();
    }
    EXPECT_THAT(sink.GetScopes(), ElementsAre("> work", "< 3 found"));
}

TEST(Trace, ClosesEmptyWhenLeftWithoutAWord) {
    const test::RecordingSink sink;
    { const logging::trace_t trace(section, "left"); }
    {
        logging::trace_t trace(section, "closed");
        trace.Close();
    }
    EXPECT_THAT(sink.GetScopes(), ElementsAre("> left", "< ", "> closed", "< "));
}

TEST(Trace, SaysThatItWasLeftByAnException) {
    const test::RecordingSink sink;
    EXPECT_THROW(
        {
            const logging::trace_t outer(section, "outer");
            logging::trace_t done(section, "done");
            done.Ok();
            throw std::runtime_error("x");
        },
        std::runtime_error);
    EXPECT_THAT(sink.GetScopes(), ElementsAre("> outer", "> done", "< ok", "< failed"));
}

/// Works within a scope of its own while an exception passes.
struct STidy {
    ~STidy() { const logging::trace_t trace(section, "tidy"); }
};

TEST(Trace, AScopeInsideTheUnwindingOfAnotherIsNotItsFailure) {
    const test::RecordingSink sink;
    EXPECT_THROW(
        {
            const logging::trace_t outer(section, "outer");
            const STidy tidy;
            throw std::runtime_error("x");
        },
        std::runtime_error);
    EXPECT_THAT(sink.GetScopes(), ElementsAre("> outer", "> tidy", "< ", "< failed"));
}

/// A sink against the rule.
class ThrowingSink : public logging::ISink {
public:
    bool IsEnabled(std::string_view, level_t) const override { return true; }
    void Write(const logging::SRecord& record) override {
        if (record.kind == kind_t::close) {
            throw std::runtime_error("sink");
        }
    }
};

TEST(Trace, ASinkThatThrowsDoesNotEndTheProcess) {
    logging::SetSink(std::make_shared<ThrowingSink>());
    { const logging::trace_t trace(section, "work"); }
    logging::SetSink(nullptr);
}

/// Counts its records; a record after its end would be a use after free.
class CountingSink : public logging::ISink {
public:
    explicit CountingSink(std::atomic<int>& count) : count_(count) {}
    bool IsEnabled(std::string_view, level_t) const override { return true; }
    void Write(const logging::SRecord& record) override {
        text_ = std::make_shared<std::string>(record.text);  // needs the guard below
        ++count_;
    }

private:
    std::atomic<int>& count_;
    struct SGuarded {
        SGuarded& operator=(std::shared_ptr<std::string> text) {
            const std::lock_guard lock(mutex);
            value = std::move(text);
            return *this;
        }
        std::mutex mutex;
        std::shared_ptr<std::string> value;
    } text_;
};

TEST(LoggingThreads, TheSinkMayBeReplacedWhileOthersLog) {
    constexpr int perThread = 2000;
    std::atomic<int> count{0};
    std::atomic<bool> stop{false};
    logging::SetSink(std::make_shared<CountingSink>(count));
    {
        std::jthread replacing([&] {
            while (!stop) {
                logging::SetSink(std::make_shared<CountingSink>(count));
            }
        });
        {
            std::vector<std::jthread> logging;
            for (int i = 0; i < 4; ++i) {
                logging.emplace_back([] {
                    for (int k = 0; k < perThread; ++k) {
                        section.Info("%1", k);
                    }
                });
            }
        }
        stop = true;
    }
    logging::SetSink(nullptr);
    EXPECT_EQ(4 * perThread, count) << "a record was lost between two sinks";
}

TEST(LoggingThreads, NothingComesAfterTheSinkIsTakenAway) {
    std::atomic<int> count{0};
    logging::SetSink(std::make_shared<CountingSink>(count));
    section.Info("one");
    logging::SetSink(nullptr);
    section.Info("two");
    EXPECT_EQ(1, count);
}

/// Accepts until a record of this level is asked for, then gives way to a stricter sink: what happens when a sink is
/// replaced between the building and the writing of a message.
class StricterSink : public logging::ISink {
public:
    bool IsEnabled(std::string_view, level_t level) const override { return level == level_t::warn; }
    void Write(const logging::SRecord& record) override { texts.emplace_back(record.text); }
    std::vector<std::string> texts;
};
struct SReplacing {
    std::string ToAStr() const {
        logging::SetSink(next);
        return "built";
    }
    std::shared_ptr<StricterSink> next;
};

TEST(Logging, ASinkGetsNothingThatItDidNotEnable) {
    const test::RecordingSink first;
    const auto stricter = std::make_shared<StricterSink>();
    section.Info("%1", SReplacing{stricter});
    EXPECT_TRUE(stricter->texts.empty());
    section.Warn("w");
    EXPECT_THAT(stricter->texts, ElementsAre("w"));
}

TEST(StderrSink, PrintsWhatHasTheLevel) {
    testing::internal::CaptureStderr();
    logging::SetSink(logging::MakeStderrSink(level_t::tr));
    section.Dbg("hidden");
    section.Warn("a {} %1", "warning");
    {
        logging::trace_t trace(section, "scope");
        trace.Ok();
    }
    logging::SetSink(nullptr);
    std::vector<std::string> lines;
    std::string printed = testing::internal::GetCapturedStderr();
    for (std::size_t end = printed.find('\n'); end != std::string::npos; end = printed.find('\n')) {
        // Before the level stands the time: "12:34:56.789 ".
        lines.push_back(printed.substr(13, end - 13));
        printed.erase(0, end + 1);
    }
    EXPECT_THAT(lines, ElementsAre("[warn] part: a {} warning", "[tr] part: > scope", "[tr] part: < ok"));
}

}  // namespace
