#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "common/export.h"

/// Asynchronous cloud operations.
namespace task {

/// An operation that runs, or has run, when the caller gets it.
///
/// Safe from any thread. A task may be let go without waiting and still completes. What it works on (buffers) it
/// holds by shared pointer until it is done.
class CB_EXPORT IAsyncTask {
public:
    virtual ~IAsyncTask() = default;
    /// Blocks until the operation is done; throws its failure, the same one at every call.
    virtual void Wait() = 0;
};

using task_ptr = std::shared_ptr<IAsyncTask>;

/// Waits on groups of tasks.
class CB_EXPORT IAsyncTaskUtils {
public:
    virtual ~IAsyncTaskUtils() = default;
    /// Waits for all tasks, then throws the first failure (in the order given): nothing is in flight on return.
    virtual void WaitAll(std::span<const task_ptr> tasks) = 0;
};

/// The task utilities that fit any client.
[[nodiscard]] CB_EXPORT std::shared_ptr<IAsyncTaskUtils> CreateTaskUtils();

/// Runs `operation` at once, in the caller's thread; its failure is kept for Wait.
[[nodiscard]] CB_EXPORT task_ptr RunNow(const std::function<void()>& operation);

/// Calls `start` for 0, 1, ... count-1 and `finish` with the same numbers in the same order, once each number's task is
/// done, with at most `limit` (at least 1) tasks in flight. A failed start, task or finish ends the run: what is in
/// flight is waited for, then the failure that comes first in order is thrown.
CB_EXPORT void RunWindow(std::size_t count, std::size_t limit, const std::function<task_ptr(std::size_t)>& start,
                         const std::function<void(std::size_t)>& finish);

/// A task that another thread completes, once (what comes after the first completion means nothing): for those who
/// write clients. Safe from any thread.
class CB_EXPORT CPromiseTask : public IAsyncTask {
public:
    void Wait() override;
    void SetDone();
    void SetFailed(std::exception_ptr failure);

private:
    void Complete(std::exception_ptr failure);

    std::mutex mutex_;
    std::condition_variable done_;
    bool isDone_ = false;         // guarded by mutex_
    std::exception_ptr failure_;  // guarded by mutex_
};

}  // namespace task
