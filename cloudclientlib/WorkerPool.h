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
#include "common/export.h"

namespace task {

/// Threads that run jobs in the order they were submitted: for those who write clients. One is there from the
/// beginning; another is started when a job finds none idle, up to a limit.
///
/// Safe from any thread. The destructor drains: jobs submitted before it, running or waiting, are all done when it
/// returns, whether somebody waits for them or not. It must not run in one of the pool's own threads. A job's failure
/// belongs to its task and disturbs nothing else; what a job holds is let go before its task is done. Where the system
/// gives no further thread, fewer do the same work. The threads hold back the signals that end or stop a program.
class CB_EXPORT CWorkerPool {
public:
    /// A job is told which thread runs it, from 0: two jobs with the same number never run at once.
    using job_t = std::function<void(std::size_t worker)>;

    /// `limit` is at least 1. Throws std::system_error when not even one thread can be started.
    explicit CWorkerPool(std::size_t limit);
    CWorkerPool(const CWorkerPool&) = delete;
    CWorkerPool& operator=(const CWorkerPool&) = delete;
    ~CWorkerPool();

    task_ptr Submit(job_t job);
    [[nodiscard]] std::size_t GetLimit() const { return limit_; }

private:
    struct SJob {
        job_t work;
        std::shared_ptr<CPromiseTask> task;
    };

    /// With the mutex held.
    void StartThread();
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

}  // namespace task
