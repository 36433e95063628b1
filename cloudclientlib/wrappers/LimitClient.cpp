#include "cloudclientlib/wrappers/LimitClient.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <limits>
#include <mutex>
#include <optional>
#include <utility>

#include "cloudclientlib/WorkerPool.h"
#include "cloudclientlib/wrappers/TokenBucket.h"

namespace cloudclientlib {

namespace {

/// Places for operations, taken in the order of asking. Safe from any thread.
class CPlaces {
public:
    explicit CPlaces(std::size_t count) : free_(count) {}

    /// Calls `begin` when a place is free, now or in the thread that leaves one. It must be short and not come back
    /// here.
    void Enter(std::function<void()> begin) {
        const std::lock_guard lock(mutex_);
        if (free_ > 0) {
            --free_;
            begin();
        } else {
            queue_.push_back(std::move(begin));
        }
    }
    void Leave() {
        const std::lock_guard lock(mutex_);
        if (queue_.empty()) {
            ++free_;
            return;
        }
        // Under the lock: when the queue is empty, all that stood in it has begun.
        queue_.front()();
        queue_.pop_front();
        if (queue_.empty()) {
            nobodyWaits_.notify_all();
        }
    }
    void WaitUntilNobodyWaits() {
        std::unique_lock lock(mutex_);
        nobodyWaits_.wait(lock, [this] { return queue_.empty(); });
    }

private:
    std::mutex mutex_;
    std::condition_variable nobodyWaits_;
    std::size_t free_;                         // guarded by mutex_
    std::deque<std::function<void()>> queue_;  // guarded by mutex_
};

/// Leaves a place that was taken.
class CLeave {
public:
    explicit CLeave(CPlaces& places) : places_(places) {}
    CLeave(const CLeave&) = delete;
    CLeave& operator=(const CLeave&) = delete;
    ~CLeave() { places_.Leave(); }

private:
    CPlaces& places_;
};

/// An operation that may have to queue before it becomes a task.
class CQueuedTask : public task::IAsyncTask {
public:
    /// Once; `submit` makes the task.
    void Begin(const std::function<task::task_ptr()>& submit) {
        try {
            inner_ = submit();
            begun_.SetDone();
        } catch (...) {
            begun_.SetFailed(std::current_exception());
        }
    }
    void Wait() override {
        begun_.Wait();
        inner_->Wait();
    }

private:
    task::task_ptr inner_;  // set before begun_
    task::CPromiseTask begun_;
};

}  // namespace

/// The limits, shared by the client with its streams. The threads end with the client.
class CLimitClient::CLimiter : public IInterceptor, public std::enable_shared_from_this<CLimiter> {
public:
    /// Brings bytes and says how many.
    using bring_t = std::function<std::uint64_t()>;

    CLimiter(const SLimits& limits, std::shared_ptr<ITimer> timer, std::size_t threads)
        : timer_(timer ? std::move(timer) : SystemTimer()),
          up_(limits.bytesPerSecondUp),
          down_(limits.bytesPerSecondDown),
          places_(limits.operationsInFlight == 0 ? std::numeric_limits<std::size_t>::max() : limits.operationsInFlight),
          pool_(std::in_place, threads) {}

    task::task_ptr OnTask(const SInterceptedCall& call, start_t start) override;
    void OnCall(const SInterceptedCall& call, const run_t& run) override;
    std::shared_ptr<IDownloadStream> WrapDownload(const std::string& path,
                                                  std::shared_ptr<IDownloadStream> inner) override;
    std::shared_ptr<IUploadStream> WrapUpload(const std::string& path, std::shared_ptr<IUploadStream> inner) override;

    /// Runs in the caller's thread, at a place.
    void AtPlace(const run_t& run);
    void Upload(std::uint64_t bytes, const run_t& run);
    /// `asked` is what the transfer has at most; 0 when nobody knows.
    void Download(std::uint64_t asked, const bring_t& bring);
    /// Waits for all tasks and ends the threads.
    void Drain();

private:
    void Transfer(const SInterceptedCall& call, const run_t& run);
    void Pause(std::chrono::nanoseconds duration);

    const std::shared_ptr<ITimer> timer_;
    CTokenBucket up_;
    CTokenBucket down_;
    CPlaces places_;
    std::optional<task::CWorkerPool> pool_;  // until Drain
};

namespace {

using limiter_ptr = std::shared_ptr<CLimitClient::CLimiter>;

class CLimitedDownload : public IDownloadStream {
public:
    CLimitedDownload(limiter_ptr limiter, std::shared_ptr<IDownloadStream> inner)
        : limiter_(std::move(limiter)), inner_(std::move(inner)) {}

