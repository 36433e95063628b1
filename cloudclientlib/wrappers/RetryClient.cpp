#include "cloudclientlib/wrappers/RetryClient.h"

#include <algorithm>
#include <optional>
#include <random>
#include <typeinfo>
#include <utility>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/WorkerPool.h"
#include "common/logging.h"

namespace cloudclientlib {

namespace {

using std::chrono::nanoseconds;

constexpr logging::section_t section("RetryClient");

double SystemRandom() {
    thread_local std::mt19937_64 generator(std::random_device{}());
    return std::uniform_real_distribution<double>(0, 1)(generator);
}

/// Longer than anybody waits, and short enough to be reckoned with in nanoseconds.
constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 365);

std::chrono::milliseconds Sane(std::chrono::milliseconds duration) {
    return std::clamp(duration, std::chrono::milliseconds(0), longest);
}

SRetryOptions Complete(SRetryOptions options) {
    options.attempts = std::max(options.attempts, 1U);
    options.base = Sane(options.base);
    options.cap = Sane(options.cap);
    options.deadline = Sane(options.deadline);
    if (!options.timer) {
        options.timer = SystemTimer();
    }
    if (!options.random) {
        options.random = SystemRandom;
    }
    return options;
}

/// The progress of a deletion over all its attempts: each finds only what those before it left.
class CCarriedProgress : public progress::progress_base_t {
public:
    explicit CCarriedProgress(std::shared_ptr<progress::progress_base_t> caller) : caller_(std::move(caller)) {}

    void BeginAttempt() { before_ = done_; }
    void SetProgress(std::uint64_t done, std::uint64_t total) override {
        // An attempt may have deleted more than it told; then the next finds fewer, and the total stays what it was.
        Tell(before_ + done, std::max(total_, before_ + total));
    }
    /// All is gone, also what a failed attempt deleted without telling.
    void Finish() {
        if (done_ < total_) {
            Tell(total_, total_);
        }
    }

private:
    void Tell(std::uint64_t done, std::uint64_t total) {
        done_ = done;
        total_ = total;
        caller_->SetProgress(done, total);
    }

    const std::shared_ptr<progress::progress_base_t> caller_;
    // One attempt runs at a time.
    std::uint64_t before_ = 0;
    std::uint64_t done_ = 0;
    std::uint64_t total_ = 0;
};

}  // namespace

/// Repeats operations, in the caller's thread.
class CRetryClient::CAttempts {
public:
    explicit CAttempts(SRetryOptions options) : options_(Complete(std::move(options))) {}

    void Try(const IInterceptor::run_t& attempt);

private:
    /// How long attempts take until one failed: all of them, and those behind the first one, which the deadline is for.
    struct SSpent {
        nanoseconds all;
        nanoseconds failing;
    };

    /// Whether there is time for another attempt after the `made`-th failed, and how long to wait before it.
    [[nodiscard]] std::optional<nanoseconds> PauseAfter(const CCloudExc& failure, unsigned made, const SSpent& spent);
    [[nodiscard]] nanoseconds Backoff(unsigned made);
    /// To be called in the handler of the failure.
    [[noreturn]] void GiveUp(const CCloudExc& failure, unsigned made, const SSpent& spent) const;

    const SRetryOptions options_;
};

/// Repeats operations, asynchronous ones in its own threads.
class CRetryClient::CRetrier : public IInterceptor {
public:
    CRetrier(SRetryOptions options, std::size_t threads) : attempts_(std::move(options)), pool_(threads) {}

    task::task_ptr OnTask(const SInterceptedCall&, start_t start) override {
        return Submit([start = std::move(start)] { start()->Wait(); });
    }
    void OnCall(const SInterceptedCall&, const run_t& run) override { attempts_.Try(run); }
    std::shared_ptr<IDownloadStream> WrapDownload(const std::string&, std::shared_ptr<IDownloadStream> inner) override {
        return inner;
    }
    std::shared_ptr<IUploadStream> WrapUpload(const std::string&, std::shared_ptr<IUploadStream> inner) override {
        return inner;
    }

