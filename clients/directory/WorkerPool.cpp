#include "clients/directory/WorkerPool.h"

#include <algorithm>

namespace clients::directory {

CWorkerPool::CWorkerPool(std::size_t threads) {
    try {
        for (std::size_t i = 0; i < std::max<std::size_t>(threads, 1); ++i) {
            threads_.emplace_back([this] { Work(); });
        }
    } catch (...) {
        Stop();
        throw;
    }
}

CWorkerPool::~CWorkerPool() { Stop(); }

void CWorkerPool::Stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (auto& thread : threads_) {
        thread.join();
    }
}

task::task_ptr CWorkerPool::Submit(std::function<void()> job) {
    auto promise = std::make_shared<task::CPromiseTask>();
    {
        const std::lock_guard lock(mutex_);
        queue_.push_back({std::move(job), promise});
    }
    wake_.notify_one();
    return promise;
}

void CWorkerPool::Work() {
    std::unique_lock lock(mutex_);
    while (true) {
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) {
            return;
        }
        SJob job = std::move(queue_.front());
        queue_.pop_front();
        lock.unlock();
        Run(std::move(job));
        lock.lock();
    }
}

void CWorkerPool::Run(SJob job) {
    std::exception_ptr failure;
    try {
        job.work();
    } catch (...) {
        failure = std::current_exception();
    }
    job.work = nullptr;  // a buffer is its owner's again as soon as the task is done
    if (failure) {
        job.task->SetFailed(failure);
    } else {
        job.task->SetDone();
    }
}

}  // namespace clients::directory
