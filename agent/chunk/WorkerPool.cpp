#include "agent/chunk/WorkerPool.h"

#include <algorithm>
#include <system_error>

namespace agent {

CWorkerPool::CWorkerPool(std::size_t threads) : limit_(std::max<std::size_t>(threads, 1)) {}

CWorkerPool::~CWorkerPool() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (auto& thread : threads_) {
        thread.join();
    }
}

task::task_ptr CWorkerPool::Submit(job_t job) {
    auto promise = std::make_shared<task::CPromiseTask>();
    {
        const std::lock_guard lock(mutex_);
        queue_.push_back({std::move(job), promise});
        try {
            StartThreadIfNeeded();
        } catch (...) {
            queue_.pop_back();
            throw;
        }
    }
    wake_.notify_one();
    return promise;
}

void CWorkerPool::StartThreadIfNeeded() {
    if (idle_ >= queue_.size() || threads_.size() >= limit_) {
        return;
    }
    try {
        threads_.emplace_back([this, worker = threads_.size()] { Work(worker); });
    } catch (const std::system_error&) {
        if (threads_.empty()) {
            throw;
        }
        // Fewer threads do the same work.
    }
}

void CWorkerPool::Work(std::size_t worker) {
    std::unique_lock lock(mutex_);
    while (true) {
        ++idle_;
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        --idle_;
        if (queue_.empty()) {
            return;
        }
        SJob job = std::move(queue_.front());
        queue_.pop_front();
        lock.unlock();
        Run(std::move(job), worker);
        lock.lock();
    }
}

void CWorkerPool::Run(SJob job, std::size_t worker) {
    std::exception_ptr failure;
    try {
        job.work(worker);
    } catch (...) {
        failure = std::current_exception();
    }
    job.work = nullptr;
    if (failure) {
        job.task->SetFailed(std::move(failure));
    } else {
        job.task->SetDone();
    }
}

std::size_t ThreadCount(unsigned wanted) {
    constexpr unsigned most = 16;
    return wanted != 0 ? wanted : std::clamp(std::thread::hardware_concurrency(), 1U, most);
}

}  // namespace agent
