#include "cloudclientlib/wrappers/TraceClient.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

#include "cloudclientlib/WorkerPool.h"
#include "common/exc.h"
#include "common/logging.h"

namespace cloudclientlib {

namespace {

using std::chrono::nanoseconds;

constexpr logging::section_t section("TraceClient");

enum class EDirection { none, up, down };

EDirection DirectionOf(EOperation operation) {
    switch (operation) {
        case EOperation::uploadFile:
        case EOperation::streamWrite:
            return EDirection::up;
        case EOperation::downloadFile:
        case EOperation::downloadFileRange:
        case EOperation::streamRead:
            return EDirection::down;
        default:
            return EDirection::none;
    }
}

/// "CopyFile 'a' to 'b'".
std::string Describe(const SInterceptedCall& call) {
    std::string text(ToStr(call.operation));
    switch (call.operation) {
        case EOperation::getStorageQuota:
        case EOperation::getConcurrentTaskLimit:
        case EOperation::createAsyncTaskUtils:
            return text;
        case EOperation::copyFile:
            return text + " '" + call.path + "' to '" + call.target + "'";
        default:
            return text + " '" + call.path + "'";
    }
}

std::string TextOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& known) {
        return exc::ChainText(known);
    } catch (...) {
        return "unknown error";
    }
}

std::uint64_t BytesOf(const SInterceptedCall& call) { return call.buffer ? call.buffer->size() : 0; }

}  // namespace

/// The totals, shared by the client with its streams. The threads end with the client.
class CTraceClient::CTracer : public IInterceptor, public std::enable_shared_from_this<CTracer> {
public:
    /// Does the work and says how many bytes it moved.
    using work_t = std::function<std::uint64_t()>;

    CTracer(std::shared_ptr<ITimer> timer, std::size_t threads)
        : timer_(timer ? std::move(timer) : SystemTimer()), pool_(std::in_place, threads) {}

    task::task_ptr OnTask(const SInterceptedCall& call, start_t start) override;
    void OnCall(const SInterceptedCall& call, const run_t& run) override;
    std::shared_ptr<IDownloadStream> WrapDownload(const std::string& path,
                                                  std::shared_ptr<IDownloadStream> inner) override;
    std::shared_ptr<IUploadStream> WrapUpload(const std::string& path, std::shared_ptr<IUploadStream> inner) override;

    void Trace(const SInterceptedCall& call, const work_t& work);
    [[nodiscard]] STraceTotals GetTotals() const;
    /// Waits for all tasks and ends the threads.
    void Drain() { pool_.reset(); }
    /// A line for each kind of call.
    void LogTotals() const noexcept;

private:
    /// Does work of a call that began at `begin` and notes its failure.
    std::uint64_t Watch(const SInterceptedCall& call, nanoseconds begin, const work_t& work);
    void NoteDone(const SInterceptedCall& call, nanoseconds begin, std::uint64_t bytes);
    void NoteFailed(const SInterceptedCall& call, nanoseconds begin, const std::exception_ptr& failure);

    const std::shared_ptr<ITimer> timer_;
    mutable std::mutex mutex_;
    STraceTotals totals_;                    // guarded by mutex_
    std::optional<task::CWorkerPool> pool_;  // until Drain
};

namespace {

using tracer_ptr = std::shared_ptr<CTraceClient::CTracer>;

class CTracedDownload : public IDownloadStream {
public:
    CTracedDownload(tracer_ptr tracer, std::string path, std::shared_ptr<IDownloadStream> inner)
        : tracer_(std::move(tracer)), path_(std::move(path)), inner_(std::move(inner)) {}

    std::size_t Read(std::span<char> buffer) override {
        std::size_t count = 0;
        tracer_->Trace({.operation = EOperation::streamRead, .path = path_},
                       [&] { return count = inner_->Read(buffer); });
        return count;
    }

private:
    const tracer_ptr tracer_;
    const std::string path_;
    const std::shared_ptr<IDownloadStream> inner_;
};

class CTracedUpload : public IUploadStream {
public:
    CTracedUpload(tracer_ptr tracer, std::string path, std::shared_ptr<IUploadStream> inner)
        : tracer_(std::move(tracer)), path_(std::move(path)), inner_(std::move(inner)) {}

    void Write(std::span<const char> data) override {
        tracer_->Trace({.operation = EOperation::streamWrite, .path = path_}, [&] {
            inner_->Write(data);
            return data.size();
        });
    }
    void Finish() override {
        tracer_->OnCall({.operation = EOperation::streamFinish, .path = path_}, [&] { inner_->Finish(); });
    }

private:
    const tracer_ptr tracer_;
    const std::string path_;
    const std::shared_ptr<IUploadStream> inner_;
};

}  // namespace

task::task_ptr CTraceClient::CTracer::OnTask(const SInterceptedCall& call, start_t start) {
    const nanoseconds begin = timer_->Now();
    task::task_ptr inner;
    Watch(call, begin, [&] {
        inner = start();
        return 0;
    });
    return pool_->Submit([this, call, begin, inner](std::size_t) {
        NoteDone(call, begin, Watch(call, begin, [&] {
                     inner->Wait();
                     return BytesOf(call);
                 }));
    });
}

