#include "agent/chunk/WorkerPool.h"

#include <atomic>
#include <future>
#include <stdexcept>

#include <gtest/gtest.h>

namespace agent {
namespace {

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

TEST(WorkerPool, RunsAsManyAtOnceAsItHasThreads) {
    constexpr int threads = 4;
    std::promise<void> all;
    const auto allInside = all.get_future().share();
    std::atomic<int> inside = 0;
    CWorkerPool pool(threads);
    for (int i = 0; i < threads; ++i) {
        pool.Submit([&](std::size_t) {
            if (++inside == threads) {
                all.set_value();
            }
            allInside.wait();
        });
    }
    allInside.wait();
    EXPECT_EQ(inside, threads);
}

TEST(WorkerPool, AFailureBelongsToItsTask) {
    CWorkerPool pool(1);
    const auto failing = pool.Submit([](std::size_t) { throw std::runtime_error("broken"); });
    const auto sound = pool.Submit([](std::size_t) {});
    EXPECT_THROW(failing->Wait(), std::runtime_error);
    EXPECT_THROW(failing->Wait(), std::runtime_error);
    EXPECT_NO_THROW(sound->Wait());
}

TEST(WorkerPool, LetsGoOfWhatAJobHoldsBeforeItIsDone) {
    CWorkerPool pool(1);
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = held;
    pool.Submit([held = std::move(held)](std::size_t) {})->Wait();
    EXPECT_TRUE(watch.expired());
}

TEST(WorkerPool, CountsThreads) {
    EXPECT_EQ(ThreadCount(3), 3U);
    EXPECT_EQ(ThreadCount(40), 40U);
    EXPECT_GE(ThreadCount(0), 1U);
    EXPECT_LE(ThreadCount(0), 16U);
}

}  // namespace
}  // namespace agent