    std::size_t Read(std::span<char> buffer) override {
        std::size_t count = 0;
        limiter_->AtPlace([&] { limiter_->Download(0, [&] { return count = inner_->Read(buffer); }); });
        return count;
    }

private:
    const limiter_ptr limiter_;
    const std::shared_ptr<IDownloadStream> inner_;
};

class CLimitedUpload : public IUploadStream {
public:
    CLimitedUpload(limiter_ptr limiter, std::shared_ptr<IUploadStream> inner)
        : limiter_(std::move(limiter)), inner_(std::move(inner)) {}

    void Write(std::span<const char> data) override {
        limiter_->AtPlace([&] { limiter_->Upload(data.size(), [&] { inner_->Write(data); }); });
    }
    void Finish() override {
        limiter_->AtPlace([&] { inner_->Finish(); });
    }

private:
    const limiter_ptr limiter_;
    const std::shared_ptr<IUploadStream> inner_;
};

}  // namespace

task::task_ptr CLimitClient::CLimiter::OnTask(const SInterceptedCall& call, start_t start) {
    const auto queued = std::make_shared<CQueuedTask>();
    auto job = [this, call = call, start = std::move(start)](std::size_t) {
        const CLeave leave(places_);
        Transfer(call, [&] { start()->Wait(); });
    };
    // The job is handed on, not copied: what it holds is let go when it is done.
    places_.Enter([this, queued, job = std::move(job)]() mutable {
        queued->Begin([&] { return pool_->Submit(std::move(job)); });
    });
    return queued;
}

void CLimitClient::CLimiter::OnCall(const SInterceptedCall& call, const run_t& run) {
    if (StoreOperations().contains(call.operation)) {
        AtPlace(run);
    } else {
        run();
    }
}

std::shared_ptr<IDownloadStream> CLimitClient::CLimiter::WrapDownload(const std::string&,
                                                                      std::shared_ptr<IDownloadStream> inner) {
    return std::make_shared<CLimitedDownload>(shared_from_this(), std::move(inner));
}

std::shared_ptr<IUploadStream> CLimitClient::CLimiter::WrapUpload(const std::string&,
                                                                  std::shared_ptr<IUploadStream> inner) {
    return std::make_shared<CLimitedUpload>(shared_from_this(), std::move(inner));
}

void CLimitClient::CLimiter::AtPlace(const run_t& run) {
    task::CPromiseTask place;
    places_.Enter([&place] { place.SetDone(); });
    place.Wait();
    const CLeave leave(places_);
    run();
}

void CLimitClient::CLimiter::Upload(std::uint64_t bytes, const run_t& run) {
    Pause(up_.Take(timer_->Now(), bytes));
    run();
}

void CLimitClient::CLimiter::Download(std::uint64_t asked, const bring_t& bring) {
    const std::uint64_t taken = std::min(asked, down_.GetSize());
    Pause(down_.Take(timer_->Now(), taken));
    const std::uint64_t brought = bring();
    down_.Settle(timer_->Now(), taken, brought);
}

void CLimitClient::CLimiter::Drain() {
    places_.WaitUntilNobodyWaits();
    pool_.reset();
}

void CLimitClient::CLimiter::Transfer(const SInterceptedCall& call, const run_t& run) {
    if (call.operation == EOperation::uploadFile) {
        Upload(call.buffer->size(), run);
    } else if (call.buffer) {
        Download(call.size, [&] {
            run();
            return call.buffer->size();
        });
    } else {
        run();
    }
}

void CLimitClient::CLimiter::Pause(std::chrono::nanoseconds duration) {
    if (duration > std::chrono::nanoseconds(0)) {
        timer_->Wait(duration);
    }
}

CLimitClient::CLimitClient(std::shared_ptr<ICloudClient> inner, SLimits limits, std::shared_ptr<ITimer> timer)
    : CLimitClient(inner, limits.operationsInFlight,
                   std::make_shared<CLimiter>(
                       limits, std::move(timer),
                       limits.operationsInFlight == 0 ? inner->GetConcurrentTaskLimit() : limits.operationsInFlight)) {}

CLimitClient::CLimitClient(std::shared_ptr<ICloudClient> inner, std::size_t operationsInFlight,
                           std::shared_ptr<CLimiter> limiter)
    : CInterceptingClient(std::move(inner), limiter),
      operationsInFlight_(operationsInFlight),
      limiter_(std::move(limiter)) {}

CLimitClient::~CLimitClient() { limiter_->Drain(); }

std::size_t CLimitClient::GetConcurrentTaskLimit() {
    const std::size_t inner = CInterceptingClient::GetConcurrentTaskLimit();
    return operationsInFlight_ == 0 ? inner : std::min(inner, operationsInFlight_);
}

}  // namespace cloudclientlib
