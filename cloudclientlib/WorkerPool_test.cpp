#include "cloudclientlib/WorkerPool.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <future>
#include <stdexcept>

namespace {

using task::CWorkerPool;

TEST(WorkerPool, RunsAsManyJobsAtOnceAsItHasThreads) {
    constexpr std::size_t threads = 4;
    CWorkerPool pool(threads);
    EXPECT_EQ(pool.GetLimit(), threads);
    // Every job waits until all have begun: with fewer threads this would never end.
    std::mutex mutex;
    std::condition_variable all;
    std::size_t begun = 0;
    std::vector<task::task_ptr> tasks;
    for (std::size_t i = 0; i < threads; ++i) {
        tasks.push_back(pool.Submit([&](std::size_t) {
            std::unique_lock lock(mutex);
            ++begun;
            all.notify_all();
            all.wait(lock, [&] { return begun == threads; });
        }));
    }
    task::CreateTaskUtils()->WaitAll(tasks);
    EXPECT_EQ(begun, threads);
}

TEST(WorkerPool, ItsThreadsLeaveSignalsToTheProgram) {
    sigset_t before;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &before);
    CWorkerPool pool(2);
    sigset_t inside;
    pool.Submit([&](std::size_t) { ::pthread_sigmask(SIG_BLOCK, nullptr, &inside); })->Wait();
    sigset_t after;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &after);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
        EXPECT_EQ(::sigismember(&inside, signal), 1) << signal;
        EXPECT_EQ(::sigismember(&after, signal), ::sigismember(&before, signal)) << signal;
    }
    EXPECT_EQ(::sigismember(&inside, SIGSEGV), 0);
}

TEST(WorkerPool, RunsEveryJobOnANumberedThread) {
    constexpr std::size_t threads = 3;
    std::atomic<int> done = 0;
    std::atomic<bool> isWrong = false;
    std::atomic<int> inside[threads] = {};
    {
        CWorkerPool pool(threads);
        for (int i = 0; i < 1000; ++i) {
            pool.Submit([&](std::size_t worker) {
                if (worker >= threads || inside[worker].fetch_add(1) != 0) {
                    isWrong = true;
                }
                ++done;
                --inside[worker];
            });
        }
    }  // drains
    EXPECT_EQ(done, 1000);
    EXPECT_FALSE(isWrong);
}

TEST(WorkerPool, HasAtLeastOneThread) {
    CWorkerPool pool(0);
    EXPECT_EQ(pool.GetLimit(), 1U);
    bool done = false;
    pool.Submit([&](std::size_t) { done = true; })->Wait();
    EXPECT_TRUE(done);
}

TEST(WorkerPool, OneThreadKeepsTheOrder) {
    std::vector<int> order;
    {
        CWorkerPool pool(1);
        for (int i = 0; i < 100; ++i) {
            static_cast<void>(pool.Submit([&order, i](std::size_t) { order.push_back(i); }));
        }
    }
    ASSERT_EQ(order.size(), 100U);
    EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(WorkerPool, DestructorRunsWhatIsQueuedBehindARunningJob) {
    std::promise<void> gate;
    std::atomic<int> done = 0;
    auto pool = std::make_unique<CWorkerPool>(2);
    for (int i = 0; i < 2; ++i) {
        static_cast<void>(pool->Submit([&, open = gate.get_future().share(), i](std::size_t) mutable {
            open.wait();
            ++done;
        }));
        if (i == 0) {
            gate.set_value();
            gate = std::promise<void>();
        }
    }
    for (int i = 0; i < 50; ++i) {
        static_cast<void>(pool->Submit([&](std::size_t) { ++done; }));
    }
    std::thread opener([&] { gate.set_value(); });
    pool.reset();
    opener.join();
    EXPECT_EQ(done, 52);
}

TEST(WorkerPool, FailureReachesTheTaskAndNobodyElse) {
    CWorkerPool pool(1);
    const auto failing = pool.Submit([](std::size_t) { throw std::runtime_error("job failed"); });
    const auto next = pool.Submit([](std::size_t) {});
    for (int i = 0; i < 2; ++i) {
        try {
            failing->Wait();
            FAIL() << "no failure";
        } catch (const std::runtime_error& failure) {
            EXPECT_STREQ(failure.what(), "job failed");
        }
    }
    EXPECT_NO_THROW(next->Wait());
}

TEST(WorkerPool, LetsGoOfWhatTheJobHeldBeforeTheTaskIsDone) {
    CWorkerPool pool(2);
    for (int i = 0; i < 200; ++i) {
        auto held = std::make_shared<int>(i);
        pool.Submit([held](std::size_t) { static_cast<void>(*held); })->Wait();
        ASSERT_EQ(held.use_count(), 1);
    }
}

}  // namespace
