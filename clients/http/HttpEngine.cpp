#include "clients/http/HttpEngine.h"

#include <atomic>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "clients/http/HttpDate.h"
#include "clients/http/HttpTransfer.h"
#include "common/exc.h"
#include "common/signals.h"

namespace clients::http {

std::string SHttpAnswer::Header(const std::string& lowerCaseName) const {
    const auto found = headers.find(lowerCaseName);
    return found == headers.end() ? std::string() : found->second;
}

std::chrono::milliseconds SHttpAnswer::RetryAfter() const {
    using std::chrono::milliseconds;
    constexpr std::size_t mostDigits = 6;
    const std::string text = Header("retry-after");
    if (text.empty()) {
        return milliseconds::zero();
    }
    if (text.size() <= mostDigits && text.find_first_not_of("0123456789") == std::string::npos) {
        return std::chrono::seconds(std::stol(text));
    }
    const auto until = ParseHttpDate(text);
    const auto now = ParseHttpDate(Header("date"));
    const bool isTold = now != std::chrono::system_clock::time_point() && until > now;
    return isTold ? std::chrono::duration_cast<milliseconds>(until - now) : milliseconds::zero();
}

namespace {

/// libcurl's own state, set up once and left to the process's end.
void InitialiseCurl() { [[maybe_unused]] static const CURLcode done = curl_global_init(CURL_GLOBAL_DEFAULT); }

struct SMultiDeleter {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};

}  // namespace

/// The thread, what waits for it, and what it works on.
class CHttpEngine::CLoop {
public:
    explicit CLoop(SHttpOptions options) : options_(std::move(options)) {
        InitialiseCurl();
        multi_.reset(curl_multi_init());
        if (!multi_) {
            throw exc::CRuntimeExc("Cannot set up the HTTP engine");
        }
        const auto connections = static_cast<long>(options_.connections);
        curl_multi_setopt(multi_.get(), CURLMOPT_MAX_TOTAL_CONNECTIONS, connections);
        curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, connections);
        curl_multi_setopt(multi_.get(), CURLMOPT_PIPELINING, CURLPIPE_NOTHING);
        const posix::held_signals_t held;
        thread_ = std::thread([this] { Work(); });
    }
    CLoop(const CLoop&) = delete;
    CLoop& operator=(const CLoop&) = delete;
    ~CLoop() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        curl_multi_wakeup(multi_.get());
        thread_.join();
    }

    void Start(SHttpRequest request, done_t done) {
        {
            const std::lock_guard lock(mutex_);
            waiting_.push_back({std::move(request), std::move(done)});
            ++unfinished_;
        }
        curl_multi_wakeup(multi_.get());
    }
    [[nodiscard]] std::size_t GetConnections() const { return options_.connections; }
    [[nodiscard]] bool IsBusy() const { return unfinished_ >= options_.connections; }

private:
    struct SWaiting {
        SHttpRequest request;
        done_t done;
    };

    void Work() {
        while (Begin()) {
            int running = 0;
            curl_multi_perform(multi_.get(), &running);
            if (Finish()) {
                continue;  // connections are free for what waits
            }
            constexpr int longestWait = 1000;  // in milliseconds; a wake-up ends it
            curl_multi_poll(multi_.get(), nullptr, 0, longestWait, nullptr);
        }
    }

    /// Takes over what waits, as far as there are connections; false when all is done and the engine is to stop.
    bool Begin() {
        while (transfers_.size() < options_.connections) {
            SWaiting next;
            {
                const std::lock_guard lock(mutex_);
                if (waiting_.empty()) {
                    return !transfers_.empty() || !stopping_;
                }
                next = std::move(waiting_.front());
                waiting_.pop_front();
            }
            Begin(std::move(next));
        }
        return true;
    }

    void Begin(SWaiting next) {
        auto transfer = TakeHandle();
        transfer->Prepare(std::move(next.request), options_);
        CURL* const handle = transfer->GetHandle();
        transfers_[handle] = {std::move(transfer), std::move(next.done)};
        curl_multi_add_handle(multi_.get(), handle);
    }

    /// Whether anything was finished.
    bool Finish() {
        bool any = false;
        int left = 0;
        while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
            if (message->msg != CURLMSG_DONE) {
                continue;
            }
            const CURLcode code = message->data.result;
            CURL* const handle = message->easy_handle;
            curl_multi_remove_handle(multi_.get(), handle);
            auto found = transfers_.extract(handle);
            SActive& active = found.mapped();
            SHttpResult result = active.transfer->TakeResult(code);
            idle_.push_back(std::move(active.transfer));
            --unfinished_;
            active.done(std::move(result));
            any = true;
        }
        return any;
    }

    std::unique_ptr<CHttpTransfer> TakeHandle() {
        if (idle_.empty()) {
            return std::make_unique<CHttpTransfer>();
        }
        auto transfer = std::move(idle_.back());
        idle_.pop_back();
        return transfer;
    }

    struct SActive {
        std::unique_ptr<CHttpTransfer> transfer;
        done_t done;
    };

    const SHttpOptions options_;
    std::unique_ptr<CURLM, SMultiDeleter> multi_;
    std::map<CURL*, SActive> transfers_;                // the thread's own
    std::vector<std::unique_ptr<CHttpTransfer>> idle_;  // the thread's own

    std::atomic<std::size_t> unfinished_ = 0;

    std::mutex mutex_;
    std::deque<SWaiting> waiting_;  // guarded by mutex_
    bool stopping_ = false;         // guarded by mutex_
    std::thread thread_;
};

CHttpEngine::CHttpEngine(SHttpOptions options) : loop_(std::make_unique<CLoop>(std::move(options))) {}
CHttpEngine::~CHttpEngine() = default;

void CHttpEngine::Start(SHttpRequest request, done_t done) { loop_->Start(std::move(request), std::move(done)); }

SHttpResult CHttpEngine::Run(SHttpRequest request) {
    std::promise<SHttpResult> promise;
    auto result = promise.get_future();
    Start(std::move(request), [&](SHttpResult answer) { promise.set_value(std::move(answer)); });
    return result.get();
}

std::size_t CHttpEngine::GetConnections() const { return loop_->GetConnections(); }

bool CHttpEngine::IsBusy() const { return loop_->IsBusy(); }

}  // namespace clients::http