    /// Tries `attempt` in one of the threads.
    task::task_ptr Submit(run_t attempt) {
        return pool_.Submit([this, attempt = std::move(attempt)](std::size_t) { attempts_.Try(attempt); });
    }

private:
    CAttempts attempts_;
    task::CWorkerPool pool_;
};

void CRetryClient::CAttempts::Try(const IInterceptor::run_t& attempt) {
    const nanoseconds begin = options_.timer->Now();
    std::optional<nanoseconds> firstFailure;
    for (unsigned made = 1;; ++made) {
        std::optional<nanoseconds> pause;
        try {
            attempt();
            return;
        } catch (const CCloudExc& failure) {
            if (!failure.IsRetryable()) {
                throw;
            }
            const nanoseconds now = options_.timer->Now();
            const SSpent spent{now - begin, now - firstFailure.value_or(now)};
            firstFailure = now - spent.failing;
            pause = PauseAfter(failure, made, spent);
            if (!pause) {
                GiveUp(failure, made, spent);
            }
            section.Warn("%1; attempt %2 of %3 follows in %4", failure.what(), made + 1, options_.attempts,
                         DurationText(*pause));
        }
        options_.timer->Wait(*pause);
    }
}

std::optional<nanoseconds> CRetryClient::CAttempts::PauseAfter(const CCloudExc& failure, unsigned made,
                                                               const SSpent& spent) {
    if (made >= options_.attempts) {
        return std::nullopt;
    }
    const nanoseconds pause = std::max<nanoseconds>(Backoff(made), Sane(failure.GetRetryAfter()));
    return spent.failing + pause > options_.deadline ? std::nullopt : std::optional(pause);
}

nanoseconds CRetryClient::CAttempts::Backoff(unsigned made) {
    nanoseconds most = options_.base;
    for (unsigned i = 1; i < made && most < options_.cap; ++i) {
        most *= 2;
    }
    most = std::min<nanoseconds>(most, options_.cap);
    const double share = std::clamp(options_.random(), 0.0, 1.0);
    return nanoseconds(static_cast<nanoseconds::rep>(share * static_cast<double>(most.count())));
}

void CRetryClient::CAttempts::GiveUp(const CCloudExc& failure, unsigned made, const SSpent& spent) const {
    if (typeid(failure) != typeid(CCloudExc)) {
        throw;
    }
    std::string remark = exc::Format(made == 1 ? "(after %1 attempt over %2" : "(after %1 attempts over %2", made,
                                     DurationText(spent.all));
    if (const auto asked = Sane(failure.GetRetryAfter());
        asked > asked.zero() && made < options_.attempts && spent.failing + asked > options_.deadline) {
        remark += exc::Format("; the service asks to wait %1", DurationText(asked));
    }
    throw failure.WithRemark(remark + ')');
}

CRetryClient::CRetryClient(std::shared_ptr<ICloudClient> inner, SRetryOptions options)
    : CRetryClient(inner, std::make_shared<CRetrier>(std::move(options), inner->GetConcurrentTaskLimit())) {}

CRetryClient::CRetryClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CRetrier> retrier)
    : CInterceptingClient(std::move(inner), retrier), retrier_(std::move(retrier)) {}

task::task_ptr CRetryClient::DeleteFolderAsync(const std::string& path,
                                               std::shared_ptr<progress::progress_base_t> progress) {
    if (!progress) {
        return CInterceptingClient::DeleteFolderAsync(path, nullptr);
    }
    const auto carried = std::make_shared<CCarriedProgress>(std::move(progress));
    return retrier_->Submit([inner = Inner(), path, carried] {
        carried->BeginAttempt();
        inner->DeleteFolderAsync(path, carried)->Wait();
        carried->Finish();
    });
}

void CRetryClient::Retry(SRetryOptions options, const std::function<void()>& operation) {
    CAttempts(std::move(options)).Try(operation);
}

}  // namespace cloudclientlib
