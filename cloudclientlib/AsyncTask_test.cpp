#include "cloudclientlib/AsyncTask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <atomic>
#include <latch>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using task::CPromiseTask;
using task::RunNow;
using task::RunWindow;
using task::task_ptr;
using testing::ElementsAre;

std::exception_ptr Failure(const std::string& text) { return std::make_exception_ptr(std::runtime_error(text)); }

template <class F>
std::string FailureOf(const F& operation) {
    try {
        operation();
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (int number) {
        return "number " + std::to_string(number);
    }
    return "nothing thrown";
}

/// Notes that it was waited for.
class NotingTask : public task::IAsyncTask {
public:
    NotingTask(std::vector<std::string>& notes, std::string name, std::string failure = {})
        : notes_(notes), name_(std::move(name)), failure_(std::move(failure)) {}
    void Wait() override {
        notes_.push_back("wait " + name_);
        if (!failure_.empty()) {
            throw std::runtime_error(failure_);
        }
    }

private:
    std::vector<std::string>& notes_;
    const std::string name_;
    const std::string failure_;
};

TEST(RunNow, RunsAtOnceInTheCallersThread) {
    std::thread::id where;
    const task_ptr one = RunNow([&] { where = std::this_thread::get_id(); });
    EXPECT_EQ(std::this_thread::get_id(), where);
    one->Wait();
    one->Wait();
}

TEST(RunNow, KeepsTheFailureForEveryWait) {
    const task_ptr one = RunNow([] { throw std::runtime_error("failed"); });
    EXPECT_EQ("failed", FailureOf([&] { one->Wait(); }));
    EXPECT_EQ("failed", FailureOf([&] { one->Wait(); }));
    const task_ptr other = RunNow([] { throw 42; });
    EXPECT_EQ("number 42", FailureOf([&] { other->Wait(); }));
}

TEST(TaskUtils, WaitsForAllAndThrowsTheFirstFailureInOrder) {
    std::vector<std::string> notes;
    const task_ptr tasks[] = {
        std::make_shared<NotingTask>(notes, "0"), std::make_shared<NotingTask>(notes, "1", "first"),
        std::make_shared<NotingTask>(notes, "2", "second"), std::make_shared<NotingTask>(notes, "3")};
    EXPECT_EQ("first", FailureOf([&] { task::CreateTaskUtils()->WaitAll(tasks); }));
    EXPECT_THAT(notes, ElementsAre("wait 0", "wait 1", "wait 2", "wait 3"));
}

TEST(TaskUtils, NothingToWaitFor) {
    task::CreateTaskUtils()->WaitAll({});
    const task_ptr tasks[] = {RunNow([] {})};
    task::CreateTaskUtils()->WaitAll(tasks);
}

/// Runs a window of noting tasks in which start, task and finish fail where told.
struct SWindow {
    std::vector<std::string> notes;
    std::set<std::size_t> failingStarts, failingTasks, failingFinishes;

    void Run(std::size_t count, std::size_t limit) {
        RunWindow(
            count, limit,
            [&](std::size_t i) -> task_ptr {
                const std::string name = std::to_string(i);
                notes.push_back("start " + name);
                if (failingStarts.contains(i)) {
                    throw std::runtime_error("start " + name + " failed");
                }
                return std::make_shared<NotingTask>(notes, name,
                                                    failingTasks.contains(i) ? "task " + name + " failed" : "");
            },
            [&](std::size_t i) {
                notes.push_back("finish " + std::to_string(i));
                if (failingFinishes.contains(i)) {
                    throw std::runtime_error("finish " + std::to_string(i) + " failed");
                }
            });
    }
};

TEST(RunWindow, WithoutAnythingToDoCallsNothing) {
    SWindow window;
    window.Run(0, 3);
    EXPECT_TRUE(window.notes.empty());
}

TEST(RunWindow, KeepsTheWindowFullAndTheOrder) {
    SWindow window;
    window.Run(4, 2);
    EXPECT_THAT(window.notes, ElementsAre("start 0", "start 1", "wait 0", "finish 0", "start 2", "wait 1", "finish 1",
                                          "start 3", "wait 2", "finish 2", "wait 3", "finish 3"));
}

TEST(RunWindow, ALimitOfOneIsOneAfterAnother) {
    for (const std::size_t limit : {0U, 1U}) {
        SWindow window;
        window.Run(2, limit);
        EXPECT_THAT(window.notes, ElementsAre("start 0", "wait 0", "finish 0", "start 1", "wait 1", "finish 1"));
    }
}

TEST(RunWindow, ALimitAboveTheCountStartsAll) {
    SWindow window;
    window.Run(2, 1000);
    EXPECT_THAT(window.notes, ElementsAre("start 0", "start 1", "wait 0", "finish 0", "wait 1", "finish 1"));
}

TEST(RunWindow, AFailedTaskEndsTheRunAndLeavesNothingInFlight) {
    SWindow window;
    window.failingTasks = {1, 2};
    EXPECT_EQ("task 1 failed", FailureOf([&] { window.Run(9, 3); }));
    EXPECT_THAT(window.notes, ElementsAre("start 0", "start 1", "start 2", "wait 0", "finish 0", "start 3", "wait 1",
                                          "wait 2", "wait 3"));
}

TEST(RunWindow, AFailedFinishEndsTheRunAndLeavesNothingInFlight) {
    SWindow window;
    window.failingFinishes = {0};
    EXPECT_EQ("finish 0 failed", FailureOf([&] { window.Run(9, 3); }));
    EXPECT_THAT(window.notes, ElementsAre("start 0", "start 1", "start 2", "wait 0", "finish 0", "wait 1", "wait 2"));
}

TEST(RunWindow, AFailedStartEndsTheRunAfterWhatWasStartedBefore) {
    SWindow window;
    window.failingStarts = {2};
    EXPECT_EQ("start 2 failed", FailureOf([&] { window.Run(9, 3); }));
    EXPECT_THAT(window.notes, ElementsAre("start 0", "start 1", "start 2", "wait 0", "finish 0", "wait 1", "finish 1"));
}

TEST(RunWindow, OfSeveralFailuresTheFirstInOrderIsThrown) {
    SWindow window;
    window.failingStarts = {2};
    window.failingTasks = {1};
    EXPECT_EQ("task 1 failed", FailureOf([&] { window.Run(9, 3); }));
    SWindow first;
    first.failingStarts = {0};
    EXPECT_EQ("start 0 failed", FailureOf([&] { first.Run(9, 3); }));
    EXPECT_THAT(first.notes, ElementsAre("start 0"));
}

RC_GTEST_PROP(RunWindow, NeverPassesTheLimitAndWaitsForAllThatWasStarted, ()) {
    SWindow window;
    const auto count = *rc::gen::inRange<std::size_t>(0, 12);
    const auto limit = *rc::gen::inRange<std::size_t>(0, 6);
    const auto some = rc::gen::container<std::set<std::size_t>>(rc::gen::inRange<std::size_t>(0, 40));
    window.failingStarts = *some;
    window.failingTasks = *some;
    window.failingFinishes = *some;
    std::string expected = "nothing thrown";
    for (std::size_t i = count; i-- > 0;) {
        const std::string name = std::to_string(i);
        expected = window.failingStarts.contains(i)     ? "start " + name + " failed"
                   : window.failingTasks.contains(i)    ? "task " + name + " failed"
                   : window.failingFinishes.contains(i) ? "finish " + name + " failed"
                                                        : expected;
    }
    RC_ASSERT(FailureOf([&] { window.Run(count, limit); }) == expected);
    std::size_t inFlight = 0;
    std::size_t failedStarts = 0;
    std::size_t finished = 0;
    for (const std::string& note : window.notes) {
        if (note.starts_with("start")) {
            RC_ASSERT(failedStarts == 0U);
            const bool failed = window.failingStarts.contains(std::stoul(note.substr(6)));
            failedStarts += failed ? 1 : 0;
            inFlight += failed ? 0 : 1;
        } else if (note.starts_with("wait")) {
            --inFlight;
        } else {
            RC_ASSERT(note == "finish " + std::to_string(finished++));
        }
        RC_ASSERT(inFlight <= std::max<std::size_t>(limit, 1));
    }
    RC_ASSERT(inFlight == 0U);
}

TEST(RunWindowThreads, TasksMayCompleteInAnyOrder) {
    // Each task of a window is completed by a thread, the later ones before the earlier.
    constexpr std::size_t count = 32;
    constexpr std::size_t limit = 4;
    std::vector<std::jthread> threads;
    std::vector<std::shared_ptr<CPromiseTask>> tasks;
    std::vector<std::size_t> finished;
    RunWindow(
        count, limit,
        [&](std::size_t i) -> task_ptr {
            tasks.push_back(std::make_shared<CPromiseTask>());
            if (i % limit == limit - 1) {
                const std::vector<std::shared_ptr<CPromiseTask>> window(tasks.end() - limit, tasks.end());
                threads.emplace_back([window] {
                    for (auto one = window.rbegin(); one != window.rend(); ++one) {
                        (*one)->SetDone();
                    }
                });
            }
            // So that a window is whole before the first of the next is waited for.
            return tasks.back();
        },
        [&](std::size_t i) { finished.push_back(i); });
    std::vector<std::size_t> expected;
    for (std::size_t i = 0; i < count; ++i) {
        expected.push_back(i);
    }
    EXPECT_EQ(expected, finished);
}

TEST(PromiseTask, AnotherThreadCompletesIt) {
    const auto one = std::make_shared<CPromiseTask>();
    int result = 0;
    std::jthread worker([&] {
        result = 42;
        one->SetDone();
    });
    one->Wait();
    EXPECT_EQ(42, result) << "what the worker did before is seen";
    one->Wait();
}

TEST(PromiseTask, EveryWaiterGetsTheFailure) {
    constexpr int waiters = 8;
    const auto one = std::make_shared<CPromiseTask>();
    std::atomic<int> failed{0};
    {
        std::latch ready(waiters);
        std::vector<std::jthread> threads;
        for (int i = 0; i < waiters; ++i) {
            threads.emplace_back([&] {
                ready.count_down();
                failed += FailureOf([&] { one->Wait(); }) == "lost" ? 1 : 0;
            });
        }
        ready.wait();
        one->SetFailed(Failure("lost"));
    }
    EXPECT_EQ(waiters, failed);
    EXPECT_EQ("lost", FailureOf([&] { one->Wait(); }));
}

TEST(PromiseTask, OnlyTheFirstCompletionCounts) {
    CPromiseTask failed;
    failed.SetFailed(Failure("first"));
    failed.SetFailed(Failure("second"));
    failed.SetDone();
    EXPECT_EQ("first", FailureOf([&] { failed.Wait(); }));
    CPromiseTask done;
    done.SetDone();
    done.SetFailed(Failure("late"));
    done.Wait();
}

TEST(PromiseTask, MayBeLetGoAsSoonAsItIsDone) {
    for (int i = 0; i < 200; ++i) {
        auto one = std::make_unique<CPromiseTask>();
        std::jthread worker([task = one.get()] { task->SetDone(); });
        one->Wait();
        one.reset();
    }
}

TEST(PromiseTask, MayBeLetGoWithoutBeingDone) { const CPromiseTask one; }

}  // namespace
