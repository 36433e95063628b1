#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "cloudclientlib/AsyncTask.h"

namespace clients::directory {

/// A fixed number of threads that run jobs in the order they were submitted.
///
/// Safe from any thread. The destructor drains: jobs submitted before it, running or waiting, are all done when it
/// returns, whether somebody waits for them or not. It must not run in one of the pool's own threads. A job's failure
/// belongs to its task and disturbs nothing else; what a job holds is let go before its task is done.
class CWorkerPool {
public:
    /// At least one thread is started.
    explicit CWorkerPool(std::size_t threads);
    CWorkerPool(const CWorkerPool&) = delete;
    CWorkerPool& operator=(const CWorkerPool&) = delete;
    ~CWorkerPool();

    [[nodiscard]] task::task_ptr Submit(std::function<void()> job);
    [[nodiscard]] std::size_t GetThreadCount() const { return threads_.size(); }

private:
    struct SJob {
        std::function<void()> work;
        std::shared_ptr<task::CPromiseTask> task;
    };

    void Work();
    static void Run(SJob job);
    void Stop();

    std::vector<std::thread> threads_;  // constant after construction

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<SJob> queue_;  // guarded by mutex_
    bool stopping_ = false;   // guarded by mutex_
};

}  // namespace clients::directory
