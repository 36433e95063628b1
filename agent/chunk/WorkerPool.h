#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "cloudclientlib/AsyncTask.h"

namespace agent {

/// Up to a number of threads that run jobs in the order they were submitted; a thread is started when a job finds none
/// idle, so a pool that is not used costs nothing.
///
/// Submit may be called from any thread. The destructor drains: jobs submitted before it are all done when it returns.
/// A job's failure belongs to its task. What a job holds is let go before its task is done.
class CWorkerPool {
public:
    /// A job is told which thread runs it, from 0: two jobs with the same number never run at once.
    using job_t = std::function<void(std::size_t worker)>;

    explicit CWorkerPool(std::size_t threads);
    CWorkerPool(const CWorkerPool&) = delete;
    CWorkerPool& operator=(const CWorkerPool&) = delete;
    ~CWorkerPool();

    /// Throws std::system_error when not even one thread can be started.
    task::task_ptr Submit(job_t job);

private:
    struct SJob {
        job_t work;
        std::shared_ptr<task::CPromiseTask> task;
    };

    void StartThreadIfNeeded();
    void Work(std::size_t worker);
    static void Run(SJob job, std::size_t worker);

    const std::size_t limit_;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<SJob> queue_;            // guarded by mutex_
    std::size_t idle_ = 0;              // guarded by mutex_
    bool stopping_ = false;             // guarded by mutex_
    std::vector<std::thread> threads_;  // guarded by mutex_ until the destructor
};

/// `wanted`, or, when that is 0, as many threads as the machine runs at once, at most 16.
[[nodiscard]] std::size_t ThreadCount(unsigned wanted);

}  // namespace agent