void CTraceClient::CTracer::OnCall(const SInterceptedCall& call, const run_t& run) {
    Trace(call, [&] {
        run();
        return 0;
    });
}

std::shared_ptr<IDownloadStream> CTraceClient::CTracer::WrapDownload(const std::string& path,
                                                                     std::shared_ptr<IDownloadStream> inner) {
    return std::make_shared<CTracedDownload>(shared_from_this(), path, std::move(inner));
}

std::shared_ptr<IUploadStream> CTraceClient::CTracer::WrapUpload(const std::string& path,
                                                                 std::shared_ptr<IUploadStream> inner) {
    return std::make_shared<CTracedUpload>(shared_from_this(), path, std::move(inner));
}

void CTraceClient::CTracer::Trace(const SInterceptedCall& call, const work_t& work) {
    const nanoseconds begin = timer_->Now();
    NoteDone(call, begin, Watch(call, begin, work));
}

STraceTotals CTraceClient::CTracer::GetTotals() const {
    const std::lock_guard lock(mutex_);
    return totals_;
}

void CTraceClient::CTracer::LogTotals() const noexcept {
    try {
        const std::string text = section.IsEnabled(logging::level_t::dbg) ? GetTotals().ToAStr() : std::string();
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = std::min(text.find('\n', begin), text.size());
            section.Dbg("in all: %1", text.substr(begin, end - begin));
            begin = end + 1;
        }
    } catch (const std::exception&) {  // there is no memory for a line of the log
    }
}

std::uint64_t CTraceClient::CTracer::Watch(const SInterceptedCall& call, nanoseconds begin, const work_t& work) {
    try {
        return work();
    } catch (...) {
        NoteFailed(call, begin, std::current_exception());
        throw;
    }
}

void CTraceClient::CTracer::NoteDone(const SInterceptedCall& call, nanoseconds begin, std::uint64_t bytes) {
    const nanoseconds time = timer_->Now() - begin;
    const EDirection direction = DirectionOf(call.operation);
    {
        const std::lock_guard lock(mutex_);
        auto& kind = totals_.kinds[static_cast<std::size_t>(call.operation)];
        ++kind.calls;
        kind.time += time;
        kind.bytesUp += direction == EDirection::up ? bytes : 0;
        kind.bytesDown += direction == EDirection::down ? bytes : 0;
    }
    if (!section.IsEnabled(logging::level_t::dbg)) {
        return;
    }
    if (direction == EDirection::none) {
        section.Dbg("%1: %2", Describe(call), DurationText(time));
    } else {
        section.Dbg("%1: %2 bytes in %3", Describe(call), bytes, DurationText(time));
    }
}

void CTraceClient::CTracer::NoteFailed(const SInterceptedCall& call, nanoseconds begin,
                                       const std::exception_ptr& failure) {
    const nanoseconds time = timer_->Now() - begin;
    {
        const std::lock_guard lock(mutex_);
        auto& kind = totals_.kinds[static_cast<std::size_t>(call.operation)];
        ++kind.calls;
        ++kind.failures;
        kind.time += time;
    }
    if (section.IsEnabled(logging::level_t::dbg)) {
        section.Dbg("%1: failed in %2: %3", Describe(call), DurationText(time), TextOf(failure));
    }
}

STraceTotals::SKind STraceTotals::Sum() const {
    SKind sum;
    for (const SKind& kind : kinds) {
        sum.calls += kind.calls;
        sum.failures += kind.failures;
        sum.bytesUp += kind.bytesUp;
        sum.bytesDown += kind.bytesDown;
        sum.time += kind.time;
    }
    return sum;
}

std::string STraceTotals::ToAStr() const {
    std::string text;
    for (std::size_t i = 0; i < operationKinds; ++i) {
        const SKind& kind = kinds[i];
        if (kind.calls == 0) {
            continue;
        }
        text += exc::Format("%1%2: calls %3", text.empty() ? "" : "\n", ToStr(static_cast<EOperation>(i)), kind.calls);
        const auto append = [&text](const char* pattern, std::uint64_t count) {
            text += count == 0 ? "" : exc::Format(pattern, count);
        };
        append(", failed %1", kind.failures);
        append(", bytes up %1", kind.bytesUp);
        append(", bytes down %1", kind.bytesDown);
        text += ", time " + DurationText(kind.time);
    }
    return text;
}

CTraceClient::CTraceClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<ITimer> timer)
    : CTraceClient(inner, std::make_shared<CTracer>(std::move(timer), inner->GetConcurrentTaskLimit())) {}

CTraceClient::CTraceClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CTracer> tracer)
    : CInterceptingClient(std::move(inner), tracer), tracer_(std::move(tracer)) {}

CTraceClient::~CTraceClient() {
    tracer_->Drain();
    tracer_->LogTotals();
}

STraceTotals CTraceClient::GetTotals() const { return tracer_->GetTotals(); }

}  // namespace cloudclientlib
