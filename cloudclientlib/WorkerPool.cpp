#include "cloudclientlib/WorkerPool.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "common/signals.h"

namespace task {

CWorkerPool::CWorkerPool(std::size_t limit) : limit_(std::max<std::size_t>(limit, 1)) {
    const std::lock_guard lock(mutex_);
    StartThread();
}

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

task_ptr CWorkerPool::Submit(job_t job) {
    auto promise = std::make_shared<CPromiseTask>();
    {
        const std::lock_guard lock(mutex_);
        queue_.push_back({std::move(job), promise});
        if (idle_ < queue_.size() && threads_.size() < limit_) {
            try {
                StartThread();
            } catch (const std::system_error&) {  // the threads that are there do the work
            }
        }
    }
    wake_.notify_one();
    return promise;
}

void CWorkerPool::StartThread() {
    const posix::held_signals_t held;
    threads_.emplace_back([this, worker = threads_.size()] { Work(worker); });
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

}  // namespace task
