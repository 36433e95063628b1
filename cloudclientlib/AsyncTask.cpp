#include "cloudclientlib/AsyncTask.h"

#include <algorithm>
#include <deque>

namespace task {

namespace {

class CTaskUtils : public IAsyncTaskUtils {
public:
    void WaitAll(std::span<const task_ptr> tasks) override {
        std::exception_ptr first;
        for (const auto& one : tasks) {
            try {
                one->Wait();
            } catch (...) {
                if (!first) {
                    first = std::current_exception();
                }
            }
        }
        if (first) {
            std::rethrow_exception(first);
        }
    }
};

class CFinishedTask : public IAsyncTask {
public:
    explicit CFinishedTask(std::exception_ptr failure) : failure_(std::move(failure)) {}  // NOLINT: kept, not thrown
    void Wait() override {
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    }

private:
    const std::exception_ptr failure_;
};

}  // namespace

std::shared_ptr<IAsyncTaskUtils> CreateTaskUtils() { return std::make_shared<CTaskUtils>(); }

task_ptr RunNow(const std::function<void()>& operation) {
    try {
        operation();
        return std::make_shared<CFinishedTask>(nullptr);
    } catch (...) {
        return std::make_shared<CFinishedTask>(std::current_exception());
    }
}

void RunWindow(std::size_t count, std::size_t limit, const std::function<task_ptr(std::size_t)>& start,
               const std::function<void(std::size_t)>& finish) {
    std::deque<task_ptr> inFlight;
    std::size_t started = 0;
    std::exception_ptr failure;
    std::exception_ptr startFailure;
    for (std::size_t finished = 0; finished < count && !failure; ++finished) {
        while (!startFailure && started < count && inFlight.size() < std::max<std::size_t>(limit, 1)) {
            try {
                inFlight.push_back(start(started));
                ++started;
            } catch (...) {
                startFailure = std::current_exception();
            }
        }
        if (inFlight.empty()) {
            break;
        }
        try {
            const task_ptr next = std::move(inFlight.front());
            inFlight.pop_front();
            next->Wait();
            finish(finished);
        } catch (...) {
            failure = std::current_exception();
        }
    }
    for (const auto& one : inFlight) {
        try {
            one->Wait();
        } catch (...) {  // an earlier failure is thrown
        }
    }
    if (failure || startFailure) {
        std::rethrow_exception(failure ? failure : startFailure);
    }
}

void CPromiseTask::Wait() {
    std::unique_lock lock(mutex_);
    done_.wait(lock, [this] { return isDone_; });
    if (failure_) {
        std::rethrow_exception(failure_);
    }
}

void CPromiseTask::SetDone() { Complete(nullptr); }
void CPromiseTask::SetFailed(std::exception_ptr failure) { Complete(std::move(failure)); }

void CPromiseTask::Complete(std::exception_ptr failure) {
    const std::lock_guard lock(mutex_);
    if (isDone_) {
        return;
    }
    isDone_ = true;
    failure_ = std::move(failure);
    // Under the lock: a waiter may destroy the task as soon as it sees it done.
    done_.notify_all();
}

}  // namespace task
